# The shared library exports what the headers declare, all of it and nothing else.
. "$(dirname -- "$0")/lib.sh"
# shellcheck source=../../scripts/lib/names.sh
. "$ORV_SOURCE/scripts/lib/names.sh"

library="$(prefix_of shared)/lib/liborv.so.1"
[ "$(names_in_headers "$ORV_SOURCE" | wc -l)" -gt 150 ] || fail "the headers were not understood"
diff <(names_in_headers "$ORV_SOURCE") <(names_exported "$library") ||
  fail "declared (<) and exported (>) names differ"
