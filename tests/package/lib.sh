# Shared by the tests of the package: where things are, and what they compare with.
# shellcheck shell=bash
set -euo pipefail

here=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")" && pwd -P)
build="$ORV_SCRATCH/build"
expected_output="Hello from \"orv\", 42 times."
# shellcheck disable=SC2034 # read by the tests that source this file
readonly here build expected_output

fail() {
  printf 'FAILED: %s\n' "$*" >&2
  exit 1
}

# expect_equal WHAT EXPECTED FOUND
expect_equal() {
  [ "$2" = "$3" ] || fail "$1: expected <$2>, found <$3>"
}

# prefix_of static|shared: where install.sh puts that form.
prefix_of() {
  printf '%s/%s prefix' "$ORV_SCRATCH" "$1"
}

# fresh_folder NAME: an empty folder in the scratch folder; its path is printed.
fresh_folder() {
  local folder="$ORV_SCRATCH/$1"
  rm -rf -- "$folder"
  mkdir -p -- "$folder"
  printf '%s' "$folder"
}

# configure_and_install PREFIX OPTION...: from one build folder, so the sources compile once.
configure_and_install() {
  local prefix=$1
  shift
  "$CMAKE" -S "$ORV_SOURCE" -B "$build" -G Ninja -D CMAKE_BUILD_TYPE=Release \
    -D BUILD_TESTING=OFF -D ORV_BUILD_EXAMPLES=OFF \
    -D CMAKE_C_COMPILER="$CC" -D CMAKE_CXX_COMPILER="$CXX" -D CMAKE_INSTALL_PREFIX="$prefix" "$@"
  "$CMAKE" --build "$build"
  rm -rf -- "$prefix"
  "$CMAKE" --install "$build"
}

# compile_with_pkg_config PROGRAM SOURCE PKG_CONFIG_PATH [FLAG...]: as the README says it. pkg-config
# quotes blanks for the shell, hence eval. A C source is left to the C compiler's driver.
compile_with_pkg_config() {
  local flags compiler
  case $2 in
    *.c) compiler=$CC ;;
    *.cpp) compiler=$CXX ;;
  esac
  flags=$(PKG_CONFIG_PATH=$3 pkg-config --cflags --libs orv)
  eval "$(printf '%q ' "$compiler" -Wall -Wextra -Werror "${@:4}" -o "$1" "$2")$flags"
}

# expect_greeting PROGRAM LIBDIR: the program runs and uses the library.
expect_greeting() {
  expect_equal "output of $1" "$expected_output" "$(LD_LIBRARY_PATH=$2 "$1")"
}

# readme_block LANGUAGE [HEADING]: the first block in that language that the README shows, below the
# heading and above the next where one is named.
readme_block() {
  awk -v language="$1" -v heading="${2-}" '
    BEGIN { below = heading == "" }
    inside && /^```/ { exit }
    inside { print; next }
    below && heading != "" && /^#/ { exit }
    $0 == heading { below = 1 }
    below && $0 == "```" language { inside = 1 }' "$ORV_SOURCE/README.md"
}

# readme_output c|cpp: what the README shows as the output of its first program in that language.
readme_output() {
  awk -v language="$1" '
    inside && /^```/ { exit }
    inside { print; next }
    $0 == "```" language { found = 1 }
    found && $0 == "```text" { inside = 1 }' "$ORV_SOURCE/README.md"
}
