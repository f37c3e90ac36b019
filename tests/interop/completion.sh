#!/usr/bin/env bash
#
# What bash offers to complete a command line with.
#
#   completion.sh COMPLETION_FILE BIN_FOLDER
set -euo pipefail
export LC_ALL=C

[[ $# -eq 2 ]] || { echo "completion: takes 2 arguments" >&2; exit 2; }
# shellcheck source=/dev/null
source "$1"
bin=$2
failures=0

# offers EXPECTED WORD...: the last word is completed with these, in any order.
offers() {
    local expected=$1 got
    shift
    COMP_WORDS=("$@")
    COMP_CWORD=$(($# - 1))
    _lanyard_radius "$bin/$1"
    got=$(printf '%s\n' "${COMPREPLY[@]}" | sort | tr '\n' ' ')
    if [[ "${got% }" != "$expected" ]]; then
        echo "completion: '$*' is offered '$got', not '$expected'" >&2
        failures=$((failures + 1))
    fi
}

offers "del" lanyardctl db de
offers "serve set" lanyardctl db s
offers "serve set" lanyardctl --json db -d /x.db s
offers "--secret --secret-file" lanyardctl db add --sec
offers "--dictionary --help --syslog" lanyardctl db serve --
offers "status" lanyardctl relay ""
offers "load login" lanyardctl lo
offers "--password-file" lanyardctl load --pass
offers "--user-file" lanyardctl load --u
offers "$1" lanyardctl load --user-file "${1%.bash}"
offers "check list show" lanyardctl dict ""
offers "mschap mschapv2" lanyardctl login -m ms
offers "$1" lanyardctl login --password-file "${1%.bash}"
offers "$1" lanyardctl check "${1%.bash}"
offers "$1" lanyardctl dict check "${1%.bash}"
offers "--dictionary --help" lanyardctl dict show --
offers "$1" lanyardctl decode "${1%.bash}"
offers "flush interim list off on start stop" lanyardctl acct ""
offers "--input-octets --input-packets" lanyardctl acct stop --in
offers "$1" lanyardctl acct flush --queue "${1%.bash}"
offers "--on-authorized --on-unauthorized" pnac-wired --on
offers "--help --json" pnac-wired status --
offers "lo" pnac-wired l
offers "--in-flight" radeapd --in
offers "--accept-unsigned --dead-time --foreground --help --in-flight --status-server --version" radeapd --
offers "--require-signed --resilient" radauth --re
offers "--standard-sha1" radmschapv2 --st
offers "$1" radeapd -d "${1%.bash}"
[[ $failures -eq 0 ]]
