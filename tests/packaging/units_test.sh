#!/usr/bin/env bash
# Checks the units of pmenv-exporter: that systemd understands them, and what the service may do.
#
#   units_test.sh DIRECTORY-OF-UNITS
set -euo pipefail
export LC_ALL=C SYSTEMD_COLORS=0

units=$1
fail() { printf 'units_test.sh: %s\n' "$*" >&2; exit 1; }
root=$(mktemp -d /tmp/krenv-units-XXXXXX)
trap 'rm -rf "$root"' EXIT

# A root directory with the units that every system has, and a program of the name.
mkdir -p "$root/lib/systemd/system" "$root/usr/bin" "$root/etc/systemd/system"
cp -L /lib/systemd/system/*.target /lib/systemd/system/*.slice "$root/lib/systemd/system"
cp "$units"/pmenv-exporter.* "$root/etc/systemd/system"
install -m 755 /bin/true "$root/usr/bin/pmenv-exporter"

verify() { systemd-analyze verify --root="$root" --man=no pmenv-exporter.service pmenv-exporter.socket 2>&1; }
exposure() { # in tenths of systemd's scale, which ends at 100
    systemd-analyze security --offline=true --root="$root" --no-pager --threshold="$1" pmenv-exporter.service
}

complaints=$(verify) || fail "systemd does not take the units: $complaints"
[[ -z $complaints ]] || fail "systemd complains: $complaints"
exposure 20 >"$root/security" || fail "the service may do too much: $(tail -n 1 "$root/security")"

# It has to see the processes of all users.
! grep -E '^(ProtectProc|ProcSubset|PrivateNetwork)=' "$units/pmenv-exporter.service" || fail "it would not see the engines"

# The checks notice what is wrong.
sed -i '/^ProtectSystem=/d; /^CapabilityBoundingSet=/d; /^SystemCallFilter=/d' "$root/etc/systemd/system/pmenv-exporter.service"
! exposure 20 >/dev/null || fail "an open service goes unnoticed"
sed -i 's/^DynamicUser=/DynamicUsr=/' "$root/etc/systemd/system/pmenv-exporter.service"
[[ -n $(verify || true) ]] || fail "a misspelt line goes unnoticed"
