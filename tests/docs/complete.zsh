# For an interactive zsh: binds ^T to a widget that completes each line of the file $CASES, as the tab key would, and
# writes the line and what was offered to the file $OFFERS, tabs between them.
unsetopt automenu
typeset -a offers

# All offers of a completion go through this builtin; with -A, -D or -O it only sorts them out.
compadd() {
    local -a matching
    if [[ " $* " != *" -"[^-\ ]#[ADO]* ]]; then
        builtin compadd -O matching "$@"
        offers+=($matching)
    fi
    builtin compadd "$@"
}

complete-cases() {
    local line
    for line in "${(@f)$(<$CASES)}"; do
        offers=()
        BUFFER=$line
        CURSOR=$#BUFFER
        zle complete-word
        print -r -- "$line"$'\t'"${(pj:\t:)offers}" >>$OFFERS
    done
    BUFFER=
    zle redisplay
    print done >>$OFFERS.done
}
zle -N complete-cases
bindkey '^T' complete-cases
