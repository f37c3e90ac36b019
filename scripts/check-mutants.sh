#!/usr/bin/env bash
#
# Asks whether the unit tests notice when the library or a program is wrong. Each mutant of
# tests/mutants/mutants.txt changes one thing in a copy of the tree (what git tracks, as it stands here), which is
# built and tested with the dev preset; a mutant that no test notices has survived, and this script then fails.
#
# Only the test programs that a mutant names are built for it; all the others when these notice nothing.
#
#   check-mutants.sh [NAME...]     all mutants, or those with these names
#   check-mutants.sh --match       only looks whether every mutant still finds its place in the sources
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/common.sh
source scripts/common.sh

list=tests/mutants/mutants.txt

match_only=no
wanted=()
for argument; do
    case "$argument" in
        --match) match_only=yes ;;
        -*)
            echo "Usage: $0 [--match | NAME...]" >&2
            exit 2
            ;;
        *) wanted+=("$argument") ;;
    esac
done

# Mutants, in the order of the list.
names=()
declare -A kind=() tests=() search=() replacement=()
read_list() {
    local line name='' number=0
    while IFS= read -r line || [[ -n $line ]]; do
        number=$((number + 1))
        case "$line" in
            '' | '#'*) ;;
            'mutant '*)
                name=${line#mutant }
                if [[ -n ${search[$name]+is} ]]; then
                    echo "check-mutants: $list:$number: a second mutant named $name" >&2
                    exit 2
                fi
                names+=("$name")
                search[$name]=
                replacement[$name]=
                ;;
            'kind '*) kind[$name]=${line#kind } ;;
            'tests '*) tests[$name]=${line#tests } ;;
            '- '*) search[$name]+=${search[$name]:+ }${line#- } ;;
            '+ '*) replacement[$name]+=${replacement[$name]:+ }${line#+ } ;;
            *)
                echo "check-mutants: $list:$number: not a line of a mutant: $line" >&2
                exit 2
                ;;
        esac
    done <"$list"
    for name in "${names[@]}"; do
        if [[ -z ${kind[$name]:-} || -z ${tests[$name]:-} || -z ${search[$name]} || -z ${replacement[$name]} ]]; then
            echo "check-mutants: $list: $name lacks its kind, its tests, its place or its change" >&2
            exit 2
        fi
    done
}

# mutate MODE SEARCH REPLACEMENT FILE...: finds the one place in all the files and, with the mode `apply`,
# changes it. Prints the file. Blanks and line ends count only between two words, so that a place is found
# however it is formatted.
mutate() {
    perl -e '
        use strict;
        use warnings;
        my ($mode, $search, $replacement, @files) = @ARGV;
        my @tokens = $search =~ /\w+|[^\w\s]/g;
        my $pattern = "";
        my $before = "";
        for my $token (@tokens) {
            $pattern .= $before =~ /\w$/ && $token =~ /^\w/ ? "\\s+" : "\\s*" if $pattern ne "";
            $pattern .= quotemeta $token;
            $before = $token;
        }
        $pattern = "(?<!\\w)$pattern" if $tokens[0] =~ /^\w/;
        $pattern .= "(?!\\w)" if $tokens[-1] =~ /\w$/;
        my @places;
        for my $file (@files) {
            open(my $in, "<", $file) or die "$file: $!\n";
            my $text = do { local $/; <$in> };
            close($in);
            while (defined $text && $text =~ /$pattern/g) {
                push @places, [$file, $text, $-[0], $+[0]];
            }
        }
        if (@places != 1) {
            print STDERR "found ", scalar @places, " times",
                (map { " in $_->[0]" } @places), ": $search\n";
            exit 1;
        }
        my ($file, $text, $start, $end) = @{$places[0]};
        if ($mode eq "apply") {
            substr($text, $start, $end - $start) = $replacement;
            open(my $out, ">", $file) or die "$file: $!\n";
            print $out $text;
            close($out) or die "$file: $!\n";
        }
        print "$file\n";
    ' "$@"
}

read_list
for name in "${wanted[@]}"; do
    if [[ -z ${search[$name]+is} ]]; then
        echo "check-mutants: no mutant is named $name" >&2
        exit 2
    fi
