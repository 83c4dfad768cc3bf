#!/usr/bin/env bash
# Compares the binary interface of a shared library (functions, types and their layout) with its checked-in description.
#
#   abi_test.sh LIBRARY DESCRIPTION     compares and prints the differences
#   abi_test.sh LIBRARY                 prints the description of the library (`./dev abi --accept` stores it)
set -euo pipefail
export LC_ALL=C

suppressions=$(dirname "${BASH_SOURCE[0]}")/abi.suppressions

# Omits what differs between checkouts, and the symbols of other libraries.
describe() {
    abidw --suppressions "$suppressions" --exported-interfaces-only --drop-undefined-syms --no-elf-needed --no-corpus-path \
        --no-comp-dir-path --no-show-locs --no-parameter-names --type-id-style hash "$1" | sed -E "s|(<abi-instr .* path=')[^']*/|\1|"
}

description=$(describe "$1")
[[ $description == *"<function-decl "* ]] || { echo "abi_test.sh: $1 has no debugging information" >&2; exit 1; }
(($# > 1)) || { printf '%s\n' "$description"; exit 0; }

now=$(mktemp --suffix=.abi)
trap 'rm -f "$now"' EXIT
printf '%s\n' "$description" >"$now"
abidiff --harmless "$2" "$now"
