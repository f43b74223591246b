# readme.sh c|cpp: the first program in that language that the README shows compiles with the
# command it gives, without a warning, and prints what it says.
. "$(dirname -- "$0")/lib.sh"

folder=$(fresh_folder "readme $1")
readme_block "$1" >"$folder/hello.$1"
grep -q main "$folder/hello.$1" || fail "the README shows no program in $1"
compile_with_pkg_config "$folder/hello" "$folder/hello.$1" "$(prefix_of static)/lib/pkgconfig"
cd -- "$folder"
expect_equal "output of the program" "$(readme_output "$1")" "$(./hello orv 2>&1)"
