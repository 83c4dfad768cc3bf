#!/usr/bin/env bash
# What `pmenv export` prints of a recording is taken in by promtool, and a real Prometheus answers with its values.
#
#   export_test.sh PMENV
set -euo pipefail

pmenv=$1
command -v prometheus >/dev/null && command -v promtool >/dev/null || { echo "there is no prometheus here"; exit 77; }
work=$(mktemp -d /tmp/pmenv-export-XXXXXX)
server=
finish() {
    if [[ -n $server ]]; then kill "$server" && wait "$server" || true; fi
    rm -rf "$work"
}
trap finish EXIT
cd "$work"

# Answers as soon as it is ready. The port may be taken, so that the server ends at once.
start_server() { # PORT
    local i
    prometheus --config.file=empty.yml --storage.tsdb.path=data --web.listen-address="127.0.0.1:$1" >>server.log 2>&1 &
    server=$!
    for ((i = 0; i < 300; ++i)); do
        ! promtool query instant "http://127.0.0.1:$1" 'vector(1)' >/dev/null 2>&1 || return 0
        kill -0 "$server" 2>/dev/null || break
        sleep 0.2
    done
    wait "$server" || true
    server=
    return 1
}

"$pmenv" judge --record run.jsonl -- sleep 2.5 2>verdict || (($? == 3 || $? == 4)) || { cat verdict; exit 1; }
"$pmenv" export run.jsonl --openmetrics --interval 0 >run.om
promtool tsdb create-blocks-from openmetrics run.om data

: >empty.yml # nothing is collected
for try in 1 2 3 4 5; do
    port=$((20000 + RANDOM % 12000))
    ! start_server "$port" || break
done
[[ -n $server ]] || { cat server.log; exit 1; }

# The last sample of each series: NAME{LABELS} VALUE TIME
compared=0
while read -r series value time; do
    answer=$(promtool query instant "http://127.0.0.1:$port" "$series @ $time")
    answer=${answer##* => }
    awk -v answer="${answer%% @*}" -v value="$value" 'BEGIN { exit answer == "" || answer + 0 != value + 0 }' ||
        { echo "$series at $time is $value, but the answer is: $answer"; exit 1; }
    compared=$((compared + 1))
done < <(grep -v '^#' run.om | tac | awk '!seen[$1]++' | shuf -n 12 --random-source=<(yes))
((compared >= 10)) || { echo "only $compared series were compared"; cat run.om; exit 1; }
