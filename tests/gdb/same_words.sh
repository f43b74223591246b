# same_words.sh PROBE SCENARIO whole|stripped: the helper says what the library said itself, of a
# process that is about to die and of its core, with or without symbols.
# shellcheck source-path=SCRIPTDIR
. "$(dirname -- "$0")/lib.sh"

skip_without_gdb
cp -- "$1" probe
[ "$3" != stripped ] || strip --strip-all probe

export ADDRESSES=addresses ANSWERS=live
let_die ./probe "$2" "source $here/ask.py" >log || fail "$(cat log)"
grep -q SIGABRT log || fail "the probe did not come to its end: $(cat log)"
[ -s own ] || fail "the probe said nothing"
diff own live || fail "library (<) and helper (>) differ on the process"

ANSWERS=dead
ask_core ./probe "source $here/ask.py" >log || fail "$(cat log)"
diff own dead || fail "library (<) and helper (>) differ on the core"
