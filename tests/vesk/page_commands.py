"""Runs what a page shows: page_commands.py PAGE CHASSIS FOLDER...

The lines after "$ " in the page's blocks are run by one shell, in a folder of their own that has CHASSIS as chassis.json,
with the FOLDERs as the beginning of its PATH. What each prints, standard error included, must be what stands after it; a line
"..." stands for any lines."""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile


def commands_of(page):
    """Pairs of a command and a regular expression for what it prints."""
    found = []
    for block in re.findall(r"^```\n(\$ .*?)^```$", page, flags=re.S | re.M):
        for piece in re.split(r"^\$ ", block, flags=re.M)[1:]:
            command, _, printed = piece.partition("\n")
            found.append((command, re.sub(r"^\\\.\\\.\\\.\n", "(?:.*\n)*", re.escape(printed).replace("\\\n", "\n"), flags=re.M)))
    return found


def main(page, chassis, *folders):
    commands = commands_of(pathlib.Path(page).read_text(encoding="utf-8"))
    if not commands:
        sys.exit(f"{page} shows no command")
    end = "-- end of a command --"
    with tempfile.TemporaryDirectory() as folder:
        shutil.copy(chassis, folder + "/chassis.json")
        script = "".join(f"{command}\necho '{end}'\n" for command, _ in commands)
        done = subprocess.run(["bash"], input=script, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, cwd=folder,
                              env={**os.environ, "PATH": ":".join([*folders, os.environ["PATH"]]), "TMPDIR": folder},
                              timeout=300, check=False)
    printed = done.stdout.split(end + "\n")
    failures = 0
    for (command, expected), told in zip(commands, printed, strict=False):
        if not re.fullmatch(expected, told):
            failures += 1
            print(f"$ {command}\n{told}  does not match\n{expected}")
    print(f"{len(commands)} commands, {failures} failures")
    return failures != 0 or len(printed) != len(commands) + 1


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
