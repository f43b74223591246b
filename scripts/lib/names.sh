# The public names of the library, from each place that lists them. To be sourced.
# shellcheck shell=bash

# names_in_headers PROJECT: what the public headers declare with ORV_API.
names_in_headers() {
  local header
  for header in "$1"/components/*/include/orv/*.h; do
    # The comments go; declarations stay, one a line once the line breaks are gone.
    gcc -w -fpreprocessed -E -P -x c "$header" | tr '\n' ' ' | grep -oE 'ORV_API [^;{]*;'
  done | awk '
    match($0, /[a-z_][a-z0-9_]* *\(/) && !/^ORV_API [^(]*\*?gMsgBuf;/ {
      name = substr($0, RSTART, RLENGTH); sub(/ *\(/, "", name); print name; next
    }
    { name = $NF; gsub(/[*;]/, "", name); print name }' | sort
}

# names_in_map PROJECT: what the linker's version script lets out.
names_in_map() {
  sed -n '/global:/,/local:/s/^ *\([A-Za-z_][A-Za-z0-9_]*\);$/\1/p' "$1/cmake/orv.map" | sort
}

# names_exported LIBRARY: what the shared library lets out.
names_exported() {
  nm -D --defined-only "$1" | awk '$2 != "A" { sub(/@.*/, "", $3); print $3 }' | sort
}
