"""Holds the commands of a page to what they print.

    commands.py PAGE [--file FILE]... [--write] FOLDER...

The blocks of PAGE marked "console" have commands, after "$ ", and below each what it prints, standard error included; a line
"..." stands for any lines. One shell runs them one after the other in an empty folder that has copies of the FILEs, with the
programs of the FOLDERs found first. If the first command shows a file that is not there, what stands below is its content.
With --write, what they print is put into the page, but where there are such dots."""

import argparse
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

BLOCK = re.compile(r"^```console\n(.*?)^```$", flags=re.S | re.M)
STEP = re.compile(r"^\$ ([^\n]*)\n(.*?)(?=^\$ |\Z)", flags=re.S | re.M)  # a command, and what is printed below it
END = "-- end of a command --\n"
DOTS = re.compile(r"^\.\.\.\n", flags=re.M)


def run(commands, folder, programs):
    script = "".join(f"{command}\nprintf '%s' '{END}'\n" for command in commands)
    done = subprocess.run(["bash"], input=script, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, cwd=folder,
                          env={**os.environ, "PATH": ":".join([*programs, os.environ["PATH"]]), "TMPDIR": folder},
                          timeout=300, check=False)
    printed = done.stdout.split(END)
    if len(printed) != len(commands) + 1:
        sys.exit(f"the shell ended early:\n{done.stdout}")
    return printed


def is_as_expected(printed, expected):
    return re.fullmatch("(?:.*\n)*".join(map(re.escape, DOTS.split(expected))), printed) is not None


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("page", type=pathlib.Path)
    parser.add_argument("folders", nargs="+", type=pathlib.Path)
    parser.add_argument("--file", action="append", default=[])
    parser.add_argument("--write", action="store_true")
    asked = parser.parse_args()
    text = asked.page.read_text(encoding="utf-8")
    steps = [step for block in BLOCK.findall(text) for step in STEP.findall(block)]
    if not steps:
        sys.exit(f"{asked.page} has no commands")
    with tempfile.TemporaryDirectory() as folder:
        for file in asked.file:
            shutil.copy(file, folder)
        shown = pathlib.Path(folder) / steps[0][0].removeprefix("cat ")
        if steps[0][0].startswith("cat ") and not shown.exists():
            shown.write_text(steps[0][1], encoding="utf-8")
        printed = run([command for command, _ in steps], folder, [str(path.resolve()) for path in asked.folders])
    told = iter(printed)
    wrong = []

    def right_step(step):
        command, expected = step.groups()
        output = next(told)
        if is_as_expected(output, expected):
            return step.group()
        wrong.append(f"$ {command}\n{output}where {asked.page} has\n{expected}")
        return step.group() if DOTS.search(expected) else f"$ {command}\n{output}"

    right = BLOCK.sub(lambda block: f"```console\n{STEP.sub(right_step, block.group(1))}```", text)
    if asked.write:
        asked.page.write_text(right, encoding="utf-8")
    elif wrong:
        sys.exit("\n".join(wrong))
    print(f"{len(steps)} commands of {asked.page} print what stands there")


if __name__ == "__main__":
    main()
