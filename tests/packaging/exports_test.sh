#!/usr/bin/env bash
# Compares the symbols that a shared library exports with its checked-in list, in both directions.
#
#   exports_test.sh LIBRARY LIST      compares and prints the differences
#   exports_test.sh LIBRARY           prints the list of the library (`./dev exports` stores it)
set -euo pipefail
export LC_ALL=C

exported() { nm -D --defined-only -C "$1" | sed -E 's/^[0-9a-f]+ //' | sort -u; }

symbols=$(exported "$1")
[[ -n $symbols ]] || { echo "exports_test.sh: $1 exports nothing" >&2; exit 1; }
(($# > 1)) || { printf '%s\n' "$symbols"; exit 0; }

unlisted=$(comm -13 "$2" - <<<"$symbols")
gone=$(comm -23 "$2" - <<<"$symbols")
[[ -z $unlisted ]] || printf 'exported, but not in %s:\n%s\n' "$2" "$unlisted"
[[ -z $gone ]] || printf 'in %s, but not exported:\n%s\n' "$2" "$gone"
[[ -z $unlisted && -z $gone ]]
