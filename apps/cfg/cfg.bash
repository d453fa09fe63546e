# bash completion for cfg(1)

_cfg() {
    local IFS=$'\n'
    local -a offer
    mapfile -t offer < <("${1/#\~/$HOME}" __complete -- "${COMP_LINE:0:COMP_POINT}" "$2" 2>/dev/null)
    COMPREPLY=("${offer[@]:1}")
    case ${offer[0]} in
        *nospace*) compopt -o nospace ;;
    esac
    case ${offer[0]} in
        ' files') compopt -o filenames ;;
    esac
    case ${offer[0]} in
        *files) mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -f -- "$2") ;;
    esac
}

complete -F _cfg cfg
