# Completion of scansteps in bash. The program itself says what fits (scansteps __complete), so that its options, the
# kinds of steps and their settings are those of the version that is installed.

_scansteps() {
    local words=() current line files='' candidate IFS=$'\n'
    # The shell takes words apart at "=" and ":"; the program wants them as they were typed.
    local before=${COMP_LINE:0:COMP_POINT} i=0 word
    for ((i = 1; i <= COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        if ((i > 1)) && [[ ($word == [=:]* || ${COMP_WORDS[i - 1]} == *[=:]) && $before == *"${COMP_WORDS[i - 1]}$word"* ]]; then
            words[${#words[@]}-1]+=$word
        else
            words+=("$word")
        fi
    done
    current=${words[${#words[@]}-1]}
    local quote=''
    case $current in [\"\']*) quote=${current:0:1} ;; esac
    for i in "${!words[@]}"; do
        case ${words[i]} in
            [\"\']*) word=${words[i]:1}; words[i]=${word%"${words[i]:0:1}"} ;;
        esac
    done
    current=${words[${#words[@]}-1]}

    local candidates=()
    while IFS= read -r line; do
        case $line in
            :files) files=-f ;;
            :folders) files=-d ;;
            *) candidates+=("${line%%$'\t'*}") ;;
        esac
    done < <("${COMP_WORDS[0]}" __complete "${words[@]}" 2>/dev/null)

    COMPREPLY=()
    # Readline replaces what comes after the last "=" or ":", or a whole word in quotes.
    local cut=''
    if [ -z "$quote" ]; then
        case $current in *[=:]*) cut=${current%"${current##*[=:]}"} ;; esac
    fi
    for candidate in "${candidates[@]}"; do
        COMPREPLY+=("${candidate#"$cut"}")
    done
    if [ -n "$files" ]; then
        local name=${current#"$cut"}
        compopt -o filenames 2>/dev/null
        mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen "$files" -- "$name")
    fi
    [ ${#COMPREPLY[@]} -gt 0 ] || return
    case ${COMPREPLY[0]} in *[=/]) compopt -o nospace 2>/dev/null ;; esac
    [ -n "$quote" ] && compopt -o nospace 2>/dev/null
    # A list that is only shown (the second Tab) need not repeat the pipeline so far.
    if [ "${COMP_TYPE:-9}" = 63 ] && [ -n "$quote" ] && [[ $current == *' '* ]]; then
        cut=${current%"${current##* }"}
        for i in "${!COMPREPLY[@]}"; do COMPREPLY[i]=${COMPREPLY[i]#"$cut"}; done
    elif [ ${#COMPREPLY[@]} = 1 ] && [ -n "$quote" ] && [[ $current == *' '* || ${COMPREPLY[0]} == *' '* || -z "$files" ]]; then
        # Of a single match readline would close the quotes, but a pipeline goes on: a second candidate keeps them open.
        COMPREPLY+=("${COMPREPLY[0]} ")
    fi
}

complete -F _scansteps scansteps
