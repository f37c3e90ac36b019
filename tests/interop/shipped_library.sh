#!/usr/bin/env bash
#
# Checks the built libraries and programs against what they promise: the names and version that programs
# bind to, exactly the symbols that the public headers declare, and few libraries at run time, no C++ one.
#
#   shipped_library.sh few-libraries|any-libraries COMPILER INCLUDE_FOLDER PLATFORM_INCLUDE_FOLDER \
#       LIBRARY PLATFORM_LIBRARY|none PROGRAM...
set -euo pipefail
export LC_ALL=C

[[ $# -ge 7 ]] || { echo "shipped_library: too few arguments" >&2; exit 2; }
check_needed=$1
compiler=$2
include=$3
platform=$4
library=$5
platform_library=$6
shift 6

failures=0
fail() {
    echo "shipped_library: $*" >&2
    failures=$((failures + 1))
}

# check_soname LIBRARY NAME
check_soname() {
    local soname
    soname=$(readelf -d "$1" | sed -n 's/.*(SONAME).*\[\(.*\)\].*/\1/p')
    [[ $soname == "$2" ]] || fail "SONAME is '$soname', not '$2'"
}

# exported_by LIBRARY: its symbols, each with the version that it has.
exported_by() {
    nm -D --defined-only --with-symbol-versions "$1" | sed 's/^[0-9a-f]* [A-Za-z] //' | sort -u
}

# compare LIBRARY DECLARED EXPORTED LEAST
compare() {
    local count missing extra
    count=$(wc -l <<<"$2")
    [[ $count -ge $4 ]] || fail "found only $count declarations in the headers of $1"
    missing=$(comm -23 <(echo "$2") <(echo "$3"))
    extra=$(comm -13 <(echo "$2") <(echo "$3"))
    [[ -z $missing ]] || fail "$1: declared but not exported: ${missing//$'\n'/ }"
    [[ -z $extra ]] || fail "$1: exported but not declared: ${extra//$'\n'/ }"
    echo "shipped_library: $1, $count symbols"
}

version=LANYARD_RADIUS_2
check_soname "$library" liblanyard-radius.so.2
# The declarations that LANYARD_API marks: the name before the first parenthesis, or else the last word.
declared=$(find "$include/lanyard" -name '*.h' -printf '#include <lanyard/%P>\n' |
    "$compiler" -std=c11 -E -P -I "$include" -I "$platform" -x c - |
    tr '\n' ' ' | tr ';' '\n' |
    sed -n 's/.*__attribute__((visibility("default")))//p' |
    sed -e 's/(.*//' -e 's/\[.*//' -e 's/[[:space:]]*$//' -e 's/.*[^A-Za-z0-9_]//' | sort -u)
versioned=${declared//$'\n'/@@$version$'\n'}@@$version
compare liblanyard-radius "$(printf '%s\n' "$version" "$versioned" | sort)" "$(exported_by "$library")" 50

if [[ $platform_library != none ]]; then
    check_soname "$platform_library" liblanyard-platform.so.2
    # All that the headers of the folder declare themselves, types left out.
    declared=$(for header in "$platform"/*.h; do
        "$compiler" -std=c11 -E "$header"
    done | awk -v folder="\"$platform/" '/^#/ { own = index($3, folder) == 1; next } own' |
        tr '\n' ' ' | sed -e ':again; s/{[^{}]*}//g; t again' | tr ';' '\n' |
        sed -e '/^[[:space:]]*\(typedef\|enum\)/d' -e 's/(.*//' -e 's/[[:space:]]*$//' -e 's/.*[^A-Za-z0-9_]//' |
        sed '/^$/d' | sort -u)
    compare liblanyard-platform "$declared" "$(exported_by "$platform_library")" 30
fi

# What a vendor's OS layer may lack.
for name in palFileRename xbusDescriptor xbusConnect xbusSend xbusResult; do
    ! nm -D --undefined-only "$library" | grep -q " U $name\$" || fail "needs $name, which has to be weak"
done

if [[ $check_needed == few-libraries ]]; then
    files=("$library" "$@")
    [[ $platform_library == none ]] || files+=("$platform_library")
    for file in "${files[@]}"; do
        needed=$(readelf -d "$file" | sed -n 's/.*(NEEDED).*\[\(.*\)\].*/\1/p')
        for name in $needed; do
            case "$name" in
                libc.so.* | libcrypto.so.* | libsqlite3.so.* | liblanyard-platform.so.2 | ld-linux*) ;;
                liblanyard-radius.so.2) [[ $file != "$library" ]] || fail "the library needs itself" ;;
                *) fail "${file##*/} needs $name" ;;
            esac
        done
        [[ $needed == *libc.so.* ]] || fail "${file##*/} does not need libc"
    done
fi

[[ $failures -eq 0 ]]
