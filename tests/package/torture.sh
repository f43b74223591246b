# The installed orv-torture finds its layer beside it, in a folder with a blank too, and refuses what
# the library asks for.
. "$(dirname -- "$0")/lib.sh"

shared="$(prefix_of shared)"
program="$(fresh_folder torture)/program"
compile_with_pkg_config "$program" "$here/project_c/program.c" "$shared/lib/pkgconfig"
export LD_LIBRARY_PATH="$shared/lib"

status=0
output=$("$shared/bin/orv-torture" --fail malloc:2 --only liborv.so.1 -- "$program" 2>&1) || status=$?
expect_equal "exit status" 1 "$status"
grep -q '^Error: ORV_STRDUP in .*: Not enough memory to allocate 4 bytes\.' <<<"${output//$'\n'       / }" ||
  fail "the library did not say what it lacks: $output"
grep -q 'orv-torture: refused malloc (ENOMEM), called from liborv.so.1+0x' <<<"$output" ||
  fail "the launcher did not say what it refused: $output"
