#!/usr/bin/env bash
# Checks that the same sources give the same bytes elsewhere: for another user, in another directory, locale and time zone,
# with another umask, and later.
#
#   reproducible_test.sh packages BUILD-DIRECTORY    packs a build again, and compares the packages
#   reproducible_test.sh library BUILD-DIRECTORY PRESET
#                                                    builds libkrfacilities again, and compares the library
set -euo pipefail

what=$1 build=$(realpath "$2")
source_dir=$(realpath "$(dirname "${BASH_SOURCE[0]}")/../..")
work=$(mktemp -d "/tmp/krenv elsewhere in a directory of another length XXXXXX")
trap 'rm -rf "$work"' EXIT
fail() { printf 'reproducible_test.sh: %s\n' "$*" >&2; exit 1; }

# Where user namespaces are allowed, files that the command makes seem to belong to another user.
other_user=()
if unshare --map-user=1234 --map-group=1234 true 2>/dev/null; then other_user=(unshare --map-user=1234 --map-group=1234); fi

elsewhere() { # COMMAND...
    (umask 077 && cd / && env -u CMAKE_CXX_COMPILER_LAUNCHER LC_ALL=C.UTF-8 LANG=C.UTF-8 \
        TZ=Pacific/Kiritimati HOME="$work" CCACHE_DISABLE=1 "${other_user[@]}" "$@") >"$work/log" 2>&1 || { cat "$work/log"; fail "failed: $*"; }
}

same() { # FILE AGAIN
    cmp "$1" "$2" && return
    ! command -v diffoscope >/dev/null || diffoscope "$1" "$2" || true
    fail "$(basename "$1") differs"
}

case $what in
    packages)
        sleep 1 # a time stamp of the second packing would be another one
        elsewhere "$source_dir/packaging/make.sh" "$build" "$work/packages"
        [[ $(ls "$work/packages") == "$(ls "$build/packages")" ]] || fail "other packages: $(ls "$work/packages")"
        for package in "$build"/packages/*; do same "$package" "$work/packages/$(basename "$package")"; done
        ;;
    library)
        mkdir "$work/sources"
        cp -r "$source_dir"/{CMakeLists.txt,CMakePresets.json,cmake,facilities,src,inc,packaging,examples,docs} "$work/sources"
        cp "$source_dir"/*.md "$source_dir/LICENSE" "$work/sources"
        elsewhere cmake --preset "$3" -S "$work/sources" -DKRENV_BUILD_TESTS=OFF -DKRENV_BUILD_TOOLS=OFF
        elsewhere cmake --build "$work/sources/build/$3" --target krfacilities
        library=facilities/libkrfacilities.so
        same "$build/$library" "$work/sources/build/$3/$library"
        ;;
    *) fail "unknown: $what" ;;
esac
