#!/usr/bin/env bash
#
# Checks that every tracked C and C++ file is formatted as .clang-format has it, with version 14 of
# clang-format (other versions differ). With --fix, formats them.
set -euo pipefail
cd "$(dirname "$0")/.."

case "${1:-}" in
    "") mode=(--dry-run --Werror) ;;
    --fix) mode=(-i) ;;
    *)
        echo "Usage: $0 [--fix]" >&2
        exit 2
        ;;
esac

mapfile -d '' -t files < <(git ls-files -z -- '*.c' '*.cpp' '*.h')
if [[ ${#files[@]} -eq 0 ]]; then
    echo "check-format: found no file to check" >&2
    exit 1
fi
clang-format-14 "${mode[@]}" -- "${files[@]}"
echo "check-format: ${#files[@]} files are formatted"
