#!/usr/bin/env bash
# Runs the commands and the code of a documentation page, in the order of the page and with the installed package, as a
# reader of the page would.
#
#   docs_test.sh PAGE BUILD-DIRECTORY
#   docs_test.sh --self BUILD-DIRECTORY    checks that it notices every mistake on
#                                          tests/packaging/docs_reader/wrong-page.txt
#
# The language of a block decides how it is tested:
#
#   console   The text after `$ ` is run in a shell and must succeed; it must print the lines below it, if there are
#             any. A line `...` stands for any number of lines. A comment `exit code N` requires that exit code; one
#             that names several, as `exit code 0, 3 or 4`, any of them. Long measurements are shortened. A screen
#             (--watch) is compared by its words.
#   sh        The block is run as a script. Commands that build or change the machine (see checked_only) are not run;
#             the test only checks that the sub-command, preset, target or test that they name exists.
#   cpp       A program with `main` is compiled, linked and run, and serves as main.cpp for the blocks below it.
#             Anything else is compiled and linked as the body of a function that has a container object `env`.
#   cmake     A project is built from it, with main.cpp as the target `host`.
#   ini       The block must be a settings file that can be loaded. It is stored in the reader's directory under the
#             name in its first comment (`; engine.ini`), or as pressmark.ini.
#   json      The block must be an object or a list that can be read.
#   text      Drawings and forms, which cannot be run.
#
# Other languages, blocks without a language, and indented blocks fail. Targets of links within the repository must
# exist, and `./dev WORD` and `pmenv WORD` in running text must name sub-commands.
set -euo pipefail
export LC_ALL=C.UTF-8 TZ=UTC NO_COLOR=1

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
if [[ $1 == --self ]]; then
    noticed=$({ KRENV_DOCS_PATIENCE=4 "$0" "$root/tests/packaging/docs_reader/wrong-page.txt" "$2" 2>&1 || true; } |
        sed -n 's/^.*wrong-page.txt:\([0-9]*\): .*/\1/p' | sort -n | xargs)
    wanted="1 1 1 4 6 7 8 13 17 21 25 29 33 34 35 36 40 44 48 52 55 58 62 63 64 65 66 70"
    [[ $noticed == "$wanted" ]] || { printf 'wrong lines: %s\nnoticed:     %s\n' "$wanted" "$noticed" >&2; exit 1; }
    exit 0
fi

page=$(realpath "$1") build=$(realpath "$2")
work=$(mktemp -d "/tmp/krenv-docs-XXXXXX")
trap 'rm -rf "$work"' EXIT
patience=${KRENV_DOCS_PATIENCE:-60} # seconds
status=0
complain() { printf '%s:%s: %s\n' "${page#"$root"/}" "$1" "$2" >&2; status=1; }

# --- The reader: an installed package, a home and a directory to work in ----------------------------------------------

cached() { sed -n "s/^$1:[A-Z]*=//p" "$build/CMakeCache.txt"; }
compiler=$(cached CMAKE_CXX_COMPILER) flags=$(cached CMAKE_CXX_FLAGS)
libdir=$(cached CMAKE_INSTALL_LIBDIR)
prefix=$work/krenv
home=$work/home
here=$home/krenv

prepare() {
    cmake --install "$build" --prefix "$prefix" >"$work/install.log" || { cat "$work/install.log"; exit 1; }
    mkdir -p "$here/bin"
    cp -r "$root/examples" "$root/README.md" "$here"
    cp -r "$root/tests/packaging/docs_reader/." "$here"
    # The example settings, as if the product were installed in the reader's directory.
    { cat "$root/examples/pressmark.ini"; printf '[]\nKR_BIN = %s\n' "$here/bin"; } >"$home/pressmark.ini"
    cp "$root/examples/host/main.cpp" "$here"
    export HOME=$home PATH=$prefix/bin:$PATH LD_LIBRARY_PATH=$prefix/$libdir KR_BIN=$here/bin
    export PKG_CONFIG_LIBDIR=$prefix/$libdir/pkgconfig CMAKE_PREFIX_PATH=$prefix
}

# --- The page's blocks ------------------------------------------------------------------------------------------------

