#!/usr/bin/env bash
# Installs the built package into an empty directory, builds examples/host (and with CMake examples/explain) against it as
# an outside project would, and runs that with a pressmark.ini beside it.
#
#   package_test.sh cmake|pkg-config BUILD-DIRECTORY EXAMPLES-DIRECTORY
set -euo pipefail

method=$1 build=$(realpath "$2") examples=$(realpath "$3")
work=$(mktemp -d /tmp/krenv-package-XXXXXX)
trap 'rm -rf "$work"' EXIT

# What the package was built with decides the word size, and the sanitizers, which a program must share with it.
cached() { sed -n "s/^$1:[A-Z]*=//p" "$build/CMakeCache.txt"; }
compiler=$(cached CMAKE_CXX_COMPILER)
sanitize=$(cached KRENV_SANITIZE)
flags="$(cached CMAKE_CXX_FLAGS)${sanitize:+ -fsanitize=$sanitize}"
libdir=$(cached CMAKE_INSTALL_LIBDIR)

cmake --install "$build" --prefix "$work/prefix" >"$work/install.log" || { cat "$work/install.log"; exit 1; }

case $method in
    cmake)
        cmake -G Ninja -S "$examples/host" -B "$work/host" -DCMAKE_PREFIX_PATH="$work/prefix" \
            -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_FLAGS="$flags" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
        cmake --build "$work/host" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
        cmake -G Ninja -S "$examples/explain" -B "$work/explain" -DCMAKE_PREFIX_PATH="$work/prefix" \
            -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_FLAGS="$flags" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
        cmake --build "$work/explain" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
        steps=$(HOME=/home/guest "$work/explain/explain" "$examples/pressmark.ini" WORK_DIR)
        [[ $steps == *'{HOME}, process variable: /home/guest'*'WORK_DIR = /home/guest/pressmark' ]] ||
            { echo "the explain program printed: $steps" >&2; exit 1; }
        ;;
    pkg-config)
        mkdir "$work/host"
        # Only the directory given here: a krenv that is installed on this machine must not be the one that is found.
        options=$(PKG_CONFIG_LIBDIR="$work/prefix/${libdir:-lib}/pkgconfig" pkg-config --cflags --libs krenv)
        # shellcheck disable=SC2086 # both are lists of options
        "$compiler" $flags -std=c++17 "$examples/host/main.cpp" -o "$work/host/host" $options \
            "-Wl,-rpath,$work/prefix/${libdir:-lib}"
        cp "$examples/pressmark.ini" "$work/host"
        ;;
    *)
        echo "package_test.sh: unknown method: $method" >&2
        exit 2
        ;;
esac

# The installed companion finds its libraries, wherever it lies.
if [[ $(cached KRENV_BUILD_TOOLS) == ON ]]; then
    version=$("$work/prefix/bin/pmenv" get KR_VERSION --ini "$examples/pressmark.ini")
    [[ $version == *1.0.0* ]] || { echo "the installed pmenv printed: $version" >&2; exit 1; }
fi

# The pages that the installed readme points to are installed with it.
readme=$(find "$work/prefix" -name README.md)
while read -r page; do
    [[ -f ${readme%/*}/$page ]] || { echo "the installed README.md points to $page, which is not there" >&2; exit 1; }
done < <(grep -o 'docs/[a-z-]*\.md' "$readme" | sort -u)

# Another working directory, and no other place where settings could come from.
output=$(cd / && env -u KR_BIN HOME=/home/guest "$work/host/host" 2>"$work/stderr") || {
    cat "$work/stderr"
    echo "the host program failed" >&2
    exit 1
}
echo "$output"
if [[ $output != "RESULTS_DIR = /home/guest/pressmark/results/nightly" ]]; then
    cat "$work/stderr"
    echo "the host program printed something else than expected" >&2
    exit 1
fi
