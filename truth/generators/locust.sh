#!/bin/bash
# locust.sh SECONDS URL RATE CONNECTIONS DIRECTORY: see generators.h. Each of the users has its part of the rate.
set -eu
export LOCUST_RATE_OF_USER=$(($3 / $4)) LOCUST_TIMES=$5/locust.times
locust -f "$(dirname "$0")/locustfile.py" --headless -u "$4" -r "$4" -t "$1s" -H "$2" --only-summary --loglevel ERROR \
    >"$5/locust.out" 2>&1
awk -v asked=$((LOCUST_RATE_OF_USER * $4 * $1)) '{ ++sent; late += $1 > 10 }
    END { printf "asked=%d sent=%d late=%d\n", asked, sent, late }' "$5/locust.times"
