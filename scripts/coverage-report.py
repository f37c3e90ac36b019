#!/usr/bin/env python3
"""coverage-report.py ROOT [--missed] < JSON of gcov: prints how many lines and branches of the sources below
ROOT were run, by folder, and fails where that is less than it has to be.

A line or branch that several objects or instances of a template have was run when one of them ran it. The edges
that exceptions take are no branches here. --missed lists what was not run first: lines, and of lines that were run
the branches."""

import json
import sys
from collections import defaultdict

# Name, folder, and the least per cent of lines and of branches. In programs, which may throw, branches are not
# counted.
GROUPS = [
    *((f"src/{name}", f"src/{name}/", None, None)
      for name in "base dict conf attr client login relay device".split()),
    ("library", "src/", 97, 90),
    ("platform", "platform/", 90, None),
    ("lanyardctl", "tools/lanyardctl/", 90, None),
    ("pnac-wired", "tools/pnac_wired/", 90, None),
    ("other programs", "tools/", None, None),
]
APART = ("tools/lanyardctl/", "tools/pnac_wired/")  # what does not count to tools/

root = sys.argv[1].rstrip("/") + "/"
show_missed = "--missed" in sys.argv[2:]

lines = defaultdict(int)  # (file, line): how often it was run
branches = defaultdict(int)  # (file, line, how many the line has, which of them)
for document in map(json.loads, sys.stdin):
    for source in document["files"]:
        file = source["file"]
        if not file.startswith(root):
            continue
        file = file[len(root):]
        for line in source["lines"]:
            place = (file, line["line_number"])
            lines[place] += line["count"]
            taken = [branch["count"] for branch in line["branches"] if not branch["throw"]]
            for index, count in enumerate(taken):
                branches[*place, len(taken), index] += count


def percent(counts):
    return 100 * sum(map(bool, counts)) / len(counts)


def shown(counts, what):
    return f"{sum(map(bool, counts)):6} of {len(counts):5} {what} {percent(counts):6.2f} %"


if show_missed:
    for place in sorted(place for place, count in lines.items() if not count):
        print("{}:{}".format(*place))
    for file, line, of, index in sorted(key for key, count in branches.items() if not count):
        if lines[file, line] and file.startswith("src/"):
            print(f"{file}:{line}: branch {index + 1} of {of}")

failures = []
for name, folder, least_lines, least_branches in GROUPS:
    def belongs(key):
        return key[0].startswith(folder) and (folder in APART or not key[0].startswith(APART))

    figures = [("lines", [count for key, count in lines.items() if belongs(key)], least_lines)]
    if folder.startswith("src/"):
        figures.append(("branches", [count for key, count in branches.items() if belongs(key)], least_branches))
    print(f"{name:14}", *(shown(counts, what) for what, counts, _ in figures))
    failures += [f"{percent(counts):.2f} % of the {what} of {name}, not {least} %"
                 for what, counts, least in figures if least and percent(counts) < least]
if failures:
    sys.exit("coverage: FAILED: " + "; ".join(failures))
