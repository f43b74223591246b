# An installed tree that was moved elsewhere serves pkg-config and find_package from there. Neither
# folder may have a blank in its name: pkgconf would quote it twice.
. "$(dirname -- "$0")/lib.sh"

root=$(mktemp -d)
trap 'rm -r -- "$root"' EXIT
"$CMAKE" --install "$build" --prefix "$root/old"
mv -- "$root/old" "$root/new"
libdir=$(dirname -- "$(find "$root/new" -name 'liborv.so.1')")

compile_with_pkg_config "$root/program" "$here/project_c/program.c" "$libdir/pkgconfig"
expect_greeting "$root/program" "$libdir"

"$CMAKE" -S "$here/project_c" -B "$root/build" -G Ninja -D CMAKE_C_COMPILER="$CC" \
  -D CMAKE_PREFIX_PATH="$root/new"
"$CMAKE" --build "$root/build" --verbose >"$root/log"
expect_greeting "$root/build/program" ""
grep -qF "$libdir/liborv.so.1.0.0" "$root/log" ||
  fail "the moved library is not the one that was linked"
if grep -rF "$root/old" "$root/new"; then
  fail "the old place is written into an installed file"
fi
