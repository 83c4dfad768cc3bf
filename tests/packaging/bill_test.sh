#!/usr/bin/env bash
# Checks the bill of materials in each package of a build: that it has the fields that SPDX 2.3 requires, and that it names
# what the package's programs and libraries load and what the package depends on.
#
#   bill_test.sh DIRECTORY-OF-PACKAGES
set -euo pipefail
export LC_ALL=C

packages=$1
work=$(mktemp -d /tmp/krenv-bill-XXXXXX)
trap 'rm -rf "$work"' EXIT
status=0
complain() { printf 'bill_test.sh: %s: %s\n' "$bill" "$*" >&2; status=1; }

# --- Required fields --------------------------------------------------------------------------------------------------

holds() { # TEXT JQ-CONDITION
    jq -e "$2" "$file" >/dev/null || complain "$1"
}

# shellcheck disable=SC2016 # jq's variables
check_fields() {
    holds "another version of SPDX" '.spdxVersion == "SPDX-2.3"'
    holds "another licence of the data" '.dataLicense == "CC0-1.0"'
    holds "another identifier of the document" '.SPDXID == "SPDXRef-DOCUMENT"'
    holds "not the name of the package's file" ".name == \"$name\""
    holds "no namespace" '.documentNamespace | test("^[a-z]+:[^#]+$")'
    holds "no time" '.creationInfo.created | test("^[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z$")'
    holds "no creator" '[.creationInfo.creators[] | test("^(Person|Organization|Tool): ")] | length > 0 and all'
    holds "an incomplete package" \
        '.packages | length > 0 and all(.name and .versionInfo and .downloadLocation and .licenseDeclared and .SPDXID)'
    holds "a malformed identifier" '.packages | all(.SPDXID | test("^SPDXRef-[A-Za-z0-9.-]+$"))'
    holds "an identifier that is used twice" '[.packages[].SPDXID] | length == (unique | length)'
    holds "a relationship to nothing" '([.packages[].SPDXID] + [.SPDXID]) as $known |
        .relationships | all(.spdxElementId as $from | .relatedSpdxElement as $to | [$from, $to] - $known == [])'
    holds "a package that is related to nothing" '[.relationships[].relatedSpdxElement] as $related |
        .packages | all(.SPDXID as $id | $related | index($id))'
    holds "it describes another package" \
        ".relationships | any(.relationshipType == \"DESCRIBES\" and .relatedSpdxElement == \"SPDXRef-Package-${name%%_*}\")"
}

# --- Materials --------------------------------------------------------------------------------------------------------

check_named() { # PACKAGE RELATIONSHIP
    local version
    version=$(dpkg-query -W -f '${Version}' "$1:$architecture" 2>/dev/null || dpkg-query -W -f '${Version}' "$1" 2>/dev/null || true)
    [[ $1 != libkrenv1 ]] || version=$(cut -d _ -f 2 <<<"$name")
    jq -e --arg name "$1" --arg version "$version" --arg kind "$2" '
        [.packages[] | select(.name == $name and .versionInfo == $version) | .SPDXID] as $ids |
        .relationships | any(.relationshipType == $kind and ([.relatedSpdxElement] - $ids == []))' "$file" >/dev/null ||
        complain "no $2 to $1 of version '$version'"
}

# The package that has a library, or nothing if the package looked at has it.
owner_of() { # LIBRARY
    case $1 in
        libkrenv.so.1 | libkrfacilities.so.1) [[ ${name%%_*} == pmenv* ]] && echo libkrenv1 ;;
        *) dpkg-query -S "*/$1" | grep -oP "^[^:, ]+(?=:$architecture: )" | head -n 1 ;;
    esac
}

check_libraries() {
    local binary library owner
    while read -r binary; do
        while read -r library; do
            owner=$(owner_of "$library" || true)
            [[ -z $owner ]] || check_named "$owner" DYNAMIC_LINK
        done < <(objdump -p "$binary" | awk '$1 == "NEEDED" { print $2 }')
    done < <(find "$work/$name" -type f -exec sh -c 'head -c 4 "$1" | grep -q ELF' sh {} \; -print)
}

# --- Each package -----------------------------------------------------------------------------------------------------

for package in "$packages"/*.deb; do
    name=$(basename "$package" .deb)
    dpkg-deb -x "$package" "$work/$name"
    architecture=${name##*_}
    bill=/usr/share/doc/${name%%_*}/${name%%_*}_$architecture.spdx.json
    file=$work/$name$bill
    [[ -f $file ]] || { complain "the package has no such file"; continue; }
    check_fields
    check_libraries
    case ${name%%_*} in
        libkrenv1) check_named libstdc++6 DYNAMIC_LINK && check_named libstdc++-12-dev STATIC_LINK ;;
        pmenv) check_named libkrenv1 DYNAMIC_LINK && check_named nlohmann-json3-dev STATIC_LINK ;;
        pmenv-exporter) check_named libkrenv1 DYNAMIC_LINK && check_named libmicrohttpd12 DYNAMIC_LINK ;;
        pmenv-fleet) check_named libcurl4 DYNAMIC_LINK && check_named libcurl4-openssl-dev STATIC_LINK ;;
        libkrenv-dev) check_named libkrenv1 DEPENDS_ON ;;
    esac
done
[[ -n ${name:-} && -n $(find "$work" -name '*.spdx.json') ]] || { echo "bill_test.sh: no package in $packages" >&2; exit 1; }
grep -q '/share/doc/krenv/krenv_.*\.spdx\.json$' <<<"$(tar -tzf "$packages"/krenv-*.tar.gz)" ||
    { bill="the archive" && complain "no bill"; }
exit "$status"
