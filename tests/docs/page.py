"""Runs what a page shows, and holds it to what stands there.

    page.py PAGE [--file FILE]... [--pieces-of FOLDER]... [--build BUILD [--source SOURCE]] [--leave-out WORDS]...
            [--write] [FOLDER...]

Every block of PAGE says in its first line what it is:

    console   commands, after "$ ", and below each what it prints, standard error included; a line "..." stands for any lines
    sh        commands that succeed
    c, cpp    a program that is built against an installed package, without a warning, and run; or, without a main, a piece
              of one, which stands word for word in a program of the folders --pieces-of, whose programs are tests
    output    what the program above it prints
    text      a drawing, a list of files: nothing that anybody could run

A block of code below a line that ends in "`NAME.EXTENSION`:" is the file of that name, which a later command has to name. One
shell runs all commands one after the other, in an empty folder that has the files and copies of the FILEs, and is their home;
the programs of the FOLDERs are found first. If the first command shows a file that is not there, what stands below is its
content. BUILD is a build folder, which is installed as ~/vesk; blocks that install by themselves are then left out, unless
SOURCE is given: it is their folder "inventory". Blocks of commands with WORDS in them are left out, too: for those that build
for minutes, whose presets and targets names.py looks up, as it does the packages of apt-get, and those that another test runs.
With --write, what commands and programs print is put into the page, but where there are dots."""

import argparse
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

BLOCK = re.compile(r"^```(\S*)\n(.*?)^```$", flags=re.S | re.M)
STEP = re.compile(r"^\$ ([^\n]*)\n(.*?)(?=^\$ |\Z)", flags=re.S | re.M)  # a command, and what is printed below it
NAMED = re.compile(r"`([\w-]+\.[\w.-]+)`:\n\n\Z")
NOT_A_FILE = ("console", "sh", "output", "text")
END = "-- end of a command --\n"
DOTS = re.compile(r"^\.\.\.\n", flags=re.M)
COMMAND = re.compile(r"^(?:\$ |(?:cmake|ctest|cc|c\+\+|gcc|g\+\+|git|make|ninja|python3|sudo|apt-get|pkg-config|export|vesk) |"
                     r"(?:\./|[\w-]+/)[\w/.-]*\w (?! ))", flags=re.M)
COMPILERS = {"c": ["cc", "-std=c99"], "cpp": ["c++", "-std=c++20"]}
WARNINGS = ["-Wall", "-Wextra", "-Wpedantic", "-Werror"]
PACKAGES = ["vesk_text", "vesk_toolkit", "vesk_inventory"]


class Failure(Exception):
    """What is wrong with the page."""


def is_as_expected(printed, expected):
    return re.fullmatch("(?:.*\n)*".join(map(re.escape, DOTS.split(expected))), printed) is not None


class Block:
    def __init__(self, match, page):
        self.language, self.text = match.groups()
        self.place = f"{page.name}:{page.text.count(chr(10), 0, match.start()) + 1}"
        named = NAMED.search(page.text, 0, match.start())
        self.name = named.group(1) if named and self.language not in NOT_A_FILE else None
        self.end = match.end()
        self.start = match.start()

    def steps(self):
        if self.language == "console":
            return [step.groups() for step in STEP.finditer(self.text)]
        return [(f"set -e\n{self.text}set +e", None)]

    def is_program(self):
        return self.name is None and self.language in COMPILERS and re.search(r"^int main\(", self.text, flags=re.M)


