# A local portal for the script that sources this file: the one that is built here, or without lib.sh the installed one.
# shellcheck shell=bash

portal_pid=

# start_portal LOG OPTION...: sets portal_host (HOST:PORT) and portal_ca, and exports the credentials of the first
# user, who needs no code.
start_portal() {
    local log=$1 line user name
    shift
    # A coprocess has both of its ends piped: its line arrives the moment it is written, and should this script be
    # killed outright, the end of input stops the portal. Ctrl-C is for the client; the portal goes after it, by
    # its own signal.
    coproc PORTAL { trap '' INT && exec "${root:+$root/build/bin/}velmora-portal" "$@" 2>"$log"; }
    # shellcheck disable=SC2153 # Bash sets it for the coprocess
    portal_pid=$PORTAL_PID
    if ! read -r line <&"${PORTAL[0]}"; then
        cat "$log" >&2
        echo "The portal did not start." >&2
        return 1
    fi
    user=${line#*'"users":['}
    portal_host=$(portal_fact host "$line")
    portal_ca=$(portal_fact ca "$line")
    VELMORA_USER=$(portal_fact email "$user")
    VELMORA_PASSWORD=$(portal_fact password "$user")
    for name in portal_host portal_ca VELMORA_USER VELMORA_PASSWORD; do
        [[ -n ${!name} ]] || { echo "The portal's line gives no $name: $line" >&2 && return 1; }
    done
    export portal_host portal_ca VELMORA_USER VELMORA_PASSWORD
}

# The first text of that name in a line of JSON, or nothing. None that the portal writes holds a quote.
portal_fact() {
    local pattern="\"$1\":\"([^\"]*)\""
    [[ ! $2 =~ $pattern ]] || printf '%s' "${BASH_REMATCH[1]}"
}

stop_portal() {
    [[ -n $portal_pid ]] || return 0
    kill -TERM "$portal_pid" 2>/dev/null || true
    wait "$portal_pid" 2>/dev/null || true
    portal_pid=
}
