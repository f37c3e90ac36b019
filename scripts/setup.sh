#!/usr/bin/env bash
#
# Installs what building, testing and checking need on Debian 12. Does nothing, quickly, where all of it
# is there. Run it as root, or as a user who may use sudo.
set -euo pipefail

packages=(
    # to build
    g++ cmake ninja-build ccache libssl-dev libsqlite3-dev libcli11-dev nlohmann-json3-dev
    # to test: the RADIUS server is the far end of the interoperability tests and of the demo
    libgtest-dev libgmock-dev libbenchmark-dev libboost-dev sqlite3 freeradius
    # to test the EAP relay: the supplicant is the far end of the port-access authenticator
    wpasupplicant iproute2
    # to check
    binutils clang-format-14 clang-tidy-14 shellcheck git
    clang-14 g++-arm-linux-gnueabihf
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
    as_root=(env DEBIAN_FRONTEND=noninteractive)
elif command -v sudo >/dev/null; then
    as_root=(sudo env DEBIAN_FRONTEND=noninteractive)
else
    echo "setup: missing packages: ${missing[*]}" >&2
    echo "setup: run this as root, or install sudo, or install them yourself." >&2
    exit 1
fi

# Installing a server on Debian starts it. For as long as the installation runs, a policy says no to
# freeradius and leaves every other service to the policy that was there before.
policy=/usr/sbin/policy-rc.d
kept=$policy.before-lanyard
policy_set=no

put_policy_back() {
    if [[ $policy_set == yes ]]; then
        "${as_root[@]}" rm -f "$policy"
        if [[ -e $kept || -L $kept ]]; then
            "${as_root[@]}" mv "$kept" "$policy"
        fi
        policy_set=no
    fi
}
trap put_policy_back EXIT
trap 'exit 129' HUP
trap 'exit 130' INT
trap 'exit 143' TERM

installs_server=no
if [[ " ${missing[*]} " == *" freeradius "* ]]; then
    installs_server=yes
    policy_set=yes
    if [[ ( -e $policy || -L $policy ) && ! -e $kept ]]; then
        "${as_root[@]}" mv "$policy" "$kept"
    fi
    "${as_root[@]}" tee "$policy" >/dev/null <<POLICY
#!/bin/sh
for argument; do
    [ "\$argument" = freeradius ] && exit 101
    [ "\$argument" = freeradius.service ] && exit 101
done
[ -x $kept ] && exec $kept "\$@"
exit 0
POLICY
    "${as_root[@]}" chmod 755 "$policy"
fi

echo "setup: installing ${missing[*]}"
"${as_root[@]}" apt-get update -q
"${as_root[@]}" apt-get install -q -y --no-install-recommends "${missing[@]}"
put_policy_back

# Nor does it start at the next boot: the tests run a server of their own.
if [[ $installs_server == yes ]]; then
    "${as_root[@]}" update-rc.d freeradius disable
fi
echo "setup: done"
