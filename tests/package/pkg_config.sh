# pkg_config.sh static|shared c|cxx: a program outside any project builds with the flags that
# pkg-config gives, and runs.
. "$(dirname -- "$0")/lib.sh"

libdir="$(prefix_of "$1")/lib"
folder=$(fresh_folder "pkg-config $1 $2")
case $2 in
  c) source="$here/project_c/program.c" ;;
  cxx) source="$here/project_cxx/program.cpp" ;;
esac
compile_with_pkg_config "$folder/program" "$source" "$libdir/pkgconfig"
expect_greeting "$folder/program" "$libdir"
expect_equal "pkg-config's version" 1.0.0 \
  "$(PKG_CONFIG_PATH=$libdir/pkgconfig pkg-config --modversion orv)"
