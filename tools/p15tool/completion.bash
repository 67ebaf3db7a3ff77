# bash completion for p15tool. The commands and options come from the
# tool's own --help, so they are never out of date with the tool installed.

# The subcommands and options listed by `p15tool WORDS... --help`.
_p15tool_help_words() {
    "$1" "${@:2}" --help 2>/dev/null | awk '
        /^[A-Za-z]+:/ { section = $1; next }
        section == "Subcommands:" && /^  [a-z]/ { print $1 }
        /^  -/ { n = split($1, names, ","); for (i = 1; i <= n; i++) print names[i] }'
}

_p15tool() {
    local tool=${COMP_WORDS[0]} current=${COMP_WORDS[COMP_CWORD]} word words
    local -a path=()
    # The subcommands typed so far: the words the help of the path before
    # them lists as subcommands (option values are not).
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        [[ $word == -* ]] && continue
        if _p15tool_help_words "$tool" "${path[@]}" | grep -qxF -- "$word"; then
            path+=("$word")
        fi
    done
    words=$(_p15tool_help_words "$tool" "${path[@]}")
    if [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(grep -- '^-' <<<"$words")" -- "$current")
        return
    fi
    mapfile -t COMPREPLY < <(compgen -W "$(grep -v -- '^-' <<<"$words")" -- "$current")
    # A command without subcommands takes files: its input, output, PIN file.
    [[ ${#COMPREPLY[@]} -gt 0 ]] || mapfile -t COMPREPLY < <(compgen -f -- "$current")
}
complete -o filenames -F _p15tool p15tool
