# find_package.sh static|shared c|cxx: a project in that language alone finds the package, builds
# and runs.
. "$(dirname -- "$0")/lib.sh"

prefix=$(prefix_of "$1")
folder=$(fresh_folder "find_package $1 $2")
"$CMAKE" -S "$here/project_$2" -B "$folder" -G Ninja -D CMAKE_BUILD_TYPE=Release \
  -D CMAKE_PREFIX_PATH="$prefix" -D CMAKE_C_COMPILER="$CC" -D CMAKE_CXX_COMPILER="$CXX"
"$CMAKE" --build "$folder"
expect_greeting "$folder/program" ""
if [ "$2" = c ] && ldd "$folder/program" | grep -F libstdc++; then
  fail "a program in C needs the run-time library of C++"
fi
