# Completion of upnpvelorn-browse for bash.
# shellcheck shell=bash

_upnpvelorn_browse() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} options
    COMPREPLY=()
    case $before in
    --interface)
        mapfile -t COMPREPLY < <(compgen -W "$(cd /sys/class/net && echo *)" -- "$word")
        return
        ;;
    --address | --timeout | check) return ;;
    esac
    options="--watch --address --all --json --interface --timeout --help --version"
    [ "$COMP_CWORD" != 1 ] || options="check $options"
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
}

complete -F _upnpvelorn_browse upnpvelorn-browse
