#!/usr/bin/env bash
#
# Measures what logins cost and prints the tables of docs/performance.md: a bare program that sends the same
# packets, and the library, in turn. `--help` shows the parts and options. Wants a machine that does nothing else.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh >&2
# shellcheck source=scripts/common.sh
source scripts/common.sh
cmake --preset release "${cmake_options[@]}" >/dev/null
cmake --build --preset release -j "$jobs" \
    --target floor responder login_bench loop_bench lanyard_bench eap_bench ntresponse >&2
exec python3 bench/bench.py "$@"
