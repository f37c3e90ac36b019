#!/usr/bin/env bash
#
# Installs the build into a folder and runs every program there. They find their libraries beside them,
# wherever the folder is and whatever the build folder holds.
#
#   installed_programs.sh CMAKE BUILD_FOLDER BIN_FOLDER LIB_FOLDER
set -euo pipefail
export LC_ALL=C
unset LD_LIBRARY_PATH

[[ $# -eq 4 ]] || { echo "installed_programs: takes 4 arguments" >&2; exit 2; }
cmake=$1
build=$2
bin=$3
lib=$4

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
"$cmake" --install "$build" --prefix "$scratch/first" >/dev/null
# Nothing may depend on the folder that it was installed to.
mv "$scratch/first" "$scratch/moved"
prefix=$scratch/moved

failures=0
fail() {
    echo "installed_programs: $*" >&2
    failures=$((failures + 1))
}

# finds_libraries FILE: the loader finds ours in the folder, and misses none.
finds_libraries() {
    local name path
    while read -r name _ path _; do
        case "$name" in
            liblanyard-*) [[ $path == "$prefix/$lib/$name" || $path == "$prefix/$bin/../$lib/$name" ]] ||
                fail "${1##*/} takes $name from '$path'" ;;
        esac
        [[ $path != not ]] || fail "${1##*/} does not find $name"
    done < <(ldd "$1")
}

# By itself as well: what a program links is its own matter, and so is its run path.
finds_libraries "$prefix/$lib/liblanyard-radius.so.2"

count=0
for file in "$prefix/$bin"/*; do
    program=${file##*/}
    count=$((count + 1))
    finds_libraries "$file"

    # The usage is all that it can tell without a server; some log it as a trace.
    option=-h
    case "$program" in
        lanyardctl | pnac-wired) option=--help ;;
    esac
    status=0
    output=$(PAL_ROOT=$scratch PAL_DEBUG_LEVELS=412 "$file" "$option" 2>&1 </dev/null) || status=$?
    [[ ${output,,} == *usage:* && $status -le 1 ]] || fail "$program ended with $status: $output"
done

[[ $count -ge 14 ]] || fail "only $count programs are installed"
[[ $failures -eq 0 ]]
echo "installed_programs: $count programs run"
