#!/usr/bin/env bash
#
# Checks in which direction the folders of the library look at each other, from the #include lines of
# src/ and of the public headers: each folder may include itself and what it builds on, so that no two
# folders look both ways. Every run first tries the check on small trees that have something wrong.
set -euo pipefail
cd "$(dirname "$0")/.."

# Folder: what it builds on, each standing in a row above it.
directions='
base:
dict:   base
conf:   base dict
attr:   base dict
client: base dict attr conf
login:  base dict attr conf client
device: base dict conf
relay:  base dict attr conf client device
'
# Public header: the folder that it belongs to. A new one needs a row here; radius.h is the door for
# programs, which the library itself does not use.
headers='
frame.h:   base
dict.h:    dict
conf.h:    conf
attr.h:    attr
engine.h:  client
error.h:   client
loop.h:    client
status.h:  client
methods.h: login
sample.h:  login
mgmt.h:    device
relay.h:   relay
eap.h:     relay
'

# check ROOT: prints what is wrong in a tree, a line each, and fails if there is something.
check() {
    (cd "$1" && find src include/lanyard -name '*.h' -o -name '*.c' -o -name '*.cpp' | LC_ALL=C sort) |
        perl -e '
            use strict;
            use warnings;
            my ($root, $directions, $headers) = @ARGV;
            my (%allowed, %owner);
            my $wrong = 0;
            sub wrong { print @_, "\n"; ++$wrong; }
            for (grep { /\S/ } split /\n/, $directions) {
                my ($folder, $rest) = /^(\w+):\s*(.*)$/ or die "not a row: $_\n";
                my @builds_on = split " ", $rest;
                $allowed{$_} or wrong("$folder: $_ has no row above it") for @builds_on;
                $allowed{$folder} = {map { $_ => 1 } $folder, @builds_on};
            }
            for (grep { /\S/ } split /\n/, $headers) {
                my ($header, $folder) = /^([\w.]+):\s*(\w+)$/ or die "not a row: $_\n";
                $allowed{$folder} or wrong("$header: no folder $folder");
                $owner{$header} = $folder;
            }
            my $files = 0;
            while (my $path = <STDIN>) {
                chomp $path;
                next if $path eq "include/lanyard/radius.h";
                my $folder;
                if ($path =~ m{^include/lanyard/radius/(.*)$}) {
                    $folder = $owner{$1};
                } elsif ($path =~ m{^src/([^/]+)/}) {
                    $folder = $1 if $allowed{$1};
                }
                if (!defined $folder) {
                    wrong("$path: belongs to no folder");
                    next;
                }
                ++$files;
                open(my $in, "<", "$root/$path") or die "$path: $!\n";
                my $text = do { local $/; <$in> } // "";
                close($in);
                # Comments show includes too; their lines go on counting.
                $text =~ s{(/\*.*?\*/)}{ (my $lines = $1) =~ s/[^\n]//g; $lines }gse;
                my $number = 0;
                for my $line (split /\n/, $text) {
                    ++$number;
                    $line =~ /^\s*#\s*include\s*([<"])([^>"]+)[>"]/ or next;
                    my ($kind, $name) = ($1, $2);
                    my $target;
                    if ($name =~ m{^lanyard/(.*)$}) {
                        my $header = $1;
                        if ($header eq "radius.h") {
                            wrong("$path:$number: includes the door for programs");
                            next;
                        }
                        $header =~ s{^radius/}{};
                        $target = $owner{$header};
                    } elsif ($kind eq "<") {
                        next;
                    } else {
                        $name =~ s{^src/}{};
                        $target = $name =~ m{^([^/]+)/} ? ($allowed{$1} ? $1 : undef) : $folder;
                    }
                    if (!defined $target) {
                        wrong("$path:$number: $name is no part of the library");
                    } elsif (!$allowed{$folder}{$target}) {
                        wrong("$path:$number: $folder may not look at $target ($name)");
                    }
                }
            }
            $files > 0 or wrong("found no file to check");
            print "$files\n" if !$wrong;
            exit($wrong ? 1 : 0);
        ' "$1" "$directions" "$headers"
}

tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT

# plant PATH LINE...: adds a file to the small tree.
plant() {
    local path=$tree/$1
    shift
    mkdir -p "${path%/*}"
    printf '%s\n' "$@" >"$path"
}

# expect_finding TEXT: the small tree is refused for this and nothing else; then its file goes again.
expect_finding() {
    local found
    if found=$(check "$tree"); then
        echo "check-includes: FAILED to notice: $1" >&2
        exit 1
    fi
    if [[ $found != "$1" ]]; then
        printf 'check-includes: FAILED, expected:\n%s\nfound:\n%s\n' "$1" "$found" >&2
        exit 1
    fi
    rm "$tree/${1%%:*}"
}

test_check() {
    plant src/base/wire.h '#include <cstddef>' '#include <palcore.h>'
    plant src/relay/relay.cpp '#include <lanyard/radius/engine.h>' '#include "relay/queue.h"' '#include "base/wire.h"'
    plant include/lanyard/radius.h '#include <lanyard/radius/eap.h>'
    plant include/lanyard/radius/eap.h '/*' '#include <lanyard/radius.h>' '*/' '#include <lanyard/radius/conf.h>'
    if ! check "$tree" >/dev/null; then
        echo "check-includes: FAILED, refuses a tree that is right:" >&2
        check "$tree" >&2 || exit 1
    fi
    plant src/attr/reply.cpp '/*' '*/' '#include "client/digest.h"'
    expect_finding 'src/attr/reply.cpp:3: attr may not look at client (client/digest.h)'
    plant src/conf/reader.cpp '#include <lanyard/radius/attr.h>'
    expect_finding 'src/conf/reader.cpp:1: conf may not look at attr (lanyard/radius/attr.h)'
    plant include/lanyard/radius/dict.h '  #  include <lanyard/radius/conf.h>'
    expect_finding 'include/lanyard/radius/dict.h:1: dict may not look at conf (lanyard/radius/conf.h)'
    plant src/login/pap.cpp '#include "src/relay/queue.h"'
    expect_finding 'src/login/pap.cpp:1: login may not look at relay (relay/queue.h)'
    plant src/login/pap.cpp '#include <lanyard/radius.h>'
    expect_finding 'src/login/pap.cpp:1: includes the door for programs'
    plant src/base/log.cpp '#include "tests/support/bytes.h"'
    expect_finding 'src/base/log.cpp:1: tests/support/bytes.h is no part of the library'
    plant src/extra/new.cpp ''
    expect_finding 'src/extra/new.cpp: belongs to no folder'
    plant include/lanyard/radius/new.h ''
    expect_finding 'include/lanyard/radius/new.h: belongs to no folder'
}

test_check
if ! found=$(check .); then
    printf '%s\n' "$found" >&2
    echo "check-includes: FAILED, $(wc -l <<<"$found") findings" >&2
    exit 1
fi
echo "check-includes: $found files look the right way"
