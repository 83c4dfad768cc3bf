#!/usr/bin/env bash
# Many load generators at once, on one machine: each has process ids of its own, an engine that sends at fixed times, and a
# pmenv-exporter; a Prometheus server asks all of them, with the rules that are shipped. To some of them something happens.
# Then the alerts that fired and what `pmenv fleet` says are compared with what `pmenv judge` saw on each of them.
#
#   fleet.sh BUILD BUILD-OF-PMENV-FLEET GENERATORS SECONDS
#
# Takes root's rights, for the process ids and the quotas. The times of the rules are made shorter in proportion where the
# run is shorter than the five minutes that they look back.
# shellcheck disable=SC2317 # functions are called by the trap and by wait_for
set -euo pipefail
export LC_ALL=C NO_COLOR=1

build=$(realpath "$1") fleet=$(realpath "$2")/tools/pmenv-fleet generators=$3 seconds=$4
percentile=95
here=$(realpath "$(dirname "${BASH_SOURCE[0]}")") share=$(realpath "$here/../../share")
fail() { printf 'fleet.sh: %s\n' "$*" >&2; exit 1; }
for program in "$build"/{tools/pmenv/pmenv,tools/pmenv-exporter/pmenv-exporter,truth/PMLoadEngineMain} "$fleet/pmenv-fleet" \
    prometheus promtool jq unshare; do
    command -v "$program" >/dev/null || fail "there is no $program"
done
unshare --pid --fork --mount-proc true || fail "it takes root's rights to give process ids of their own"

wait_for() { # SECONDS COMMAND...
    local end=$((SECONDS + $1))
    shift
    until "$@" 2>/dev/null; do
        ((SECONDS < end)) || return 1
        sleep 0.2
    done
}

work=$(mktemp -d /tmp/krenv-fleet-XXXXXX)
children=() group=
end() {
    { ((${#children[@]} == 0)) || kill -KILL "${children[@]}" || true; wait || true; } 2>/dev/null
    [[ -z $group ]] || wait_for 10 rmdir "$group" || true # the processes in it end a little later
    rm -rf "$work"
}
trap end EXIT

# --- The generators ---------------------------------------------------------------------------------------------------

name_of() { printf 'gen%02d\n' "$1"; }

# What happens to a generator.
role_of() { # NUMBER
    case $1 in
        2) echo stopped ;;
        3) echo gone ;;
        4) echo away ;;
        *) (($1 % 10 == 1)) && echo throttled || echo fine ;;
    esac
}

# A control group that may use 2 % of a processor; prints the file that takes processes in.
make_quota() {
    local base
    if base=$(awk '$(NF - 2) == "cgroup" && $NF ~ /(^|,)cpu(,|$)/ { print $5; exit }' /proc/self/mountinfo) && [[ -n $base ]]; then
        group=$base/krenv-fleet-$$
        mkdir "$group"
        echo 100000 >"$group/cpu.cfs_period_us"
        echo 2000 >"$group/cpu.cfs_quota_us"
    else
        base=$(awk '$(NF - 2) == "cgroup2" { print $5; exit }' /proc/self/mountinfo)
        group=$base/krenv-fleet-$$
        mkdir "$group"
        echo '2000 100000' >"$group/cpu.max"
    fi
    [[ -w $group/cgroup.procs ]] || fail "no control group can be made"
}

start_generators() {
    local number name
    for ((number = 1; number <= generators; number++)); do
        name=$(name_of "$number")
        unshare --pid --fork --mount-proc --kill-child "$here/generator.sh" "$build" "$work" "$name" "$(role_of "$number")" \
            "$seconds" "$percentile" "$group" >/dev/null 2>"$work/$name.log" &
        children+=($!)
    done
    for ((number = 1; number <= generators; number++)); do
        wait_for 30 grep -q http "$work/$(name_of "$number").exporter" || fail "$(name_of "$number") does not start"
    done
}

# --- The server -------------------------------------------------------------------------------------------------------

# Rules that look back over the run and no further, and times to wait in proportion. The 95th percentile is asked for: so
# many generators on one machine disturb each other.
rules() {
    local scale=$((300 / seconds > 0 ? 300 / seconds : 1))
    sed -E -e "s/\[5m\]/[${seconds}s]/g" -e "s/\[1m\]/[$((60 / scale > 5 ? 60 / scale : 5))s]/g" \
        -e "s/for: 2m/for: $((120 / scale))s/; s/for: 1m/for: $((60 / scale))s/; s/for: 30s/for: $((30 / scale))s/" \
        -e "/^ *#/!{s/< 99\b/< $percentile/; s/> 0\.01\b/> 0.$(printf '%02d' $((100 - percentile)))/}" "$share/prometheus/pmenv.rules.yml"
}

