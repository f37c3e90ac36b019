#!/usr/bin/env bash
#
# Runs the fuzz targets for so many seconds each, or ten million executions where these are fewer, two at a time
# on two cores, and prints executions, executions a second and edges. With clang they run over libFuzzer,
# otherwise over the project's own driver, which knows nothing of edges and counts seconds alone. Fails when
# there is a finding; the inputs of findings are kept.
#
#   scripts/fuzz.sh SECONDS [TARGET...]
#
# With 0 seconds it only builds them.
# What libFuzzer has found worth keeping is in build/fuzz/found; nothing of it goes into the tree by itself.
set -euo pipefail
cd "$(dirname "$0")/.."

if [[ $# -lt 1 || ! $1 =~ ^(0|[1-9][0-9]*)$ ]]; then
    echo "Usage: $0 SECONDS [TARGET...]" >&2
    exit 2
fi
seconds=$1
shift

# shellcheck source=scripts/common.sh
source scripts/common.sh
export ASAN_OPTIONS=$ASAN_OPTIONS:detect_stack_use_after_return=0
preset=dev
if command -v clang++-14 >/dev/null && [[ -f $(clang++-14 -print-file-name=libclang_rt.fuzzer-x86_64.a) ]]; then
    preset=fuzz
fi

known=()
for source in fuzz/*_fuzz.cpp; do
    source=${source#fuzz/}
    known+=("${source%_fuzz.cpp}")
done
targets=("$@")
[[ ${#targets[@]} -gt 0 ]] || targets=("${known[@]}")
for target in "${targets[@]}"; do
    if [[ " ${known[*]} " != *" $target "* ]]; then
        echo "fuzz: no target '$target'; there are: ${known[*]}" >&2
        exit 2
    fi
done

cmake --preset "$preset" "${cmake_options[@]}" >/dev/null
cmake --build --preset "$preset" -j "$jobs" --target "${targets[@]/#/fuzz_}"
[[ $seconds -gt 0 ]] || exit 0

# Each target in a folder of its own, where its log is and what was found.
folder=build/$preset/fuzz-runs
mkdir -p "$folder" "build/$preset/found"
run_target() {
    local target=$1 arguments=(-max_total_time="$seconds")
    local bin=$PWD/build/$preset/bin/fuzz_$target corpus=$PWD/fuzz/corpus/$target
    local found=$PWD/build/$preset/found/$target
    if [[ -f $corpus.dict ]]; then
        arguments+=(-dict="$corpus.dict")
    fi
    mkdir -p "$folder/$target"
    if [[ $preset == fuzz ]]; then
        mkdir -p "$found"
        arguments+=(-runs=10000000 -print_final_stats=1 -timeout=60 -max_len=4200
            -artifact_prefix="$PWD/$folder/$target/" "$found")
    fi
    (cd "$folder/$target" && "$bin" "${arguments[@]}" "$corpus") >"$folder/$target/log" 2>&1
}

# number PATTERN FILE: the last number that follows the pattern.
number() {
    sed -n "s/.*$1 *\([0-9][0-9]*\).*/\1/p" "$2" | tail -n 1
}

failed=()
report() {
    local target=$1 status=$2 log=$folder/$1/log executions rate edges
    if [[ $preset == fuzz ]]; then
        executions=$(number "number_of_executed_units:" "$log")
        rate=$(number "average_exec_per_sec:" "$log")
        edges=$(number "cov:" "$log")
    else
        executions=$(sed -n 's/.*: \([0-9]*\) executions.*/\1/p' "$log")
        rate=$(number "executions," "$log")
        edges=
    fi
    printf '%-18s %12s %8s %7s' "$target" "${executions:--}" "${rate:--}" "${edges:--}"
    if [[ $status -ne 0 ]]; then
        failed+=("$target")
        printf '   FINDING: %s' "$folder/$target"
    fi
    printf '\n'
}

printf '%-18s %12s %8s %7s\n' target executions a-second edges
pids=()
names=()
finish_first() {
    local status=0
    wait "${pids[0]}" || status=$?
    report "${names[0]}" "$status"
    pids=("${pids[@]:1}")
    names=("${names[@]:1}")
}
for target in "${targets[@]}"; do
    if [[ ${#pids[@]} -ge $jobs ]]; then
        finish_first
    fi
    run_target "$target" &
    pids+=($!)
    names+=("$target")
done
while [[ ${#pids[@]} -gt 0 ]]; do
    finish_first
done

if [[ ${#failed[@]} -gt 0 ]]; then
    for target in "${failed[@]}"; do
        printf '\nfuzz: %s\n' "$target"
        grep -a -m 8 -e 'does not hold' -e 'ERROR' -e 'runtime error' -e 'Failure' -e 'Test unit' "$folder/$target/log" || true
    done
    echo "fuzz: FAILED: ${failed[*]}"
    exit 1
fi
