#!/usr/bin/env bash
#
# The units of the services: systemd understands them, and their sandbox leaves little open. Needs no running
# systemd; skipped (77) where its tool is not installed.
#
#   service_units.sh UNIT_FOLDER BIN_FOLDER
set -euo pipefail
export LC_ALL=C

[[ $# -eq 2 ]] || { echo "service_units: takes 2 arguments" >&2; exit 2; }
if ! command -v systemd-analyze >/dev/null; then
    echo "service_units: systemd-analyze is not installed"
    exit 77
fi
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# The most that `systemd-analyze security` may say, in tenths.
threshold=25

units=(lanyardctl.service lanyardctl-acct.service radeapd.service pnac-wired@.service)
for unit in "${units[@]}"; do
    grep -q '^Type=notify$' "$1/$unit"
    # The programs of the build, for an instance of the template.
    sed "s,^ExecStart=[^ ]*/,ExecStart=$2/," "$1/$unit" >"$scratch/${unit/@./@eth0.}"
done
cd "$scratch"
complaints=$(systemd-analyze verify --man=no ./*.service 2>&1) || { echo "$complaints" >&2; exit 1; }
[[ -z $complaints ]] || { echo "$complaints" >&2; exit 1; }
for unit in *.service; do
    systemd-analyze security --offline=true --threshold="$threshold" --no-pager "$scratch/$unit" >"$unit.report" ||
        { cat "$unit.report" >&2; exit 1; }
    tail -n 1 "$unit.report"
done
