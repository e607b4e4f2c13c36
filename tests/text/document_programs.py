"""document_programs.py extract DOCUMENT FOLDER    writes each C program of a document, and the output that follows it,
                                                  as program-1.c, program-1.txt and so on; prints how many there are
document_programs.py check PROGRAM OUTPUT         runs a program and compares"""
import pathlib
import re
import subprocess
import sys


def extract(document, folder):
    text = pathlib.Path(document).read_text(encoding="utf-8")
    programs = re.findall(r"^```c\n(.*?)^```\n", text, re.MULTILINE | re.DOTALL)
    with_output = re.findall(r"^```c\n(.*?)^```\n\n```\n(.*?)^```\n", text, re.MULTILINE | re.DOTALL)
    if len(programs) != len(with_output) or not programs:
        sys.exit(f"{document}: a C program has no output after it")
    folder = pathlib.Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    for number, (program, output) in enumerate(with_output, 1):
        (folder / f"program-{number}.c").write_text(program, encoding="utf-8")
        (folder / f"program-{number}.txt").write_text(output, encoding="utf-8")
    print(len(programs), end="")


def check(program, output):
    expected = pathlib.Path(output).read_text(encoding="utf-8")
    done = subprocess.run([program], capture_output=True, text=True, check=False)
    if done.returncode != 0 or done.stdout != expected:
        sys.exit(f"ends with {done.returncode} and prints\n{done.stdout}where the document has\n{expected}")


{"extract": extract, "check": check}[sys.argv[1]](*sys.argv[2:])
