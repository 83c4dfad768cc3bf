#!/usr/bin/env bash
# Checks that every function of the C library that the shared libraries use is either made to fail by faults_test, or listed
# in faultless.txt as one that cannot fail.
#
#   fault_border_test.sh FAULTLESS-LIST INJECTED-FUNCTIONS LIBRARY...     (the functions are separated by commas)
set -euo pipefail
export LC_ALL=C

list=$1 injected=$2
shift 2
used=$(nm -D --undefined-only "$@" | sed -nE 's/^ +U ([a-z_][A-Za-z0-9_]*)@.*/\1/p' | grep -vE '^(_Z|__cxa_|_Unwind_|__gxx_)' | sort -u)
known=$({ grep -v '^#' "$list"; tr , '\n' <<<"$injected"; } | tr -s ' ' '\n' | sort -u)
[[ -n $used ]] || { echo "fault_border_test.sh: $* use nothing" >&2; exit 1; }

unknown=$(comm -23 - <(echo "$known") <<<"$used")
[[ -z $unknown ]] || printf 'used, but neither made to fail nor listed as faultless:\n%s\n' "$unknown"
[[ -z $unknown ]]
