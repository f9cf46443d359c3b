# bash completion for kelvo-export and kelvo-stats: their options, and file
# names elsewhere (kelvo-stats takes only a source file).

_kelvo_export() {
    local cur=${COMP_WORDS[COMP_CWORD]}
    local prev=${COMP_WORDS[COMP_CWORD - 1],,}
    COMPREPLY=()
    case $prev in
    -m | -p | -x | -n) return 0 ;;
    -s)
        if [ "${COMP_WORDS[0]##*/}" = kelvo-stats ]; then
            mapfile -t COMPREPLY < <(compgen -W "calls total self max" -- "$cur")
            return 0
        fi ;;
    esac
    if [[ $cur == -* ]]; then
        local options="-m -p -x --csv"
        [ "${COMP_WORDS[0]##*/}" = kelvo-stats ] && options="-m -p -x -s -n --csv"
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$cur")
        return 0
    fi
    mapfile -t COMPREPLY < <(compgen -f -- "$cur")
    return 0
}

complete -o filenames -F _kelvo_export kelvo-export kelvo-stats
