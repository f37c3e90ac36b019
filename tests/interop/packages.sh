#!/usr/bin/env bash
#
# Installs, uses, upgrades and removes the packages in build/packages on a machine that has never seen them, with a
# RADIUS server on loopback and a user who logs in at port1. packages_world.sh makes all that.
#
#   packages.sh VERSION NEXT_VERSION PORT EAP_PORT SECRET
set -euo pipefail

[[ $# -eq 5 ]] || { echo "packages: takes 5 arguments" >&2; exit 2; }
version=$1
next=$2
port=$3
eap_port=$4
secret=$5
tree=$(cd "$(dirname "$0")/../.." && pwd)
packages=(liblanyard-radius2 liblanyard-radius-dev lanyard-radius-tools lanyard-radius-relay)
cd "$(mktemp -d)"

fail() {
    echo "packages: $*" >&2
    exit 1
}

step() {
    echo "packages: $*"
}

# quietly COMMAND...: what it writes is shown if it fails.
quietly() {
    "$@" >log 2>&1 || { cat log >&2; fail "failed: $*"; }
}

apt() {
    DEBIAN_FRONTEND=noninteractive quietly apt-get -q -y "$@"
}

# install_version VERSION: all four, and what they depend on.
install_version() {
    local name files=()
    for name in "${packages[@]}"; do
        files+=("$tree/build/packages/${name}_$1_$(dpkg --print-architecture).deb")
    done
    apt install "${files[@]}"
    for name in "${packages[@]}"; do
        [[ $(dpkg-query -W -f '${db:Status-Status} ${Version}' "$name") == "installed $1" ]] ||
            fail "$name $1 is not installed"
    done
}

# What there is on the disk but what apt and dpkg keep for themselves.
files() {
    find / -xdev \( -path /var/lib/apt -o -path /var/lib/dpkg -o -path /var/cache -o -path /var/log \) -prune -o -print |
        sort
}

# writes TEXT COMMAND...: the command writes it.
writes() {
    local text=$1 output
    shift
    output=$("$@" 2>&1) || fail "$* failed: $output"
    [[ $output == *"$text"* ]] || fail "no '$text' from $*: $output"
}

# await TEXT COMMAND...: it writes it some time.
await() {
    local text=$1
    shift
    for ((attempt = 0; attempt < 1200; ++attempt)); do
        [[ $("$@" 2>&1) != *"$text"* ]] || return 0
        sleep 0.1
    done
    fail "no '$text' from $*: $("$@" 2>&1)"
}

# unit NAME SETTING: what the unit, or the instance of a template, says.
unit() {
    sed -n "s/%i/${1#*@}/g; s/^$2=//p" "/lib/systemd/system/${1/@*/@}.service"
}

# start NAME: as systemd would.
services=()
start() {
    local condition folder file
    condition=$(unit "$1" ConditionPathExists)
    [[ -e ${condition:-/} ]] || fail "the condition of $1 is not met"
    for folder in $(unit "$1" RuntimeDirectory); do
        install -d -m "$(unit "$1" RuntimeDirectoryMode)" "/run/$folder"
    done
    (
        set +u
        umask "$(unit "$1" UMask)"
        for file in $(unit "$1" EnvironmentFile); do
            # shellcheck disable=SC1090
            [[ ! -e ${file#-} ]] || . "${file#-}"
        done
        eval "exec $(unit "$1" ExecStart)"
    ) >"$1.log" 2>&1 &
    services+=($!)
}

stop() {
    kill "${services[@]}"
    wait "${services[@]}" || true
    services=()
}

# alice's machine logs in at the port, then she does, with what a change of the database makes of /var/radius.conf.
use() {
    lanyardctl db set 127.0.0.1 --port "$eap_port" >log
    start lanyardctl
    await 'service: serves ' cat lanyardctl.log
    start radeapd
    await 'relay: has 1 server' cat lanyardctl.log
    start pnac-wired@port1
    await ' authorized identity="alice"' cat pnac-wired@port1.log
    writes "127.0.0.1:$eap_port" lanyardctl relay status

    lanyardctl db set 127.0.0.1 --port "$port" >log
    await ":$port:" cat /var/radius.conf
    writes 'RADIUS Authentication OK' radauth alice wonderland
    ! radauth alice looking-glass >log 2>&1 || fail "a wrong password is let in"
    writes 'RADIUS Authentication OK' radmschap --builtin alice wonderland
    writes 'accepted (MS-CHAPv2)' lanyardctl login --method mschapv2 alice <<<wonderland
    stop
}

files >before
step "installs $version"
install_version "$version"
for name in "${packages[@]}"; do
    [[ -e /usr/share/doc/$name/copyright ]] || fail "$name has no copyright"
done
for file in /usr/bin/{rad*,lanyardctl,ntresponse,pnac-wired} /usr/lib/*/liblanyard-*.so.2; do
    ! ldd "$file" | grep 'not found' || fail "$file misses libraries"
done
[[ ! -L /etc/systemd/system/multi-user.target.wants/radeapd.service ]] || fail "the relay is enabled"
[[ ! -e $(unit lanyardctl ConditionPathExists) ]] || fail "the change service would start unconfigured"

step "runs as the units say"
lanyardctl db init >/dev/null
lanyardctl db add 127.0.0.1 --secret-file - <<<"$secret" >/dev/null
echo 'OPTIONS="--in-flight 8 --dead-time 30"' >/etc/default/radeapd
use
grep -q '^dictionary  */usr/share/lanyard-radius/radius.dict$' /var/radius.conf ||
    fail "another dictionary: $(grep ^dictionary /var/radius.conf)"

step "strangers compile by pkg-config and find_package"
stranger=$tree/tests/interop/stranger
read -ra flags <<<"$(pkg-config --cflags --libs lanyard-radius)"
# Ours from the archives, the others shared; SQLite names one that its package does not bring.
read -ra archives <<<"$(pkg-config --static --cflags --libs lanyard-radius |
    sed -E 's/-l(lanyard-[a-z]*)/-l:lib\1.a/g; s/-lz//')"
quietly cc "$stranger/stranger.c" -o in-c "${flags[@]}"
quietly c++ "$stranger/stranger.cpp" -o in-cpp "${flags[@]}"
quietly cc "$stranger/stranger.c" -o in-c-archives "${archives[@]}"
quietly cmake -S "$stranger" -B found
quietly cmake --build found
for program in in-c in-cpp in-c-archives found/in-c found/in-cpp; do
    [[ $("./$program") == User-Name ]] || fail "$program fails"
done

step "the examples compile, in C and C++, and log in"
echo 'alice wonderland' >users
for source in /usr/share/doc/liblanyard-radius-dev/examples/*.{c,cpp}; do
    compiler=cc
    [[ $source != *.cpp ]] || compiler=c++
    quietly $compiler -Wall -Werror "$source" -o "$(basename "${source%.*}")" "${flags[@]}"
done
writes 'Reply-Message: Welcome, alice' ./login /var/radius.conf alice wonderland
writes '1 of 1 may come in' ./many_logins /var/radius.conf users

step "upgrades to $next"
settings=(/etc/default/radeapd /var/lib/lanyard/config.db /var/radius.conf)
sha256sum "${settings[@]}" >settings
install_version "$next"
quietly sha256sum --check settings
use

step "removes"
sha256sum "${settings[@]}" >settings
apt remove "${packages[@]}"
quietly sha256sum --check settings
! find /usr /lib /etc -xdev -name '*lanyard*' | grep . || fail "that is still there"
quietly dpkg --purge "${packages[@]}"
apt autoremove --purge
rm /etc/default/radeapd
files >after
diff before after || fail "left behind, or gone"
echo "packages: installed, used, upgraded and removed"
