#!/usr/bin/env bash
#
# Prints how many lines of the library the unit tests run, by folder of src/: builds into build/coverage
# without sanitizers, runs the tests, and sums what gcov says.
#
#   coverage.sh [--missed]    --missed also lists the lines that no test runs
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/common.sh
source scripts/common.sh

case "$*" in
    '') missed=0 ;;
    --missed) missed=1 ;;
    *)
        echo "Usage: $0 [--missed]" >&2
        exit 2
        ;;
esac

build=$PWD/build/coverage
flags="-O0 --coverage -fprofile-update=atomic"
cmake -S . -B "$build" -G Ninja "${cmake_options[@]}" -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ \
    -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" >/dev/null
cmake --build "$build" -j "$jobs" >/dev/null
find "$build" -name '*.gcda' -delete
# The NT-Response program runs none of the library, and its test leaves it no room for a file of counters.
ctest --test-dir "$build" -L '^unit$' -E '^ntresponse_test$' -j "$jobs" --output-on-failure

# The objects of the library, and of those of its sources that a test compiles itself. A line that stands in
# several has been run when one of them ran it.
find "$build" \( -path '*/lanyard-radius.dir/*' -o -path '*_test.dir/*/src/*' \) -name '*.cpp.gcno' \
    -exec gcov -t {} + 2>/dev/null | awk -F: -v root="$PWD/src/" -v missed="$missed" '
    $3 == "Source" { inside = index($4, root) == 1; file = substr($4, length(root) + 1) }
    inside && $2 + 0 > 0 && $1 !~ /-$/ {
        line = file ":" $2 + 0
        if (!(line in run)) { order[++lines] = line; run[line] = 0 }
        if ($1 !~ /[#=]$/) run[line] = 1
    }
    END {
        for (i = 1; i <= lines; ++i) {
            folder = order[i]
            sub(/\/.*/, "", folder)
            ++total[folder]; ++total["sum"]
            covered[folder] += run[order[i]]; covered["sum"] += run[order[i]]
            if (missed && !run[order[i]]) print "src/" order[i]
        }
        split("base dict conf attr client login relay device sum", folders, " ")
        for (i = 1; i in folders; ++i)
            printf "%-8s %5d of %5d lines  %5.1f %%\n", folders[i], covered[folders[i]], total[folders[i]],
                100 * covered[folders[i]] / total[folders[i]]
    }'
