# In a Release build, NDEBUG and all, a broken invariant still ends the process with the C library's
# own report, which names the source relative to the project.
. "$(dirname -- "$0")/lib.sh"

folder=$(fresh_folder "assertion")
compile_with_pkg_config "$folder/program" "$here/assertion.c" "$(prefix_of static)/lib/pkgconfig"

# The shell's own remark about the signal stays out of the log.
status=0
{ "$folder/program" 2>"$folder/report"; } 2>/dev/null || status=$?
expect_equal "status of a program that SIGABRT ended" 134 "$status"
report=$(cat -- "$folder/report")
pattern='^program: components/platform/orv_pair_connection\.cpp:[0-9]+: .*platform_pair_errno.*: Assertion `platform_pair_valid\(ph\)'"' failed\.$"
[[ $report =~ $pattern ]] || fail "the report is <$report>"
if grep -qF "$ORV_SOURCE" "$(prefix_of static)/lib/liborv.a"; then
  fail "the library names the folder that it was built from"
fi
