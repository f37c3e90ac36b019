#!/usr/bin/env bash
#
# Makes the Debian packages, and installs, uses, upgrades and removes them in a Debian of their own, with a real
# RADIUS server on this machine's loopback. That Debian comes from where this machine's packages do and is kept in
# /var/cache/lanyard-radius; each run works on a layer above it. Exits with 77 where it cannot run: without root,
# mmdebstrap, namespaces or overlays.
set -euo pipefail
cd "$(dirname "$0")/.."

cache=/var/cache/lanyard-radius
root=/mnt/root

skip() {
    echo "test-packages: left out: $*"
    exit 77
}

# What is mounted and started in namespaces of their own ends with them.
in_namespaces() {
    unshare --mount --pid --fork --kill-child "$0" --inside "$@"
}
if [[ ${1:-} == --inside ]]; then
    mount -t tmpfs none /mnt
    mkdir /mnt/{upper,work,root}
    mount -t overlay none -o lowerdir=$cache/root,upperdir=/mnt/upper,workdir=/mnt/work $root
    mount -t proc none $root/proc
    mount -t tmpfs none $root/run
    mount -t tmpfs none $root/tmp
    mount --bind . $root/mnt
    echo "127.0.0.1 localhost $(uname -n)" >$root/etc/hosts
    exec chroot $root env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C HOME=/root "${@:2}"
fi

[[ $EUID -eq 0 ]] || skip "it takes root"
scripts/setup.sh --packages
mkdir -p $cache
exec {lock}>$cache/lock
flock "$lock"

# What a stranger builds with; what the packages depend on is there to be installed with them.
made_of=("--include=g++ cmake make pkg-config"
    "--customize-hook=chroot \"\$1\" apt-get install -y --download-only libpcap0.8 libsqlite3-dev libssl-dev")
shopt -s nullglob
sources=(/etc/apt/{,sources.list.d/}*.{list,sources})
key="${made_of[*]} $(cat "${sources[@]}")"
if [[ $(cat $cache/made-of 2>/dev/null) != "$key" ]]; then
    rm -rf $cache/root $cache/made-of
    # shellcheck disable=SC1091
    suite=$(. /etc/os-release; echo "$VERSION_CODENAME")
    nice mmdebstrap --mode=root --variant=apt --skip=cleanup/apt --aptopt='APT::Install-Recommends "false"' \
        "${made_of[@]}" "$suite" $cache/root "${sources[@]}"
    echo "$key" >$cache/made-of
fi
in_namespaces true || skip "this machine does not let us mount overlays in namespaces"

version=$(dpkg-parsechangelog -S Version)
scripts/package.sh "$version" "$version.1"

# shellcheck source=scripts/common.sh
source scripts/common.sh
cmake --preset release "${cmake_options[@]}" >/dev/null
nice cmake --build --preset release -j "$jobs" --target lanyard-test-server
coproc SERVER { exec build/release/bin/lanyard-test-server; }
# shellcheck disable=SC2153  # coproc sets it
server_pid=$SERVER_PID
trap 'kill "$server_pid" 2>/dev/null || true' EXIT
declare -A at=()
while [[ -z ${at[ready]:-} ]] && IFS='=' read -r -t 60 name value <&"${SERVER[0]}"; do
    at[$name]=$value
done
[[ -n ${at[ready]:-} ]] || { echo "test-packages: the server did not start" >&2; exit 1; }

in_namespaces /mnt/tests/interop/packages.sh "$version" "$version.1" "${at[auth_port]}" "${at[secret]}"
