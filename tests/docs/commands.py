"""Holds the commands of a page to what they print: commands.py PAGE FOLDER [--write].

The blocks of PAGE marked "console" have commands, after "$ ", and below each what it prints. They run one after the other in
an empty folder, with the programs of FOLDER found first. Of the file that the first command shows, that is the content. With
--write, what they print is put into the page."""

import os
import pathlib
import re
import subprocess
import sys
import tempfile

BLOCK = re.compile(r"^```console\n(.*?)^```$", flags=re.S | re.M)


def steps_of(block):
    """(command, what is printed below it)"""
    return [(part.split("\n", 1)[0], part.split("\n", 1)[1]) for part in re.split(r"^\$ ", block, flags=re.M)[1:]]


def run(command, folder, programs):
    done = subprocess.run(["bash", "-c", command], cwd=folder, env={**os.environ, "PATH": f"{programs}:{os.environ['PATH']}"},
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    return done.stdout


def main(page, programs, write):
    path = pathlib.Path(page)
    text = path.read_text(encoding="utf-8")
    wrong = []
    count = 0
    with tempfile.TemporaryDirectory() as folder:

        def block_of(match):
            nonlocal count
            printed = ""
            for command, expected in steps_of(match.group(1)):
                if count == 0:
                    (pathlib.Path(folder) / command.removeprefix("cat ")).write_text(expected, encoding="utf-8")
                output = run(command, folder, pathlib.Path(programs).resolve())
                if output != expected:
                    wrong.append(f"$ {command}\n{output}where {page} has\n{expected}")
                printed += f"$ {command}\n{output}"
                count += 1
            return f"```console\n{printed}```"

        right = BLOCK.sub(block_of, text)
    if count == 0:
        sys.exit(f"{page} has no commands")
    if write:
        path.write_text(right, encoding="utf-8")
    elif wrong:
        sys.exit("\n".join(wrong))
    print(f"{count} commands of {page} print what stands there")


if __name__ == "__main__":
    main(sys.argv[1], sys.argv[2], sys.argv[3:] == ["--write"])
