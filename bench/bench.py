"""Runs the benchmarks of build/release in turn and prints Markdown tables; scripts/bench.sh builds them first.

A contestant is a program with the line of bench/measure.h. Those of one table run one after the other in each
round, the first of them, the bare program, being what the others are compared with in that round.
"""
import argparse
import contextlib
import json
import os
import pathlib
import re
import shutil
import statistics
import subprocess
import sys
import tempfile

PROGRAMS = pathlib.Path("build/release/bin")
SECRET = "testing123"
LINE = re.compile(r"n=\d+ rate=(?P<rate>[\d.]+) p50=(?P<p50>[\d.]+) p99=(?P<p99>[\d.]+) cpu=(?P<cpu>[\d.]+)")
FIGURES = {"rate": 0, "p50": 1, "cpu": 1}  # and the digits that are shown
METHODS = ("pap", "chap", "mschap", "mschapv2")
IN_FLIGHT = (1, 16, 256)
DEVICE_PROGRAM = "nexa2.0/bin/orvane_getNTResponse"

# CPUs of the client and of the server.
PLACES = {"on one CPU": ("0", "0"), "apart": ("0", "1")}


def pinned(cpus, command):
    return ["taskset", "-c", cpus, *map(str, command)]


def run(command, **settings):
    return subprocess.run(list(map(str, command)), check=True, text=True, stdout=subprocess.PIPE, **settings).stdout


@contextlib.contextmanager
def responder(cpus, threads=1):
    """Its port; it ends with this program at the latest."""
    command = pinned(cpus, [PROGRAMS / "responder", "--secret", SECRET, "--threads", threads, "--seconds", 3600])
    with subprocess.Popen(command, text=True, stdout=subprocess.PIPE) as server:
        try:
            yield int(server.stdout.readline().removeprefix("port="))
        finally:
            server.terminate()


def contestant(name, *options, share=1.0):
    """`share`: how much of the usual count it does."""
    program = "floor" if name.startswith("floor") else "loop_bench" if name.startswith("loop") else "login_bench"
    return name, program, options, share


def client(port, count, program, options):
    return [PROGRAMS / program, "127.0.0.1", port, SECRET, count, *options]


def spread(values, digits):
    values = sorted(values)
    if values[0] < 0.1:
        digits += 2
    return f"{statistics.median(values):,.{digits}f} ({values[0]:,.{digits}f} to {values[-1]:,.{digits}f})"


def print_table(title, heads, rows):
    print(f"\n{title}\n\n| " + " | ".join(heads) + " |\n|---" + "|---:" * (len(heads) - 1) + "|")
    for row in rows:
        print("| " + " | ".join(row) + " |")
    sys.stdout.flush()


def compare(options, title, contestants, place, server_threads=1):
    results = {name: [] for name, *_ in contestants}
    client_cpus, server_cpus = place
    with responder(server_cpus, server_threads) as port:
        for number in range(options.rounds):
            # What a round does to who comes first or last is turned round in the next.
            for name, program, arguments, share in contestants if number % 2 == 0 else contestants[::-1]:
                count = max(1, int(options.count * share))
                line = run(pinned(client_cpus, client(port, count, program, arguments)))
                results[name].append({key: float(value) for key, value in LINE.match(line).groupdict().items()})
    floor = results[contestants[0][0]]
    rows = []
    for name, rounds in results.items():
        cells = [spread([each[figure] for each in rounds], digits) for figure, digits in FIGURES.items()]
        cells += ["" if rounds is floor else spread([mine[figure] / its[figure] for mine, its in zip(rounds, floor)], 2)
                  for figure in FIGURES]
        rows.append((name, *cells))
    print_table(title, (f"{options.rounds} rounds", "exchanges a second", "µs at the median", "processor µs each",
                        "of the floor: rate", "median", "processor"), rows)


def pairs(options):
    for place, cpus in PLACES.items():
        compare(options, f"One login after the other, client and server {place}:",
                [contestant("floor"), contestant("login")], cpus)


def threads(options):
    for count in (1, 2):
        compare(options, f"Threads of the client: {count}, of the server: 2, on two CPUs:",
                [contestant(name, "--threads", count) for name in ("floor", "login")], ("0,1", "0,1"), 2)


def loop(options):
    for place, cpus in PLACES.items():
        for number in IN_FLIGHT:
            compare(options, f"{number} in flight on one socket, client and server {place}:",
                    [contestant(name, "--in-flight", number) for name in ("floor", "loop")], cpus)