class Page:
    def __init__(self, path):
        self.path, self.name = path, path.name
        self.text = path.read_text(encoding="utf-8")
        self.blocks = [Block(match, self) for match in BLOCK.finditer(self.text)]
        self.wrong = []
        self.right = {}  # by the number of a block: what its text should be

    def expect(self, number, what, printed, expected):
        """Notes what was printed where the page has `expected`; returns what the page should have."""
        if is_as_expected(printed, expected):
            return expected
        self.wrong.append(f"{self.blocks[number].place}: {what}\n{printed}where the page has\n{expected}")
        return expected if DOTS.search(expected) else printed

    def judge(self, pieces_of):
        """What can be said of the blocks before anything runs."""
        programs = [path.read_text(encoding="utf-8") for folder in pieces_of for path in folder.glob("*.c*")]
        for number, block in enumerate(self.blocks):
            before = self.blocks[number - 1] if number else None
            later = "".join(other.text for other in self.blocks[number + 1:] if other.language in ("console", "sh"))
            if block.name:
                if {"CMakeLists.txt": "cmake "}.get(block.name, block.name) not in later:
                    raise Failure(f"{block.place}: no later command names the file {block.name}")
            elif block.language == "output":
                between = self.text[before.end:block.start] if before else ""
                if not before or not before.is_program() or between.strip():
                    raise Failure(f"{block.place}: output, but no program right above it")
            elif block.language == "text":
                command = COMMAND.search(block.text)
                if command:
                    raise Failure(f"{block.place}: text, but this is a command: {command.group()}")
            elif block.language in COMPILERS:
                if not block.is_program() and not any(block.text in program for program in programs):
                    raise Failure(f"{block.place}: no program, and in no program of the examples\n{block.text}")
            elif block.language not in ("console", "sh"):
                raise Failure(f"{block.place}: \"{block.language}\" is no file with a name, and nothing that can be run")

    def run_commands(self, numbers, folder, environment):
        steps = [(number, command, expected) for number in numbers for command, expected in self.blocks[number].steps()]
        script = "".join(f"{command}\nprintf '%s' '{END}'\n" for _, command, _ in steps)
        done = subprocess.run(["bash"], input=script, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, cwd=folder,
                              env=environment, timeout=3000, check=False)
        printed = done.stdout.split(END)
        if len(printed) != len(steps) + 1:
            raise Failure(f"{self.name}: the shell ended early:\n{done.stdout}")
        for (number, command, expected), output in zip(steps, printed):
            if expected is not None:
                self.right.setdefault(number, []).append(
                    f"$ {command}\n{self.expect(number, f'$ {command}', output, expected)}")
        return len(steps)

    def run_program(self, number, folder, environment):
        block = self.blocks[number]
        source = folder / f"program.{block.language}"
        source.write_text(block.text, encoding="utf-8")
        prefix = environment["HOME"] + "/vesk/lib"
        flags = subprocess.run(["pkg-config", "--cflags", "--libs", *PACKAGES], env=environment, capture_output=True, text=True,
                               check=True).stdout.split()
        done = subprocess.run([*COMPILERS[block.language], *WARNINGS, source, "-o", folder / "program", "-Wl,--as-needed",
                               *flags, f"-Wl,-rpath,{prefix}"], env=environment, stderr=subprocess.PIPE, text=True, check=False)
        if done.returncode != 0:
            raise Failure(f"{block.place}: is not compiled\n{done.stderr}")
        done = subprocess.run([folder / "program"], cwd=folder, env=environment, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, timeout=60, check=False)
        if done.returncode != 0:
            raise Failure(f"{block.place}: ends with {done.returncode}\n{done.stdout}")
        after = number + 1
        if after < len(self.blocks) and self.blocks[after].language == "output":
            self.right[after] = [self.expect(after, "prints", done.stdout, self.blocks[after].text)]

    def corrected(self):
        text = self.text
        for number in sorted(self.right, reverse=True):
            block = self.blocks[number]
            text = f"{text[:block.start]}```{block.language}\n{''.join(self.right[number])}```{text[block.end:]}"
        return text


def prepare(page, folder, asked):
    """The folder with its files; returns the environment of its commands."""
    for file in asked.file:
        source = pathlib.Path(file).resolve()
        if source.is_dir():
            (folder / source.name).symlink_to(source)
        else:
            shutil.copy(source, folder)
    for block in page.blocks:
        if block.name:
            (folder / block.name).write_text(block.text, encoding="utf-8")
    commands = [step for block in page.blocks if block.language == "console" for step in block.steps()]
    if commands and commands[0][0].startswith("cat "):
        shown = folder / commands[0][0].removeprefix("cat ")
        if not shown.exists():
            shown.write_text(commands[0][1], encoding="utf-8")
    path = ":".join([*(str(path.resolve()) for path in asked.folders), os.environ["PATH"]])
    environment = {**os.environ, "PATH": path, "TMPDIR": str(folder), "HOME": str(folder)}
    environment.pop("LD_LIBRARY_PATH", None)
    if asked.source:
        (folder / "inventory").symlink_to(asked.source.resolve())
    elif asked.build and page.blocks:
        done = subprocess.run(["cmake", "--install", asked.build, "--prefix", folder / "vesk"], stdout=subprocess.DEVNULL,
                              check=False)
        if done.returncode != 0:
            raise Failure(f"{asked.build} could not be installed")
        # Where the library lies depends on the system; the page has the shortest name.
        found = next((folder / "vesk").rglob("libvesk_inventory.so")).parent
        if found.name != "lib":
            for entry in found.iterdir():
                (folder / "vesk/lib" / entry.name).symlink_to(entry)
        environment["PKG_CONFIG_PATH"] = str(found / "pkgconfig")
    return environment


def main(arguments):
    parser = argparse.ArgumentParser()
    parser.add_argument("page", type=pathlib.Path)
    parser.add_argument("folders", nargs="*", type=pathlib.Path)
    parser.add_argument("--file", action="append", default=[])
    parser.add_argument("--pieces-of", action="append", default=[], type=pathlib.Path)
    parser.add_argument("--build", type=pathlib.Path)
    parser.add_argument("--source", type=pathlib.Path)
    parser.add_argument("--leave-out", action="append", default=[])
    parser.add_argument("--write", action="store_true")
    asked = parser.parse_intermixed_args(arguments)
    page = Page(asked.page)
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        try:
            page.judge(asked.pieces_of)
            environment = prepare(page, folder, asked)
            left_out = [*asked.leave_out, "apt-get install"] + ([] if asked.source else ["cmake --install"])
            commands = [number for number, block in enumerate(page.blocks) if block.language in ("console", "sh")
                        and not any(words in block.text for words in left_out)]
            programs = [number for number, block in enumerate(page.blocks) if block.is_program()]
            count = page.run_commands(commands, folder, environment)
            for number in programs:
                page.run_program(number, folder, environment)
        except Failure as failure:
            sys.exit(str(failure))
    if asked.write:
        asked.page.write_text(page.corrected(), encoding="utf-8")
    elif page.wrong:
        sys.exit("\n".join(page.wrong))
    print(f"{page.name}: {len(page.blocks)} blocks; {count} commands and {len(programs)} programs do what stands there")


if __name__ == "__main__":
    main(sys.argv[1:])
