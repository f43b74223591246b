# messages.sh LIBRARY PAGE: every message that the manual page explains is in the library, piece by
# piece between the dots.
set -euo pipefail

count=0
while IFS= read -r message; do
  while IFS= read -r piece; do
    grep -qaF -- "$piece" "$1" || { echo "FAILED: no message with <$piece>" && exit 1; }
  done < <(sed 's/ \.\.\. \?/\n/g; s/ , /\n/g' <<<"$message" | sed '/^$/d')
  count=$((count + 1))
done < <(sed -n '/^\.Sh DIAGNOSTICS/,/^\.Sh SEE/{ s/^\.It Qq Li //p }' "$2" | sed 's/\\&//g')
[ "$count" -ge 20 ] || { echo "FAILED: only $count messages: the page was not understood" && exit 1; }
