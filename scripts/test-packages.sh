#!/usr/bin/env bash
#
# Makes the Debian packages, and installs, uses, upgrades and removes them in a Debian of their own, with a real
# RADIUS server on loopback and a real supplicant. That Debian comes from where this machine's packages do and is
# kept in /var/cache/lanyard-radius. Exits with 77 where it cannot run: without root, namespaces or overlays.
set -euo pipefail
cd "$(dirname "$0")/.."

skip() {
    echo "test-packages: left out: $*"
    exit 77
}

[[ $EUID -eq 0 ]] || skip "it takes root"
# What is mounted and started in namespaces of their own ends with them.
in_namespaces=(unshare --mount --net --pid --fork --kill-child --mount-proc)
"${in_namespaces[@]}" true || skip "this machine does not let us make namespaces"
scripts/setup.sh --packages

# One at a time.
cache=/var/cache/lanyard-radius
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

version=$(dpkg-parsechangelog -S Version)
DEB_BUILD_OPTIONS=noautodbgsym scripts/package.sh "$version" "$version.1"

# shellcheck source=scripts/common.sh
source scripts/common.sh
cmake --preset release "${cmake_options[@]}" >/dev/null
nice cmake --build --preset release -j "$jobs" --target lanyard-test-server
"${in_namespaces[@]}" tests/interop/packages_world.sh $cache/root build/release/bin/lanyard-test-server \
    "$version" "$version.1"
