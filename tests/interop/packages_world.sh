#!/usr/bin/env bash
#
# Runs packages.sh in a layer above a Debian, with a RADIUS server on loopback and the machine of a user, alice, on a
# virtual cable at port1. Wants namespaces of its own; exits with 77 where there are no overlays.
#
#   packages_world.sh ROOT TEST_SERVER VERSION NEXT_VERSION
set -euo pipefail
PATH+=:/sbin:/usr/sbin

[[ $# -eq 4 ]] || { echo "packages_world: takes 4 arguments" >&2; exit 2; }
debian=$1
test_server=$2
shift 2
tree=$(cd "$(dirname "$0")/../.." && pwd)

# The server removes what it has written; everything else ends with the namespaces.
finish() {
    local status=$?
    [[ $status -eq 0 || ! -e /mnt/supplicant.log ]] || sed 's/^/supplicant: /' /mnt/supplicant.log >&2
    if [[ -n ${SERVER_PID:-} ]]; then
        kill "$SERVER_PID" 2>/dev/null || true
        wait "$SERVER_PID" 2>/dev/null || true
    fi
    exit "$status"
}
trap finish EXIT

ip link set lo up
coproc SERVER { exec "$test_server" --eap; }
declare -A at=()
while [[ -z ${at[ready]:-} ]] && IFS='=' read -r -t 60 name value <&"${SERVER[0]}"; do
    at[$name]=$value
done
[[ -n ${at[ready]:-} ]] || { echo "packages: the server did not start" >&2; exit 1; }

mount -t tmpfs none /mnt
mkdir /mnt/{upper,work,root}
root=/mnt/root
mount -t overlay none -o "lowerdir=$debian,upperdir=/mnt/upper,workdir=/mnt/work" $root || {
    echo "packages: left out: this machine does not let us mount overlays"
    exit 77
}
mount -t proc none $root/proc
mount -t tmpfs none $root/run
mount -t tmpfs none $root/tmp
mount --bind "$tree" $root/mnt
echo "127.0.0.1 localhost $(uname -n)" >$root/etc/hosts

unshare --net sleep infinity &
machine=$!
until [[ $(readlink "/proc/$machine/ns/net") != "$(readlink /proc/self/ns/net)" ]]; do
    kill -0 "$machine"
    sleep 0.01
done
ip link add port1 type veth peer name eth0 netns "$machine"
ip link set port1 up
nsenter --net="/proc/$machine/ns/net" ip link set eth0 up
cat >/mnt/supplicant.conf <<CONF
ap_scan=0
network={
    key_mgmt=IEEE8021X
    eapol_flags=0
    eap=PEAP
    phase2="auth=MSCHAPV2"
    identity="alice"
    password="wonderland"
    ca_cert="${at[ca_certificate]}"
}
CONF
nsenter --net="/proc/$machine/ns/net" wpa_supplicant -D wired -i eth0 -c /mnt/supplicant.conf >/mnt/supplicant.log &

chroot $root env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C HOME=/root \
    /mnt/tests/interop/packages.sh "$@" "${at[auth_port]}" "${at[eap_port]}" "${at[secret]}"