# Writes each block to blocks/NUMBER.LANGUAGE and the number of its first line to blocks/NUMBER.line. Prints
# NUMBER.LANGUAGE.
extract() {
    mkdir -p "$work/blocks"
    awk -v out="$work/blocks/" '
        function file() { return sprintf("%s%04d", out, count) }
        inside && $0 ~ "^ *```" { inside = 0; close(name); next }
        inside { sub("^" margin, ""); print > name; next }
        /^ *```/ {
            language = $0; sub(/^ *```/, "", language); sub(/[ {].*/, "", language)
            margin = $0; sub(/`.*/, "", margin)
            if (language == "") language = "none"
            count++; inside = 1
            name = file() "." language
            printf "" > name
            print NR + 1 > (file() ".line"); close(file() ".line")
            printf "%04d.%s\n", count, language
            next
        }
        /^    / && blank && !list { print NR > (out "indented") }
        { blank = /^ *$/ }
        /^ *([-*]|[0-9]+\.) / { list = 1 }
        /^[^ ]/ && !/^([-*]|[0-9]+\.) / { list = 0 }
        END { if (inside) print NR > (out "unclosed") }' "$page"
}

# --- console ----------------------------------------------------------------------------------------------------------

shortened() {
    sed -E 's/--duration [0-9]+/--duration 2/; s/--interval [0-9]+/--interval 1/
        s/--count ([3-9]|[0-9]{2,})/--count 2/'
}
as_the_reader_sees_it() { sed -e "s|$here|/home/guest/krenv|g; s|$home|/home/guest|g" -e 's/[ \t]*$//'; }
words() { grep -oE '[A-Za-z_]{3,}' | grep -vxE '[KMGT]iB' | sort -u; }

last=0
run_in_shell() { # COMMAND: prints the command's output, and writes its exit code to $work/code
    local code=0
    (cd "$here" && timeout 60 bash -c "(exit $last); $1") </dev/null >"$work/printed" 2>&1 || code=$?
    echo "$code" >"$work/code"
    as_the_reader_sees_it <"$work/printed"
}

same_words() { # EXPECTED-FILE PRINTED-FILE
    diff <(words <"$1") <(words <"$2") >"$work/differences"
}

# The screen is drawn when the first figures have been measured, which takes longer on a busy machine.
shows_on_terminal() { # COMMAND EXPECTED-FILE; while a process runs that looks like a load engine
    local socket=$work/tmux engine seconds fits=1
    ln -sf "$(command -v sleep)" "$work/PMLoadEngineMain"
    "$work/PMLoadEngineMain" 120 &
    engine=$!
    tmux -S "$socket" -f /dev/null new-session -d -x 100 -y 24 "cd '$here' && exec $1"
    for ((seconds = 0; seconds < patience && fits != 0; ++seconds)); do
        sleep 1
        tmux -S "$socket" capture-pane -p | sed '1s/[^ ]*$/loadhost/' >"$work/screen" # the reader's machine
        fits=0
        same_words "$2" "$work/screen" || fits=1
    done
    tmux -S "$socket" kill-server
    kill "$engine"
    return "$fits"
}

same_lines() { # EXPECTED-FILE PRINTED-FILE; a line `...` stands for any number of lines
    awk 'NR == FNR { expected[++n] = $0; next } { printed[++m] = $0 }
        function fits(i, j) {
            if (i > n) return j > m
            if (expected[i] ~ /^ *\.\.\.$/) { for (; j <= m + 1; j++) if (fits(i + 1, j)) return 1; return 0 }
            return j <= m && expected[i] == printed[j] && fits(i + 1, j + 1)
        }
        END { exit !fits(1, 1) }' "$1" "$2"
}

exit_code_fits() { # COMMAND
    local code told
    code=$(<"$work/code")
    told=$(sed -nE 's/.*#.*exit code (.*)/\1/p' <<<"$1" | grep -oE '[0-9]+' || echo 0)
    grep -qx "$code" <<<"$told"
}

check_command() { # LINE COMMAND EXPECTED-FILE
    local line=$1 command expected=$3
    command=$(shortened <<<"$2")
    if [[ $command == *--watch* && -s $expected ]]; then
        shows_on_terminal "${command%%#*}" "$expected" ||
            { complain "$line" "the screen shows different words: $2"; cat "$work/differences" "$work/screen" >&2; }
        return
    fi
    [[ $command != *--watch* ]] || command=${command/--watch/--watch --count 1}
    run_in_shell "$command" >"$work/output"
    last=$(<"$work/code")
    exit_code_fits "$command" || { complain "$line" "exit code $last: $2"; cat "$work/output" >&2; return; }
    [[ ! -s $expected ]] || same_lines "$expected" "$work/output" ||
        { complain "$line" "prints something else: $2"; diff "$expected" "$work/output" >&2 || true; }
}

treat_console() { # BLOCK LINE
    local line=$2 text command="" at=0 commands=0
    : >"$work/expected"
    last=0
    while IFS= read -r text || [[ -n $text ]]; do
        if [[ $text == '$ '* ]]; then
            [[ -z $command ]] || check_command "$at" "$command" "$work/expected"
            command=${text#'$ '} at=$line commands=$((commands + 1))
            : >"$work/expected"
        elif [[ $command == *\\ ]]; then
            command=${command%\\}${text#> }
        else
            printf '%s\n' "$text" | sed 's/[ \t]*$//' >>"$work/expected"
        fi
        line=$((line + 1))
    done <"$1"
    [[ -z $command ]] || check_command "$at" "$command" "$work/expected"
    ((commands > 0)) || complain "$2" "a console block without a command"
}

# --- sh ---------------------------------------------------------------------------------------------------------------

option() { sed -nE "s/.* $1[ =]'?([^ ']+).*/\1/p" <<<"$2"; } # NAME COMMAND
dev_knows() { [[ $1 == -* ]] || grep -qE "^  $1( |\$)" <<<"$("$root/dev" help)"; }
preset_exists() { grep -qF "\"$1\"" <<<"$(cd "$root" && cmake --list-presets=all)"; }
target_exists() { grep -qE "(^|/)$1: " <<<"$(ninja -C "$build" -t targets all)"; }
test_exists() { grep -qE 'Total Tests: [1-9]' <<<"$(ctest --test-dir "$build" -N -R "$1")"; }

# Complains of each part of a command that matches the pattern and is no file of a directory.
all_exist() { # LINE KIND PATTERN DIRECTORY ENDING COMMAND
    local name
    while read -r name; do
        [[ -e $4/$name$5 ]] || complain "$1" "there is no $2 $name"
    done < <(grep -oP "$3" <<<"$6")
}

# Checks commands that would run the tests recursively or change the machine. Succeeds when the command is one of these.
checked_only() { # LINE COMMAND
    local line=$1 command=$2 preset target name
    preset=$(option --preset "$command")
    [[ -z $preset ]] || preset_exists "$preset" || complain "$line" "there is no preset $preset"
    case $command in
        *./dev*)
            name=$(sed -E 's/.*\.\/dev *([^ ]*).*/\1/' <<<"$command")
            dev_knows "$name" || complain "$line" "./dev has no $name"
            ;;
        "cmake --preset "*) ;;
        "cmake --build --preset "*)
            target=$(option --target "$command")
            [[ -z $target ]] || target_exists "$target" || complain "$line" "there is no target $target"
            ;;
        "ctest --preset "*)
            name=$(option -R "$command")
            [[ -z $name ]] || test_exists "$name" || complain "$line" "no test is called $name"
            ;;
        "cmake -DKRENV_FACILITIES="*) ;; # needs a product's facilities; see the test minimal_facilities
        *"apt install "* | *"apt-get install "* | "git "*)
            all_exist "$line" package '\./\K[a-z0-9-]+(?=_\S*\.deb)' "$root/packaging/debian" .lintian-overrides "$command"
            ;;
        "systemctl "* | "systemd-run "*)
            all_exist "$line" unit 'pmenv[^ ]*\.(service|socket)' "$prefix/lib/systemd/system" "" "$command"
            ;;
        "cp "*" /etc/"*) all_exist "$line" file '[a-z.-]+\.(yml|json)' "$prefix/share/pmenv/prometheus" "" "$command" ;;
        "curl "*) # of a service that is not started here
            name=$(grep -oP 'http://[0-9.]+:\K[0-9]+' <<<"$command")
            grep -qF ":$name unless given" <<<"$(pmenv-exporter --help)" || complain "$line" "pmenv-exporter does not answer at port $name"
            ;;
        "pmenv fleet "*) # of a server that is not there
            run_in_shell "$command" >"$work/output"
            [[ $(<"$work/code") != 2 ]] || complain "$line" "wrong usage: $(<"$work/output")"
            ;;
        *) return 1 ;;
    esac
}

treat_sh() { # BLOCK LINE
    local line=$2 text script=""
    while IFS= read -r text || [[ -n $text ]]; do
        checked_only "$line" "$text" || script+=$text$'\n'
        line=$((line + 1))
    done <"$1"
    run_in_shell "set -eu"$'\n'"$script" >"$work/output"
    [[ $(<"$work/code") == 0 ]] || { complain "$2" "the script ends with $(<"$work/code")"; cat "$work/output" >&2; }
}

# --- cpp and cmake ----------------------------------------------------------------------------------------------------

compile() { # SOURCE PROGRAM OPTION...: with the installed package; prints the compiler's errors to standard error
    local source=$1 program=$2 options
    shift 2
    options="$flags -std=c++17 -Wall -Wextra -Werror $(pkg-config --cflags krenv)"
    # shellcheck disable=SC2046,SC2086 # lists of options
    "$compiler" $options "$@" "$source" -o "$program" $(pkg-config --libs krenv) 2>"$work/errors" ||
        { sed "s|$work/||" "$work/errors" >&2; return 1; }
}

# Includes all installed headers and puts the rest of the block into a function.
as_function() { # BLOCK LINE
    (cd "$prefix/include/krenv" && printf '#include "%s"\n' *.h)
    printf '#include <cstdio>\n#include <string>\n#include <vector>\n'
    grep -E '^#include' "$1" || true
    printf 'KREnvContainerClass env;\nvoid fragment();\nvoid fragment() {\n'
    printf '#line %d "%s"\n' "$2" "${page##*/}"
    sed -E '/^#include/s/.*//' "$1"
    printf '\n}\nint main() { if (env.KREGetEnv("") != nullptr) fragment(); }\n'
}

treat_cpp() { # BLOCK LINE
    if grep -qE '\bint main\(' "$1"; then
        cp "$1" "$here/main.cpp"
        compile "$here/main.cpp" "$here/program" || { complain "$2" "does not compile"; return; }
        run_in_shell ./program >"$work/output"
        [[ $(<"$work/code") == 0 ]] || { complain "$2" "the program ends with $(<"$work/code")"; cat "$work/output" >&2; }
    else
        as_function "$1" "$2" >"$work/fragment.cpp"
        compile "$work/fragment.cpp" "$work/fragment" -Wno-unused-variable -Wno-unused-but-set-variable ||
            complain "$2" "does not compile as the body of a function"
    fi
}

treat_cmake() { # BLOCK LINE
    local project=$work/project-${2}
    mkdir -p "$project"
    cp "$here/main.cpp" "$project"
    grep -q 'project(' "$1" || printf 'cmake_minimum_required(VERSION 3.16)\nproject(reader LANGUAGES CXX)\n' >"$project/CMakeLists.txt"
    grep -q 'add_executable(' "$1" || echo 'add_executable(host main.cpp)' >>"$project/CMakeLists.txt"
    cat "$1" >>"$project/CMakeLists.txt"
    { cmake -G Ninja -S "$project" -B "$project/build" -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_FLAGS="$flags" &&
        cmake --build "$project/build"; } >"$work/output" 2>&1 || { complain "$2" "does not build"; cat "$work/output" >&2; }
}

# --- ini and the rest -------------------------------------------------------------------------------------------------

treat_ini() { # BLOCK LINE
    local name
    name=$(sed -nE '1s/^[;#] ([A-Za-z0-9_.-]+\.(ini|cfg))\b.*/\1/p' "$1")
    cp "$1" "$here/${name:=pressmark.ini}"
    run_in_shell "pmenv list --ini $name" >"$work/output"
    [[ $(<"$work/code") == 0 ]] || { complain "$2" "cannot be loaded"; cat "$work/output" >&2; }
}

treat_json() { # BLOCK LINE
    cat >"$work/read.cmake" <<'END'
file(READ "${BLOCK}" text)
string(JSON kind TYPE "${text}")
END
    cmake -DBLOCK="$1" -P "$work/read.cmake" 2>"$work/errors" || { complain "$2" "is no JSON"; cat "$work/errors" >&2; }
}

treat_text() { # BLOCK LINE
    ! grep -nE '^(\$ |\./dev )' "$1" || complain "$2" "a command in a block of text, which nobody runs; call it console or sh"
}

check_links() {
    local target
    while read -r target; do
        [[ -e $(dirname "$page")/${target%%#*} ]] || complain 1 "a link to $target, which does not exist"
    done < <(grep -oE '\]\([^)#:]+[^):]*\)' "$page" | sed 's/^](//; s/)$//' | sort -u)
}

check_words() {
    local word
    while read -r word; do dev_knows "$word" || complain 1 "./dev has no $word"; done \
        < <(grep -oE '`\./dev [a-z]+' "$page" | sed 's/.* //' | sort -u)
    while read -r word; do
        grep -qE "^  $word( |\$)" <<<"$(pmenv --help)" || complain 1 "pmenv has no $word"
    done < <(grep -oE '`pmenv [a-z]+' "$page" | sed 's/.* //' | sort -u)
}

prepare
for block in $(extract); do
    line=$(<"$work/blocks/${block%.*}.line") language=${block#*.}
    case $language in
        console) treat_console "$work/blocks/$block" "$line" ;;
        sh) treat_sh "$work/blocks/$block" "$line" ;;
        cpp) treat_cpp "$work/blocks/$block" "$line" ;;
        cmake) treat_cmake "$work/blocks/$block" "$line" ;;
        ini) treat_ini "$work/blocks/$block" "$line" ;;
        json) treat_json "$work/blocks/$block" "$line" ;;
        text) treat_text "$work/blocks/$block" "$line" ;;
        none) complain "$line" "a block without a language" ;;
        *) complain "$line" "a block in $language, which this test cannot run" ;;
    esac
done
[[ ! -f $work/blocks/indented ]] ||
    while read -r line; do complain "$line" "an indented block; write it between fences, with its language"; done <"$work/blocks/indented"
[[ ! -f $work/blocks/unclosed ]] || complain "$(<"$work/blocks/unclosed")" "a block that does not end"
check_links
check_words
exit "$status"
