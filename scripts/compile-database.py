#!/usr/bin/env python3
"""compile-database.py DATABASE WANTED OUTPUT: writes those entries of a compile database whose file
matches the regular expression WANTED, one for each file, and prints their names, a NUL after each."""

import json
import re
import sys

database, wanted, output = sys.argv[1:]
with open(database) as file:
    entries = {entry["file"]: entry for entry in reversed(json.load(file))}
chosen = {name: entry for name, entry in entries.items() if re.match(wanted, name)}
with open(output, "w") as file:
    json.dump(list(chosen.values()), file)
for name in chosen:
    print(name, end="\0")
