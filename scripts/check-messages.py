#!/usr/bin/env python3
"""Compares the messages in the code with the tables of docs/messages.md: fails when a message has no row there,
or a row no message.

A message is a text of two words or more, however the code joins it, unless it is help, SQL or a dictionary (see
NO_MESSAGES and NO_TEXT). A row shows it to the letter, with a name in angle brackets in the place of each value:
"%s: line %d" of the code is `<file>: line <n>` there. A row may show more, such as the text before it.

    scripts/check-messages.py          compares
    scripts/check-messages.py --list   prints the messages of the code, and where each stands
"""
import glob
import os
import re
import sys

PAGE = "docs/messages.md"
SOURCES = ["src/**/*.cpp", "src/**/*.h", "platform/*.cpp", "platform/*.h", "tools/**/*.cpp", "tools/**/*.h"]
NO_SOURCES = {"src/dict/builtin.cpp"}

# Calls, initialisers and constants whose texts are no messages: help, SQL, tables.
NO_MESSAGES = {
    "add_option", "add_flag", "add_subcommand", "app", "addCommand", "addGroup", "addText", "addFile", "footer",
    "query", "run", "runQuery", "sqlite3QueryResGet", "notifyManager", "strftime", "static_assert",
    "DatabaseCommand", "Program", "Option", "LibraryOption", "kServerColumns", "kDictionaryCommands",
}
LOG_CALLS = {"radLog", "radLogAs", "radDeviceLog", "radDeviceLogAs", "palModuleDebug"}
NO_TEXT = re.compile(r"(ntresponse: computes|Usage: <> PASSWORD|Exit status|READY=|SELECT|INSERT|UPDATE|DELETE|PRAGMA|"
                     r"CREATE|TRIGGER|TABLE|<>\)=\(|<>, rowid\))")
HELP_FUNCTION = re.compile(r"^void printHelp\(.*?^}", re.S | re.M)
HELP = re.compile(r"k(\w*(Footer|Statuses)|Fields|StatusTypes|Definitions)$")

TOKEN = re.compile(r'//[^\n]*|/\*.*?\*/|^\s*#(?:[^\n]|\\\n)*|"(?P<text>(?:[^"\\\n]|\\.)*)"'
                   r'|(?P<other>\'(?:[^\'\\]|\\.)+\'|[A-Za-z_]\w*|\d[\w\']*|::|->|\S)|\s+', re.S | re.M)
FORMAT = re.compile(r"%[-+ #0]*(?:\*|\d+)?(?:\.(?:\*|\d+))?(?:hh|h|ll|l|z|j)?[diouxXeEfFgGcsp]")
VALUE = "<>"


def unescaped(text):
    return re.sub(r"\\(.)", lambda found: {"n": "\n", "t": "\t"}.get(found[1], found[1]), text)


def tokens_of(source):
    """The tokens, each as (is a text, itself, line)."""
    return [(found.lastgroup == "text", found[found.lastgroup], source.count("\n", 0, found.start()) + 1)
            for found in TOKEN.finditer(source) if found.lastgroup]


def joined(tokens, index):
    """The text that begins with the literal at `index` and all that is added to it, and the index after it."""
    message = VALUE if index > 0 and tokens[index - 1][1] == "+" else ""
    while index < len(tokens):
        is_text, token, _ = tokens[index]
        if is_text:
            message += FORMAT.sub(VALUE, unescaped(token))
            index += 1
        elif token == "+":
            index += 1
        elif tokens[index - 1][1] == "+":
            return message + VALUE, index  # a text after the value is found on its own
        else:
            break
    return message, index


def texts_in(file):
    """Yields (text, line, whether it is a message) for each text of a source file."""
    with open(file, encoding="utf-8") as source:
        tokens = tokens_of(HELP_FUNCTION.sub(lambda found: "\n" * found[0].count("\n"), source.read()))
    names = []  # of the calls and initialisers that are open
    constant = ""
    index = 0
    while index < len(tokens):
        is_text, token, line = tokens[index]
        if is_text:
            text, index = joined(tokens, index)
            within = set().union(*names)
            is_logged = text.endswith("\n") and normalised(text) and not LOG_CALLS.isdisjoint(within)
            yield text, line, is_logged or (is_message(text) and NO_MESSAGES.isdisjoint(within)
                                            and not HELP.match(constant))
            continue
        if token in "({[":
            before = tokens[index - 1][1]
            # Of what is initialised, the type too.
            names.append({before} if token != "{" or before == ")" else {before, tokens[index - 2][1]})
        elif token in ")}]" and names:
            names.pop()
        elif token == "=":
            constant = tokens[index - 1][1]
        elif token == ";":
            constant = ""
        index += 1


def is_message(text):
    words = re.findall(r"[^\W\d_]{2,}", text.replace(VALUE, " "))
    return len(words) > 1 and " " in text.strip() and not NO_TEXT.match(text.strip())


def normalised(text):
    """Without what stands in the place of a value, and without blanks and values at both ends."""
    text = re.sub(r"(<[^<>]*>)+", VALUE, " ".join(text.split()))
    return re.sub(rf"^(?:{VALUE}|[ :,;])+|(?:{VALUE}|[ :,;])+$", "", text)


def rows_of(page):
    """The messages that the tables of a page show in the column "message", each with its line."""
    rows = []
    is_table = False
    with open(page, encoding="utf-8") as lines:
        for number, line in enumerate(lines, 1):
            cell = re.split(r"(?<!\\)\|", line)[1].strip() if line.startswith("|") else ""
            is_table = cell != "" and (is_table or cell == "message")
            if is_table:
                rows += [(normalised(text), number) for text in re.findall(r"`([^`]+)`", cell)]
    return rows


def is_stale(row, texts):
    """Whether a piece of a row, between its values, is in no text of the code."""
    pieces = [normalised(piece) for piece in row.split(VALUE)]
    return not all(any(piece in text for text in texts) for piece in pieces)


def main():
    os.chdir(os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
    files = [file for pattern in SOURCES for file in sorted(glob.glob(pattern, recursive=True))
             if file not in NO_SOURCES]
    texts = [(text, f"{file}:{line}", is_shown) for file in files for text, line, is_shown in texts_in(file)]
    messages = [(text, place) for text, place, is_shown in texts if is_shown]
    if "--list" in sys.argv[1:]:
        for text, place in messages:
            print(f"{place}: {' '.join(text.split())}")
        return 0
    rows = rows_of(PAGE)
    wrong = [f"{place}: no row of {PAGE} has '{' '.join(text.split())}'" for text, place in messages
             if not any(normalised(text) in row for row, _ in rows)]
    known = {normalised(text) for text, _, _ in texts}
    wrong += [f"{PAGE}:{number}: the code has no message '{row}'" for row, number in rows if is_stale(row, known)]
    if len(messages) < 200:
        wrong.append(f"only {len(messages)} messages were found in the code: this script reads it wrongly")
    print("\n".join(wrong) if wrong else f"{len(messages)} messages, {len(rows)} in {PAGE}")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
