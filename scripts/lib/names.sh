# The public names of the library, from each place that lists them. To be sourced.
# shellcheck shell=bash

# functions_declared HEADER FLAG...: the functions of a public header, from gcc's list of the place of
# every declaration. The list is a file of its own: gcc removes it when the header does not compile.
functions_declared() {
  local header=$1 list
  shift
  list=$(mktemp)
  printf '#include <orv/%s>\n' "${header##*/}" |
    gcc -x c -fsyntax-only -aux-info "$list" "$@" - &&
    sed -nE 's|^/\* .*/orv/[a-z]+\.h:[^*]*\*/ extern ([^(]*[ *])?([A-Za-z_0-9]+) \(.*|\2|p' "$list"
  rm -f -- "$list"
}

# names_in_headers PROJECT: the functions and variables that the public headers declare, whatever
# attributes they carry.
names_in_headers() {
  local header folders=()
  for header in "$1"/components/*/include; do
    folders+=("-I$header")
  done
  for header in "$1"/components/*/include/orv/*.h; do
    functions_declared "$header" "${folders[@]}"
    sed -nE 's/^extern .*[ *]([A-Za-z_0-9]+);$/\1/p' "$header"
  done | sort -u
}

# names_in_map PROJECT: what the linker's version script lets out.
names_in_map() {
  sed -n '/global:/,/local:/s/^ *\([A-Za-z_][A-Za-z0-9_]*\);$/\1/p' "$1/cmake/orv.map" | sort
}

# names_exported LIBRARY: what the shared library lets out.
names_exported() {
  nm -D --defined-only "$1" | awk '$2 != "A" { sub(/@.*/, "", $3); print $3 }' | sort
}
