# Installs the packages below /orv into the system that it sees, uses them as a stranger
# would, and removes them. For in_view.sh alone.
# shellcheck shell=bash
set -euo pipefail
export LC_ALL=C HOME=/tmp

fail() {
  printf '%s\n' "$*"
  exit 1
}

# greets PROGRAM
greets() {
  [ "$("$1")" = 'Hello from "orv", 42 times.' ] || fail "$1 does not greet"
}

# loads PROGRAM: where it finds the shared library.
loads() {
  ldd "$1" | sed -n 's/.*liborv\.so\.1 => \([^ ]*\) .*/\1/p'
}

cd /orv
# As the README says; what comes before was done outside.
installs=$(sed -n '/^### Debian packages/,/^## /s/^apt install/apt-get --yes install/p' README.md)
[ -n "$installs" ] || fail "the README does not say how the packages are installed"
bash -c "$installs" >/tmp/log 2>&1 || fail "not installed: $(cat /tmp/log)"
dpkg --install build/packages/liborv1-dbgsym_*.deb >/tmp/log 2>&1 || fail "not installed: $(cat /tmp/log)"
dpkg --verify liborv1 liborv1-dbgsym liborv-dev

cd /tmp
# shellcheck disable=SC2046 # the flags are words
cc -Wall -Wextra -Werror /orv/package/project_c/program.c $(pkg-config --cflags --libs orv) -o shared
greets ./shared
[ "$(loads shared)" = /lib/x86_64-linux-gnu/liborv.so.1 ] || fail "the loader has not been told"
cc /orv/package/project_c/program.c -l:liborv.a -o static
greets ./static
[ -z "$(loads static)" ] || fail "the static library was not linked"
cmake -S /orv/package/project_c -B build -G Ninja >/dev/null
cmake --build build >/dev/null
greets build/program

told=$(gdb -batch -ex 'break main' -ex run -ex 'help orv' shared 2>&1) || true
grep -q 'orv report' <<<"$told" || fail "gdb does not load its helper by itself: $told"
# orv-torture finds its layer where both were installed.
swept=$(orv-torture --sweep fwrite,fflush,stat --only liborv.so.1 --accept 0,1 -- ./shared) ||
  fail "orv-torture does not serve: $swept"
grep -q 'fwrite from liborv\.so\.1+0x' <<<"$swept" || fail "orv-torture refused nothing: $swept"
for page in man7/orv.7 man1/orv-torture.1; do
  [ -f "/usr/share/man/$page.gz" ] || fail "no manual page $page"
done

# shellcheck disable=SC2251 # it is to fail
! dpkg --remove liborv1 >/dev/null 2>&1 || fail "removed although liborv-dev needs it"
dpkg --purge liborv-dev liborv1-dbgsym liborv1 >/tmp/log 2>&1 || fail "not removed: $(cat /tmp/log)"
if grep -q 'while removing .* directory .* not empty' /tmp/log || ldconfig -p | grep liborv; then
  fail "not gone: $(cat /tmp/log)"
fi
