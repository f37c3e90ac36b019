#!/usr/bin/env bash
#
# Checks what a login program has resident at most: little more than a program that links the same
# libraries and does nothing. The server is a silent one; a request is made and sent.
#
#   resident_memory.sh PEAK_MEMORY RADAUTH MOST_KIB
set -euo pipefail
export LC_ALL=C

[[ $# -eq 3 ]] || { echo "resident_memory: takes 3 arguments" >&2; exit 2; }
peak=$1
radauth=$2
most=$3

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cat >"$scratch/radius.conf" <<'CONF'
authserver 127.0.0.1:1:1:0:secret
timeout 1
retries 0
CONF

idle=$("$peak" "$peak")
used=$("$peak" "$radauth" -f "$scratch/radius.conf" alice wonderland 2>"$scratch/log" | tail -n 1)
grep -q 'No reply from RADIUS server' "$scratch/log" || { cat "$scratch/log" >&2; exit 1; }
echo "resident_memory: $used KiB, $((used - idle)) more than nothing, at most $most more"
[[ $idle -gt 1000 && $used -gt 1000 && $((used - idle)) -le $most ]]
