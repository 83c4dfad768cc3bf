#!/bin/bash
# ab.sh SECONDS URL RATE CONNECTIONS DIRECTORY: see generators.h. It knows no rate: each connection sends its next request
# when the last one is answered.
set -eu
ab -q -k -t "$1" -n 10000000 -c "$4" -g "$5/ab.tsv" "$2/" >"$5/ab.out" 2>&1
awk -F'\t' 'NR > 1 { ++sent; late += $5 > 10 } END { printf "asked=0 sent=%d late=%d\n", sent, late }' "$5/ab.tsv"
