# Shared by the scripts: where the project stands, how a script speaks, what it needs installed,
# and how a preset is built. To be sourced.
# shellcheck shell=bash

project=$(cd -- "$(dirname -- "$(readlink -f -- "${BASH_SOURCE[0]}")")/../.." && pwd -P)
jobs=$(nproc)
readonly project jobs

# What is needed, as PACKAGE=SIGN: the Debian package, and the command, the file or the host name that
# shows that the thing is there (whoever installed it). A system without an /etc/hosts takes
# localhost for some stranger.
# shellcheck disable=SC2034 # read by the scripts that source this file
{
  build_needs=(
    "cmake=cmake"
    "ninja-build=ninja"
    "gcc=gcc"
    "g++=g++"
    "libc6-dev=/usr/include/stdio.h"
    "libstdc++-12-dev=/usr/include/c++"
  )
  package_needs=(
    "${build_needs[@]}"
    "dpkg-dev=dpkg-gensymbols"
    "binutils=strip"
    "file=file"
  )
  test_needs=(
    "${build_needs[@]}"
    "libgtest-dev=/usr/include/gtest/gtest.h"
    "libgmock-dev=/usr/include/gmock/gmock.h"
    "pkg-config=pkg-config"
    "binutils=nm"
    "gdb=gdb"
    "python3=python3"
    "valgrind=valgrind"
    "libc6-dbg=/usr/lib/debug/.build-id"
    "libnss-myhostname=host:localhost"
  )
  coverage_needs=(
    "${test_needs[@]}"
    "gcovr=gcovr"
  )
  docs_needs=(
    "doxygen=doxygen"
  )
  check_needs=(
    "${coverage_needs[@]}"
    "${package_needs[@]}"
    "lintian=lintian"
    "abigail-tools=abidiff"
    "${docs_needs[@]}"
    "clang=clang"
    "clang-format=clang-format"
    "clang-tidy=clang-tidy"
    "libclang-rt-14-dev=/usr/lib/llvm-14/lib/clang/14.0.6/lib/linux"
    "cppcheck=cppcheck"
    "shellcheck=shellcheck"
    "pmccabe=pmccabe"
    "mandoc=mandoc"
  )
  bench_needs=(
    "${build_needs[@]}"
    "pkg-config=pkg-config"
    "python3=python3"
    "valgrind=valgrind"
    "libc6-dbg=/usr/lib/debug/.build-id"
    "gnuplot-nox=gnuplot"
    "libdmalloc5=/usr/lib/x86_64-linux-gnu/libdmalloc.so.5"
    "libglib2.0-dev=/usr/include/glib-2.0/glib.h"
    "libspdlog-dev=/usr/include/spdlog/spdlog.h"
    "libgoogle-glog-dev=/usr/include/glog/logging.h"
    "libevent-dev=/usr/include/event2/event.h"
    "libuv1-dev=/usr/include/uv.h"
    "libapr1-dev=/usr/include/apr-1.0/apr.h"
  )
}

say() {
  printf '%s\n' "$*"
}

die() {
  printf '%s: %s\n' "${0##*/}" "$*" >&2
  exit 1
}

# is_present SIGN
is_present() {
  case $1 in
    /*) [ -e "$1" ] ;;
    host:*) grep -q '^127\.' <<<"$(getent ahostsv4 "${1#host:}")" ;;
    *) command -v "$1" >/dev/null ;;
  esac
}

# packages_missing NEED...: the packages among them whose sign is not there, one a line.
packages_missing() {
  local need
  for need in "$@"; do
    is_present "${need##*=}" || printf '%s\n' "${need%=*}"
  done
}

# as_root COMMAND...
as_root() {
  if [ "$(id -u)" -eq 0 ]; then
    "$@"
  elif command -v sudo >/dev/null; then
    sudo "$@"
  else
    return 1
  fi
}

# install_packages PACKAGE...
install_packages() {
  local apt=(env DEBIAN_FRONTEND=noninteractive apt-get -q)
  command -v apt-get >/dev/null &&
    as_root "${apt[@]}" update &&
    as_root "${apt[@]}" install --yes --no-install-recommends "$@"
}

# require NEED...: installs what is not there; ends the script, saying what is missing, where it
# cannot. Without anything missing it asks nobody.
require() {
  local missing
  mapfile -t missing < <(packages_missing "$@")
  [ "${#missing[@]}" -gt 0 ] || return 0
  say "Installing: ${missing[*]}"
  install_packages "${missing[@]}" </dev/null || true
  mapfile -t missing < <(packages_missing "$@")
  [ "${#missing[@]}" -eq 0 ] ||
    die "missing, and could not be installed here (Debian's names): ${missing[*]}"
}

# build_preset PRESET [TARGET...]: configures and builds in build/PRESET.
build_preset() {
  local preset=$1
  shift
  (cd -- "$project" &&
    cmake --preset "$preset" &&
    cmake --build --preset "$preset" --parallel "$jobs" ${1:+--target "$@"})
}

# build_for_packages: builds in build/package with the flags of the distribution's own packages.
build_for_packages() {
  local flags
  flags=$(cd -- "$project" && DEB_BUILD_MAINT_OPTIONS=hardening=+all dpkg-buildflags --export=sh)
  (
    eval "$flags"
    # CMake does not know of CPPFLAGS.
    export CFLAGS="$CFLAGS $CPPFLAGS" CXXFLAGS="$CXXFLAGS $CPPFLAGS"
    build_preset package
  )
}
