#!/usr/bin/env bash
# Prints the bill of materials of a package (SPDX 2.3, JSON): the packages of the libraries that its programs and libraries
# load, and the packages whose headers were compiled into them, each with its version on this machine.
#
#   bill.sh PACKAGE VERSION ARCHITECTURE BUILD-DIRECTORY DIRECTORY-WITH-THE-PACKAGE'S-FILES
set -euo pipefail
shopt -s inherit_errexit
export LC_ALL=C

name=$1 version=$2 architecture=$3 build=$4 contents=$5
fail() { printf 'bill.sh: %s\n' "$*" >&2; exit 1; }

binaries() { find "$contents" -type f \( -path '*/bin/*' -o -name '*.so.*' \) | sort; }

# Prints RELATIONSHIP, package, version and architecture.
material() { printf '%s\t%s\t%s\t%s\n' "$@"; }

material_of_library() { # FILE-NAME OWNERS
    local owner
    [[ -z $(find "$contents" -name "$1") ]] || return 0 # in the package itself
    case $1 in
        libkrenv.so.* | libkrfacilities.so.*) material DYNAMIC_LINK libkrenv1 "$version" "$architecture" && return ;;
    esac
    owner=$(sed -n "s|^\([^:, ]*\):$architecture: .*/$1\$|\1|p" <<<"$2" | head -n 1)
    [[ -n $owner ]] || fail "no package for $architecture has $1"
    material DYNAMIC_LINK "$owner" "$(dpkg-query -W -f '${Version}' "$owner:$architecture")" "$architecture"
}

needed() { binaries | xargs -r -d '\n' readelf -dW | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | sort -u; }

# All packages' lists of files are looked through once, and not once for each library. Ours are in none.
libraries() {
    local library owners names
    mapfile -t names < <(needed)
    ((${#names[@]} > 0)) || return 0
    owners=$(dpkg-query -S "${names[@]/#/*/}" 2>/dev/null || true)
    for library in "${names[@]}"; do material_of_library "$library" "$owners"; done
}

# The headers of the system that the compiler read for the objects in a directory of the build.
system_headers() { # DIRECTORY-PATTERN
    ninja -C "$build" -t deps | awk -v ours="^($1)/CMakeFiles/" '
        /^[^ ]/ { wanted = $1 ~ ours }
        wanted && $1 ~ "^/usr/" { print $1 }' | sort -u | xargs -r realpath
}

compiled_in() { # DIRECTORY-PATTERN
    local headers owners
    headers=$(system_headers "$1")
    [[ -n $headers ]] || fail "$build does not say which headers were compiled in"
    owners=$(xargs dpkg-query -S <<<"$headers" | sed 's/: .*//; s/, /\n/g' | sort -u)
    # shellcheck disable=SC2086 # a list of names
    dpkg-query -W -f 'STATIC_LINK\t${Package}\t${Version}\t${Architecture}\n' $owners
}

materials() {
    libraries
    case $name in
        libkrenv1) compiled_in 'src|facilities' ;;
        pmenv | pmenv-fleet) compiled_in "tools/$name" ;;
        pmenv-exporter) compiled_in 'tools/pmenv(-exporter)?' ;;
        krenv) compiled_in 'src|facilities|tools/pmenv(-exporter|-fleet)?' ;;
        libkrenv-dev) material DEPENDS_ON libkrenv1 "$version" "$architecture" ;;
        *) fail "there is no package $name" ;;
    esac
}

# A name for this very bill, which says nothing about where it was made.
namespace() { # LINES
    local sum
    sum=$({ printf '%s\n' "$name" "$version" "$architecture" "$1"; binaries | xargs -r -d '\n' cat; } | sha1sum)
    printf 'urn:uuid:%s-%s-5%s-8%s-%s' "${sum:0:8}" "${sum:8:4}" "${sum:13:3}" "${sum:17:3}" "${sum:20:12}"
}

lines=$(materials | sort -u)
jq -Rn --arg name "$name" --arg version "$version" --arg architecture "$architecture" --arg namespace "$(namespace "$lines")" \
    --arg system "$(sed -n 's/^ID=//p' /etc/os-release)" --arg created "$(date -u -d "@$SOURCE_DATE_EPOCH" +%FT%TZ)" '
    def id: "SPDXRef-Package-" + gsub("[^A-Za-z0-9.-]"; "-");
    def package(vendor; license): {
        SPDXID: (.name | id), name, versionInfo: .version, supplier: "NOASSERTION", downloadLocation: "NOASSERTION",
        filesAnalyzed: false, licenseConcluded: "NOASSERTION", licenseDeclared: license, copyrightText: "NOASSERTION",
        externalRefs: [{
            referenceCategory: "PACKAGE-MANAGER", referenceType: "purl",
            referenceLocator: "pkg:deb/\(vendor)/\(.name | @uri)@\(.version | @uri)?arch=\(.architecture)"
        }]
    };
    def relationship(from; kind; to): { spdxElementId: from, relationshipType: kind, relatedSpdxElement: to };

    {name: $name, version: $version, architecture: $architecture} as $whole |
    [inputs / "\t" | {kind: .[0], name: .[1], version: .[2], architecture: .[3]}] as $materials |
    {
        spdxVersion: "SPDX-2.3", dataLicense: "CC0-1.0", SPDXID: "SPDXRef-DOCUMENT",
        name: "\($name)_\($version)_\($architecture)", documentNamespace: $namespace,
        creationInfo: { created: $created, creators: ["Organization: Pressmark developers", "Tool: krenv-bill"] },
        packages: ([$whole | package("pressmark"; "Apache-2.0")] +
            [$materials[] | if .name == "libkrenv1" then package("pressmark"; "Apache-2.0") else package($system; "NOASSERTION") end]),
        relationships: ([relationship("SPDXRef-DOCUMENT"; "DESCRIBES"; $name | id)] +
            [$materials[] | relationship($name | id; .kind; .name | id)])
    }' <<<"$lines"
