# bash completion for pmenv

# The words that may stand where the cursor is, for the command typed so far.
_pmenv_options()
{
    local options="--ini --json --help --version"
    case $1 in
        get) options+=" --file --raw" ;;
        explain) options+=" --text --set" ;;
        check) options+=" --strict --rules" ;;
        walk) options+=" --recurse --skip --null" ;;
        stats)
            options+=" --interval --count --duration --csv --openmetrics --per-process --output --watch --verdict"
            options+=" --cpu-limit --engine-limit --sustain --memory-limit --swap-limit"
            ;;
    esac
    printf '%s' "$options"
}

# Whether an option takes the next word.
_pmenv_takes_value()
{
    local names="ini|file|text|set|skip|interval|count|duration|output|cpu-limit|engine-limit|sustain|memory-limit|swap-limit"
    [[ $1 == --@($names) ]]
}

# Gathers in `plain` the words that are neither options nor an option's value; the command is the first, or the first two.
_pmenv_plain_words()
{
    local i word
    plain=()
    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        if _pmenv_takes_value "$word"; then
            ((i++))
        elif [[ $word != -* && $word != = ]]; then
            plain+=("$word")
        fi
    done
}

# Runs pmenv on the pressmark.ini that the command itself would read.
_pmenv_run()
{
    local i ini=()
    for ((i = 1; i < COMP_CWORD - 1; i++)); do
        [[ ${COMP_WORDS[i]} == --ini ]] && ini=(--ini "${COMP_WORDS[i + 1]}")
    done
    "${COMP_WORDS[0]}" "${ini[@]}" "$@" 2>/dev/null
}

# Names of the settings in pressmark.ini. Those of a file given with --file are not known.
_pmenv_settings()
{
    [[ " ${COMP_WORDS[*]} " == *" --file "* ]] || _pmenv_run list | sed -e '1,3d' -e 's/  .*//'
}

# Files below the directory that the setting KR_BIN names.
_pmenv_further_files()
{
    local directory
    directory=$(_pmenv_run get KR_BIN) && (cd -- "$directory" 2>/dev/null && compgen -f -- "$1")
}

_pmenv()
{
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} plain
    COMPREPLY=()
    _pmenv_plain_words

    if _pmenv_takes_value "$previous"; then
        case $previous in
            --ini | --output) mapfile -t COMPREPLY < <(compgen -f -- "$current") ;;
            --file) mapfile -t COMPREPLY < <(_pmenv_further_files "$current") ;;
        esac
        return
    fi
    if [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(_pmenv_options "${plain[0]}")" -- "$current")
        return
    fi

    case "${#plain[@]} ${plain[0]}" in
        "0 ") mapfile -t COMPREPLY < <(compgen -W "get list explain check find resolve path identity walk report stats" -- "$current") ;;
        "1 path") mapfile -t COMPREPLY < <(compgen -W "split make shorten abs" -- "$current") ;;
        *" get" | "1 explain") mapfile -t COMPREPLY < <(compgen -W "$(_pmenv_settings)" -- "$current") ;;
        "1 resolve" | [2-9]*" find") mapfile -t COMPREPLY < <(compgen -W "PATH HOME MYDOCUMENTS" -- "$current") ;;
        "1 walk") mapfile -t COMPREPLY < <(compgen -d -- "$current") ;;
        *" list" | *" report" | *" stats") ;;
        *) mapfile -t COMPREPLY < <(compgen -f -- "$current") ;;
    esac
}

complete -o filenames -F _pmenv pmenv
