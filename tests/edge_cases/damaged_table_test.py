"""Damages the table of edge cases in one place after the other; the check must notice each.

    damaged_table_test.py CHECK TABLE CTEST BUILD_DIR TEST_PROGRAM...
"""

import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

CHECK, TABLE, *BUILD = sys.argv[1:]

CASE = "- A string that is present and null is not written.\n"
TEST = "  = encode_string.null_pointer_with_its_bit_writes_nothing\n"
SUBJECT = "## Encoder: 7\n"


def check(table, build=None):
    """The status and the lines of a check of `table`."""
    with tempfile.NamedTemporaryFile("w", suffix=".txt") as file:
        file.write(table)
        file.flush()
        done = subprocess.run([CHECK, file.name, *(build or BUILD)], stdout=subprocess.PIPE, text=True)
    return done.returncode, done.stdout.splitlines()


class DamagedTable(unittest.TestCase):
    def setUp(self):
        self.table = pathlib.Path(TABLE).read_text()

    def expect_only(self, fault, old, new, times=1):
        """The check says `fault`, and nothing else, of the table with `old` replaced by `new`."""
        self.assertEqual(self.table.count(old), times, "the table has changed: choose another place to damage")
        status, lines = check(self.table.replace(old, new))
        self.assertEqual((status, len(lines)), (1, 1), lines)
        self.assertRegex(lines[0], fault)

    def test_undamaged_table_passes(self):
        self.assertEqual(check(self.table)[0], 0)

    def test_case_without_a_test(self):
        self.expect_only("has no test: A string that is present and null", TEST, "")

    def test_test_that_does_not_exist(self):
        self.expect_only("there is no test encode_string.null_pointer$", TEST, "  = encode_string.null_pointer\n")

    def test_test_of_another_suite(self):
        name = "encode_bytes.null_pointer_with_its_bit_writes_nothing"
        self.expect_only(f"there is no test {name}", TEST, f"  = {name}\n")

    def test_suite_alone_is_no_test(self):
        self.expect_only("there is no test encode_string", TEST, "  = encode_string\n")

    def test_case_that_is_left_out(self):
        self.expect_only("Encoder has 6 cases, not 7", CASE + TEST, "")

    def test_case_too_many(self):
        self.expect_only("Encoder has 8 cases, not 7", CASE + TEST, CASE + TEST + "- Another one.\n" + TEST)

    def test_case_that_stands_there_twice(self):
        self.table = self.table.replace(SUBJECT, "## Encoder: 8\n")
        self.expect_only("stands on line [0-9]+ already", CASE + TEST, CASE + TEST + CASE + TEST)

    def test_line_that_says_nothing(self):
        self.expect_only("neither a subject, a case nor a test: encode_string", TEST, TEST + TEST.strip(" ="))

    def test_subject_without_its_number(self):
        status, lines = check(self.table.replace(SUBJECT, "## Encoder\n"))
        self.assertEqual(status, 1)
        self.assertRegex(lines[0], "neither a subject, a case nor a test: ## Encoder")

    def test_empty_table(self):
        self.assertEqual(check(""), (1, ["there are no cases"]))

    def test_tests_that_no_program_has(self):
        ctest, build_dir, *_ = BUILD
        status, lines = check(self.table, [ctest, build_dir])
        self.assertEqual((status, len(lines)), (1, len(re.findall("^  = ", self.table, re.MULTILINE))))

    def test_tests_that_ctest_does_not_run(self):
        ctest, _, *programs = BUILD
        with tempfile.TemporaryDirectory() as nothing_to_run:
            pathlib.Path(nothing_to_run, "CTestTestfile.cmake").touch()
            status, lines = check(self.table, [ctest, nothing_to_run, *programs])
        self.assertEqual(status, 1)
        self.assertRegex(lines[0], "ctest does not run read_varint32.ten_byte_negative_keeps_low_bits")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
