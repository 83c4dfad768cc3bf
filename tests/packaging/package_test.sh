#!/usr/bin/env bash
# Installs the built package component by component into an empty directory with a blank in its name, moves it to
# another directory, and builds the programs in examples/ against it as outside projects would.
#
#   package_test.sh cmake|pkg-config BUILD-DIRECTORY EXAMPLES-DIRECTORY
set -euo pipefail

method=$1 build=$(realpath "$2") examples=$(realpath "$3")
work=$(mktemp -d "/tmp/krenv package XXXXXX")
trap 'rm -rf "$work"' EXIT
fail() { printf 'package_test.sh: %s\n' "$*" >&2; exit 1; }
quietly() { "$@" >"$work/log" 2>&1 || { cat "$work/log"; fail "failed: $*"; }; }

# The build of the package decides the word size and the sanitizers, because a program must use the same ones.
cached() { sed -n "s/^$1:[A-Z]*=//p" "$build/CMakeCache.txt"; }
compiler=$(cached CMAKE_CXX_COMPILER)
sanitize=$(cached KRENV_SANITIZE)
flags="$(cached CMAKE_CXX_FLAGS)${sanitize:+ -fsanitize=$sanitize}"
libdir=$(cached CMAKE_INSTALL_LIBDIR)
libdir=${libdir:-lib}
version=$(cached CMAKE_PROJECT_VERSION)

# --- Installing -------------------------------------------------------------------------------------------------------

install_component() { # COMPONENT FILE-IN-IT...
    quietly cmake --install "$build" --prefix "$work/$1" --component "$1"
    local component=$1 file
    shift
    for file in "$@"; do [[ -e $work/$component/$file ]] || fail "component $component has no $file"; done
    mkdir -p "$work/first"
    cp -a --no-clobber "$work/$component/." "$work/first"
    rm -rf "${work:?}/$component"
}

install_component runtime "$libdir/libkrenv.so.1" "$libdir/libkrfacilities.so.1"
[[ ! -e $work/first/include && ! -e $work/first/$libdir/libkrenv.so ]] || fail "the runtime component has too much"
# The libraries' links point to the other component, so they are checked only now.
install_component development include/krenv/krenv.h include/krenv/krs.h "$libdir/pkgconfig/krenv.pc"
[[ -e $work/first/$libdir/libkrenv.so && -e $work/first/$libdir/libkrfacilities.so ]] || fail "there is nothing to link"
if [[ $(cached KRENV_BUILD_TOOLS) == ON ]]; then
    install_component tool bin/pmenv share/man/man1/pmenv.1 share/bash-completion/completions/pmenv \
        share/zsh/vendor-completions/_pmenv share/fish/vendor_completions.d/pmenv.fish \
        share/doc/pmenv/examples/pressmark.ini share/doc/pmenv/examples/pressmark.keys
    # Their tests fill the templates in anew.
    while read -r template page; do
        "$build/tools/pmenv/pmenv_pages" <"$examples/../tools/pmenv/pages/$template" |
            cmp - "$work/first/share/$page" || fail "$page is not $template filled in"
    done <<'END'
pmenv.1.in man/man1/pmenv.1
pmenv.bash.in bash-completion/completions/pmenv
pmenv.zsh.in zsh/vendor-completions/_pmenv
pmenv.fish.in fish/vendor_completions.d/pmenv.fish
END
    install_component exporter bin/pmenv-exporter share/man/man1/pmenv-exporter.1 \
        lib/systemd/system/pmenv-exporter.service lib/systemd/system/pmenv-exporter.socket
fi
[[ $(cached KRENV_BUILD_FLEET) != ON ]] || install_component fleet bin/pmenv-fleet share/man/man1/pmenv-fleet.1
mv "$work/first" "$work/moved here"
prefix="$work/moved here"

# --- Building against it ----------------------------------------------------------------------------------------------

build_with_cmake() { # EXAMPLE
    quietly cmake -G Ninja -S "$examples/$1" -B "$work/$1" -DCMAKE_PREFIX_PATH="$prefix" \
        -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_FLAGS="$flags"
    quietly cmake --build "$work/$1"
    grep -qF "krenv_DIR:PATH=$prefix/$libdir/cmake/krenv" "$work/$1/CMakeCache.txt" || fail "CMake found another krenv"
}

