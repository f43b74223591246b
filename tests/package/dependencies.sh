# The shared library needs the C library and nothing else; so does a program with the static one.
. "$(dirname -- "$0")/lib.sh"

# needed FILE: the libraries that the file itself asks for.
needed() {
  readelf -d "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | tr '\n' ' '
}

# loaded FILE: the libraries that the loader brings in for it.
loaded() {
  ldd "$1" | sed -n 's/^[[:space:]]*\([^ ]*\) .*/\1/p' | sort | tr '\n' ' '
}

library="$(prefix_of shared)/lib/liborv.so.1"
expect_equal "needed by the shared library" "libc.so.6 " "$(needed "$library")"
expect_equal "loaded for the shared library" \
  "/lib64/ld-linux-x86-64.so.2 libc.so.6 linux-vdso.so.1 " "$(loaded "$library")"

folder=$(fresh_folder "dependencies")
compile_with_pkg_config "$folder/program" "$here/project_c/program.c" \
  "$(prefix_of static)/lib/pkgconfig"
expect_equal "needed by a program with the static library" "libc.so.6 " \
  "$(needed "$folder/program")"
