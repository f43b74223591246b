# header_examples.sh c|cpp: every example in the public headers is a whole program in both languages.
. "$(dirname -- "$0")/lib.sh"

folder=$(fresh_folder "header examples $1")
for header in "$ORV_SOURCE"/components/*/include/orv/*.h; do
  before=$(find "$folder" -type f | wc -l)
  # One file a block; what leads each line of the comment goes.
  awk -v stem="$folder/$(basename -- "$header" .h)" -v suffix="$1" '
    /@endcode/ { inside = 0 }
    inside { sub(/^ \* ?/, ""); print > file }
    /@code/ { inside = 1; file = stem "_" ++count "." suffix }' "$header"
  [ "$(find "$folder" -type f | wc -l)" -gt "$before" ] || fail "$header shows no example"
done
for source in "$folder"/*."$1"; do
  compile_with_pkg_config "${source%.*}" "$source" "$(prefix_of static)/lib/pkgconfig" ||
    fail "$source does not compile"
done
