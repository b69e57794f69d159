# run.py GDB PROGRAM LIBRARY GUIDE: what gdb shows of the program's variables, with the printers that it finds beside the library
# and the line that the guide gives for trusting that folder. Needs no debug information but the program's, apart from the rows
# about managed objects, which need the library's; without it these are left out, and that is said.
import pathlib
import re
import subprocess
import sys

gdb, program, library, guide = sys.argv[1:]
VALUES = [
    ("shortText", '"Emma"'),
    ("longText", r'"She said: \"no\", and left the room."'),
    ("noText", '""'),
    ("date", "2001-01-01 01:00:00.500000 +0000"),
    ("farDate", "1000000000000000.0 seconds since 2001-01-01"),
    ("absent", "absent"),
    ("yes", "true"),
    ("number", "-42"),
    ("real", "0.5"),
    ("words", '"a longer text of more bytes"'),
    ("when", "2001-01-01 01:00:00.500000 +0000"),
    ("uuid", "01020304-0506-0708-090A-0B0C0D0E0FFF"),
    ("url", "<https://example.org/a>"),
    ("price", "-1234567890123456789012345.678"),
    ("list", 'List = {1, "two", absent}'),
    ("bytes", "2 bytes <cafe>"),
    ("nested", 'Dictionary = {["year"] = 1815, ["titles"] = List = {"Emma"}}'),
    ("dictionary", '2 entries = {["title"] = "Emma", ["year"] = 1815}'),
    ("setOfOne", "Set = {7}"),
    ("nothing", "null"),
]
OBJECTS = [
    ("saved", r"<Book p\d+, updated; changed: year>"),
    ("fresh", r"<Book t\d+, inserted; changed: title>"),
    ("boxedObject", r"<Book p\d+, updated; changed: year>"),
    ("plain", r"<Plain at 0x[0-9a-f]+>"),
]

line = re.search(r"^add-auto-load-safe-path (\S+)$", pathlib.Path(guide).read_text(), re.M)
assert line, f"{guide} has no line add-auto-load-safe-path"
trust = line.group(0).replace(line.group(1), str(pathlib.Path(library).resolve().parent))
expressions = [name for name, _ in VALUES + OBJECTS]
commands = ["set startup-with-shell off", "set width 0", "set print pretty off", trust, "break stopHere", "run", "up",
            "echo BEGIN\\n"]
commands += [f"print {expression}" for expression in expressions]
commands += ["echo END\\n", "ptype Tessarin::ObjectExtras", "kill"]
arguments = [gdb, "-nx", "-q", "-batch"]
for command in commands:
    arguments += ["-ex", command]
ran = subprocess.run(arguments + [program], stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=240)
output = ran.stdout
if "BEGIN\n" not in output:
    sys.exit(f"gdb did not stop in the program:\n{output}\n{ran.stderr}")
shown = output.split("BEGIN\n")[1].split("END\n")[0]
answers = re.findall(r"^\$\d+ = (.*)$", shown, re.M)
known = "toMany" in output.split("END\n")[1]
failures = []
if len(answers) != len(expressions):
    failures.append(f"{len(answers)} answers for {len(expressions)} questions")
for (name, expected), answer in zip(VALUES, answers):
    if answer != expected:
        failures.append(f"{name}: {answer}\n    instead of {expected}")
for (name, expected), answer in zip(OBJECTS, answers[len(VALUES):]):
    if known and not re.fullmatch(expected, answer):
        failures.append(f"{name}: {answer}\n    instead of {expected}")
if not known:
    print("Managed objects were left out: this library was built without debug information.")
if failures:
    sys.exit("\n".join(failures) + "\n" + output + ran.stderr)
