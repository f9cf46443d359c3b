# bash completion for kelvo: the command words, the options of each command
# (those that the usage texts leave out too), and file names where a
# command takes a file.

_kelvo_options() {
    case $1 in
    on)
        echo "-m -p -c -rc -e -r -debug -s -n -mmio -f -l -i -crash -t" \
            "-pause_mask -pause_attrib -this" ;;
    chg | change)
        echo "-m -p -c -rc -e -r -crash -pause_mask -pause_attrib -this" ;;
    fmt | format) echo "-m -p -x -r -j" ;;
    flw | flow) echo "-m -p -x -r" ;;
    esac
}

# Options that take the next word as their value.
_kelvo_takes_value() {
    case $1 in
    -m | -p | -c | -rc | -e | -r | -f | -crash | -pause_mask | -pause_attrib | -this | -x)
        return 0 ;;
    esac
    return 1
}

_kelvo() {
    local cur=${COMP_WORDS[COMP_CWORD]}
    local prev=${COMP_WORDS[COMP_CWORD - 1]}
    COMPREPLY=()
    if [ "$COMP_CWORD" -eq 1 ]; then
        local commands="chg change clr clear dmp dump flw flow fmt format inf info information off on help"
        mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$cur")
        return 0
    fi
    local command=${COMP_WORDS[1],,}
    local prev_lower=${prev,,}
    # -r is a value option of on and chg only; in fmt and flw it stands alone.
    if _kelvo_takes_value "$prev_lower" &&
        ! { [ "$prev_lower" = -r ] && [[ $command == f* ]]; }; then
        [ "$prev_lower" = -f ] && mapfile -t COMPREPLY < <(compgen -f -- "$cur")
        return 0
    fi
    case $command in
    on | chg | change | fmt | format | flw | flow)
        if [[ $cur == -* ]]; then
            mapfile -t COMPREPLY < <(compgen -W "$(_kelvo_options "$command")" -- "$cur")
            return 0
        fi ;;
    esac
    case $command in
    dmp | dump | fmt | format | flw | flow | inf | info | information)
        mapfile -t COMPREPLY < <(compgen -f -- "$cur") ;;
    esac
    return 0
}

complete -o filenames -F _kelvo kelvo
