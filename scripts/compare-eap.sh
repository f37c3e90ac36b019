#!/usr/bin/env bash
#
# Compares the authenticator and the relay of this project with hostapd: the same RADIUS server, the same
# supplicants, alternating rounds. Prints a table for each situation, with medians; docs/performance.md tells how
# it is done. Needs root and the package hostapd, which it installs without running it. Everything lies in
# namespaces that go with it, whatever way it ends.
#
#   scripts/compare-eap.sh                        everything, three rounds
#   scripts/compare-eap.sh --list                 the names of the situations (ROW)
#   scripts/compare-eap.sh --rounds 9 near-peap   one of them, nine rounds
#   scripts/compare-eap.sh --rounds 1 attacks     attacks at the port, a minute each (--seconds)
#   scripts/compare-eap.sh --quick                whether it runs: measures nothing
#   scripts/compare-eap.sh --relay-options '...' [--authenticator-options '...']
#                                                 radeapd and pnac-wired with other than their defaults; also
#                                                 OURS_RELAY_OPTIONS and OURS_AUTHENTICATOR_OPTIONS
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh --bench >&2
# shellcheck source=scripts/common.sh
source scripts/common.sh
cmake --preset release "${cmake_options[@]}" >/dev/null
cmake --build --preset release -j "$jobs" --target eap_compare >&2
exec build/release/bin/eap_compare "$@"
