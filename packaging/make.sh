#!/usr/bin/env bash
# Makes the archive and the Debian packages from a finished build.
#
#   make.sh BUILD-DIRECTORY OUTPUT-DIRECTORY
set -euo pipefail

build=$(realpath "$1") output=$(realpath -m "$2")
architecture=$(sed -n 's/^set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE "\(.*\)")/\1/p' "$build/CPackConfig.cmake")

# DEB_HOST_ARCH selects the packages in which the dependencies are searched.
mkdir -p "$output"
DEB_HOST_ARCH=$architecture cpack --config "$build/CPackConfig.cmake" -B "$output" >"$output/cpack.log" 2>&1 || {
    cat "$output/cpack.log"
    exit 1
}
rm -rf "$output/_CPack_Packages" "$output/cpack.log"