build_with_pkg_config() { # EXAMPLE MODULE
    # Searches only the given directory, so that a krenv that is installed on this machine is not found.
    local options
    options=$(PKG_CONFIG_LIBDIR="$prefix/$libdir/pkgconfig" pkg-config --cflags --libs "$2")
    mkdir "$work/$1"
    # The options are quoted for a shell, because they contain blanks.
    eval "'$compiler' $flags -std=c++17 '$examples/$1/main.cpp' -o '$work/$1/$1' $options '-Wl,-rpath,$prefix/$libdir'"
    cp "$examples/pressmark.ini" "$work/$1"
}

case $method in
    cmake)
        for project in "$examples"/*/CMakeLists.txt; do build_with_cmake "$(basename "$(dirname "$project")")"; done
        steps=$(HOME=/home/guest "$work/explain/explain" "$examples/pressmark.ini" WORK_DIR)
        # shellcheck disable=SC2016 # the reference as it is written
        [[ $steps == *'  ${HOME}, environment variable: /home/guest'*'WORK_DIR = /home/guest/pressmark' ]] ||
            fail "the explain program printed: $steps"
        grep -qF "set(PACKAGE_VERSION \"$version\")" "$prefix/$libdir/cmake/krenv/krenvConfigVersion.cmake" ||
            fail "the CMake package is not version $version"
        ;;
    pkg-config)
        build_with_pkg_config host krenv
        build_with_pkg_config settings krfacilities
        for module in krenv krfacilities; do
            [[ $(PKG_CONFIG_LIBDIR="$prefix/$libdir/pkgconfig" pkg-config --modversion "$module") == "$version" ]] ||
                fail "$module.pc is not version $version"
        done
        ;;
    *) fail "unknown method: $method" ;;
esac

# --- Using it ---------------------------------------------------------------------------------------------------------

# The installed pmenv finds its libraries, wherever it lies.
if [[ $(cached KRENV_BUILD_TOOLS) == ON ]]; then
    [[ $("$prefix/bin/pmenv" --version) == "pmenv $version" ]] || fail "the installed pmenv is not version $version"
    [[ $("$prefix/bin/pmenv-exporter" --version) == "pmenv-exporter $version" ]] || fail "pmenv-exporter is of another version"
    head -n 1 "$prefix/share/man/man1/pmenv.1" | grep -qF "\"pmenv $version\"" || fail "its page is not of version $version"
fi

# It finds the program of its command fleet beside itself.
if [[ $(cached KRENV_BUILD_FLEET) == ON ]]; then
    output=$("$prefix/bin/pmenv" fleet --prometheus http://127.0.0.1:1 --from -1m 2>&1) && fail "there is no such server"
    [[ $output == "pmenv: http://127.0.0.1:1: Failed to connect"* ]] || fail "pmenv fleet printed: $output"
fi

[[ $(sed -n 's/^## //p' "$prefix/share/doc/krenv/CHANGELOG.md" | head -n 1) == "$version"* ]] ||
    fail "CHANGELOG.md does not begin with version $version"

# The pages that the installed readme points to are installed with it.
while read -r file; do
    [[ -e $prefix/share/doc/krenv/${file%%#*} ]] || fail "the installed README.md points to $file, which is not there"
done < <(grep -oE '\((docs|examples)/[^)]*\)' "$prefix/share/doc/krenv/README.md" | tr -d '()' | sort -u)

# Runs in another working directory, where settings can come only from the directory of the program.
output=$(cd / && env -u KR_BIN HOME=/home/guest "$work/host/host" 2>"$work/log") || { cat "$work/log"; fail "host failed"; }
echo "$output"
[[ $output == "RESULTS_DIR = /home/guest/pressmark/results/nightly" ]] || fail "the host program printed something else"

output=$("$work/settings/settings" "$examples/pressmark.ini")
grep -qxF "  20  KR_VERSION = 1.0.0" <<<"$output" || fail "the settings program printed: $output"
