#!/usr/bin/env bash
#
# Shows the system at work: builds it, starts a real RADIUS server on this machine's loopback, logs users
# in through the programs and checks that each step went as expected. Nothing stays behind.
set -euo pipefail
cd "$(dirname "$0")/.."

device=
server_pid=
finish() {
    local status=$?
    trap - EXIT
    if [[ -n $server_pid ]]; then
        kill "$server_pid" 2>/dev/null || true
        wait "$server_pid" 2>/dev/null || true
    fi
    if [[ -n $device ]]; then
        rm -rf "$device"
    fi
    if [[ $status -ne 0 ]]; then
        echo "demo: FAILED"
    fi
    exit "$status"
}
trap finish EXIT
trap 'exit 129' HUP
trap 'exit 130' INT
trap 'exit 143' TERM

fail() {
    echo "   NOT as expected: $*"
    exit 1
}

# step TITLE STATUS PROGRAM ARGUMENT...: runs a program of the build, shows what it writes and checks its
# exit status. What it wrote is left in $output.
output=
step() {
    local title=$1 expected=$2 program=$3 status=0
    shift 3
    echo
    echo "== $title"
    echo "   \$ $program $*"
    output=$(PAL_ROOT=$device timeout 300 "build/release/bin/$program" "$@" 2>&1) || status=$?
    while IFS= read -r line; do
        echo "   | $line"
    done <<<"$output"
    if [[ $status -ne $expected ]]; then
        fail "exit status $status instead of $expected"
    fi
}

# shows TEXT: the step before wrote this line, as a whole; * stands for anything.
shows() {
    local line
    while IFS= read -r line; do
        # shellcheck disable=SC2053  # the expectation is a pattern on purpose
        if [[ $line == $1 ]]; then
            return
        fi
    done <<<"$output"
    fail "no line '$1'"
}

as_expected() {
    echo "   As expected: $*"
}

echo "== Building (release)"
scripts/setup.sh
# shellcheck source=scripts/common.sh
source scripts/common.sh
cmake --preset release "${cmake_options[@]}" >/dev/null
cmake --build --preset release -j "$jobs" --target \
    radauth radauth-all radauth-portal radacct radchap radchap-portal radmschap radmschap-portal \
    radmschapv2 radmschapv2-portal ntresponse lanyardctl radeapd pnac-wired lanyard-test-server

echo
echo "== Starting a RADIUS server on 127.0.0.1"
coproc SERVER { exec build/release/bin/lanyard-test-server; }
# shellcheck disable=SC2153  # coproc sets it
server_pid=$SERVER_PID
declare -A at=()
while [[ -z ${at[ready]:-} ]] && IFS='=' read -r -t 60 name value <&"${SERVER[0]}"; do
    at[$name]=$value
done
if [[ -z ${at[ready]:-} ]]; then
    fail "the server did not start"
fi
first=127.0.0.1:${at[auth_port]}
second=127.0.0.1:${at[signed_port]}
as_expected "it takes logins at $first and $second, accounting at 127.0.0.1:${at[acct_port]}"

# The device: the fixed paths of the system lie in this folder.
device=$(mktemp -d)
mkdir "$device/var" "$device/tmp"
install -D build/release/bin/ntresponse "$device/nexa2.0/bin/orvane_getNTResponse"
(
    umask 077
    {
        echo "authserver $first:3:1:${at[secret]}, $second:3:1:${at[secret]}"
        echo "acctserver 127.0.0.1:${at[acct_port]}:3:1:${at[secret]}"
    } >"$device/var/radius.conf"
    echo "127.0.0.1 $(hostname)" >"$device/var/hosts"
)

step "alice logs in with her password" 0 radauth alice wonderland
shows '"alice" RADIUS Authentication OK'
shows 'Reply-Message: Welcome, alice'
as_expected "she is let in, and greeted by the server"

step "alice logs in with a wrong password" 1 radauth alice looking-glass
shows '*"alice" RADIUS Authentication failure'
shows "  $first: rejected by the server (Access-Reject)"
as_expected "she is refused, and by which server"

