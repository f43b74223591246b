# readme_project.sh HEADING c|cpp [static|shared...]: the project that the README shows below the
# heading, with its first program in that language, is built by the commands shown there and runs.
# The installed library is found where install.sh put it; sources are taken in each form in turn.
. "$(dirname -- "$0")/lib.sh"

heading=$1 language=$2
folder="$(fresh_folder "readme $heading $language")"
mkdir -- "$folder/a project"
cd -- "$folder/a project"

# shown LANGUAGE: the project's file, for the program's language.
shown() {
  case $language in
    c) readme_block "$1" "### $heading" ;;
    cpp) readme_block "$1" "### $heading" |
      sed 's/hello\.c/hello.cpp/g; s/LANGUAGES C)/LANGUAGES CXX)/; s/CFLAGS/CXXFLAGS/g; s/(CC)/(CXX)/' ;;
  esac
}

# place_sources: what the project finds of the library's sources, inside of it or beside it.
place_sources() {
  ln -s -- "$ORV_SOURCE" orv
  mkdir ../orv
  tar --create --directory "$ORV_SOURCE" CMakeLists.txt components cmake tools gdb docs/man packaging |
    tar --extract --directory ../orv
  git -C ../orv init --quiet --initial-branch main
  git -C ../orv add .
  git -C ../orv -c user.name=test -c user.email=test@localhost commit --quiet --message test
}

# prints_what_is_shown COMMANDS: carried out as shown, they end with the program's output.
prints_what_is_shown() {
  local said
  said=$(bash -euc "$1" 2>&1) || fail "$said"
  [[ $said == *$'\n'"$output" ]] || fail "not the output that the README shows: $said"
}

readme_block "$language" >"hello.$language"
shown make >Makefile
shown cmake >CMakeLists.txt
commands=$(shown sh)
output=$(readme_output "$language")
grep -q hello <<<"$commands" || fail "the README shows no commands below $heading"
export CC CXX
if grep -q find_package CMakeLists.txt || [ -s Makefile ]; then
  for kind in "${@:3}"; do
    rm -rf build hello
    libdir="$(prefix_of "$kind")/lib"
    PKG_CONFIG_PATH="$libdir/pkgconfig" CMAKE_PREFIX_PATH="$(prefix_of "$kind")" \
      LD_LIBRARY_PATH=$libdir prints_what_is_shown "$commands"
  done
else
  place_sources
  prints_what_is_shown "$commands"
  "$CMAKE" build -D BUILD_SHARED_LIBS=ON
  prints_what_is_shown "$commands"
  grep -q 'liborv\.so\.1 => ' <<<"$(ldd build/hello)" || fail "the shared library was not linked"
fi
if [ "$language" = c ] && ldd "$(find . -name hello -type f)" | grep -F libstdc++; then
  fail "a program in C needs the run-time library of C++"
fi
