# examples.sh SIZES PAGE [FOLDER]: the commands that the manual page shows print what it shows; they
# find the programs of the folder.
set -euo pipefail

work=$(mktemp -d)
trap 'rm -rf -- "$work"' EXIT
cp -- "$1" "$work/sizes"
PATH="${3:+$3:}$PATH"
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
[ "$(grep -c '^printf' commands)" -ge 2 ] || { echo "FAILED: the page shows no examples" && exit 1; }

# alike: without what differs from build to build and from run to run.
alike() {
  sed 's/+0x[0-9a-f]\{8\}/+0x/; s/in process [0-9]\+$/in process/'
}

# What gdb says of itself is left out, and so are blanks at the ends of lines.
env -u ORV_MSGERR_WRAP -u ORV_PERROR -u ORV_DIAGNOSTICS_PATH -u ORV_DEBUG SHELL=/bin/sh \
  sh commands </dev/null 2>&1 |
  sed '/^Reading symbols/d; /debugging symbols/d; s/^(gdb) //; s/ *$//' >found
diff <(alike <shown) <(alike <found) || { echo "FAILED: shown (<) and found (>) differ" && exit 1; }
