#!/usr/bin/env bash
#
# Prints how many lines of library, platform and programs the unit tests and the interop tests of the programs run,
# by folder, and how many branches of the library. Fails where it is less than scripts/coverage-report.py asks for.
# Builds into build/coverage, without sanitizers.
#
# A program that is killed, or ends by _exit(), leaves no counters: what only such a one has run counts as not run.
#
#   coverage.sh [--missed]    --missed also lists the lines and branches that no test runs
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/common.sh
source scripts/common.sh

case "$*" in
    '' | --missed) ;;
    *)
        echo "Usage: $0 [--missed]" >&2
        exit 2
        ;;
esac

build=$PWD/build/coverage
flags="-O0 --coverage -fprofile-update=atomic"
cmake -S . -B "$build" -G Ninja "${cmake_options[@]}" -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ \
    -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" -DLANYARD_TEST_TIMEOUT=900 >/dev/null
cmake --build "$build" -j "$jobs" \
    --target unit-tests interop_requests interop_programs interop_lanyardctl shipped_files >/dev/null
find "$build" -name '*.gcda' -delete
# The test of the NT-Response program leaves it no room for a file of counters; that of the headers runs nothing.
ctest --test-dir "$build" -L '^unit$' -E '^(ntresponse_test|public_headers)$' -j $((2 * jobs)) --output-on-failure
ctest --test-dir "$build" -R '^(interop_(requests|programs|lanyardctl)(_[0-9])?|shipped_files|man_pages)$' \
    -j $((2 * jobs)) --output-on-failure

# Tests have code of headers in their own objects.
find "$build" -name '*.gcno' -print0 | xargs -0 gcov -b -j -t 2>/dev/null | scripts/coverage-report.py "$PWD" "$@"