done
[[ ${#wanted[@]} -gt 0 ]] || wanted=("${names[@]}")

# The library, its OS layer and the programs, wherever their folders are.
mapfile -d '' -t sources < <(git ls-files -z -- '*.cpp' '*.h' ':!tests' ':!fuzz' ':!bench' ':!examples')

lost=0
for name in "${wanted[@]}"; do
    if ! mutate find "${search[$name]}" "${replacement[$name]}" "${sources[@]}" >/dev/null; then
        echo "check-mutants: $name has no place of its own any more" >&2
        lost=$((lost + 1))
    fi
done
if [[ $lost -gt 0 ]]; then
    echo "check-mutants: FAILED, $lost of ${#wanted[@]} mutants have no place" >&2
    exit 1
fi
echo "check-mutants: ${#wanted[@]} mutants find their places in ${#sources[@]} files"
[[ $match_only == no ]] || exit 0

# The copy. What is changed here but not committed is part of it.
copy=$(mktemp -d)
trap 'rm -rf "$copy"' EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
tree=$(git stash create)
mkdir "$copy/tree"
git archive "${tree:-HEAD}" | tar -x -C "$copy/tree"
cd "$copy/tree"
# Where the copy lies is nothing that the compiler's results depend on.
export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1

# build LOG TARGET...
build() {
    cmake --build --preset dev -j "$jobs" --target "${@:2}" >"$1" 2>&1
}

# run_tests LOG SELECTION...: the tests that ctest selects, up to the first that fails.
run_tests() {
    ctest --preset dev -j "$jobs" "${@:2}" --stop-on-failure --no-tests=ignore >"$1" 2>&1
}

# The names of a program's tests: it may be run in several shards.
tests_of() {
    echo "^$1(_[0-9]+)?\$"
}

# The programs that failed, as one regular expression.
failed_programs() {
    sed -n 's/^[[:blank:]]*[0-9]* - \([^ ]*\) (.*)$/\1/p' "$1" | paste -s -d '|'
}

# is_noticed SELECTION...: whether one of the tests fails, and fails again when it is asked once more. One that
# failed by chance, on a busy machine, has noticed nothing.
is_noticed() {
    local programs attempt
    for attempt in 1 2 3; do
        if run_tests "$copy/log" "$@"; then
            return 1
        fi
        programs=$(failed_programs "$copy/log")
        if [[ -z $programs ]]; then
            cat "$copy/log"
            echo "check-mutants: FAILED, the tests did not run" >&2
            exit 1
        fi
        if ! run_tests "$copy/log" -R "^($programs)\$"; then
            return 0
        fi
        echo "check-mutants: failed by chance, attempt $attempt: $programs"
    done
    return 1
}

# What noticed a mutant: the first test that failed, or the program that it ended.
first_failure() {
    local found
    found=$(sed -n 's/.*\[  FAILED  \] \([^ ,]*\).*/\1/p' "$1" | head -n 1)
    echo "${found:-$(failed_programs "$1")}"
}

# pass_as_it_is TARGET SELECTION...: ends the script where the tree does not pass these tests without a mutant.
pass_as_it_is() {
    if ! build "$copy/log" "$1" || is_noticed "${@:2}"; then
        cat "$copy/log"
        echo "check-mutants: FAILED, the tree does not pass its own tests" >&2
        exit 1
    fi
}

# is_noticed_by TARGET SELECTION...: builds the mutant, and asks these tests. Returns 2 where it does not build.
is_noticed_by() {
    build "$copy/log" "$1" || return 2
    is_noticed "${@:2}"
}

# is_noticed_by_all FILE: asks all tests about the mutant in the file; before the first one, the tree as it is.
all_pass=no
is_noticed_by_all() {
    if [[ $all_pass == no ]]; then
        cp -- "$1" "$copy/mutant"
        cp -- "$copy/original" "$1"
        pass_as_it_is all -L '^unit$'
        all_pass=yes
        cp -- "$copy/mutant" "$1"
    fi
    is_noticed_by all -L '^unit$'
}

echo "check-mutants: building and testing the tree as it is"
# A mutant may leave something unused.
cmake --preset dev -DLANYARD_FUZZ=OFF -DLANYARD_WERROR=OFF "${cmake_options[@]}" >/dev/null
mapfile -t programs < <(for name in "${wanted[@]}"; do tr '|' '\n' <<<"${tests[$name]}"; done | sort -u)
for program in "${programs[@]}"; do
    pass_as_it_is "$program" -R "$(tests_of "$program")"
done
echo "check-mutants: done after $SECONDS s"

killed=0
failures=()
for name in "${wanted[@]}"; do
    started=$SECONDS
    file=$(mutate find "${search[$name]}" "${replacement[$name]}" "${sources[@]}")
    cp -- "$file" "$copy/original"
    mutate apply "${search[$name]}" "${replacement[$name]}" "${sources[@]}" >/dev/null
    noticed_by=
    status=1
    for program in ${tests[$name]//|/ }; do
        [[ $status -ne 1 ]] || { status=0 && is_noticed_by "$program" -R "$(tests_of "$program")" || status=$?; }
    done
    # It has survived only when all have been asked.
    [[ $status -ne 1 ]] || { status=0 && is_noticed_by_all "$file" || status=$?; }
    case $status in
        0)
            verdict=killed
            noticed_by="by $(first_failure "$copy/log")"
            ;;
        1) verdict=survived ;;
        *)
            verdict='does not build'
            tail -n 20 "$copy/log"
            ;;
    esac
    cp -- "$copy/original" "$file"
    printf '%4d s  %-8s  %-34s %-10s  %s %s\n' $((SECONDS - started)) "$verdict" "$name" \
        "${kind[$name]}" "$file" "$noticed_by"
    if [[ $verdict == killed ]]; then
        killed=$((killed + 1))
    else
        failures+=("$name ($verdict)")
    fi
done

if [[ ${#failures[@]} -gt 0 ]]; then
    printf 'check-mutants: FAILED, %d of %d mutants were killed; not: %s\n' "$killed" "${#wanted[@]}" "${failures[*]}" >&2
    exit 1
fi
echo "check-mutants: all $killed mutants were killed, in $SECONDS s"
