"""Holds the code blocks of a page to the programs that they are from: code_blocks.py PAGE FOLDER.

Each C block of PAGE stands word for word in a program of FOLDER; those are built and run as tests."""

import pathlib
import re
import sys


def main(page, folder):
    blocks = re.findall(r"^```c\n(.*?)^```$", pathlib.Path(page).read_text(encoding="utf-8"), flags=re.S | re.M)
    programs = [path.read_text(encoding="utf-8") for path in pathlib.Path(folder).glob("*.c*")]
    if not blocks or not programs:
        sys.exit(f"{page} has {len(blocks)} code blocks, and {folder} {len(programs)} programs")
    strays = [block for block in blocks if not any(block in program for program in programs)]
    for block in strays:
        print(f"{page}: in no program of {folder}:\n{block}")
    print(f"{len(blocks)} code blocks, {len(blocks) - len(strays)} of them in {len(programs)} programs")
    return bool(strays)


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
