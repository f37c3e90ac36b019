#!/usr/bin/env bash
#
# The man pages are well formed, and those of the programs have every option, command and exit status that --help
# names.
# Skipped (77) where mandoc is not installed.
#
#   man_pages.sh MAN_FOLDER PROGRAM...
set -euo pipefail
export LC_ALL=C

[[ $# -ge 2 ]] || { echo "man_pages: takes 2 arguments" >&2; exit 2; }
if ! command -v mandoc >/dev/null; then
    echo "man_pages: mandoc is not installed"
    exit 77
fi
folder=$1
shift
failures=0
fail() {
    echo "man_pages: $*" >&2
    failures=$((failures + 1))
}

pages=("$folder"/*.[158])
[[ ${#pages[@]} -ge 7 ]]
complaints=$(mandoc -T lint -W warning "${pages[@]}" 2>&1) || true
[[ -z $complaints ]] || fail "$complaints"

# page_of PROGRAM: its page as plain text. One page tells of several programs.
page_of() {
    local source
    source=$(grep -lE "^\.Nm $1( ,)?$" "${pages[@]}" | head -n 1)
    [[ -n $source ]] && mandoc -T ascii "$source" | sed 's/.\x08//g'
}

# options, commands: what a help on standard input names.
options() {
    grep -oE '(^|[ ,[])--?[a-zA-Z][a-zA-Z0-9-]*' | grep -oE -- '-.*' | sort -u
}
commands() {
    sed -n '/^Subcommands:/,/^$/s/^  \([a-z][a-z-]*\) .*/\1/p'
}

# check PROGRAM_FILE PAGE COMMAND...: what the help of the program, or of its command, names is in the page.
check() {
    local file=$1 page=$2 help name names
    shift 2
    help=$("$file" "$@" --help)
    mapfile -t names < <(options <<<"$help")
    for name in "${names[@]}"; do
        grep -qE -- "(^|[^a-zA-Z0-9-])$name([^a-zA-Z0-9-]|$)" <<<"$page" || fail "the page of ${file##*/} lacks $name"
    done
    mapfile -t names < <(commands <<<"$help")
    for name in "${names[@]}"; do
        grep -qE "(^|[^a-z-])$name([^a-z-]|$)" <<<"$page" || fail "the page of ${file##*/} lacks '$name'"
        check "$file" "$page" "$@" "$name"
    done
    checked=$((checked + 1))
}

checked=0
for file in "$@"; do
    version=$("$file" --version)
    [[ $version =~ ^${file##*/}\ [0-9]+\.[0-9]+\.[0-9]+$ ]] || fail "${file##*/} --version says '$version'"
    page=$(page_of "${file##*/}") || { fail "${file##*/} has no page"; continue; }
    check "$file" "$page"
    # Exit codes, where the help has a table of them.
    codes=$(sed -n '/^EXIT STATUS/,/^[A-Z]/p' <<<"$page")
    mapfile -t names < <("$file" --help | sed -n '/^Exit status:/,$s/^  \([0-9]\)  .*/\1/p')
    for name in "${names[@]}"; do
        grep -qE "^ +$name( |$)" <<<"$codes" || fail "the page of ${file##*/} lacks exit status $name"
    done
done
[[ $failures -eq 0 ]]
echo "man_pages: ${#pages[@]} pages, $checked programs and commands"
