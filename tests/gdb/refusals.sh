# refusals.sh PROBE: where the helper can tell nothing, it says why in a sentence.
# shellcheck source-path=SCRIPTDIR
. "$(dirname -- "$0")/lib.sh"

skip_without_gdb
expect_equal "no process" "orv: there is no process and no core file to look at." \
  "$(ask "orv report" -- "$1")"
expect_equal "a program without the library" \
  "orv: no allocation calls of the orv library are in this program." \
  "$(ask starti "orv report" -- /bin/true | tail -n 1)"

let_die "$1" off >log || fail "$(cat log)"
expect_equal "debug mode off" "orv: the allocation debug mode is off in this program." \
  "$(ask_core "$1" "orv report")"

let_die "$1" sound >log || fail "$(cat log)"
expect_equal "no memory, no address, no expression, no such option" \
  "orv: the 8 bytes before 0x0000000000001000 cannot be read.
orv: an address is missing.
No symbol \"nosuch\" in current context.
Usage: orv report [-v]" \
  "$(ask_core "$1" "orv describe 0x1000" "orv describe" "orv block nosuch" "orv report -x")"
