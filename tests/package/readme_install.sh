# The README's commands install the library, here below another root, and its first program is built
# with what they leave there. The folder may not have a blank in its name: pkgconf would quote it
# twice.
. "$(dirname -- "$0")/lib.sh"

root=$(mktemp -d)
trap 'rm -r -- "$root"' EXIT
mkdir "$root/clone"
# All but the folder build, which the commands make anew (and bench, which they do not need).
ln -s -- "$ORV_SOURCE"/[!b]* "$root/clone/"
cd -- "$root/clone"
commands=$(readme_block sh "## A first program")
grep -q 'cmake --install' <<<"$commands" || fail "the README does not say how to install"
# Without optimising, which takes most of the time.
CMAKE_BUILD_TYPE=Debug DESTDIR="$root/installed" bash -euc "$commands"

readme_block c >"$root/hello.c"
compile_with_pkg_config "$root/hello" "$root/hello.c" "$root/installed/usr/local/lib/pkgconfig"
[[ $("$root/hello" orv) == "Hello, orv."* ]] || fail "no greeting"
