#!/usr/bin/env bash
# Makes the archive and the Debian packages from a finished build. The same sources give the same bytes, whoever makes
# them, where and when: the files are as old as the changelog's first entry, and are packed in the order of their names.
#
#   make.sh BUILD-DIRECTORY OUTPUT-DIRECTORY
set -euo pipefail
export LC_ALL=C TZ=UTC
umask 022

build=$(realpath "$1") output=$(realpath -m "$2")
here=$(realpath "$(dirname "${BASH_SOURCE[0]}")")
config() { sed -n "s/^set($1 \"\(.*\)\")/\1/p" "$build/CPackConfig.cmake"; }
architecture=$(config CPACK_DEBIAN_PACKAGE_ARCHITECTURE) version=$(config CPACK_PACKAGE_VERSION)
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(dpkg-parsechangelog -l "$build/debian-changelog" -S Timestamp)}
export SOURCE_DATE_EPOCH

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
quietly() { "$@" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }; }

make_archive() {
    local name component components
    name=$(config CPACK_PACKAGE_FILE_NAME)
    IFS=";" read -ra components <<<"$(config CPACK_COMPONENTS_ALL)"
    for component in "${components[@]}"; do
        quietly cmake --install "$build" --prefix "$work/$name" --component "$component" --strip
    done
    "$here/bill.sh" krenv "$version" "$architecture" "$build" "$work/$name" >"$work/bill"
    mv "$work/bill" "$work/$name/share/doc/krenv/krenv_$architecture.spdx.json"
    tar -c -C "$work" --sort=name --owner=0 --group=0 --numeric-owner --mtime="@$SOURCE_DATE_EPOCH" \
        --mode=u=rwX,go=rX "$name" | gzip -9n >"$output/$name.tar.gz"
}

# DEB_HOST_ARCH selects the packages in which the dependencies are searched.
make_packages() {
    DEB_HOST_ARCH=$architecture quietly cpack --config "$build/CPackConfig.cmake" -B "$output"
    rm -rf "$output/_CPack_Packages"
}

mkdir -p "$output"
make_archive
make_packages
