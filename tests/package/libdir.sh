# libdir.sh FOLDER: installed with its libraries in that folder of the prefix ("absolute" stands
# for an absolute path outside of it), the library serves pkg-config and find_package.
. "$(dirname -- "$0")/lib.sh"

folder=$(fresh_folder "libdir ${1//\//_}")
prefix="$folder/prefix"
case $1 in
  absolute) option="$folder/elsewhere/lib" libdir=$option ;;
  *) option=$1 libdir="$prefix/$1" ;;
esac
configure_and_install "$prefix" -D BUILD_SHARED_LIBS=ON -D CMAKE_INSTALL_LIBDIR="$option"

compile_with_pkg_config "$folder/program" "$here/project_c/program.c" "$libdir/pkgconfig"
expect_greeting "$folder/program" "$libdir"

"$CMAKE" -S "$here/project_c" -B "$folder/build" -G Ninja -D CMAKE_C_COMPILER="$CC" \
  -D orv_DIR="$libdir/cmake/orv"
"$CMAKE" --build "$folder/build"
expect_greeting "$folder/build/program" ""
