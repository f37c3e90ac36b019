#!/usr/bin/env bash
#
# Runs clang-tidy 14 over the source files of a build folder's compile database (build/dev unless
# named). Library, platform, programs and fuzz targets by default; --all takes the tests as well, out of a
# database of its own (build/tidy) in which every test file is compiled alone.
set -euo pipefail
cd "$(dirname "$0")/.."

folders='src|platform|tools|fuzz'
build=build/dev
all=no
for argument; do
    case "$argument" in
        --all)
            all=yes
            folders+='|tests'
            ;;
        -*)
            echo "Usage: $0 [--all] [build folder]" >&2
            exit 2
            ;;
        *) build=$argument ;;
    esac
done
if [[ $all == yes && $build == build/dev ]]; then
    build=build/tidy
    cmake --preset dev -B "$build" -DLANYARD_TESTS_TOGETHER=OFF >/dev/null
fi
if [[ ! -f $build/compile_commands.json ]]; then
    echo "check-tidy: $build is not configured; run scripts/test.sh first" >&2
    exit 1
fi

# gcc is what the project is compiled with: options that only gcc knows are no finding, and the warnings
# of a second compiler are no error here.
run-clang-tidy-14 -quiet -j "$(nproc)" -p "$build" \
    -extra-arg=-Wno-unknown-warning-option \
    -extra-arg=-Wno-error \
    -extra-arg=-Qunused-arguments \
    "^$PWD/($folders)/.*\.(c|cpp)\$" 2>&1 |
    { grep -v -E '^clang-tidy-14 |^[0-9]+ warnings? generated|^Suppressed |^Use -header-filter' || true; }
echo "check-tidy: no finding in ${folders//|/ }"
