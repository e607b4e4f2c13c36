"""Does page.py see what is wrong with a page? Each case is a page that is right but for one thing."""

import contextlib
import io
import os
import pathlib
import sys
import tempfile
import unittest
import unittest.mock

import page

PROGRAM = "```c\nint main(void) { return 0; }\n```\n\n```output\n```\n"


def complaint_of(text, *arguments):
    """What page.py says of a page; empty if nothing is wrong."""
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder) / "some.md"
        path.write_text(text, encoding="utf-8")
        try:
            with contextlib.redirect_stdout(io.StringIO()):
                page.main([str(path), *arguments])
        except SystemExit as end:
            return str(end.code)
        finally:
            complaint_of.page = path.read_text(encoding="utf-8")
    return ""


class Commands(unittest.TestCase):
    def test_right_page_passes(self):
        self.assertEqual(complaint_of("```console\n$ echo one\none\n$ seq 9\n1\n...\n9\n```\n\n```sh\ntrue\n```\n"), "")

    def test_other_output_is_seen_with_its_place(self):
        said = complaint_of("A\n\n```console\n$ echo one\ntwo\n```\n")
        self.assertIn("some.md:3: $ echo one\none\nwhere the page has\ntwo", said)

    def test_output_that_goes_on_is_seen(self):
        self.assertIn("$ seq 3", complaint_of("```console\n$ seq 3\n1\n2\n```\n"))

    def test_output_is_put_into_the_page(self):
        self.assertEqual(complaint_of("```console\n$ echo one\ntwo\n```\n", "--write"), "")
        self.assertEqual(complaint_of.page, "```console\n$ echo one\none\n```\n")

    def test_failing_command_of_sh_is_seen(self):
        self.assertIn("the shell ended early", complaint_of("```sh\nfalse\ntrue\n```\n"))

    def test_block_that_is_left_out_is_not_run(self):
        self.assertEqual(complaint_of("```sh\nfalse long\n```\n", "--leave-out", "long"), "")


class Files(unittest.TestCase):
    def test_named_block_is_the_file(self):
        self.assertEqual(complaint_of("`a.py`:\n\n```python\nprint(7)\n```\n\n```console\n$ python3 a.py\n7\n```\n"), "")

    def test_commands_below_a_name_are_no_file(self):
        self.assertIn("the shell ended early", complaint_of("in `a.sh`:\n\n```sh\nfalse\n```\n"))

    def test_file_that_nobody_uses_is_seen(self):
        self.assertIn("no later command names the file a.py", complaint_of("`a.py`:\n\n```python\nprint(7)\n```\n"))

    def test_cmake_file_is_used_by_cmake_alone(self):
        text = "`CMakeLists.txt`:\n\n```cmake\nproject(some NONE)\n```\n\n```console\n$ {}\n```\n"
        self.assertIn("CMakeLists.txt", complaint_of(text.format("true")))
        self.assertEqual(complaint_of(text.format("cmake -B build >log")), "")


class Blocks(unittest.TestCase):
    def test_block_without_a_language_is_seen(self):
        self.assertIn('some.md:1: "" is no file', complaint_of("```\nanything\n```\n"))

    def test_unknown_language_is_seen(self):
        self.assertIn('"json" is no file', complaint_of("```json\n{}\n```\n"))

    def test_command_that_is_called_text_is_seen(self):
        self.assertIn("this is a command: cmake ", complaint_of("```text\ncmake --preset release\n```\n"))
        self.assertIn("this is a command: scripts/setup ", complaint_of("```text\nscripts/setup --long\n```\n"))
        self.assertEqual(complaint_of("```text\ninclude/some/   the headers\n```\n"), "")

    def test_output_without_a_program_is_seen(self):
        self.assertIn("no program right above it", complaint_of("```output\n7\n```\n"))
        self.assertIn("no program right above it", complaint_of(PROGRAM + "\n```output\n7\n```\n"))

    def test_piece_of_no_program_is_seen(self):
        with tempfile.TemporaryDirectory() as folder:
            (pathlib.Path(folder) / "a.c").write_text("int a;\nint b;\n", encoding="utf-8")
            self.assertIn("in no program of the examples", complaint_of("```c\nint c;\n```\n", "--pieces-of", folder))
            self.assertEqual(complaint_of("```c\nint b;\n```\n", "--pieces-of", folder), "")


@unittest.mock.patch.object(page, "PACKAGES", ["page_test"])
class Programs(unittest.TestCase):
    """Their package has no flags: what they need is the C library."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        pathlib.Path(folder.name, "page_test.pc").write_text("Name: a\nDescription: a\nVersion: 1\n", encoding="utf-8")
        path = unittest.mock.patch.dict(os.environ, PKG_CONFIG_PATH=folder.name)
        path.start()
        self.addCleanup(path.stop)

    def complaint_of(self, statements, output):
        return complaint_of(f"```c\n#include <stdio.h>\nint main(void) {{ {statements} }}\n```\n\n```output\n{output}\n```\n")

    def test_right_program_passes(self):
        self.assertEqual(self.complaint_of("return puts(\"7\") < 0;", "7"), "")

    def test_other_output_is_seen(self):
        self.assertIn("prints\n7\nwhere the page has\n8", self.complaint_of("return puts(\"7\") < 0;", "8"))

    def test_failure_is_seen(self):
        self.assertIn("ends with 3", self.complaint_of("puts(\"7\"); return 3;", "7"))

    def test_warning_is_seen(self):
        self.assertIn("is not compiled", self.complaint_of("int unused; return puts(\"7\") < 0;", "7"))


if __name__ == "__main__":
    sys.exit(unittest.main())
