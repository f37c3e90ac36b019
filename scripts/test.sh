#!/usr/bin/env bash
#
# Builds and runs the tests. Without options: all of them, under AddressSanitizer and
# UndefinedBehaviorSanitizer.
#
#   --quick    the unit tests only
#   --tsan     the tests that use threads, under ThreadSanitizer, instead
#   --release  the tests of the system as it is shipped, in the release build, instead
#   --all      the tests of all three builds, one after the other
#   --build    before another option or alone: builds them, and runs none
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    echo "Usage: $0 [--build] [--quick | --tsan | --release | --all]" >&2
    exit 2
}

build_only=no
if [[ ${1:-} == --build ]]; then
    build_only=yes
    shift
fi
[[ $# -le 1 ]] || usage
case "${1:-}" in
    "") runs=(dev) ;;
    --quick) runs=(dev:unit) ;;
    --tsan) runs=(tsan:threads) ;;
    --release) runs=("release:interop,e2e") ;;
    --all) runs=(dev tsan:threads "release:interop,e2e") ;;
    *) usage ;;
esac

step="setting up"
report_failure() {
    local status=$?
    [[ $status -eq 0 ]] || echo "test: FAILED while $step"
    exit "$status"
}
trap report_failure EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

scripts/setup.sh
# shellcheck source=scripts/common.sh
source scripts/common.sh

for run in "${runs[@]}"; do
    preset=${run%%:*}
    labels=${run#"$preset"}
    labels=${labels#:}

    step="configuring $preset"
    cmake --preset "$preset" "${cmake_options[@]}" >/dev/null
    step="building $preset"
    case $preset in
        tsan) target=thread-tests ;;
        release) target=outer-tests ;;
        *) target=all ;;
    esac
    cmake --build --preset "$preset" -j "$jobs" --target "$target"
    [[ $build_only == no ]] || continue

    step="testing $preset"
    selection=()
    if [[ -n $labels ]]; then
        selection=(-L "^(${labels//,/|})\$")
    fi
    # ThreadSanitizer wants its address ranges free, which a random memory layout may not leave.
    wrapper=()
    if [[ $preset == tsan ]] && setarch "$(uname -m)" -R true 2>/dev/null; then
        wrapper=(setarch "$(uname -m)" -R)
    fi
    # Most of a test's time is waiting, so there run more of them than there are cores. Every test has a limit
    # of its own; this one is for what no test should come near to.
    timeout --foreground 3600 "${wrapper[@]}" ctest --preset "$preset" -j $((2 * jobs)) "${selection[@]}"
done

[[ $build_only == yes ]] || echo "test: all tests passed (${runs[*]//:/ })"
