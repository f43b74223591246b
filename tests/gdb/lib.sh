# Shared by the tests of the debugger helper: how gdb is asked. To be sourced.
# shellcheck shell=bash
set -euo pipefail

here=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")" && pwd -P)
# shellcheck disable=SC2034 # read by the tests that source this file
readonly here
helper="$ORV_SOURCE/gdb/orv-gdb.py"
work=$(mktemp -d)
trap 'rm -rf -- "$work"' EXIT
cd -- "$work"
# gdb starts programs through the user's shell; and writes in the program's encoding.
export SHELL=/bin/sh LC_ALL=C.UTF-8

fail() {
  printf 'FAILED: %s\n' "$*" >&2
  exit 1
}

# expect_equal WHAT EXPECTED FOUND
expect_equal() {
  [ "$2" = "$3" ] || fail "$1: expected <$2>, found <$3>"
}

# ask QUESTION... -- ARGUMENT...: what gdb answers, with the helper loaded and those arguments.
ask() {
  local questions=()
  while [ "$1" != -- ]; do
    questions+=(-ex "$1")
    shift
  done
  shift
  gdb -batch -nx -iex "set debuginfod enabled off" -iex "set width 0" -ex "source $helper" \
    "${questions[@]}" "$@" </dev/null 2>&1
}

# skip_without_gdb: a system may keep gdb from running programs at all.
skip_without_gdb() {
  local answer
  answer=$(ask run -- /bin/true) || true # gdb answers a refusal by its status, too
  grep -q 'exited normally' <<<"$answer" && return 0
  printf 'SKIPPED: gdb cannot run a program here: %s\n' "$answer"
  exit 77
}

# let_die PROGRAM SCENARIO [QUESTION...]: runs the probe in gdb until it dies, its own words in the
# file "own", the addresses it asked about in "addresses", a core in "core"; then asks.
let_die() {
  local program=$1 scenario=$2
  shift 2
  ask "run $scenario >own 2>addresses" "generate-core-file core" "$@" -- "$program"
  [ -s core ] || fail "the probe left no core"
}

# ask_core PROGRAM QUESTION...: what gdb answers about the core, without its words about loading it.
ask_core() {
  local program=$1
  shift
  ask 'echo ANSWERS\n' "$@" -- --core=core "$program" | sed '1,/^ANSWERS$/d'
}
