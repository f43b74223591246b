# Runs each test of the library while calls are refused that the library makes in it: of each kind, in each
# way, the 1st, 2nd, 3rd, 5th, 8th ..., one a run. The test may fail then, and an assertion of the library
# may end it. No process of it may crash, the test may not hang, and no child may be left but where the wait
# for it was refused. For scripts/torture alone.
# shellcheck shell=bash
set -euo pipefail
# shellcheck source=project.sh
. "$(dirname -- "$(readlink -f -- "$0")")/project.sh"
cd -- "$project"

logs="$project/build/torture-tests/logs"
build_preset torture-tests test_programs orv-torture >build/torture-tests.log 2>&1 || {
  cat build/torture-tests.log
  die "the preset torture-tests does not build"
}
rm -rf -- "$logs"
mkdir -p -- "$logs"
tool="$project/build/torture-tests/tools/torture/orv-torture"
scratch=$(mktemp -d)
trap 'rm -rf -- "$scratch"' EXIT
export TMPDIR="$scratch" tool logs

# A test that is refused a process may signal others instead, and a log may go to the root: so the tests
# run as a user without rights, in a name space of their own for processes.
inside=(unshare --user --map-current-user --pid --fork --kill-child --mount-proc)
if [ "$(id -u)" -eq 0 ]; then
  nobody=65534
  chown "$nobody" "$logs" "$scratch"
  inside=(unshare --pid --fork --kill-child --mount-proc
    setpriv "--reuid=$nobody" "--regid=$nobody" --clear-groups --pdeathsig KILL)
fi

# Tests that talk to a process of their own wait in vain for what was never sent, or leave the other side
# behind when they fail: only crashes count there, and nobody waits for long.
conversing='^(pair_|socket_setup|socket_hostile|socket_effort|socket_send|recipes|platform_signal_storm)'
export conversing

# tests_of PROGRAM: each with the program in front, on lines of their own.
tests_of() {
  "$1" --gtest_list_tests | awk -v program="$1" '
    /^[^ ]/ { suite = $1; next }
    { print program; print suite $1 }'
}

# shellcheck disable=SC2317 # called through xargs
# swept PROGRAM TEST: a test that does not pass here unrefused, as it stands between the library and the
# system itself, is left out.
swept() {
  local log="$logs/${1##*/}.${2//\//-}" limit=20 wrong=' SIG| HUNG | \+[0-9]+ (children|zombies)'
  [[ ! ${1##*/} =~ $conversing ]] || { limit=2 wrong=' SIG(SEGV|BUS|FPE|ILL|ABRT)'; }
  cd -- "$TMPDIR"
  ("$1" "--gtest_filter=$2") &>/dev/null || { : >"$log.left-out" && return; }
  TORTURE_REPORT="$log.report" "$tool" --sweep all --sparse --children --limit "$limit" \
    --only liborv_testable.so -- "$1" "--gtest_filter=$2" >"$log.log" 2>&1 || true
  grep -q ' runs with a refusal: ' -- "$log.log" && [ ! -e "$log.report" ] &&
    ! grep -qE "$wrong" <<<"$(grep -v '^waitpid:' -- "$log.log")" && return
  printf '%s: %s\n' "${1##*/}" "$2"
  grep -E "$wrong|^orv-torture: " -- "$log.log" || true
  cat -- "$log.report" 2>/dev/null || true
  return 1
}
export -f swept

# chosen NAME...: the test programs of these names, all without a name.
chosen() {
  local names='[^/]*'
  [ "$#" -eq 0 ] || names=$(printf '|%s' "$@") names=${names#|}
  grep -E "/($names)\$" build/torture-tests/tests/programs.txt
}

mapfile -t programs < <(chosen "$@")
[ "${#programs[@]}" -gt 0 ] || die "no test program of that name"
for program in "${programs[@]}"; do
  tests_of "$program"
done >"$scratch/tests"
"${inside[@]}" xargs -d '\n' -n 2 -P "$((2 * jobs))" -a "$scratch/tests" bash -c 'swept "$@"' _ ||
  die "see the runs above; their logs are in $logs"
runs=$(cat -- "$logs"/*.log | awk '/ runs with a refusal: / { sum += $2 } END { print sum + 0 }')
[ "$runs" -ge $((5 * ${#programs[@]})) ] || die "only $runs runs: was anything refused?"
tests=$(find "$logs" -name '*.log' | wc -l)
left_out=$(find "$logs" -name '*.left-out' | wc -l)
say "$tests tests ($left_out left out) in $runs runs with a refused call: no crash, no hang, no child left"
