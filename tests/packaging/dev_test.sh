#!/usr/bin/env bash
# ./dev refuses an unknown command and lists the commands; help prints the same list and is no error. In a small project of
# its own, `./dev test` counts tests and shows how far it is, and its stage `lint` notices what it is there for. `./dev setup`
# installs packages although their lists cannot be refreshed at once.
set -euo pipefail
dev=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)/dev
fail() { printf 'dev_test.sh: %s\n' "$*" >&2; exit 1; }

# --- Commands ---------------------------------------------------------------------------------------------------------

status=0
said=$("$dev" bogus 2>&1 >/dev/null) || status=$?
((status == 2)) || fail "the exit code for an unknown command is $status"
[[ ${said%%$'\n'*} == "dev: there is no command 'bogus'; the commands are:" ]] || fail "it says: $said"
[[ $said == *$'\n  test '* ]] || fail "it does not list the commands"

[[ $("$dev" help 2>&1 >/dev/null) == "" ]] || fail "help writes to standard error"
[[ $("$dev") == "$("$dev" help)" ]] || fail "./dev without a command does not print the help"

# --- A project with one test that passes and one that fails -----------------------------------------------------------

work=$(mktemp -d /tmp/krenv-dev-XXXXXX)
trap 'rm -rf "$work"' EXIT
project=$work/project
mkdir -p "$project/src"
cp "$dev" "${dev%/dev}/.clang-format" "${dev%/dev}/.clang-tidy" "$project"
cd "$project"
cat >CMakeLists.txt <<'END'
cmake_minimum_required(VERSION 3.25)
project(small LANGUAGES CXX)
file(GLOB sources src/*.cpp)
add_library(small OBJECT ${sources})
enable_testing()
if(PROJECT_BINARY_DIR MATCHES next)
  # It ends after the test of the preset before.
  add_custom_command(OUTPUT long COMMAND sh -c "echo begun >>../next; sleep 2; touch long" VERBATIM)
  add_custom_target(takes_long ALL DEPENDS long)
endif()
if(PROJECT_BINARY_DIR MATCHES first)
  # While it runs, the next preset is built.
  add_test(NAME next COMMAND sh -c "until test -e ../next; do sleep 0.1; done")
  set_tests_properties(next PROPERTIES TIMEOUT 200)
else()
  add_test(NAME passes COMMAND true)
  add_test(NAME fails COMMAND false)
endif()
END
cat >CMakePresets.json <<'END'
{
  "version": 4,
  "configurePresets": [
    {
      "name": "release-64", "generator": "Ninja", "binaryDir": "${sourceDir}/build/${presetName}",
      "cacheVariables": { "CMAKE_EXPORT_COMPILE_COMMANDS": "ON" }
    },
    { "name": "first-64", "inherits": "release-64" },
    { "name": "next-64", "inherits": "release-64" }
  ],
  "buildPresets": [
    { "name": "release-64", "configurePreset": "release-64" },
    { "name": "first-64", "configurePreset": "first-64" },
    { "name": "next-64", "configurePreset": "next-64" }
  ],
  "testPresets": [
    { "name": "release-64", "configurePreset": "release-64" },
    { "name": "first-64", "configurePreset": "first-64" },
    { "name": "next-64", "configurePreset": "next-64" }
  ]
}
END
echo "int one() { return 1; }" >src/good.cpp
printf '#!/bin/sh\necho good\n' >good.sh
echo build/ >.gitignore
git init -q . && git add . && git -c user.name=dev -c user.email=dev@example.net commit -qm small

# The sources may belong to another user, as in a container.
export GIT_TEST_ASSUME_DIFFERENT_OWNER=1

# Checks the exit code and the last lines of `./dev test STAGE...`.
expect() { # STATUS LINES STAGE...
    local status=0 expected=$1 lines=$2
    shift 2
    ./dev test "$@" >"$work/output" 2>&1 || status=$?
    [[ $status == "$expected" && $(<"$work/output") == *"$lines" ]] ||
        { cat "$work/output"; fail "./dev test $* ends with $status"; }
}

expect 1 $'\nFAILED   release-64: fails\n5 passed, 1 failed' lint release-64
! grep -q $'\r' "$work/output" || fail "progress is shown where there is no terminal"

expect 1 $'\nFAILED   next-64: fails\n2 passed, 1 failed' first-64 next-64
[[ $(<build/next) == begun ]] || fail "what was being built ahead is built again"

shown=$(TERM=xterm script -qec "./dev test release-64" /dev/null </dev/null || true)
[[ $shown == *"release-64: 1 of 2 tests done"*"release-64: 2 of 2 tests done"* ]] || fail "no progress on a terminal: $shown"
[[ ${shown%of 2 tests done*} == *" fails "*"Failed"* ]] || fail "a failure is not shown at once: $shown"

# --- Mistakes, and a tool that is not there ---------------------------------------------------------------------------

echo "int  one( ) ;" >src/format.h
echo '#include "../src/one.h"' >src/include.h
printf '#!/bin/sh\nrm -r /tmp/$*\n' >bad.sh
echo "int quotient(int number) { return number == 0 ? 1 / number : number; }" >src/bad.cpp
expect 1 $'FAILED   lint: formatting\nFAILED   lint: includes\nFAILED   lint: scripts\nFAILED   lint: clang-tidy\n0 passed, 4 failed' lint
for place in src/format.h:1 src/include.h:1 "bad.sh line 2" src/bad.cpp:1; do
    grep -qF "$place" "$work/output" || { cat "$work/output"; fail "it does not name $place"; }
done
rm src/format.h src/include.h bad.sh src/bad.cpp

mkdir "$work/bin"
ln -s /usr/bin/* "$work/bin"
rm "$work/bin/clang-format"
PATH=$work/bin expect 1 $'FAILED   lint: formatting\n3 passed, 1 failed' lint

# --- Package lists that another program is refreshing -----------------------------------------------------------------

# A machine without the packages, on which the lists can be refreshed at the third attempt.
mkdir "$work/fresh"
cat >"$work/fresh/dpkg-query" <<'END'
#!/bin/sh
test -e "$FRESH/installed" || exit 1
for name in "$@"; do printf 'installed %s:amd64\ninstalled %s:i386\n' "$name" "$name"; done
END
cat >"$work/fresh/dpkg" <<'END'
#!/bin/sh
case $1 in --print-architecture) echo amd64 ;; *) echo i386 ;; esac
END
cat >"$work/fresh/apt-get" <<'END'
#!/bin/sh
echo "$1" >>"$FRESH/asked"
if [ "$1" = install ]; then touch "$FRESH/installed"; else test "$(grep -c update "$FRESH/asked")" -ge 3; fi
END
printf '#!/bin/sh\n' >"$work/fresh/sleep"
cat >"$work/fresh/sudo" <<'END'
#!/bin/sh
[ "$1" != -n ] || shift
exec "$@"
END
chmod +x "$work"/fresh/*
FRESH=$work/fresh PATH=$work/fresh:$PATH ./dev setup >"$work/output" 2>&1 || { cat "$work/output"; fail "./dev setup fails"; }
[[ $(tr '\n' ' ' <"$work/fresh/asked") == "update update update install " ]] || fail "apt was asked for $(<"$work/fresh/asked")"
