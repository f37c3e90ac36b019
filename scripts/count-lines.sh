#!/usr/bin/env bash
#
# Prints how many lines git tracks, by folder: C and C++, and beside them CMake and shell scripts. What is
# shipped stands in the first table, what tests and measures it in the second. A revision may be named.
#
#   count-lines.sh [REVISION]
set -euo pipefail
cd "$(dirname "$0")/.."

if [[ $# -gt 1 || ${1:-} == -* ]]; then
    echo "Usage: $0 [REVISION]" >&2
    exit 2
fi
revision=${1:-}

# list: path and number of lines of each file, as they stand here or in the revision.
list() {
    local path
    if [[ -n $revision ]]; then
        git ls-tree -r -z --name-only "$revision"
    else
        git ls-files -z
    fi | while IFS= read -r -d '' path; do
        case "$path" in
            *.c | *.cpp | *.h | *.sh | *.cmake | CMakeLists.txt | */CMakeLists.txt | .ci/run) ;;
            *) continue ;;
        esac
        if [[ -n $revision ]]; then
            printf '%d\t%s\n' "$(git show "$revision:$path" | wc -l)" "$path"
        elif [[ -f $path ]]; then
            printf '%d\t%s\n' "$(wc -l <"$path")" "$path"
        fi
    done
}

list | awk -F '\t' '
    # The folder that a file is counted in: two levels deep where folders hold folders by subject.
    function folder(path, part, count) {
        count = split(path, part, "/")
        if (count == 1) return "(top)"
        if (count > 2 && part[1] ~ /^(src|tests|tools)$/) {
            if (count > 3 && part[1] == "tests") return part[1] "/" part[2] "/" part[3]
            return part[1] "/" part[2]
        }
        return part[1]
    }
    {
        name = folder($2)
        kind = $2 ~ /\.(c|cpp|h)$/ ? "code" : "build"
        table = name ~ /^(tests|fuzz|bench)(\/|$)/ ? "tests" : "product"
        if (!(name in seen)) { seen[name] = table; names[++total] = name }
        lines[name, kind] += $1
        files[name, kind]++
        sum[table, kind] += $1
    }
    function sort(   i, j, swap) {
        for (i = 2; i <= total; ++i)
            for (j = i; j > 1 && names[j - 1] > names[j]; --j) {
                swap = names[j]; names[j] = names[j - 1]; names[j - 1] = swap
            }
    }
    function show(table, title,   i) {
        printf "%-28s %6s %8s %12s\n", title, "files", "C, C++", "CMake, shell"
        for (i = 1; i <= total; ++i)
            if (seen[names[i]] == table)
                printf "  %-26s %6d %8d %12d\n", names[i], files[names[i], "code"] + files[names[i], "build"],
                    lines[names[i], "code"], lines[names[i], "build"]
        printf "  %-26s %6s %8d %12d\n\n", "sum", "", sum[table, "code"], sum[table, "build"]
    }
    END {
        sort()
        show("product", "product")
        show("tests", "tests, fuzzing, benchmarks")
        printf "%-28s %6s %8d %12d\n", "all", "", sum["product", "code"] + sum["tests", "code"],
            sum["product", "build"] + sum["tests", "build"]
    }'
