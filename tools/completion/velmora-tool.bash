# Completion of velmora-tool for bash. The verbs and options are the ones that --help lists.
_velmora_tool() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    local tool=${COMP_WORDS[0]} choices=
    if [ "$COMP_CWORD" -eq 1 ]; then
        choices="--help --version $("$tool" --help 2>/dev/null |
            sed -n '/^Verbs:/,$s/^  \([a-z]*\) .*/\1/p')"
    elif [ "$before" = --format ]; then
        choices="box csv json jsonl markdown line"
    elif [[ $word == -* ]]; then
        choices=$("$tool" "${COMP_WORDS[1]}" --help 2>/dev/null |
            sed -n '/^Options:/,$s/^  \(-[a-z],\)*\(--[a-z-]*\).*/\2/p')
    else
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
        return
    fi
    mapfile -t COMPREPLY < <(compgen -W "$choices" -- "$word")
}
complete -F _velmora_tool velmora-tool
