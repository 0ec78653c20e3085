# A local portal for the script that sources this file, after lib.sh.
# shellcheck shell=bash

portal_pid=

# start_portal LOG OPTION...: sets portal_host (HOST:PORT) and portal_ca, and exports the credentials of the first
# user who needs no code.
start_portal() {
    local log=$1 line facts
    shift
    # A coprocess has both of its ends piped: its line arrives the moment it is written, and should this script be
    # killed outright, the end of input stops the portal. Ctrl-C is for the client; the portal goes after it, by
    # its own signal.
    coproc PORTAL { trap '' INT && exec build/bin/velmora-portal "$@" 2>"$log"; }
    # shellcheck disable=SC2153 # Bash sets it for the coprocess
    portal_pid=$PORTAL_PID
    if ! read -r line <&"${PORTAL[0]}"; then
        cat "$log" >&2
        say "The portal did not start."
        return 1
    fi
    facts=$(python3 scripts/portal_facts.py <<<"$line")
    { read -r portal_host && read -r portal_ca && read -r VELMORA_USER && read -r VELMORA_PASSWORD; } <<<"$facts"
    export portal_host portal_ca VELMORA_USER VELMORA_PASSWORD
}

stop_portal() {
    [[ -n $portal_pid ]] || return 0
    kill -TERM "$portal_pid" 2>/dev/null || true
    wait "$portal_pid" 2>/dev/null || true
    portal_pid=
}
