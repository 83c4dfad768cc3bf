#!/usr/bin/env bash
# Checks the files in share/ with Prometheus itself: promtool accepts the rules and the example configuration, and the
# rules pass their tests. A server that has ten minutes of figures of five load generators then evaluates the rules and
# answers each query of the dashboard. The dashboard's form is checked as well, because there is no Grafana to load it.
#
#   prometheus_test.sh SOURCE-DIRECTORY
set -euo pipefail
export LC_ALL=C

rules=$(realpath "$1/share/prometheus") dashboard=$(realpath "$1/share/grafana/pmenv.json") page=$(realpath "$1/docs/fleet.md")
work=$(mktemp -d /tmp/krenv-prometheus-XXXXXX)
server=
trap '[[ -z $server ]] || { kill "$server"; wait "$server"; } 2>/dev/null; rm -rf "$work"' EXIT
complain() { printf 'prometheus_test.sh: %s\n' "$*" | tee -a "$work/complaints" >&2; } # also where a pipe needs a subshell
fail() { printf 'prometheus_test.sh: %s\n' "$*" >&2; exit 1; }
quietly() { "$@" >"$work/log" 2>&1 || { cat "$work/log" >&2; complain "failed: $*"; }; }

# --- The dashboard's form ---------------------------------------------------------------------------------------------

