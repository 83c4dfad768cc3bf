#!/usr/bin/env bash
# One load generator of fleet.sh, in a space of process ids of its own: an engine that sends at fixed times, pmenv-exporter,
# and, once there is a file `go`, a watch by pmenv judge, during which something may happen.
#
#   generator.sh BUILD WORK-DIRECTORY NAME fine|throttled|stopped|gone|away SECONDS PERCENTILE CONTROL-GROUP
set -euo pipefail

build=$1 files=$2/$3 role=$4 seconds=$5 percentile=$6 group=$7 go=$2/go

into_group() { echo 0 >"$1/cgroup.procs"; }

load=1
if [[ $role == throttled ]]; then
    into_group "$group"
    load=20
fi
"$build/truth/PMLoadEngineMain" record="$files.record" seconds=$((seconds + 120)) rate=20 load="$load" &
engine=$!
[[ $role != throttled ]] || into_group "$(dirname "$group")"
"$build/tools/pmenv-exporter/pmenv-exporter" --listen 127.0.0.1:0 --engines 1 2>"$files.exporter" &
exporter=$!

until [[ -e $go ]]; do sleep 0.1; done
"$build/tools/pmenv/pmenv" judge --engines 1 --percentile "$percentile" --duration "$seconds" --record "$files.pmrec" >/dev/null 2>&1 &
judge=$!
sleep $((seconds / 3))
case $role in
    stopped)
        kill -STOP "$engine"
        sleep $((seconds / 6))
        kill -CONT "$engine"
        ;;
    gone) kill -KILL "$engine" ;;
    away) kill -KILL "$exporter" ;;
esac
wait "$judge" || true # its exit code is the verdict
touch "$files.done"
sleep 600             # the exporter goes on until the whole test ends
