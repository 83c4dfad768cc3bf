#!/bin/bash
# locust.sh SECONDS URL RATE CONNECTIONS DIRECTORY: see generators.h. Each of the users has its part of the rate, from
# the first request to the last.
set -eu
export LOCUST_RATE_OF_USER=$(($3 / $4)) LOCUST_TIMES=$5/locust.times
locust -f "$(dirname "$0")/locustfile.py" --headless -u "$4" -r "$4" -t "$1s" -H "$2" --only-summary --loglevel ERROR \
    >"$5/locust.out" 2>&1
awk -v rate=$((LOCUST_RATE_OF_USER * $4)) -v users="$4" 'NR == 1 { first = $1 } { last = $1; ++sent; late += $2 > 10 || $3 > 10 }
    END { asked = (last - first) * rate - users; printf "asked=%d sent=%d late=%d\n", asked, sent, late }' "$5/locust.times"
