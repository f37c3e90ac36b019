# Completion for bash of all programs: the options and commands that --help names, of the program or of the
# command that the line has so far, and files where it takes one.

# _lanyard_commands COMMAND...: the commands that its help lists.
_lanyard_commands() {
    "$@" --help 2>/dev/null | sed -n '/^Subcommands:/,/^$/s/^  \([a-z][a-z-]*\) .*/\1/p'
}

# _lanyard_options COMMAND...: its options, but for those of one letter.
_lanyard_options() {
    "$@" --help 2>/dev/null | grep -oE '^ +(-[a-z],)?(-[a-zA-Z], )?--[a-z][a-z0-9-]*|\[--[a-z0-9-]+\]|, --[a-z]+' |
        grep -oE -- '--[a-z][a-z0-9-]*' | sort -u
}

_lanyard_radius() {
    local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} index
    local command=("$1") commands
    commands=$(_lanyard_commands "$1")
    for ((index = 1; index < COMP_CWORD; ++index)); do
        if [[ " ${commands//$'\n'/ } " == *" ${COMP_WORDS[index]} "* ]]; then
            command+=("${COMP_WORDS[index]}")
            commands=$(_lanyard_commands "${command[@]}")
        fi
    done
    COMPREPLY=()
    case "$previous" in
        -d | -f | --database | --dictionary | --file | --password-file | --queue | --secret-file | --user-file | \
            --on-authorized | --on-unauthorized)
            mapfile -t COMPREPLY < <(compgen -f -- "$word")
            return
            ;;
        -m | --method)
            mapfile -t COMPREPLY < <(compgen -W "pap chap mschap mschapv2" -- "$word")
            return
            ;;
    esac
    if [[ $word == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(_lanyard_options "${command[@]}")" -- "$word")
        return
    fi
    if [[ ${1##*/} == pnac-wired ]]; then
        commands+=" $(cd /sys/class/net 2>/dev/null && echo *)"
    fi
    mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$word")
    # Commands that take a file.
    case "${command[-1]}" in
        check | decode) mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
    esac
}

complete -o filenames -F _lanyard_radius lanyardctl pnac-wired radeapd \
    radauth radauth-all radauth-portal radacct radchap radchap-portal radmschap radmschap-portal \
    radmschapv2 radmschapv2-portal
