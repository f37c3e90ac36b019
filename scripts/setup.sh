#!/usr/bin/env bash
#
# Installs what building, testing and checking need on Debian 12. Does nothing, quickly, where all of it
# is there. Run it as root, or as a user who may use sudo.
#
#   --bench     also what scripts/compare-eap.sh measures against
#   --machines  also what scripts/test-on.sh builds for s390x and musl with
#   --packages  also what scripts/package.sh and scripts/test-packages.sh need
set -euo pipefail

# Packages that would run a service from their installation on.
servers=(freeradius)
extra=()
case "$*" in
    "") ;;
    --bench) servers+=(hostapd) ;;
    --machines) extra=(g++-s390x-linux-gnu musl-tools tcl dpkg-dev) ;;
    --packages) extra=(debhelper lintian mmdebstrap) ;;
    *)
        echo "Usage: $0 [--bench | --machines | --packages]" >&2
        exit 2
        ;;
esac

packages=(
    # to build
    g++ cmake ninja-build ccache libssl-dev libsqlite3-dev libcli11-dev nlohmann-json3-dev libpcap-dev pkg-config
    # to test: the RADIUS server is the far end of the interoperability tests and of the demo
    libgtest-dev libgmock-dev libbenchmark-dev sqlite3
    # to test the EAP relay: the supplicant is the far end of the port-access authenticator
    wpasupplicant iproute2
    # to check
    binutils clang-format-14 clang-tidy-14 cppcheck shellcheck git
    clang-14 libclang-rt-14-dev g++-arm-linux-gnueabihf mandoc qemu-user doxygen
    # to measure
    python3 valgrind
    "${extra[@]}" "${servers[@]}"
)

missing=()
status=$(dpkg-query -W -f '${Package} ${db:Status-Status}\n' "${packages[@]}" 2>/dev/null || true)
for package in "${packages[@]}"; do
    if [[ $'\n'$status$'\n' != *$'\n'"$package installed"$'\n'* ]]; then
        missing+=("$package")
    fi
done
if [[ ${#missing[@]} -eq 0 ]]; then
    exit 0
fi

if [[ $EUID -eq 0 ]]; then
    as_root=(env)
elif command -v sudo >/dev/null; then
    as_root=(sudo env)
else
    echo "setup: missing packages: ${missing[*]}" >&2
    echo "setup: run this as root, or install sudo, or install them yourself." >&2
    exit 1
fi
as_root+=(DEBIAN_FRONTEND=noninteractive LC_ALL=C)

# apt_get ARGUMENT...: apt-get, which waits while another one holds a lock. It waits for dpkg's locks by
# itself; at a lock on the package lists or on the folder of downloads it fails at once, and is run again.
errors=$(mktemp)
apt_get() {
    local status attempt
    for ((attempt = 1; ; ++attempt)); do
        status=0
        {
            "${as_root[@]}" apt-get -q -o DPkg::Lock::Timeout=900 "$@" 2>&1 >&3 | tee "$errors" >&4 ||
                status=$?
        } 3>&1 4>&2
        if [[ $status -eq 0 || $attempt -ge 180 ]] || ! grep -q 'Unable to lock directory' "$errors"; then
            return "$status"
        fi
        echo "setup: waiting for another apt"
        sleep 5
    done
}

# Installing a server on Debian starts it and has it started at every boot. Those here are to be there and
# not to run, so the service is disabled before it comes: under systemd by a mask that ends with the
# installation, or the next boot, elsewhere by the links of a disabled service.
undo=()

undo_disabling() {
    [[ ${#undo[@]} -eq 0 ]] || "${as_root[@]}" "${undo[@]}"
    undo=()
}
finish() {
    rm -f "$errors"
    undo_disabling
}
trap finish EXIT
trap 'exit 129' HUP
trap 'exit 130' INT
trap 'exit 143' TERM

disable_before_installation() {
    local server=$1 script=/etc/init.d/$1 mask=/run/systemd/system/$1.service
    local links=("/etc/rc"{2,3,4,5}".d/K01$1")
    if [[ -d /run/systemd/system ]]; then
        # Who has masked it before keeps the mask.
        if [[ ! -L $mask ]]; then
            undo=(systemctl --quiet --runtime unmask "$server")
            "${as_root[@]}" systemctl --quiet --runtime mask "$server"
        fi
    elif [[ -e $script ]]; then
        # It was removed once, but not purged.
        "${as_root[@]}" update-rc.d "$server" disable
    else
        undo=(sh -c "test -e $script || rm -f ${links[*]}")
        local link
        for link in "${links[@]}"; do
            "${as_root[@]}" ln -sf "../init.d/$server" "$link"
        done
    fi
}

install_server() {
    local server=$1
    disable_before_installation "$server"
    apt_get install -y --no-install-recommends "$server"
    # The links are right as they are, the mask has done its work.
    [[ ! -d /run/systemd/system ]] || undo_disabling
    undo=()
    "${as_root[@]}" update-rc.d "$server" disable
}

echo "setup: installing ${missing[*]}"
apt_get update
missing_servers=()
others=()
for package in "${missing[@]}"; do
    if [[ " ${servers[*]} " == *" $package "* ]]; then
        missing_servers+=("$package")
    else
        others+=("$package")
    fi
done
if [[ ${#others[@]} -gt 0 ]]; then
    apt_get install -y --no-install-recommends "${others[@]}"
fi
for package in "${missing_servers[@]}"; do
    install_server "$package"
done
echo "setup: done"
