# Completes each line of standard input with the function that is registered for its first word, as bash calls it, and
# prints the line and what was offered, tabs between them.
while IFS= read -r line; do
    read -ra COMP_WORDS <<<"$line"
    [[ $line != *" " ]] || COMP_WORDS+=('')
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1)) COMP_LINE=$line COMP_POINT=${#line} COMPREPLY=()
    read -r _ _ function _ < <(complete -p "${COMP_WORDS[0]}")
    "$function" "${COMP_WORDS[0]}" "${COMP_WORDS[COMP_CWORD]}" ''
    printf '%s' "$line"
    printf '\t%s' "${COMPREPLY[@]}"
    echo
done
