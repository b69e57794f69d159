"""guide.py GUIDE KIND PREAMBLE OUTPUT: writes the guide's examples as a source file to be compiled, each the body of a function.

Examples are the blocks fenced as ```KIND, where KIND is "cpp" or "cpp" with a toolkit ("cpp qt"). Their includes come first; what
else they use the preamble declares. A block that begins with a class stands outside of functions, for the examples after it.
"""
import pathlib
import re
import sys

guide, kind, preamble, output = sys.argv[1:]
lines = pathlib.Path(guide).read_text().split("\n")
functions, includes, start = [], [], None
for number, line in enumerate(lines):
    if start is None and line.strip() == "```" + kind:
        start = number + 1
    elif start is not None and line.strip() == "```":
        body = lines[start:number]
        includes += [line for line in body if re.match(r"#\s*include", line)]
        body = ["" if re.match(r"#\s*include", line) else line for line in body]
        begin, end = ("", "") if re.match(r"(class|struct) ", body[0]) else (f"static void example{start}() {{\n", "\n}")
        functions.append(f'{begin}#line {start + 1} "{guide}"\n' + "\n".join(body) + end)
        start = None
if not functions:
    sys.exit(f"{guide} has no example fenced as ```{kind}")
calls = "".join(f"    {name}();\n" for name in re.findall(r"^static void (example[0-9]+)\(\) \{$", "\n".join(functions), re.M))
text = "\n".join([*includes, f'#include "{preamble}"', *functions]) + f"\nvoid allExamples();\nvoid allExamples() {{\n{calls}}}\n"
pathlib.Path(output).write_text(text)
