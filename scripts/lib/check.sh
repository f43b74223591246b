# Shared by the checks: each prints what it found wrong and ends with one line, its result.
# shellcheck shell=bash
# shellcheck source=../lib/project.sh
. "$(dirname -- "$(readlink -f -- "${BASH_SOURCE[0]}")")/project.sh"
cd -- "$project" || exit
export LC_ALL=C

# pass RESULT...
pass() {
  printf '%s: %s\n' "${0##*/}" "$*"
  exit 0
}

# fail RESULT...
fail() {
  printf '%s: FAILED: %s\n' "${0##*/}" "$*"
  exit 1
}

# sources_in FOLDER...: the C and C++ files below, as paths from the project's root.
sources_in() {
  local folder folders=()
  for folder in "$@"; do
    [ ! -d "$folder" ] || folders+=("$folder")
  done
  find "${folders[@]}" -name build -prune -o -type f \( -name '*.[ch]' -o -name '*.cpp' \) -print | sort
}

# build_quietly PRESET [TARGET...]: shows what the build said only when it fails.
build_quietly() {
  local log="build/$1.log"
  mkdir -p build
  build_preset "$@" >"$log" 2>&1 || {
    cat -- "$log"
    fail "the preset $1 does not build"
  }
}

# The four builds that must be free of warnings and alike in what they need.
# shellcheck disable=SC2034 # read by the checks
build_presets=(release debug clang-debug clang-release)
