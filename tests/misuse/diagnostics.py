#!/usr/bin/env python3
"""Compiles the lines of cases.cpp: usage: diagnostics.py COMPILER INCLUDE_DIRECTORY… -- cases.cpp BUILD_DIRECTORY

What stands above the first "//:" begins every case. Each line below "//: compiles" must compile; each line below "//: WORDS" must
not, with one error that says WORDS and at most three lines in all: not counted are the compiler's headings ("In function …") and
excerpts of the source.
"""
import re
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

MOST_LINES = 3  # clang also says where a function stands that was called
HEADING = re.compile(r"^(In file included from .*|\s+from .*|.*: (In|At) [^:]*(‘.*’|scope|instantiation).*:|\d+ errors? generated\.)$")


def options(compiler, directories):
    quiet = "-fno-caret-diagnostics" if "clang" in compiler else "-fno-diagnostics-show-caret"
    return [compiler, "-std=c++20", "-Wall", "-Wno-unused", "-Werror=unused-result", quiet, *(f"-I{each}" for each in directories)]


def diagnostics(compiler, directories, source, path):
    path.write_text(source)
    run = subprocess.run([*options(compiler, directories), "-fsyntax-only", "-include", str(path.parent / "head.h"), str(path)],
                         capture_output=True, text=True)
    lines = [line for line in run.stderr.splitlines() if line and not HEADING.match(line)]
    return run.returncode == 0, lines


def cases(text):
    head, *sections = re.split(r"^//: *", text, flags=re.M)
    found = []
    for section in sections:
        expected, _, body = section.partition("\n")
        found += [(expected.strip(), line) for line in body.splitlines() if line and not line.startswith("// ")]
    return head, found


def main(arguments):
    compiler, *directories = arguments[: arguments.index("--")]
    source, build = (Path(each) for each in arguments[arguments.index("--") + 1:])
    build.mkdir(parents=True, exist_ok=True)
    head, found = cases(source.read_text())
    (build / "head.h").write_text(head)  # compiled once
    subprocess.run([*options(compiler, directories), "-x", "c++-header", str(build / "head.h"), "-o", str(build / "head.h.gch")], check=True)
    failures = 0
    good = [line for expected, line in found if expected == "compiles"]
    together = "".join(f"void case{at}() {{ {line} }}\n" for at, line in enumerate(good))
    compiles, lines = diagnostics(compiler, directories, together, build / "good.cpp")
    if not compiles:
        failures += 1
        print("these do not compile:", *lines, sep="\n")
    refused = [each for each in found if each[0] != "compiles"]
    with ThreadPoolExecutor() as pool:
        answers = pool.map(lambda at: diagnostics(compiler, directories, f"void use() {{ {refused[at][1]} }}\n", build / f"{at}.cpp"),
                           range(len(refused)))
    for (expected, line), (compiles, lines) in zip(refused, answers):
        errors = [each for each in lines if "error:" in each]
        if compiles or len(errors) != 1 or expected not in "\n".join(lines) or len(lines) > MOST_LINES + ("clang" in compiler):
            failures += 1
            print(f"{line}\n  expected: {expected}; {len(errors)} errors, {len(lines)} lines:", *lines[:6], sep="\n    ")
    print(f"{len(found)} cases, {failures} failed")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
