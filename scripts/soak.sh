#!/usr/bin/env bash
#
# The whole soak, in the release build: a million logins in one process; 100,000 EAP conversations through one radeapd
# while the database changes 1,440 times; radeapd, the service and the authenticator killed a hundred times each in
# the middle of logins. Prints the figures of docs/testing.md; fails when memory, descriptors, partition or files grow.
# Takes ten minutes.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/common.sh
source scripts/common.sh

cmake --preset release "${cmake_options[@]}" >/dev/null
cmake --build --preset release -j "$jobs" --target soak_logins soak_device
export LANYARD_SOAK=1
build/release/bin/soak_logins --gtest_brief=1
build/release/bin/soak_device --gtest_brief=1
