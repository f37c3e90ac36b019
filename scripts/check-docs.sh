#!/usr/bin/env bash
#
# Makes the pages of the public headers, which fails with any warning of Doxygen, and looks at them: the man pages are
# well formed, and each header and each function has one.
set -euo pipefail
cd "$(dirname "$0")/.."
export LC_ALL=C

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
scripts/build-docs.py "$folder"

fail() {
    echo "check-docs: $*" >&2
    exit 1
}

pages=("$folder"/man3/lanyard_*.3)
# Pages have no date, so that the same headers make the same pages.
complaints=$(mandoc -T lint -W warning "${pages[@]}" 2>&1 | grep -v 'missing date') || true
[[ -z $complaints ]] || fail "$complaints"

for header in include/lanyard/*.h include/lanyard/radius/*.h; do
    name=${header##*/}
    [[ -s $folder/man3/lanyard_${name%.h}.3 ]] || fail "$header has no man page"
done
# Names that are not the library's own are told of in their header's page alone.
mapfile -t functions < <(grep -ohE '^LANYARD_API .*[ *]rad[A-Za-z]+\(' include -r | grep -oE 'rad[A-Za-z]+\(' |
    tr -d '(' | sort -u)
[[ ${#functions[@]} -gt 50 ]] || fail "only ${#functions[@]} functions were found in the headers"
for function in "${functions[@]}"; do
    [[ -s $folder/man3/$function.3 ]] || fail "$function has no man page"
done
grep -q 'radAuth("alice", "wonderland")' "$folder/man3/lanyard_radius.3" || fail "code in a page is not as it was"
[[ -s $folder/html/index.html ]] || fail "there is no HTML"
echo "check-docs: ${#pages[@]} headers, ${#functions[@]} functions"
