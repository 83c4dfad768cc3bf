#!/bin/bash
# wrk.sh SECONDS URL RATE CONNECTIONS DIRECTORY: see generators.h. Without a rate (0) it sends as fast as it can; with one,
# each connection pauses between its requests.
set -eu
pause=0
(($3 == 0)) || pause=$(($4 * 1000 / $3))
wrk -t 1 -c "$4" -d "$1s" -s "$(dirname "$0")/wrk.lua" "$2" -- "$pause" | grep '^asked='
