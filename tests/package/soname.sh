# The links of the shared library, the name it calls itself, and the name programs remember.
. "$(dirname -- "$0")/lib.sh"

libdir="$(prefix_of shared)/lib"
expect_equal "liborv.so" liborv.so.1 "$(readlink -- "$libdir/liborv.so")"
expect_equal "liborv.so.1" liborv.so.1.0.0 "$(readlink -- "$libdir/liborv.so.1")"
soname=$(readelf -d "$libdir/liborv.so" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
expect_equal "SONAME" liborv.so.1 "$soname"

folder=$(fresh_folder "soname")
compile_with_pkg_config "$folder/program" "$here/project_c/program.c" "$libdir/pkgconfig"
grep -qF 'Shared library: [liborv.so.1]' <<<"$(readelf -d "$folder/program")" ||
  fail "the program does not ask for liborv.so.1"
