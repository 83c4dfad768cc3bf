#!/usr/bin/env bash
# Checks that shared libraries and programs were built and linked with the usual hardening options, as Debian's
# hardening-check sees them and in more detail.
#
#   hardening_test.sh FILE...
#   hardening_test.sh --self COMPILER    checks that the test notices each option that a program was built without
set -euo pipefail
export LC_ALL=C

status=0
complain() { printf '%s: %s\n' "$1" "$2"; status=1; }

imported() { readelf -W --dyn-syms "$1" | awk '$7 == "UND" { sub(/@.*/, "", $8); print $8 }'; }

look_at() { # FILE
    local file=$1 dynamic segments symbols plain
    # Debian's start files are not made for control flow protection, so that the linker does not mark a program for it.
    hardening-check --nocfprotection "$file" || complain "$file" "hardening-check complains"

    dynamic=$(readelf -dW "$file") segments=$(readelf -lW "$file") symbols=$(imported "$file")

    # Functions with buffers guard their return addresses.
    grep -qx __stack_chk_fail <<<"$symbols" || complain "$file" "no stack protector"

    # Addresses of functions are resolved at the start and read-only from then on.
    grep -q GNU_RELRO <<<"$segments" || complain "$file" "no read-only relocations"
    grep -qE '\(BIND_NOW\)|BIND_NOW|Flags:.* NOW' <<<"$dynamic" || complain "$file" "symbols are bound late"

    # No memory is both writable and executable, neither the stack nor the program.
    grep -qE 'GNU_STACK .* RW +0x' <<<"$segments" || complain "$file" "the stack is executable"
    ! grep -qE 'LOAD .* RWE ' <<<"$segments" || complain "$file" "a segment is writable and executable"
    ! grep -q TEXTREL <<<"$dynamic" || complain "$file" "relocations in the program text"
    grep -qE 'Type: +DYN ' <<<"$(readelf -hW "$file")" || complain "$file" "not position-independent"

    # Calls that write into a buffer of known size check that size, and calls that know no size are not used.
    grep -qE '^__.*_chk$' <<<"$symbols" || complain "$file" "no fortified call"
    # (vsnprintf is allowed, because std::to_string takes its address, which fortifying cannot replace.)
    plain=$(grep -xE 's?n?printf|vs?printf|v?fprintf|gets|strcat|strncat' <<<"$symbols" || true)
    [[ -z $plain ]] || complain "$file" "calls that should be fortified: ${plain//$'\n'/ }"
}

self_test() { # COMPILER
    local work complaint
    work=$(mktemp -d /tmp/krenv-hardening-XXXXXX)
    # shellcheck disable=SC2064 # the directory is expanded now, on purpose
    trap "rm -rf '$work'" EXIT
    cat >"$work/bare.cpp" <<'END'
#include <cstdio>
int counter;
int* where = &counter;
asm(".pushsection both, \"awx\"; .byte 0; .popsection");
int main(int, char** arguments) {
    char text[32];
    return std::sprintf(text, "%s", arguments[0]) + *where;
}
END
    "$1" -m32 -O0 -U_FORTIFY_SOURCE -fno-stack-protector -fno-pic -no-pie -Wl,-z,execstack,-z,norelro,-z,lazy \
        "$work/bare.cpp" -o "$work/bare" 2>/dev/null
    "$1" -m32 -fno-pic -shared -Wl,-z,notext "$work/bare.cpp" -o "$work/bare.so" 2>/dev/null
    look_at "$work/bare" >"$work/complaints"
    look_at "$work/bare.so" >>"$work/complaints"
    for complaint in "stack protector" "read-only relocations" "bound late" "stack is executable" "writable and exec" \
        "hardening-check" "program text" "position-independent" "no fortified call" "fortified: sprintf"; do
        grep -qF "$complaint" "$work/complaints" || { echo "goes unnoticed: $complaint" >&2; exit 1; }
    done
}

if [[ ${1:-} == --self ]]; then
    self_test "$2"
    exit 0
fi
(($# > 0)) || { echo "hardening_test.sh: no file given" >&2; exit 2; }
for file in "$@"; do look_at "$file"; done
exit "$status"
