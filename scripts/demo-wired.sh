#!/usr/bin/env bash
#
# The wired end of the demo, over programs that are built: in network namespaces of its own it joins a
# port of a switch and a user's machine by a virtual cable, and logs the machine in with 802.1X. Where it
# may not make namespaces it says so and does nothing.
set -euo pipefail
cd "$(dirname "$0")/.."
PATH+=:/sbin:/usr/sbin

if [[ ${1:-} != --inside ]]; then
    # With a process namespace too, everything that is started here ends with this script.
    namespaces=(unshare --net --pid --fork --kill-child --mount-proc)
    [[ $EUID -eq 0 ]] || namespaces+=(--map-root-user)
    if ! reason=$("${namespaces[@]}" true 2>&1); then
        echo "   Left out: this machine does not let us make network namespaces ($reason)"
        exit 0
    fi
    exec "${namespaces[@]}" "$0" --inside
fi

bin=$PWD/build/release/bin
work=$(mktemp -d)
finish() {
    local status=$?
    # The server removes what it has written; everything else ends with the namespaces.
    if [[ -n ${SERVER_PID:-} ]]; then
        kill "$SERVER_PID" 2>/dev/null || true
        wait "$SERVER_PID" 2>/dev/null || true
    fi
    rm -rf "$work"
    exit "$status"
}
trap finish EXIT

fail() {
    echo "   NOT as expected: $*"
    exit 1
}

# await FILE PATTERN: the line of the file that fits the pattern, as soon as there is one.
await() {
    local line attempt
    for ((attempt = 0; attempt < 300; ++attempt)); do
        if line=$(grep -m 1 -e "$2" "$1" 2>/dev/null); then
            echo "   | $line"
            return
        fi
        sleep 0.05
    done
    sed 's/^/   | /' "$1"
    fail "no '$2' within 15 s"
}

# shown PROGRAM ARGUMENT...: runs a program of the build and shows what it writes.
shown() {
    echo "   \$ $*"
    "$bin/$1" "${@:2}" | sed 's/^/   | /'
}

ip link set lo up
coproc SERVER { exec "$bin/lanyard-test-server" --eap; }
declare -A at=()
while [[ -z ${at[ready]:-} ]] && IFS='=' read -r -t 60 name value <&"${SERVER[0]}"; do
    at[$name]=$value
done
[[ -n ${at[ready]:-} ]] || fail "the server did not start"

export PAL_ROOT=$work/device
mkdir -p "$PAL_ROOT/var" "$PAL_ROOT/tmp"
install -D -m 644 etc/radius.dict "$PAL_ROOT/nexa2.0/etc/radius.dict"
echo "127.0.0.1 $(hostname)" >"$PAL_ROOT/var/hosts"

echo "   The switch: its database names the RADIUS server, its change service and its relay run."
shown lanyardctl db init
shown lanyardctl db add 127.0.0.1 --port "${at[eap_port]}" --secret "${at[secret]}"
echo "   \$ lanyardctl db serve"
"$bin/lanyardctl" db serve >"$work/service" 2>&1 &
# It says so once it has seen that no relay is there. One that was there first would be told to end, for nobody
# knows what it holds.
await "$work/service" 'service: serves '
shown radeapd -d "$PAL_ROOT/var/lib/lanyard/config.db"
await "$work/service" 'relay: has '

echo "   The cable, from the switch's port1 to eth0 of the user's machine."
unshare --net sleep infinity &
machine=$!
until [[ $(readlink "/proc/$machine/ns/net") != "$(readlink /proc/self/ns/net)" ]]; do
    kill -0 "$machine"
    sleep 0.01
done
ip link add port1 type veth peer name eth0 netns "$machine"
ip link set port1 up
nsenter --net="/proc/$machine/ns/net" ip link set eth0 up
echo "   \$ pnac-wired port1"
"$bin/pnac-wired" port1 >>"$work/events" 2>&1 &
await "$work/events" ready

# login PASSWORD: the user's machine logs in as alice.
login() {
    cat >"$work/supplicant.conf" <<CONF
ap_scan=0
network={
    key_mgmt=IEEE8021X
    eapol_flags=0
    eap=PEAP
    phase2="auth=MSCHAPV2"
    identity="alice"
    password="$1"
    ca_cert="${at[ca_certificate]}"
}
CONF
    nsenter --net="/proc/$machine/ns/net" \
        wpa_supplicant -D wired -i eth0 -c "$work/supplicant.conf" >"$work/supplicant" 2>&1 &
    supplicant=$!
}

echo
echo "   alice's machine logs in with PEAP and her password."
login wonderland
await "$work/supplicant" 'CTRL-EVENT-EAP-SUCCESS'
await "$work/events" ' authorized identity="alice"'
echo "   As expected: her port is open, and the switch has the keys of the login."

kill "$supplicant"
wait "$supplicant" || true
: >"$work/events"
echo
echo "   Someone tries it with another password."
login looking-glass
await "$work/supplicant" 'CTRL-EVENT-EAP-FAILURE'
await "$work/events" ' failed identity="alice"'
echo "   As expected: refused."
