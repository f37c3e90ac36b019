#!/usr/bin/env bash
#
# Checks what the library takes on a device: its size on disk without symbols, and its writable data.
#
#   footprint.sh STRIP LIBRARY MOST_BYTES
set -euo pipefail
export LC_ALL=C

[[ $# -eq 3 ]] || { echo "footprint: takes 3 arguments" >&2; exit 2; }
strip=$1
library=$2
most=$3

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
"$strip" -o "$scratch/library" "$library"

failures=0
# at_most NAME BYTES LIMIT
at_most() {
    echo "footprint: $1: $2 bytes, at most $3"
    [[ $2 -gt 0 && $2 -le $3 ]] || failures=$((failures + 1))
}

# section NAME...: the sum of their bytes.
section() {
    size -A "$scratch/library" | awk -v names=" $* " 'index(names, " " $1 " ") { sum += $2 } END { print sum + 0 }'
}

at_most "on disk" "$(stat -c %s "$scratch/library")" "$most"
at_most "writable data" "$(section .data .bss)" 8191
at_most "constants that the loader relocates" "$(section .data.rel.ro .got)" 4095
[[ $failures -eq 0 ]]
