#!/usr/bin/env bash
#
# Runs cppcheck over library, platform, programs and fuzz targets, as the compile database of a build folder
# has them: of the one that is named, or of build/alone.
set -euo pipefail
cd "$(dirname "$0")/.."

# shellcheck source=scripts/common.sh
source scripts/common.sh
build=${1:-build/alone}
[[ $# -gt 0 ]] || configure_alone

database=$build/cppcheck/compile_commands.json
mkdir -p "$build/cppcheck"
mapfile -d '' -t sources < <(
    scripts/compile-database.py "$build/compile_commands.json" "^$PWD/(src|platform|tools|fuzz)/.*\.(c|cpp)\$" \
        "$database"
)
[[ ${#sources[@]} -gt 50 ]] || { echo "check-cppcheck: found only ${#sources[@]} files" >&2; exit 1; }

# What is off and why:
#  uninitDerivedMemberVar: it does not know PalListNode{}.
#  uninitMemberVar: buffers that the next call fills stay unset.
#  CastIntegerToAddressAtReturn: it takes an element of an array of pointers for a number.
cppcheck --project="$database" --enable=warning,performance,portability --inline-suppr --quiet \
    --suppress=uninitDerivedMemberVar --suppress=uninitMemberVar --suppress=CastIntegerToAddressAtReturn \
    --error-exitcode=1 -j "$(nproc)"
echo "check-cppcheck: no finding in ${#sources[@]} files"
