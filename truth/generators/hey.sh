#!/bin/bash
# hey.sh SECONDS URL RATE CONNECTIONS DIRECTORY: see generators.h. Each of the connections has its part of the rate; it sends
# nothing in its first interval, and its last one may be cut.
set -eu
per_connection=$(($3 / $4))
hey -z "$1s" -c "$4" -q "$per_connection" -o csv "$2" |
    awk -F, -v asked=$(((per_connection * $1 - 2) * $4)) 'NR > 1 { ++sent; late += $1 > 0.010 }
        END { printf "asked=%d sent=%d late=%d\n", asked, sent, late }'
