# shellcheck shell=bash
# Completion for mediaworker-ctl and mediaworker-view in bash. It has no list of options: the programs are asked for
# their help, which takes them some milliseconds.

# "--option VALUE" for each option that a command's help names; VALUE is empty where there is none.
_mediaworker_options() {
    "$@" --help 2>/dev/null | sed -nE 's/^  (-[A-Za-z], )?(--[a-z0-9-]+)( <([A-Z]+)>)?( .*)?$/\2 \4/p'
}

# The words of the section "Commands" in the help.
_mediaworker_commands() {
    "$1" --help 2>/dev/null | sed -nE '/^Commands:/,/^$/s/^  ([a-z]+).*/\1/p'
}

_mediaworker() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    local command=("$1") words=() option value
    COMPREPLY=()
    if [ "${1##*/}" = mediaworker-ctl ]; then
        if [ "$COMP_CWORD" -eq 1 ] || [ "${COMP_WORDS[1]}" = help ]; then
            mapfile -t words < <(_mediaworker_commands "$1")
            [ "$COMP_CWORD" -ne 1 ] || words+=(--help --version)
            mapfile -t COMPREPLY < <(compgen -W "${words[*]}" -- "$word")
            return
        fi
        command+=("${COMP_WORDS[1]}")
    fi
    while read -r option value; do
        words+=("$option")
        [ "$option" = "$before" ] || continue
        case $option:$value in
        --flv:*) mapfile -t COMPREPLY < <(compgen -W 'standard strict' -- "$word") ;;
        --proxy-type:*) mapfile -t COMPREPLY < <(compgen -W 'http socks5' -- "$word") ;;
        *:DIR) mapfile -t COMPREPLY < <(compgen -d -- "$word") ;;
        *:FILE) mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
        *:) continue ;;
        esac
        compopt -o filenames 2>/dev/null
        return
    done < <(_mediaworker_options "${command[@]}")
    if [[ $word == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "${words[*]}" -- "$word")
    else
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
    fi
}

complete -F _mediaworker mediaworker-ctl mediaworker-view
