# Builds the library in Release and installs it twice, static and shared, for the other tests.
. "$(dirname -- "$0")/lib.sh"

configure_and_install "$(prefix_of static)" -D BUILD_SHARED_LIBS=OFF -D CMAKE_INSTALL_LIBDIR=lib
configure_and_install "$(prefix_of shared)" -D BUILD_SHARED_LIBS=ON -D CMAKE_INSTALL_LIBDIR=lib

[ -f "$(prefix_of static)/lib/liborv.a" ] || fail "no static library"
[ -f "$(prefix_of shared)/lib/liborv.so.1" ] || fail "no shared library"
[ ! -e "$(prefix_of shared)/lib/liborv.a" ] || fail "a static library among the shared"

# The public headers and nothing else.
installed=$(cd -- "$(prefix_of static)/include" && find . -type f | sort | tr '\n' ' ')
expect_equal "installed headers" \
  "./orv/alloc.h ./orv/diag.h ./orv/msg.h ./orv/platform.h " "$installed"
