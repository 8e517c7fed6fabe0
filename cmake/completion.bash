# SPDX-License-Identifier: Apache-2.0
# Completion in bash for bootvigil-lab, bootvigil-report and bootvigil-fleet: it asks the program
# itself, so that it knows whatever the program does. To use it without installing: source cmake/completion.bash

_bootvigil() {
    local word=${COMP_WORDS[COMP_CWORD]} called=() candidates
    [[ $COMP_CWORD -gt 1 && ${COMP_WORDS[1]} != -* && $1 != *report ]] && called=("${COMP_WORDS[1]}")
    if [[ $word == -* ]]; then
        candidates=$("$1" "${called[@]}" --help 2>/dev/null | grep -oE -- '--?[a-z][a-z-]*')
    elif [[ $1 != *report && ${#called[@]} -eq 0 ]]; then
        candidates=$("$1" --help 2>/dev/null | sed -n '/^Subcommands:/,$s/^  \([a-z]\+\).*/\1/p')
    elif [[ ${called[0]} == run ]]; then
        candidates=$("$1" list 2>/dev/null | cut -d' ' -f1)
    fi
    mapfile -t COMPREPLY < <(compgen -W "$candidates" -- "$word")
}

complete -o default -F _bootvigil bootvigil-lab bootvigil-report bootvigil-fleet
