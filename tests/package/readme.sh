# readme.sh c|cpp: the first program in that language that the README shows compiles with the
# command it gives, without a warning, and prints what it says.
. "$(dirname -- "$0")/lib.sh"

# shown c|cpp program|output: the program, or the block that follows it and shows its output.
shown() {
  awk -v language="$1" -v wanted="$2" '
    inside && /^```/ { if (what == wanted) exit; inside = 0; what = "output"; next }
    inside && what == wanted { print }
    !inside && !what && $0 == "```" language { inside = 1; what = "program"; next }
    !inside && what == "output" && /^```/ { inside = 1 }' "$ORV_SOURCE/README.md"
}

folder=$(fresh_folder "readme $1")
shown "$1" program >"$folder/hello.$1"
grep -q main "$folder/hello.$1" || fail "the README shows no program in $1"
compile_with_pkg_config "$folder/hello" "$folder/hello.$1" "$(prefix_of static)/lib/pkgconfig"
cd -- "$folder"
expect_equal "output of the program" "$(shown "$1" output)" "$(./hello orv 2>&1)"
