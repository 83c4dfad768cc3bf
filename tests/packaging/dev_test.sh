#!/usr/bin/env bash
# What ./dev says to a command that it does not have, and to one that it has.
set -euo pipefail
dev=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)/dev
fail() { printf 'dev_test.sh: %s\n' "$*" >&2; exit 1; }

status=0
said=$("$dev" bogus 2>&1 >/dev/null) || status=$?
((status == 2)) || fail "an unknown command ends with $status"
[[ ${said%%$'\n'*} == "dev: there is no command 'bogus'; these there are:" ]] || fail "it says: $said"
[[ $said == *$'\n  test '* ]] || fail "it does not list the commands"

[[ $("$dev" help 2>&1 >/dev/null) == "" ]] || fail "help is no error"
[[ $("$dev") == "$("$dev" help)" ]] || fail "no command is not the same as help"
