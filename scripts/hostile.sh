#!/usr/bin/env bash
#
# hostile.sh [LOGINS [FILTER]]: logins over bad networks, 10,000 of each mix and way unless told otherwise, against
# a real server in the release build. Prints the figures of docs/testing.md; fails when somebody gets in who may
# not, a call does not end in time or something is left behind. Takes half an hour.
# FILTER is one of GoogleTest, such as '*Loss30*'.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/common.sh
source scripts/common.sh

cmake --preset release "${cmake_options[@]}" >/dev/null
cmake --build --preset release -j "$jobs" --target hostile
LANYARD_HOSTILE_LOGINS=${1:-10000} build/release/bin/hostile --gtest_brief=1 --gtest_filter="${2:-*}"
