#!/usr/bin/env bash
# Compares the binary interface of a shared library, its functions, types and their layout, with its checked-in description.
#
#   abi_test.sh LIBRARY DESCRIPTION     the comparison; prints what differs
#   abi_test.sh LIBRARY                 prints the description as it should be (`./dev abi --accept` checks it in)
set -euo pipefail
export LC_ALL=C

suppressions=$(dirname "${BASH_SOURCE[0]}")/abi.suppressions

# Without what differs from one checkout to the next, and without what others offer.
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