def methods(options):
    with tempfile.TemporaryDirectory() as root:
        program = pathlib.Path(root, DEVICE_PROGRAM)
        program.parent.mkdir(parents=True)
        pathlib.Path(root, "tmp").mkdir()
        shutil.copy(PROGRAMS / "ntresponse", program)
        os.environ["PAL_ROOT"] = root
        compare(options, "Methods, client and server on one CPU; the last two with the device's program:",
                [contestant("floor"),
                 *(contestant(method, "--method", method) for method in METHODS),
                 *(contestant(f"{method}, program", "--method", method, "--device-program", share=0.02)
                   for method in METHODS[2:])], PLACES["on one CPU"])
        del os.environ["PAL_ROOT"]


# "1,234 (5.67%)  file:function [object]"
COST = re.compile(r"^\s*([\d,]+) \(\s*[\d.]+%\)\s+\S*?:(.+?)(?: \[(.*)\])?$")


def short_name(function, library):
    """Without arguments of templates and functions; the partition's tree and what has no name are one each."""
    if "boost::" in function:
        return "Boost.Interprocess"
    if function.startswith("0x"):
        return f"without a name in {pathlib.Path(library or '').name}"
    function = re.sub(r"'\d+$|@@.*|\(anonymous namespace\)::", "", function)
    while (shorter := re.sub(r"<[^<>]*>|\([^()]*\)( const)?", "", function)) != function:
        function = shorter
    return f"`{function.removeprefix('void ').replace('lanyard::', '')}`"


def costs(port, count, program, arguments):
    """Instructions of each function in a run."""
    with tempfile.TemporaryDirectory() as folder:
        record = pathlib.Path(folder, "record")
        run(["valgrind", "--tool=callgrind", "-q", f"--callgrind-out-file={record}",
             *client(port, count, program, arguments)])
        text = run(["callgrind_annotate", "--threshold=100", "--auto=no", record])
    found = {}
    for line in text.splitlines():
        if match := COST.match(line):
            name = short_name(match[2], match[3])
            found[name] = found.get(name, 0) + int(match[1].replace(",", ""))
    return found


def instructions(_options):
    """A long run less a short one: what comes once does not count."""
    few, many = 100, 600
    contestants = [contestant("floor"), *(contestant(method, "--method", method) for method in METHODS),
                   contestant("loop, 16", "--in-flight", 16)]
    columns = {}
    with responder("0,1") as port:
        for name, program, arguments, _ in contestants:
            short, long = (costs(port, count, program, arguments) for count in (few, many))
            columns[name] = {function: (cost - short.get(function, 0)) / (many - few)
                             for function, cost in long.items()}
    rows = [("all", *(f"{sum(column.values()):,.0f}" for column in columns.values()))]
    functions = {function for column in columns.values() for function in column}
    most = {function: max(column.get(function, 0) for column in columns.values()) for function in functions}
    for function in sorted(most, key=most.get, reverse=True)[:30]:
        rows.append((function, *(f"{column.get(function, 0):,.0f}" for column in columns.values())))
    print_table("Instructions in user space for each exchange, and the functions that take most:",
                ("", *columns), rows)


def growth(_options):
    report = json.loads(run([PROGRAMS / "lanyard_bench", "--benchmark_format=json", "--benchmark_repetitions=3"],
                            stderr=subprocess.DEVNULL))
    print_table("Parts of a login, and what grows:", ("", "processor ns"),
                [(f"`{each['run_name']}`", f"{each['cpu_time']:,.1f}")
                 for each in report["benchmarks"] if each.get("aggregate_name") == "median"])


def relay(_options):
    print("\nThe relay's round, all on one CPU:\n")
    print(run(pinned("0", [PROGRAMS / "eap_bench", "rounds"])), end="", flush=True)


PARTS = {part.__name__: part for part in (pairs, threads, loop, methods, instructions, growth, relay)}


def main():
    parser = argparse.ArgumentParser(prog="scripts/bench.sh", description="What logins cost, beside a bare program.")
    parser.add_argument("parts", nargs="*", metavar="PART", choices=[*PARTS, "all"], default="all",
                        help=f"of {', '.join(PARTS)}; all without")
    parser.add_argument("--rounds", type=int, default=15, help="in which each contestant runs once")
    parser.add_argument("--count", type=int, default=10000, help="exchanges of a contestant in a round")
    options = parser.parse_args()
    for name, part in PARTS.items():
        if name in options.parts or "all" in options.parts:
            part(options)


if __name__ == "__main__":
    main()
