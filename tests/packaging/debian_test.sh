#!/usr/bin/env bash
# Tests the Debian packages of a build: makes them, checks them with lintian, and installs, uses and removes them in a
# root directory that contains only the packages that they declare as dependencies. Also unpacks and uses the archive
# that is made with them.
#
#   debian_test.sh make|lintian|install|archive BUILD-DIRECTORY EXAMPLES-DIRECTORY
set -euo pipefail

what=$1 build=$(realpath "$2") examples=$(realpath "$3")
packages=$build/packages
source_dir=$(dirname "$examples")
fail() { printf 'debian_test.sh: %s\n' "$*" >&2; exit 1; }

case $what in
    make)
        rm -rf "$packages"
        exec "$source_dir/packaging/make.sh" "$build" "$packages"
        ;;
    lintian)
        exec lintian --fail-on error,warning --allow-root "$packages"/*.deb
        ;;
    archive)
        work=$(mktemp -d "/tmp/krenv archive XXXXXX")
        trap 'rm -rf "$work"' EXIT
        tar -xzf "$packages"/krenv-*.tar.gz -C "$work" --strip-components=1
        [[ $("$work/bin/pmenv" get KR_BIN --ini "$work/share/doc/krenv/examples") == /opt/pressmark/bin ]] ||
            fail "the unpacked pmenv does not read the settings"
        exit 0
        ;;
    install) ;;
    *) fail "unknown: $what" ;;
esac

# A user namespace may give us root's rights. Where it does not, the packages are only unpacked.
if ((EUID != 0)) && unshare --map-root-user true 2>/dev/null; then exec unshare --map-root-user "$0" "$@"; fi

cached() { sed -n "s/^$1:[A-Z]*=//p" "$build/CMakeCache.txt"; }
libdir=$(cached CMAKE_INSTALL_LIBDIR)
pmenv_package=$(echo "$packages"/pmenv_*.deb)
mapfile -t names < <(for package in "$packages"/*.deb; do dpkg-deb -f "$package" Package; done)
architecture=$(dpkg-deb -f "$pmenv_package" Architecture)
version=$(dpkg-deb -f "$pmenv_package" Version)

root=$(mktemp -d /tmp/krenv-root-XXXXXX)
trap 'rm -rf "$root"' EXIT

# --- A root directory with all direct and indirect dependencies of our packages ---------------------------------------

depends_of() { sed 's/([^)]*)//g; s/|[^,]*//g; s/:any//g; s/[, ]\+/\n/g' | sed '/^$/d'; }

