# Completion of upnpvelornctl for bash.
# shellcheck shell=bash

_upnpvelornctl() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command=${COMP_WORDS[1]} words
    COMPREPLY=()
    [ "$before" != --family ] || return
    if [ "$COMP_CWORD" = 1 ]; then
        words="status list show monitor check announce reconfigure --help --version"
    else
        words="--help"
        [ "$command" != list ] || words+=" --family --json"
        # Only uuids that need no quoting
        [ "$command $before" != "show show" ] || words+=" $(upnpvelornctl list --json 2>/dev/null \
            | sed -n 's/.*"serial": "\([A-Za-z0-9_-]*\)".*/\1/p')"
    fi
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
}

complete -F _upnpvelornctl upnpvelornctl
