# gdb loads the debugger helper by itself with the installed shared library; with the static one it is
# told to. Neither library has debug information.
. "$(dirname -- "$0")/lib.sh"

# report FORM OPTION...: what gdb says of the program's one block, at the call that gives it back.
report() {
  local form=$1
  shift
  env LD_LIBRARY_PATH="$(prefix_of "$form")/lib" SHELL=/bin/sh gdb -batch -nx "$@" \
    -ex "break orv_free" -ex run -ex "orv report" "$folder/$form" 2>&1 </dev/null
}

folder=$(fresh_folder "gdb")
for form in static shared; do
  compile_with_pkg_config "$folder/$form" "$here/project_c/program.c" \
    "$(prefix_of "$form")/lib/pkgconfig"
done
answer=$(gdb -batch -nx -ex run /bin/true </dev/null 2>&1) || true
grep -q 'exited normally' <<<"$answer" || {
  printf 'SKIPPED: gdb cannot run a program here: %s\n' "$answer"
  exit 77
}

share="$(prefix_of shared)/share"
told=$(report shared -iex "add-auto-load-safe-path $share" \
  -iex "add-auto-load-scripts-directory $share/gdb/auto-load")
expect_equal "with the shared library" "orv_malloc_debug_report: 4 bytes allocated, 1 pointers" \
  "$(tail -n 1 <<<"$told")"
told=$(report static -ex "source $(prefix_of static)/share/orv/orv-gdb.py")
expect_equal "with the static library" "orv_malloc_debug_report: 4 bytes allocated, 1 pointers" \
  "$(tail -n 1 <<<"$told")"
