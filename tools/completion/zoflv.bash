# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#
# Completion of zoflv in bash. What it offers it takes from the command's own --help: commands, options,
# and by an option's placeholder its values.

_zoflv() {
    local cur=${COMP_WORDS[COMP_CWORD]} at=$((COMP_CWORD - 1)) program=${COMP_WORDS[0]/#\~/$HOME}
    # "=" is a word of its own.
    [[ $cur == = ]] && cur=
    [[ ${COMP_WORDS[at]} == = ]] && at=$((at - 1))
    local before=${COMP_WORDS[at]} help commands command='' word
    COMPREPLY=()

    help=$("$program" --help 2>/dev/null) || return
    commands=$(sed -n '/^Commands:/,/^$/s/^  \([a-z]*\) .*/\1/p' <<<"$help")
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        if [[ $word =~ ^[a-z]+$ && $'\n'$commands$'\n' == *$'\n'$word$'\n'* ]]; then
            command=$word
            help+=$'\n'$("$program" "$command" --help 2>/dev/null)
            break
        fi
    done

    local options placeholder='' values=''
    options=$(sed -n '/^Options:/,/^$/p' <<<"$help")
    if [[ $before == -* ]]; then
        placeholder=$(sed -nE "s/^  (.*,)?$before ([A-Z][A-Za-z.]*) .*/\2/p" <<<"$options" | tail -n 1)
    fi
    case $placeholder in
    '')
        if [[ $cur == -* ]]; then
            values=$(sed -nE 's/^  (-[^ ]*).*/\1/p' <<<"$options" | tr ',' '\n')
        elif [[ -z $command ]]; then
            values=$commands
        fi
        ;;
    N | S | MS | TIME) return ;;
    WORD) # listed after the colon: "a, b or c"
        values=$(sed -nE "s/^  (.*,)?$before WORD .*: //p" <<<"$options" | sed 's/,//g; s/ or / /g')
        ;;
    esac
    if [[ -n $values ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$values" -- "$cur" | sort -u)
    else
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$cur")
    fi
}

complete -F _zoflv zoflv