dependencies() {
    local name found todo
    declare -A seen=([libkrenv1]=1)
    mapfile -t todo < <(for package in "$packages"/*.deb; do dpkg-deb -f "$package" Depends; done | depends_of)
    while ((${#todo[@]} > 0)); do
        name=${todo[0]} todo=("${todo[@]:1}")
        [[ -z ${seen[$name]:-} ]] || continue
        seen[$name]=1
        mapfile -t found < <(dpkg-query -W -f '${Pre-Depends}, ${Depends}' "$name:$architecture" | depends_of)
        todo+=("${found[@]}")
        echo "$name:$architecture"
    done
}

make_root() {
    local package
    mkdir -p "$root"/usr/{lib,lib64} "$root"/var/lib/dpkg/{info,updates,triggers}
    ln -s usr/lib usr/lib64 "$root"
    while read -r package; do
        dpkg-query -s "$package" >>"$root/var/lib/dpkg/status"
        echo >>"$root/var/lib/dpkg/status"
        cp "$(dpkg-query --control-path "$package" md5sums)" "$root/var/lib/dpkg/info/$package.md5sums"
        dpkg-query -L "$package" >"$root/var/lib/dpkg/info/$package.list"
        dpkg-query -L "$package" | grep -v -e /gconv/ -e /share/ |
            while read -r file; do [[ -d $file ]] || echo "${file#/}"; done |
            tar -c -C / -T - | tar -x --no-same-owner -C "$root"
    done < <(dependencies)
    dpkg --root="$root" --add-architecture "$architecture"
}

# --- With root's rights: installing and removing with dpkg ------------------------------------------------------------

in_dpkg() { dpkg --root="$root" --log="$root/var/log/dpkg.log" "$@" >"$root/output" 2>&1; }

files_in_root() { (cd "$root" && find . -path ./var -prune -o -path ./output -prune -o -print | sort); }

install_packages() {
    mkdir "$root/var/log"
    touch "$root/output"
    files_in_root >"$root/var/before"
    in_dpkg --install "$packages"/*.deb || { cat "$root/output"; fail "the packages cannot be installed"; }
    in_dpkg --audit || true
    [[ ! -s $root/output ]] || { cat "$root/output"; fail "dpkg --audit complains"; }
}

remove_packages() {
    ! in_dpkg --remove libkrenv1 || fail "the library could be removed while pmenv needs it"
    in_dpkg --purge "${names[@]}" || { cat "$root/output"; fail "the packages cannot be removed"; }
    rm -rf "${root:?}/host"
    files_in_root | diff "$root/var/before" - || fail "removing the packages leaves something behind"
}

# --- Using the installed packages -------------------------------------------------------------------------------------

run() { chroot "$root" "$@"; }
# Without root's rights there is no chroot: the programs run in this root directory and are told the library's
# directory.
run_unpacked() { local program=$1; shift; LD_LIBRARY_PATH="$root/usr/$libdir" "$root$program" "$@"; }

expect() { # TEXT COMMAND...
    local expected=$1 printed
    shift
    printed=$("$@") || fail "failed: $*"
    [[ $printed == "$expected" ]] || fail "printed '$printed' instead of '$expected': $*"
}

use_packages() { # RUN
    local flags options ini=/usr/share/doc/pmenv/examples/pressmark.ini
    [[ $1 == run ]] || ini=$root$ini
    expect "pmenv ${version%-*}" "$1" /usr/bin/pmenv --version
    expect "pmenv-exporter ${version%-*}" "$1" /usr/bin/pmenv-exporter --version
    expect /opt/pressmark/bin "$1" /usr/bin/pmenv get KR_BIN --ini "$ini"
    if [[ -e $root/usr/bin/pmenv-fleet ]]; then
        expect "pmenv ${version%-*}" "$1" /usr/bin/pmenv-fleet --version
        expect foreign dpkg-deb -f "$packages"/pmenv-fleet_*.deb Multi-Arch
        [[ $("$1" /usr/bin/pmenv fleet --prometheus http://127.0.0.1:1 --from -1m 2>&1) == *"Failed to connect"* ]] ||
            fail "pmenv fleet does not start its program"
    fi
    [[ -z $(man --warnings -l -Tutf8 "$root"/usr/share/man/man1/*.1.gz 2>&1 >/dev/null) ]] || fail "a manual page warns"
    bash -n "$root/usr/share/bash-completion/completions/pmenv"
    zsh -n "$root/usr/share/zsh/vendor-completions/_pmenv"
    fish --no-execute "$root/usr/share/fish/vendor_completions.d/pmenv.fish"

    options=$(PKG_CONFIG_LIBDIR="$root/usr/$libdir/pkgconfig" pkg-config --cflags --libs krenv)
    flags=$(cached CMAKE_CXX_FLAGS)
    mkdir "$root/host"
    # shellcheck disable=SC2086 # both are lists of options
    "$(cached CMAKE_CXX_COMPILER)" $flags -std=c++17 \
        "$root/usr/share/doc/krenv/examples/host/main.cpp" -o "$root/host/host" $options
    cp "$root/usr/share/doc/krenv/examples/pressmark.ini" "$root/host"
    HOME=/home/guest expect "RESULTS_DIR = /home/guest/pressmark/results/nightly" "$1" /host/host 2>/dev/null
}

if ((EUID == 0)); then
    make_root
    install_packages
    use_packages run
    remove_packages
    echo "$architecture: installed by dpkg in an empty root, used there and removed without a trace"
else
    for package in "$packages"/*.deb; do dpkg-deb -x "$package" "$root"; done
    use_packages run_unpacked
    echo "$architecture: unpacked and used only; installing and removing needs root's rights or a user namespace"
    exit 77 # ctest counts it as skipped
fi