start_server() {
    local number name
    rules >"$work/rules.yml"
    for ((number = 1; number <= generators; number++)); do
        name=$(name_of "$number")
        sed -E -n "s|.*http://([^/]*)/.*|\1|p" "$work/$name.exporter" |
            jq -R --arg name "$name" '{targets: [.], labels: {instance: $name}}'
    done | jq -s . >"$work/generators.json"
    jq -n --arg work "$work" '{
        global: {scrape_interval: "1s", scrape_timeout: "1s", evaluation_interval: "1s"}, rule_files: [$work + "/rules.yml"],
        scrape_configs: [{job_name: "pmenv", file_sd_configs: [{files: [$work + "/generators.json"]}]}]}' >"$work/prometheus.yml"
    prometheus --config.file="$work/prometheus.yml" --storage.tsdb.path="$work/data" --web.listen-address=127.0.0.1:0 \
        >"$work/prometheus.log" 2>&1 &
    children+=($!)
    wait_for 30 grep -q 'Server is ready' "$work/prometheus.log" || { cat "$work/prometheus.log"; fail "no server"; }
    server=http://$(sed -n 's/.*msg="Listening on" address=\([^ ]*\).*/\1/p' "$work/prometheus.log" | head -n 1)
}

query() { promtool query instant --format=json "$server" "$1"; }

all_are_asked() { (($(query 'count(pmenv_engines == 1)' | jq -r '.[0].value[1] // 0') == generators)); }

# --- Comparing --------------------------------------------------------------------------------------------------------

status=0
complain() { printf 'fleet.sh: %s\n' "$*" >&2; status=1; }

# What its recording says.
verdict_of() { { "$build/tools/pmenv/pmenv" judge "$work/$1.pmrec" --json || true; } | jq -r .verdict; }
# Whose alerts of that name fired in the last seconds.
fired() { # NAMES SECONDS
    query "max by (instance) (max_over_time(ALERTS{alertname=~\"$1\", alertstate=\"firing\"}[$2s]))" |
        jq -r '.[].metric.instance' | sort
}
with_role() { for ((i = 1; i <= generators; i++)); do [[ $(role_of "$i") != "$1" ]] || name_of "$i"; done; }
judged() { for ((i = 1; i <= generators; i++)); do [[ $(verdict_of "$(name_of "$i")") != "$1" ]] || name_of "$i"; done; }

same() { # WHAT EXPECTED FOUND
    [[ $2 == "$3" ]] || complain "$1: expected '${2//$'\n'/ }', found '${3//$'\n'/ }'"
}

ask_fleet() { # OPTION...
    PATH=$fleet:$PATH "$build/tools/pmenv/pmenv" fleet --prometheus "$server" --from "$begin" --to "$finish" --percentile "$percentile" "$@"
}

compare() {
    local name said code=0
    # What happened is what judge saw, else nothing can be compared.
    for role in throttled stopped gone; do
        for name in $(with_role $role); do same "what judge says of $name ($role)" spoiled "$(verdict_of "$name")"; done
    done
    # In the end the rules look back over just the run; before, over the beginning of so many programs as well.
    same "the alert of a spoiled generator" "$(sort -u <(with_role throttled) <(with_role stopped))" "$(fired PmenvGeneratorSpoiled 5)"
    same "the alert of an engine that ended" "$(with_role gone)" "$(fired 'PmenvEngineEnded|PmenvEnginesMissing' "$seconds")"
    same "the alert of an exporter that is down" "$(with_role away)" "$(fired PmenvExporterDown "$seconds")"

    same "what was not read" "" "$(query instance_signal:pmenv_engines_not_read:count | jq -r '.[].metric.instance')"

    ask_fleet --json >"$work/fleet.json" || code=$?
    ask_fleet || true
    same "the exit code of pmenv fleet" 3 "$code"
    for ((i = 1; i <= generators; i++)); do
        name=$(name_of "$i")
        said=$(jq -r --arg name "$name" '.generators[] | select(.generator == $name) | .verdict' "$work/fleet.json")
        if [[ $(role_of "$i") == away ]]; then
            same "what pmenv fleet says of $name, whose exporter went away" 'cannot tell' "$said"
        else
            same "what pmenv fleet says of $name ($(role_of "$i"))" "$(verdict_of "$name")" "$said"
        fi
    done
}

# What the dashboard asks about the first generator, which is throttled. Its control group has no limit on memory, and
# root can read everything.
dashboard_queries() {
    jq -r '.. | objects | .targets? // empty | .[].expr | gsub("\n"; " ")' "$share/grafana/pmenv.json" |
        sed -e "s/\$job\b/pmenv/g; s/\$instance\b/$(name_of 1)/g" | grep -v -e group_memory -e not_read
}

check_dashboard() {
    local expression asked=0
    while read -r expression; do
        asked=$((asked + 1))
        [[ $(query "$expression" | jq length) -gt 0 ]] || complain "the dashboard has nothing to show for $expression"
    done < <(dashboard_queries)
    ((asked > 20)) || complain "the dashboard has only $asked queries"
}

# --- The run ----------------------------------------------------------------------------------------------------------

make_quota
start_generators
start_server
wait_for 60 all_are_asked || { query pmenv_engines; fail "not all generators are asked"; }
sleep 3
begin=$(date +%s)
touch "$work/go"
sleep "$seconds"
sleep 1
finish=$((begin + seconds))
for ((i = 1; i <= generators; i++)); do wait_for 30 test -e "$work/$(name_of "$i").done" || fail "$(name_of "$i") does not end"; done
compare
check_dashboard
((status == 0)) && echo "$generators generators: $(judged spoiled | wc -l) spoiled, as judge, the alerts and pmenv fleet say"
exit "$status"
