# suppressions.sh valgrind|lsan static|shared: with the installed suppression file the checker does not
# report what the library leaves on purpose, and does report what the program loses by the same
# calls. Without the file it reports both, or there would be nothing to suppress.
. "$(dirname -- "$0")/lib.sh"

prefix=$(prefix_of "$2")
folder=$(fresh_folder "suppressions $1 $2")
case $1 in
  valgrind) flag=-g ;;
  lsan) flag=-fsanitize=address ;;
esac
compile_with_pkg_config "$folder/leaves" "$here/leaves.c" "$prefix/lib/pkgconfig" "$flag"
export LD_LIBRARY_PATH="$prefix/lib"
# The checkers take no blank in the name of a file.
suppressions=$(mktemp)
trap 'rm -- "$suppressions"' EXIT
cp -- "$prefix/share/orv/$1.supp" "$suppressions"

# checked FILE ARGUMENT...: the checker's report on the program; fails when it found a leak.
checked() {
  case $checker in
    valgrind) valgrind --leak-check=full --error-exitcode=99 ${1:+"--suppressions=$1"} \
      "$folder/leaves" "${@:2}" 2>&1 ;;
    lsan) LSAN_OPTIONS=${1:+suppressions=$1} "$folder/leaves" "${@:2}" 2>&1 ;;
  esac
}

checker=$1
if report=$(checked ""); then
  fail "nothing is left on purpose: $report"
fi
report=$(checked "$suppressions") || fail "what is left on purpose is reported: $report"
if report=$(checked "$suppressions" lose); then
  fail "what the program loses is not reported: $report"
fi
for call in orv_strdup2 orv_strdup2_at "(platform_list_dir|__glob)"; do
  grep -qE " $call( |$)" <<<"$report" || fail "what was lost through $call is not reported: $report"
done
