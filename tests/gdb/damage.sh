# damage.sh PROBE: the helper bears damage in the library's own records, and says what it cannot read.
# shellcheck source-path=SCRIPTDIR
. "$(dirname -- "$0")/lib.sh"

skip_without_gdb
let_die "$1" sound 'echo ANSWERS\n' "source $here/damage.py" >log || fail "$(cat log)"
expect_equal "what is said of each damage" \
  "count: orv: the table of 1152921504606846976 records at ADDRESS cannot be read.
table: orv: the table of 1024 records at ADDRESS cannot be read.
free list: orv_malloc_debug_report: 70077 bytes allocated, 6 pointers
pointer: corrupted!)
length: corrupted!)
method:      0 ADDRESS       1 <no text can be read at ADDRESS> make_sound           one byte
nothing: orv_malloc_debug_report: 70077 bytes allocated, 6 pointers" \
  "$(sed '1,/^ANSWERS$/d' log)"
