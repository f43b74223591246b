# printers.sh PROBE: a pair handle is printed as the library describes it, a message buffer by what
# waits in it.
# shellcheck source-path=SCRIPTDIR
. "$(dirname -- "$0")/lib.sh"

skip_without_gdb
let_die "$1" records >log || fail "$(cat log)"

answers=$(ask_core "$1" "output *intact" 'echo \n' "output *failed" 'echo \n' "output corrupt" \
  'echo \n' "output *buffer" 'echo \n' "output broken" 'echo \n' "output/r *intact")
expect_equal "an intact handle, one that was not opened, a copy" "$(cat own)" \
  "$(sed -n 1,3p <<<"$answers")"
expect_equal "a buffer" 'message buffer of 100 bytes; 5 consumed; 5 waiting: ""B"\r\n"' \
  "$(sed -n 4p <<<"$answers")"
grep -q '^message buffer corrupt: 0x' <<<"$(sed -n 5p <<<"$answers")" || fail "a broken buffer: $answers"
grep -q 'companion_pid = [0-9]' <<<"$(sed -n 6p <<<"$answers")" || fail "the fields of a handle: $answers"
