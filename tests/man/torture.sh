# torture.sh TORTURE LAYER PAGE: the manual page of orv-torture has the options of --help, the kinds and
# ways of --list, and the calls that the layer stands in front of: none is missing, none is too many.
set -euo pipefail
torture=$1 layer=$2 page=$3
export LC_ALL=C

# same WHAT: what the page says, on descriptor 3, is what the program says, on descriptor 4.
same() {
  diff /dev/fd/3 /dev/fd/4 || { echo "FAILED: the $1 of the page (<) and of the program (>) differ" && exit 1; }
}

# section NAME: the text of a section of the page.
section() {
  sed -n "/^\\.Sh $1/,/^\\.Sh/p" "$page"
}

# An option with one blank behind its name takes an argument.
same options \
  3< <(sed -nE 's/^\.It Fl Fl ([a-z]+) Ar .*/\1 takes one/p; s/^\.It Fl Fl ([a-z]+)$/\1/p' "$page") \
  4< <("$torture" --help | sed -nE 's/^  --([a-z]+) [^ ].*/\1 takes one/p; s/^  --([a-z]+)  .*/\1/p')

same kinds \
  3< <(section 'KINDS OF CALLS' | sed -nE 's/^\.It ([a-z].*) Ta (.*) Ta .*/\1 \2/p') \
  4< <("$torture" --list | tr -s ' ')

# Other names of the same calls, and the ends of a process, which are only counted, are not named.
same calls \
  3< <(section 'KINDS OF CALLS' | sed -nE 's/^\.It [a-z].* Ta //p' | tr ' ' '\n' | sort) \
  4< <(nm --dynamic --defined-only "$layer" | sed -nE 's/.* T ([a-z].*)/\1/p' | grep -v '64$' | sort)

[ "$("$torture" --list | wc -l)" -ge 30 ] || { echo "FAILED: --list was not understood" && exit 1; }
