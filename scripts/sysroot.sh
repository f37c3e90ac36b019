#!/usr/bin/env bash
#
# Unpacks what the project builds and runs with on another architecture of Debian (armhf, s390x, ...), and links
# it as build/sysroot-ARCHITECTURE; it lies in the user's cache folder, for other checkouts too. The packages come
# from where this machine's come from; its own are left alone. Does nothing, quickly, where all of it is there.
#
#   sysroot.sh ARCHITECTURE
set -euo pipefail
cd "$(dirname "$0")/.."

[[ $# -eq 1 ]] || { echo "Usage: $0 ARCHITECTURE" >&2; exit 2; }
architecture=$1
packages=(
    libc6-dev libstdc++6 libssl-dev libsqlite3-dev libpcap-dev libgtest-dev libgmock-dev libcli11-dev nlohmann-json3-dev)

kept=${XDG_CACHE_HOME:-$HOME/.cache}/lanyard-radius
mkdir -p build "$kept"
ln -sfn "$kept/sysroot-$architecture" "build/sysroot-$architecture"
root=$kept/sysroot-$architecture
[[ "$(cat "$root/.packages" 2>/dev/null)" != "${packages[*]}" ]] || exit 0
rm -rf "$root"

# An apt of its own: it knows nothing of this machine's packages, and they learn nothing of its.
apt=$root/.apt
mkdir -p "$apt/state/lists/partial" "$apt/cache/archives/partial"
: >"$apt/status"
apt_get() {
    nice apt-get -q -o Dir::State="$apt/state" -o Dir::State::status="$apt/status" -o Dir::Cache="$apt/cache" \
        -o APT::Architecture="$architecture" -o APT::Architectures::="$architecture" \
        -o APT::Install-Recommends=false -o APT::Sandbox::User="$(id -un)" -o Acquire::Languages=none "$@"
}
# A list that is missing, as while a mirror is renewed, is no harm if the packages are there without it.
apt_get update || echo "sysroot: not all lists of packages could be read" >&2
apt_get install -y --download-only "${packages[@]}"
for package in "$apt/cache/archives"/*.deb; do
    dpkg-deb --extract "$package" "$root"
done
rm -rf "$apt"
printf '%s\n' "${packages[*]}" >"$root/.packages"
echo "sysroot: $root is ready"