step "alice logs in at a captive portal" 0 radauth-portal alice wonderland
shows 'The user is let in.'
shows 'Idle: 10 minutes'
shows 'Session: 121 minutes'
as_expected "she is let in for the time that the server grants (600 and 7201 seconds)"

step "bob, without limits, logs in at the portal with 48 characters" 0 \
    radauth-portal bob 0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKL
shows 'Idle: not limited'
shows 'Session: not limited'
as_expected "he is let in without limits"

step "Both servers are asked for alice" 0 radauth-all alice wonderland
shows "1 $first Access-Accept"
shows "2 $second Access-Accept"
as_expected "both know her"

step "Both servers are asked for a stranger" 1 radauth-all mallory wonderland
shows "1 $first Access-Reject"
shows "2 $second Access-Reject"
as_expected "neither lets her in"

step "alice logs in with CHAP" 0 radchap alice wonderland
shows '"alice" RADIUS Authentication OK'
shows 'Reply-Message: Welcome, alice'
as_expected "her password has not travelled, only an answer to a random challenge"

step "alice logs in with CHAP and a wrong password" 1 radchap alice looking-glass
shows '*"alice" RADIUS Authentication failure'
as_expected "she is refused"

step "alice logs in with CHAP at a captive portal" 0 radchap-portal alice wonderland
shows 'Idle: 10 minutes'
shows 'Session: 121 minutes'
as_expected "the same limits as with PAP"

step "alice logs in with MS-CHAP" 0 radmschap alice wonderland
shows '"alice" RADIUS Authentication OK'
as_expected "the NT-Response came from the program that stands in for the device's own"

step "alice logs in with MS-CHAP and a wrong password" 1 radmschap alice looking-glass
shows '*"alice" RADIUS Authentication failure'
as_expected "she is refused"

step "alice logs in with MS-CHAP at a captive portal" 0 radmschap-portal alice wonderland
shows 'Idle: 10 minutes'
shows 'Session: 121 minutes'
as_expected "the same limits again"

step "alice logs in with MS-CHAP, computed in the process" 0 radmschap --builtin alice wonderland
shows '"alice" RADIUS Authentication OK'
as_expected "no program of the device is needed (RAD_OPTION_BUILTIN_NT_RESPONSE)"

step "alice logs in with MS-CHAPv2 and her right password" 1 radmschapv2 alice wonderland
shows '*"alice" RADIUS Authentication failure'
as_expected "a standard server refuses her: the library's own SHA-1 reads the words of a message in the
   other octet order, which devices in the field expect, so the challenge is not the server's"

step "alice logs in with MS-CHAPv2 and the published SHA-1" 0 radmschapv2 --standard-sha1 alice wonderland
shows '"alice" RADIUS Authentication OK'
as_expected "with --standard-sha1 (RAD_OPTION_STANDARD_SHA1) she is let in"

step "alice logs in with MS-CHAPv2 and a wrong password" 1 \
    radmschapv2 --standard-sha1 alice looking-glass
shows '*"alice" RADIUS Authentication failure'
as_expected "she is refused for her password now"

step "alice logs in with MS-CHAPv2 at a captive portal" 0 \
    radmschapv2-portal --standard-sha1 alice wonderland
shows 'Idle: 10 minutes'
shows 'Session: 121 minutes'
as_expected "the same limits once more"

step "The device reports that it is up (Accounting-On)" 0 radacct -s 7
shows 'RADIUS Accounting Exchange OK'
as_expected "the server answered"

step "A login with a configuration file that is not there" 1 radauth -f /var/none.conf alice wonderland
shows "*can't open /var/none.conf: No such file or directory*"
as_expected "the program says so"

echo
echo "== alice's machine logs in at an Ethernet port (802.1X), through the EAP relay"
timeout 600 scripts/demo-wired.sh

echo
echo "demo: all went as expected"
