#!/usr/bin/env bash
#
# Checks the built library and programs against what they promise: the name and version that programs bind
# to, exactly the symbols that the public headers declare, and few libraries at run time, no C++ one.
#
#   shipped_library.sh few-libraries|any-libraries COMPILER INCLUDE_FOLDER PLATFORM_INCLUDE_FOLDER LIBRARY PROGRAM...
set -euo pipefail
export LC_ALL=C

[[ $# -ge 6 ]] || { echo "shipped_library: too few arguments" >&2; exit 2; }
check_needed=$1
compiler=$2
include=$3
platform=$4
library=$5
shift 5

failures=0
fail() {
    echo "shipped_library: $*" >&2
    failures=$((failures + 1))
}

soname=$(readelf -d "$library" | sed -n 's/.*(SONAME).*\[\(.*\)\].*/\1/p')
[[ $soname == liblanyard-radius.so.2 ]] || fail "SONAME is '$soname'"

# The declarations that LANYARD_API marks: the name before the first parenthesis, or else the last word.
declared=$("$compiler" -std=c11 -E -P -I "$include" -I "$platform" "$include/lanyard/radius.h" |
    tr '\n' ' ' | tr ';' '\n' |
    sed -n 's/.*__attribute__((visibility("default")))//p' |
    sed -e 's/(.*//' -e 's/\[.*//' -e 's/[[:space:]]*$//' -e 's/.*[^A-Za-z0-9_]//' | sort -u)
exported=$(nm -D --defined-only "$library" | sed -e 's/^[0-9a-f]* [A-Za-z] //' -e 's/@.*//' | sort -u)
count=$(wc -l <<<"$declared")
[[ $count -ge 50 ]] || fail "found only $count declarations in the headers"
missing=$(comm -23 <(echo "$declared") <(echo "$exported"))
extra=$(comm -13 <(echo "$declared") <(echo "$exported"))
[[ -z $missing ]] || fail "declared but not exported: ${missing//$'\n'/ }"
[[ -z $extra ]] || fail "exported but not declared: ${extra//$'\n'/ }"

if [[ $check_needed == few-libraries ]]; then
    for file in "$library" "$@"; do
        needed=$(readelf -d "$file" | sed -n 's/.*(NEEDED).*\[\(.*\)\].*/\1/p')
        for name in $needed; do
            case "$name" in
                libc.so.* | libcrypto.so.* | libsqlite3.so.* | liblanyard-platform.so* | ld-linux*) ;;
                liblanyard-radius.so.2) [[ $file != "$library" ]] || fail "the library needs itself" ;;
                *) fail "${file##*/} needs $name" ;;
            esac
        done
        [[ $needed == *libc.so.* ]] || fail "${file##*/} does not need libc"
    done
fi

[[ $failures -eq 0 ]] || exit 1
echo "shipped_library: $soname, $count symbols"
