"""readme.py README PROGRAM: the program must print the text block of README."""
import pathlib
import re
import subprocess
import sys

readme, program = sys.argv[1:]
expected = re.search(r"```text\n(.*?)```", pathlib.Path(readme).read_text(), re.S)[1]
printed = subprocess.run([program], stdout=subprocess.PIPE, text=True, check=True, timeout=120).stdout
if printed != expected:
    sys.exit(f"README says\n{expected}but it prints\n{printed}")
