# shellcheck shell=bash
# What the scripts that build and test share; they read this file with `source`.

# How many compilers, linkers and tests run at a time.
# shellcheck disable=SC2034  # for who reads this file
jobs=$(nproc)

# What cmake is given beside a preset.
# shellcheck disable=SC2034
cmake_options=()
if command -v ccache >/dev/null; then
    cmake_options+=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi

# Configures build/alone for those who read a compile database: in this one every source is compiled alone.
configure_alone() {
    cmake --preset dev -B build/alone "${cmake_options[@]}" -DLANYARD_UNITY_BUILD=OFF >/dev/null
}

# A finding of a sanitizer ends the program that it is found in.
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1:detect_stack_use_after_return=1:check_initialization_order=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1
