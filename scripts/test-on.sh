#!/usr/bin/env bash
#
# Builds the project for another machine or by another compiler, and runs its tests.
#
#   armhf  32-bit ARM: all unit tests, and logins at a real server, under emulation
#   s390x  IBM Z, the most significant byte first: the same
#   musl   library and programs, static with musl: each method of login and accounting at a real server
#   clang  all unit tests of a build by clang
#
# With --build before armhf or s390x it only builds.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    echo "Usage: $0 [--build] armhf|s390x|musl|clang" >&2
    exit 2
}

build_only=no
if [[ ${1:-} == --build ]]; then
    build_only=yes
    shift
fi
[[ $# -eq 1 ]] || usage
machine=$1
folder=build/$machine
# shellcheck source=scripts/common.sh
source scripts/common.sh

configure() {
    nice cmake -S . -B "$folder" -G Ninja "${cmake_options[@]}" -DLANYARD_WERROR=ON -DCMAKE_BUILD_TYPE=Debug \
        -DCMAKE_C_FLAGS_DEBUG="-O1 -g1" -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g1" "$@" >/dev/null
}

# Tests of what qemu's user-mode emulation does not have:
not_emulated=(
    # posix_spawn(), which returns before the program runs there: without its errors, and ahead of its group
    Programs.ProgramThatCannotBeRun_ReturnsMinusOne Programs.ProgramUnderTheRoot_Found
    ProgramsTest.ThatCannotBeRunAreForgotten 'ProgramsTest.ThatHang*'
    NtResponse.MissingProgramIsAFailure NtResponse.ProgramThatMayNotRunIsAFailure
    # RLIMIT_AS
    'NtResponse.Without*'
    # MADV_WIPEONFORK, which it says to have
    Random.ForkedChild_DrawsOthersThanItsParent Random.ChildOfARawClone_DrawsOthersThanItsParent
    # the program's own arguments in the list of processes
    NtResponseProgram.PasswordIsWipedFromTheProcessList
    'Programs/Password.InArguments_IsWipedFromTheProcessList/*'
    # options of packet sockets
    'EthernetTest.*' Services.PnacWired_TellsTheManager
)

# test_emulated EMULATED_MACHINE
test_emulated() {
    scripts/sysroot.sh "$machine"
    configure --toolchain "cmake/toolchains/$machine.cmake" -DLANYARD_TEST_TIMEOUT=1200
    nice cmake --build "$folder" -j "$jobs" --target unit-tests interop_programs
    [[ $build_only == no ]] || exit 0
    local filter
    filter=$(IFS=:; echo "${not_emulated[*]}")
    # Twice, as a process with threads that forks hangs there once in some hundred times.
    local run=(
        env GTEST_FILTER="-$filter" nice scripts/emulate.sh "$1" "$PWD/build/sysroot-$machine"
        ctest --test-dir "$folder" --output-on-failure --no-tests=error -j $((2 * jobs)) --repeat until-pass:2)
    "${run[@]}" -L '^unit$'
    "${run[@]}" -R '^interop_programs$'
}

case $machine in
    armhf)
        scripts/setup.sh
        test_emulated arm
        ;;
    s390x)
        scripts/setup.sh --machines
        test_emulated s390x
        ;;
    clang)
        scripts/setup.sh
        cmake --preset clang "${cmake_options[@]}" >/dev/null
        nice cmake --build "$folder" -j "$jobs" --target unit-tests
        nice ctest --test-dir "$folder" --output-on-failure -j $((2 * jobs)) -L '^unit$'
        ;;
    musl)
        scripts/setup.sh --machines
        scripts/test-musl.sh
        ;;
    *) usage ;;
esac
echo "test-on: $machine passed"
