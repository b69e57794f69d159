#!/usr/bin/env python3
"""Runs bench_store on one core and on all, FULL and NORMAL, and prints one table: processor and wall time of ours, and their
ratios to rawbest.

    benchmarks/store/ways.py [--scale] [--runs COUNT] [--json FOLDER] [part of a row's name]...     after ./bench store
"""
import argparse
import json
import pathlib
import subprocess
import sys
import tempfile

BENCH = pathlib.Path(__file__).parents[2] / "build/release/benchmarks/bench_store"
WAYS = {
    "one core, FULL": ["--pinned"],
    "one core, NORMAL": ["--pinned", "--normal"],
    "all cores, FULL": [],
    "all cores, NORMAL": ["--normal"],
}


def measured(way, arguments, folder):
    """The rows of one way, by name."""
    file = pathlib.Path(folder) / (way.replace(", ", "-").replace(" ", "-") + ".json")
    file.write_text("")
    command = [BENCH, "--json", file, *WAYS[way], *arguments]
    finished = subprocess.run(command, stdout=subprocess.DEVNULL, check=False)
    if finished.returncode != 0:
        sys.exit(f"{way}: bench_store failed")
    rows = [json.loads(line) for line in file.read_text().splitlines()]
    return {row["row"].split(":")[0]: row for row in rows}


def number(value):
    return "-" if value is None else f"{value:.0f}" if value >= 100 else f"{value:.3g}"


def cells(row):
    """Ours, its ratio to the peer, and the same of wall time."""
    if row is None:
        return ["", "", "", ""]
    others = row["others"]
    return [number(row["ours"]), number(row["ratio"]), number(others.get("wall")), number(others.get("ratio"))]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--scale", action="store_true")
    parser.add_argument("--runs")
    parser.add_argument("--json", metavar="FOLDER")
    parser.add_argument("part", nargs="*")
    options = parser.parse_args()
    arguments = ["--scale"] * options.scale + (["--runs", options.runs] if options.runs else []) + options.part
    with tempfile.TemporaryDirectory() as temporary:
        folder = options.json or temporary
        pathlib.Path(folder).mkdir(parents=True, exist_ok=True)
        ways = {way: measured(way, arguments, folder) for way in WAYS}
    names = list(dict.fromkeys(name for rows in ways.values() for name in rows))
    print(f"{'':58}" + "".join(f"{way:^32}" for way in ways))
    print(f"{'row':44}{'unit':5}{'target':>9}" + f"{'proc':>8}{'ratio':>7}{'wall':>8}{'ratio':>7}  " * len(ways))
    for name in names:
        row = next(rows[name] for rows in ways.values() if name in rows)
        line = f"{name[:43]:44}{row['unit']:5}{number(row['target']):>9}"
        for rows in ways.values():
            each = cells(rows.get(name))
            line += f"{each[0]:>8}{each[1]:>7}{each[2]:>8}{each[3]:>7}  "
        print(line.rstrip())


if __name__ == "__main__":
    main()
