#!/usr/bin/env python3
"""Makes the pages of the public headers from their comments: FOLDER/html, and FOLDER/man3 with a man page for each
header, lanyard_attr(3) for attr.h, and one for each function that leads to its header's. Any warning of Doxygen
is a failure.

    scripts/build-docs.py FOLDER
"""
import os
import re
import shutil
import subprocess
import sys

HEADERS = "include/lanyard"


def version():
    return re.search(r"^project\(.* VERSION ([\d.]+)", read("CMakeLists.txt"), re.M)[1]


def run_doxygen(folder):
    settings = read("docs/Doxyfile") + f"\nOUTPUT_DIRECTORY = {folder}\nPROJECT_NUMBER = {version()}\n"
    if subprocess.run(["doxygen", "-"], input=settings, text=True).returncode != 0:
        sys.exit("build-docs: Doxygen warns, see above")


def read(file):
    with open(file, encoding="utf-8") as text:
        return text.read()


def name_of(header):
    """lanyard/radius/attr.h is told of in lanyard_attr(3), the door in lanyard_radius(3)."""
    return "lanyard_" + os.path.basename(header).removesuffix(".h")


def with_quotes(block):
    """Code: Doxygen has made apostrophes of its quotation marks. Those of a character stay."""
    return re.sub(r"'((?!'|\\?.')[^'\n]*|)'", r'"\1"', block[0])


def table_of(header):
    """The table of the door, which Doxygen leaves out of man pages: what to read for what."""
    rows = re.findall(r"^ \* \| (.*?) +\| (\w+\.h) +\|$", read(f"include/{header}"), re.M)
    return "".join(f".TP\n.BR {name_of(file)} (3)\nto {what}\n" for what, file in rows)


def tidy(page):
    """Without blank lines, paragraphs that are empty, and the blanks at the start of a line, which would indent it."""
    parts = re.split(r"(^\.nf\n.*?^\.fi\n)", page, flags=re.M | re.S)
    for i in range(0, len(parts), 2):
        parts[i] = re.sub(r"^ +", "", re.sub(r"\n(?: *\n)+", "\n.PP\n", parts[i]), flags=re.M)
    page = "".join(parts)
    page = re.sub(r"^(\.S[SH] .*\n)(\.(PP|br|sp) *\n)+", r"\1", page, flags=re.M)
    return re.sub(r"^(\.(PP|br|sp) *\n)+(?=\.(PP|S[SH]|sp|RE|IP))", "", page, flags=re.M)


def finished(page, header, others):
    """The page of a header as Doxygen has made it, with a name, a synopsis and the way to the other pages."""
    name = name_of(header)
    functions = sorted(set(re.findall(r'^\.RI "[^"]*\\fB(rad\w+)\\fP \(', page, re.M)))
    names = ", ".join([name, *functions])
    page = re.sub(r"\A\.TH .*", f'.TH {name.upper()} 3 "" "Lanyard RADIUS {version()}" "Library Functions"', page)
    page = re.sub(r"^\.SH NAME\n\S+ \\- (.*?)(\\&\. *)?$", rf".SH NAME\n{names} \\- \1", page, count=1, flags=re.M)
    page = re.sub(r"^\.SH SYNOPSIS\n\.br\n\.PP\n", f".SH SYNOPSIS\n.nf\n#include <{header}>\n.fi\n", page, flags=re.M)
    if ".SH SYNOPSIS" not in page:
        page = page.replace('.SH "Detailed Description"',
                            f'.SH SYNOPSIS\n.nf\n#include <{header}>\n.fi\n.SH "Detailed Description"', 1)
    page = re.sub(r"^\.nf\n.*?^\.fi$", with_quotes, page, flags=re.M | re.S)
    page = page.replace(r"\fC", r"\fR").replace('.SH "Detailed Description"', ".SH DESCRIPTION")
    page = tidy(page)
    page = re.sub(r"^(?:\.PP\n)?to +read +.*\n", lambda _: table_of(header), page, flags=re.M)
    page = page[:page.index('.SH "Author"')] + ".SH SEE ALSO\n"
    page += ",\n".join(f".BR {other} (3)" for other in others if other != name).replace(",\n", " ,\n") + "\n"
    return page, functions


def main():
    if len(sys.argv) != 2:
        print(__doc__, file=sys.stderr)
        return 2
    folder = os.path.abspath(sys.argv[1])
    os.chdir(os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
    os.makedirs(folder, exist_ok=True)
    for old in ("html", "man", "man3"):
        shutil.rmtree(os.path.join(folder, old), ignore_errors=True)
    run_doxygen(folder)

    headers = ["lanyard/radius.h"] + sorted("lanyard/radius/" + file for file in os.listdir(HEADERS + "/radius"))
    others = [name_of(header) for header in headers]
    os.mkdir(os.path.join(folder, "man3"))

    def write(name, text):
        with open(os.path.join(folder, "man3", name + ".3"), "w", encoding="utf-8") as file:
            file.write(text)

    for header in headers:
        page, functions = finished(read(f"{folder}/man/man3/{os.path.basename(header)}.3"), header, others)
        write(name_of(header), page)
        for function in functions:
            write(function, f".so man3/{name_of(header)}.3\n")
    shutil.rmtree(os.path.join(folder, "man"))
    return 0


if __name__ == "__main__":
    sys.exit(main())
