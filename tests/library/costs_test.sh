#!/usr/bin/env bash
# Counts the instructions and system calls of operations. These counts do not depend on how busy the machine is, so the test
# notices at once when a change makes an operation more expensive.
#
#   costs_test.sh DRIVER LIMITS              compares with the limits, one operation per line: NAME INSTRUCTIONS CALLS
#   costs_test.sh --renew DRIVER LIMITS      writes the current counts, with headroom, as the new limits
set -euo pipefail

readonly CALLS=50
# Instructions vary a little with the processor's features and the hash's seed; system calls do not vary.
readonly HEADROOM_PERCENT=15

renew=
[[ ${1-} != --renew ]] || { renew=yes; shift; }
readonly driver=$1 limits=$2
log=$(mktemp)
trap 'rm -f "$log"' EXIT

# Prints the instructions and system calls of a whole run.
count() { # OPERATION CALLS
    valgrind --tool=callgrind --callgrind-out-file=/dev/null --trace-syscalls=yes "$driver" "$@" </dev/null >"$log" 2>&1 ||
        { cat "$log"; echo "valgrind $driver $* failed"; exit 1; }
    awk '/^SYSCALL/ { calls++ } /Collected :/ { print $NF, calls }' "$log"
}

# Prints those of one call: the amount that more calls add to a run.
count_one() { # OPERATION
    local few many
    read -ra few <<<"$(count "$1" "$CALLS")"
    read -ra many <<<"$(count "$1" $((3 * CALLS)))"
    echo $(((many[0] - few[0]) / (2 * CALLS))) $(((many[1] - few[1] + CALLS) / (2 * CALLS)))
}

# Fails when a call costs so much less than its limit that nothing can have been measured, or that the limit is stale.
check_measured() { # OPERATION COUNTED LIMIT
    (($2 * 2 < $3)) || return 0
    echo "$1: $2 instructions a call are less than half of the limit of $3: nothing was measured, or the limit is stale"
    return 1
}

# Complains when `counted` is over `limit`.
compare() { # OPERATION WHAT COUNTED LIMIT
    (($3 > $4)) || return 0
    echo "$1: $3 $2 a call, $(($3 - $4)) ($((100 * ($3 - $4) / ($4 > 0 ? $4 : 1)))%) over the limit of $4"
    return 1
}

status=0
renewed=
while read -r operation instructions calls; do
    read -ra counted <<<"$(count_one "$operation")"
    echo "$operation: ${counted[0]} instructions (limit $instructions), ${counted[1]} system calls (limit $calls)"
    renewed+="$operation $((counted[0] * (100 + HEADROOM_PERCENT) / 100)) ${counted[1]}"$'\n'
    [[ -z $renew ]] || continue
    check_measured "$operation" "${counted[0]}" "$instructions" || status=1
    compare "$operation" instructions "${counted[0]}" "$instructions" || status=1
    compare "$operation" "system calls" "${counted[1]}" "$calls" || status=1
done <"$limits"

if [[ -n $renew ]]; then
    printf '%s' "$renewed" >"$limits"
elif ((status != 0)); then
    echo "If that is meant to be, renew the limits with \`./dev costs\` and say why in the commit."
fi
exit "$status"
