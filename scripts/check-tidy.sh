#!/usr/bin/env bash
#
# Runs clang-tidy 14 over library, platform, programs and fuzz targets, with --all over the tests as well, as the
# compile database of a build folder has them: of the one that is named, or of build/alone.
set -euo pipefail
cd "$(dirname "$0")/.."

folders='src|platform|tools|fuzz'
build=
for argument; do
    case "$argument" in
        --all)
            folders+='|tests'
            ;;
        -*)
            echo "Usage: $0 [--all] [build folder]" >&2
            exit 2
            ;;
        *) build=$argument ;;
    esac
done
# shellcheck source=scripts/common.sh
source scripts/common.sh
if [[ -z $build ]]; then
    build=build/alone
    configure_alone
fi

# clang-tidy checks a source once for every target that compiles it, so it gets a database with one entry each.
# The programs, which take longest, come first: no core waits for one of them at the end.
single=$build/tidy-once
mkdir -p "$single"
mapfile -d '' -t sources < <(
    scripts/compile-database.py "$build/compile_commands.json" "^$PWD/($folders)/.*\.(c|cpp)\$" \
        "$single/compile_commands.json"
)
[[ ${#sources[@]} -gt 50 ]] || { echo "check-tidy: found only ${#sources[@]} files" >&2; exit 1; }

# check FILE: the findings of a file together, and none of clang-tidy's counts.
# gcc is what the project is compiled with: options that only gcc knows are no finding, and the warnings
# of a second compiler are no error here.
check() {
    local findings status=0
    findings=$(clang-tidy-14 -quiet -p "$single" \
        -extra-arg=-Wno-unknown-warning-option \
        -extra-arg=-Wno-error \
        -extra-arg=-Qunused-arguments \
        "$1" 2>&1) || status=$?
    grep -v -E '^[0-9]+ warnings? generated|^Suppressed |^Use -header-filter' <<<"$findings" | grep . || true
    [[ $status -eq 0 ]] || echo "check-tidy: FAILED: $1"
    return "$status"
}
export -f check
export single

# shellcheck disable=SC2016  # the inner shell expands it
printf '%s\0' "${sources[@]}" | xargs -0 -P "$(nproc)" -n 1 bash -c 'check "$1"' bash
echo "check-tidy: no finding in ${#sources[@]} files of ${folders//|/ }"