# shellcheck disable=SC2016 # jq's variables
readonly JQ_DEFINITIONS='
    def panels: .panels[], (.panels[].panels // [])[];
    def drawn: panels | select(.type != "row");
    def isSet: length > 0 and length == (unique | length);
    def overlaps($a; $b): $a.x < $b.x + $b.w and $b.x < $a.x + $a.w and $a.y < $b.y + $b.h and $b.y < $a.y + $a.h;'

in_dashboard() { jq -r "${@:2}" "$JQ_DEFINITIONS $1" "$dashboard"; } # JQ-FILTER [OPTION...]
holds() { in_dashboard "$2" -e >"$work/log" 2>&1 || complain "the dashboard has $1"; } # MISTAKE JQ-CONDITION

# shellcheck disable=SC2016 # jq's variables, and Grafana's
check_form() {
    holds "no title, uid or time" '.title and .uid and .time.from and .time.to and .schemaVersion >= 36'
    holds "an id, which its Grafana has to choose" '.id == null'
    holds "no data source to choose" \
        '.__inputs | any(.name == "DS_PROMETHEUS" and .type == "datasource" and .pluginId == "prometheus")'
    holds "another data source" '[.. | objects | select(has("datasource")) | .datasource.uid] | unique == ["${DS_PROMETHEUS}"]'
    holds "a panel of a kind that it does not require" '([.__requires[].id] + ["row"]) as $known | [panels | .type] - $known == []'
    holds "other variables than job and instance" '[.templating.list[].name] == ["job", "instance"]'
    holds "a variable that nobody defines" \
        '[.. | strings | scan("\\$\\{?(\\w+)")[]] - ["job", "instance", "DS_PROMETHEUS", "__dashboard", "__value", "__url_time_range"] == []'
    holds "two panels with the same id" '[panels | .id] | isSet and all(type == "number")'
    holds "a panel beside the grid" '[panels | .gridPos] | all(.x >= 0 and .y >= 0 and .w > 0 and .h > 0 and .x + .w <= 24)'
    holds "panels that overlap" \
        '[panels | .gridPos] | . as $all | all(range(length) as $i | range($i) | overlaps($all[$i]; $all[.]); not)'
    holds "a panel without title or description" '[drawn | .title and .description] | all'
    holds "a panel without unit or thresholds" '[drawn | .fieldConfig.defaults | .unit and (.thresholds.steps | length > 0)] | all'
    holds "a panel whose queries have no letter of their own" '[drawn | [.targets[].refId] | isSet] | all'
}

# --- Figures of five load generators ----------------------------------------------------------------------------------

# gen1 is throttled, and everything else that can be wrong is wrong there, too. gen2 is fine. gen3 tells nothing about its
# engine, gen4 nothing at all. gen5 is fine, but for what cannot be read of its engine.
figures() {
    figures_of gen1 0.5 0.01 3 0.97 0.01
    figures_of gen2 0.001 0 0 0.1 0
    figures_of gen3 0 0 0 0 0 | grep -v pmenv_engine_
    echo 'gen4 up{} 0 0'
    figures_of gen5 0.001 0 0 0 0 | grep -v -e descriptors -e ports
}

figures_of() { # NAME HELD-BACK IN-DOUBT LATE-WAKES SHARE-IN-USE ENDS; a line has a series, its first value and its growth
    local engine='name="PMLoadEngineMai",pid="7"' state
    cat <<LINES
$1 up{} 1 0
$1 pmenv_watch_seconds_total{} 9000 1
$1 pmenv_watch_wakes_total{} 900000 100
$1 pmenv_watch_late_wakes_total{} 7 $4
$1 pmenv_engines{name="PMLoadEngineMai"} 1 0
$1 pmenv_engines_expected{} 1 0
$1 pmenv_engines_ended_total{name="PMLoadEngineMai"} 0 $6
$1 pmenv_engines_killed_total{name="PMLoadEngineMai"} 0 $6
$1 pmenv_engine_held_back_seconds_total{$engine} 0 $2
$1 pmenv_engine_in_doubt_seconds_total{$engine} 0 $3
$1 pmenv_engine_cpu_seconds_total{$engine} 0 0.4
$1 pmenv_engine_memory_bytes{$engine} 30000000 0
$1 pmenv_engine_descriptors_ratio{$engine} $5 0
$1 pmenv_engine_ports_ratio{$engine} $5 0
$1 pmenv_engine_group_memory_ratio{$engine} $5 0
$1 pmenv_engine_group_memory_kills_total{$engine} 0 $6
$1 pmenv_engine_group_throttled_seconds_total{$engine} 0 $2
$1 pmenv_engine_group_throttled_periods_total{$engine} 0 $2
$1 pmenv_engine_busiest_thread_seconds_total{$engine,state="running"} 0 0.4
$1 pmenv_engine_busiest_thread_seconds_total{$engine,state="throttled"} 0 $2
LINES
    for state in waiting stolen blocked stopped; do
        echo "$1 pmenv_engine_busiest_thread_seconds_total{$engine,state=\"$state\"} 0 0"
    done
}

as_openmetrics() { # END-OF-THE-TEN-MINUTES
    awk -v end="$1" '
        {
            split($2, part, "[{}]")
            series = part[1] "{job=\"pmenv\",instance=\"" $1 ":19815\"" (part[2] == "" ? "" : "," part[2]) "}"
            for (at = 0; at <= 600; at += 15) print series, $3 + at * $4, end - 600 + at
        }
        END { print "# EOF" }'
}

# --- The server -------------------------------------------------------------------------------------------------------

# The example configuration, without its targets and in a hurry.
configuration() {
    sed -E '/^scrape_configs:/,$d; s/(evaluation_interval:) +\w+/\1 1s/' "$rules/prometheus.yml"
}

start() {
    figures | as_openmetrics "$(($(date +%s) - 1))" >"$work/figures"
    promtool tsdb create-blocks-from openmetrics "$work/figures" "$work/data" >"$work/log" 2>&1 ||
        { cat "$work/log" >&2; fail "the figures cannot be taken in"; }
    cp "$rules/pmenv.rules.yml" "$work"
    configuration >"$work/prometheus.yml"
    timeout 200 prometheus --config.file="$work/prometheus.yml" --storage.tsdb.path="$work/data" \
        --web.listen-address=127.0.0.1:0 >"$work/server.log" 2>&1 &
    server=$!
    wait_until grep -q "Server is ready to receive web requests" "$work/server.log" || fail "there is no server"
    port=$(sed -nE 's/.*"Listening on" address=127\.0\.0\.1:([0-9]+).*/\1/p' "$work/server.log")
}

wait_until() { # COMMAND...
    local tries
    for ((tries = 0; tries < 600; ++tries)); do
        ! "$@" || return 0
        kill -0 "$server" 2>/dev/null || break
        sleep 0.1
    done
    cat "$work/server.log" >&2
    return 1
}

ask() { # PATH JQ-FILTER: prints what the filter makes of the answer's data; fails unless the answer is a success
    local connection
    exec {connection}<>"/dev/tcp/127.0.0.1/$port"
    printf 'GET /api/v1/%s HTTP/1.0\r\n\r\n' "$1" >&"$connection"
    sed '1,/^\r$/d' <&"$connection" >"$work/answer"
    exec {connection}>&-
    jq -r "if .status == \"success\" then .data | $2 else halt_error end" "$work/answer"
}

ask_for() { ask "query?query=$(jq -rn --arg text "$1" '$text | @uri')" "$2"; } # EXPRESSION JQ-FILTER
answers() { [[ $(ask_for "$1" '.result | length') -gt 0 ]]; } # EXPRESSION

# --- The rules --------------------------------------------------------------------------------------------------------

all_evaluated() { [[ $(ask rules '[.groups[].rules[].health] | length > 0 and all(. != "unknown")') == true ]]; }

check_rules() {
    local expression
    ask rules '.groups[].rules[]' >"$work/rules"
    jq -r 'select(.health != "ok") | "\(.name): \(.lastError)"' "$work/rules" | complain_of_each "a rule fails"
    jq -r 'select(.type == "alerting" and ([.labels.severity, .annotations.summary, .annotations.description] | all | not)) |
        .name' "$work/rules" | complain_of_each "an alert without severity, summary or description"
    while read -r expression; do
        answers "$expression" || complain "a rule without a result: $expression"
    done < <(jq -r 'select(.type == "recording") | .query | gsub("\n"; " ")' "$work/rules")
    diff <(jq -r 'select(.type == "alerting") | .name' "$work/rules" | sort) <(grep -oE 'Pmenv[A-Za-z]+' "$page" | sort -u) >&2 ||
        complain "docs/fleet.md describes other alerts"
}

complain_of_each() { # TEXT; lines on standard input
    local line
    while read -r line; do complain "$1: $line"; done
}

list_of() { ask_for "$1" ".result | map($2) | sort | join(\", \")"; } # EXPRESSION JQ-TEXT

# An alert may have been evaluated before what it looks at.
alerts_fire() { # LIST
    alerts=$(list_of 'ALERTS{alertstate="firing"}' '.metric.instance + " " + .metric.alertname')
    [[ $alerts == "$1" ]]
}

check_results() {
    local verdicts not_read alerts of_gen1=(PmenvDescriptorsRunOut PmenvGeneratorSpoiled PmenvMemoryKill PmenvPortsRunOut PmenvWatcherLate)
    verdicts=$(list_of instance:pmenv_verdict:increase5m '.metric.instance + " " + .value[1]')
    [[ $verdicts == "gen1:19815 2, gen2:19815 0, gen3:19815 1, gen5:19815 0" ]] ||
        complain "the verdicts are $verdicts"
    not_read=$(list_of instance_signal:pmenv_engines_not_read:count '.metric.instance + " " + .metric.signal + " " + .value[1]')
    [[ $not_read == "gen5:19815 descriptors 1, gen5:19815 ports 1" ]] || complain "not read are $not_read"
    wait_until alerts_fire "$(printf ', gen1:19815 %s' "${of_gen1[@]}" | cut -c 3-)" || complain "the alerts are $alerts"
}

# --- The dashboard's queries ------------------------------------------------------------------------------------------

# Each query for gen1, after the title of its panel or the name of its variable.
# shellcheck disable=SC2016 # jq's variables, and Grafana's
queries() {
    in_dashboard '
        (drawn | .title as $title | .targets[] | "\($title)\t\(.expr)"),
        (.templating.list[] | "\(.name)\t\(.query.query | capture("^label_values\\((?<series>.*), \\w+\\)$").series)")' |
        sed 's/\$job\b/pmenv/g; s/\$instance\b/gen1:19815/g'
}

check_queries() {
    local title query number=0
    while IFS=$'\t' read -r title query; do
        number=$((number + 1))
        answers "$query" || complain "$title: no result: $query"
    done < <(queries)
    ((number > 20)) || complain "the dashboard has only $number queries"
}

# A name that is misspelt gives no error: the query is as if the load generator had nothing to tell.
check_names() {
    comm -13 <(ask label/__name__/values '.[]' | sort) \
        <({ queries; jq -r .query "$work/rules"; } | grep -oE '\b([a-z_]+:)?pmenv_[a-z0-9_:]+|\bup\b|\bALERTS\b' | sort -u) |
        complain_of_each "there is no such metric"
}

# --- All of it --------------------------------------------------------------------------------------------------------

quietly promtool check rules "$rules/pmenv.rules.yml"
quietly promtool check config "$rules/prometheus.yml"
quietly promtool test rules "$rules/pmenv.rules.test.yml"
quietly jq -e 'all(.[]; .targets | length > 0)' "$rules/generators.json"
check_form
start
wait_until all_evaluated || fail "the rules are not evaluated"
check_rules
check_results
check_queries
check_names
[[ ! -e $work/complaints ]]
