# block.sh PROBE: the helper finds the block that an address lies in, and shows its surroundings.
# shellcheck source-path=SCRIPTDIR
. "$(dirname -- "$0")/lib.sh"

skip_without_gdb
let_die "$1" damaged >log || fail "$(cat log)"
mapfile -t addresses <addresses
behind=${addresses[1]}
sound=${addresses[4]}

# upper ADDRESS [OFFSET]: as the library writes it.
upper() {
  printf '0x%016X' "$(($1 + ${2:-0}))"
}

expect_equal "the block that was damaged behind, from its trailer" \
  "Block 1, allocated: 10 bytes at $(upper "$behind")
$(upper "$behind" 12) is past its end, at offset 12
The pointer $(upper "$behind") referenced data that was corrupted at the end. 
The pointer was allocated by orv_malloc with a length of 10.  The storage was
allocated in the function make_damaged for damage behind.  
header   index 1, word 5739E56A (allocated)
trailer  word 35A7B600 (overwritten)
      0  ab ab ab ab ab ab ab ab ab ab                    .........." \
  "$(ask_core "$1" "orv block $behind+12")"
expect_equal "addresses within, in front, and beyond" "$(upper "$sound" 9) is byte 9 of it
$(upper "$sound" -1) is in the header before it
orv: no block is recorded around $(upper "$sound" 16)." \
  "$(ask_core "$1" "orv block $sound+9" "orv block $sound-1" "orv block $sound+16" |
    grep -E ' (of|before) it$|^orv:')"

let_die "$1" sound >log || fail "$(cat log)"
released=$(sed -n 7p addresses)
expect_equal "a released block" "Block 6, released: 24 bytes at $(upper "$released")" \
  "$(ask_core "$1" "orv block $released+3" | sed -n 1p)"
