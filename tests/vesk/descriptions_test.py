"""What is made from --help: the completion under a real bash, and the manual page.

    descriptions_test.py PROGRAM COMPLETION MANUAL
"""

import os
import pathlib
import pty
import re
import select
import subprocess
import sys
import time
import unittest

from folder_case import FolderCase

PROGRAM, COMPLETION, MANUAL = (str(pathlib.Path(path).resolve()) for path in sys.argv[1:4])


def help_of(*verb):
    return subprocess.run([PROGRAM, *verb, "--help"], capture_output=True, text=True, check=True).stdout


def verbs():
    return re.findall(r"^  (\w+) ", help_of().split("Verbs:")[1].split("Example:")[0], flags=re.M)


def options(verb):
    """The long options of a verb, and what it says of each."""
    return re.findall(r"^  (?:-\w,)?(--[\w-]+)", help_of(verb), flags=re.M)


class Completion(FolderCase):
    def setUp(self):
        super().setUp()
        for name in ("answer.bin", "two words.bin"):
            (self.folder / name).touch()
        (self.folder / "answers").mkdir()

    def complete(self, *words):
        """What bash is offered for the last of the words after vesk."""
        script = 'source "$1"; shift; COMP_WORDS=(vesk "$@"); COMP_CWORD=$#; _vesk; for one in "${COMPREPLY[@]}"; do echo "$one"; done'
        done = subprocess.run(["bash", "-c", script, "bash", COMPLETION, *words], cwd=self.folder, capture_output=True,
                              text=True, check=False)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return sorted(done.stdout.splitlines())

    def test_verbs(self):
        self.assertEqual(self.complete("de"), ["decode"])
        self.assertEqual(self.complete(""), sorted(verbs() + ["--help", "--schema", "--version"]))

    def test_library_and_verb_after_schema(self):
        self.assertEqual(self.complete("--schema", "a"), ["answer.bin", "answers"])
        self.assertEqual(self.complete("--schema", "answer.bin", "de"), ["decode"])
        self.assertEqual(self.complete("--schema", "answer.bin", "decode", "pem_"), [])
        self.assertEqual(self.complete("--schema", "answer.bin", "decode", "T", "a"), ["answer.bin", "answers"])
        self.assertEqual(self.complete("--schema", "answer.bin", "decode", "--te"), ["--text"])

    def test_types_where_one_is_wanted(self):
        self.assertEqual(self.complete("map", "pem_"), ["pem_data"])
        self.assertEqual(len(self.complete("show", "")), 95)
        self.assertEqual(self.complete("map", "--json", "pem_"), ["pem_data"])

    def test_files_after_the_type_one_after_the_other(self):
        self.assertEqual(self.complete("check", "pem_data", "a"), ["answer.bin", "answers"])
        self.assertEqual(self.complete("check", "pem_data", "answer.bin", "t"), ["two words.bin"])

    def test_files_at_once_where_frames_stand_for_the_type(self):
        self.assertEqual(self.complete("check", "--frames", "a"), ["answer.bin", "answers"])

    def test_nothing_for_a_path_inside_a_message_and_files_after_it(self):
        self.assertEqual(self.complete("peek", "pem_data", "a"), [])
        self.assertEqual(self.complete("peek", "pem_data", "f3", "a"), ["answer.bin", "answers"])

    def test_file_after_an_option_that_takes_one(self):
        self.assertEqual(self.complete("map", "--html", "a"), ["answer.bin", "answers"])
        self.assertEqual(self.complete("map", "--html", "a.html", "pem_"), ["pem_data"])
        self.assertEqual(self.complete("watch", "--socket", "a"), ["answer.bin", "answers"])
        self.assertEqual(self.complete("record", "--limit", "a"), [])

    def test_options_of_each_verb(self):
        for verb in verbs():
            self.assertEqual(self.complete(verb, "--"), sorted(options(verb)), verb)
            self.assertIn("--help", options(verb))

    def test_unknown_verb_gets_nothing(self):
        self.assertEqual(self.complete("nonsense", ""), [])

    def test_a_bash_that_somebody_types_into_completes(self):
        for typed, completed in ((b"vesk che\t", b"check "), (b"vesk check pem_d\t", b"pem_data "),
                                 (b"vesk check pem_data tw\t", b"two\\ words.bin "), (b"vesk check pem_data answers\t", b"answers/")):
            process, terminal = pty.fork()
            if process == 0:
                os.chdir(self.folder)
                os.execvpe("bash", ["bash", "--norc", "--noprofile", "-i"], {**os.environ, "PS1": "", "TERM": "dumb", "INPUTRC": "/dev/null"})
            os.write(terminal, f"source {COMPLETION}; bind 'set bell-style none'; echo rea''dy\n".encode())
            self.read_until(terminal, b"ready\r\n")
            os.write(terminal, typed)
            self.read_until(terminal, completed)
            os.write(terminal, b"\x15exit\n")
            os.waitpid(process, 0)
            os.close(terminal)

    def read_until(self, terminal, wanted, seconds=20):
        seen = b""
        end = time.monotonic() + seconds
        while wanted not in seen:
            self.assertTrue(select.select([terminal], [], [], max(0, end - time.monotonic()))[0], seen)
            seen += os.read(terminal, 4096)


class Manual(unittest.TestCase):
    def test_page_is_formatted_without_a_warning(self):
        done = subprocess.run(["groff", "-ww", "-man", "-Tutf8", "-z", MANUAL], capture_output=True, text=True, check=False)
        self.assertEqual((done.returncode, done.stderr), (0, ""))

    def test_every_verb_option_description_and_example_of_help_stands_in_it(self):
        page = subprocess.run(["groff", "-man", "-Tascii", "-P-cbou", "-rLL=1000n", MANUAL], capture_output=True,
                              text=True, check=True).stdout
        words = " ".join(page.split())
        self.assertTrue(verbs())
        for verb in verbs():
            section = re.search(rf"^   vesk {verb}\b.*?(?=^   vesk |\Z)", page, flags=re.M | re.S).group()
            section = " ".join(section.split())
            printed = help_of(verb)
            for option in options(verb):
                self.assertRegex(section, rf"{option}\b", verb)
            for description in re.findall(r"^  \S.*?  +(.*)$", printed.split("Example:")[0], flags=re.M):
                self.assertIn(" ".join(description.split()), section, verb)
            example = printed.split("Example:\n")[1].split("\n\n")[0].strip()
            self.assertIn(" ".join(example.split()), section)
        self.assertIn("Ends with 0, or 1 where an input fails", words)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0]], verbosity=2)
