#!/usr/bin/env bash
# ./dev refuses an unknown command and lists the commands; help prints the same list and is no error.
set -euo pipefail
dev=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)/dev
fail() { printf 'dev_test.sh: %s\n' "$*" >&2; exit 1; }

status=0
said=$("$dev" bogus 2>&1 >/dev/null) || status=$?
((status == 2)) || fail "the exit code for an unknown command is $status"
[[ ${said%%$'\n'*} == "dev: there is no command 'bogus'; the commands are:" ]] || fail "it says: $said"
[[ $said == *$'\n  test '* ]] || fail "it does not list the commands"

[[ $("$dev" help 2>&1 >/dev/null) == "" ]] || fail "help writes to standard error"
[[ $("$dev") == "$("$dev" help)" ]] || fail "./dev without a command does not print the help"
