# examples.sh SIZES PAGE: the commands that the manual page shows print what it shows.
set -euo pipefail

work=$(mktemp -d)
trap 'rm -rf -- "$work"' EXIT
cp -- "$1" "$work/sizes"
# The blocks of the page, with the characters behind mdoc's escapes.
sed -n '/^\.Bd -literal/,/^\.Ed/{ /^\./d; s/^\\&//; s/\\(aq/'\''/g; s/\\e/\\/g; p }' "$2" >"$work/shown"
cd -- "$work"
printf 'notes\n' >notes
# Each command is printed, then carried out; how the last one ends does not matter.
{
  sed -n "s/^\\$ //p" shown | while IFS= read -r command; do
    printf 'printf "$ %%s\\n" %q\n%s\n' "$command" "$command"
  done
  printf 'true\n'
} >commands
[ "$(grep -c '^printf' commands)" -ge 10 ] || { echo "FAILED: the page shows no examples" && exit 1; }

# What gdb says of itself is left out, and so are blanks at the ends of lines.
env -u ORV_MSGERR_WRAP -u ORV_PERROR -u ORV_DIAGNOSTICS_PATH -u ORV_DEBUG SHELL=/bin/sh \
  sh commands </dev/null 2>&1 |
  sed '/^Reading symbols/d; /debugging symbols/d; s/^(gdb) //; s/ *$//' >found
diff shown found || { echo "FAILED: shown (<) and found (>) differ" && exit 1; }
