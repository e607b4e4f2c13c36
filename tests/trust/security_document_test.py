"""docs/security.md names tests that exist and run, and the stack that docs/stack.md has.

    security_document_test.py SOURCE CTEST BUILD_DIR
"""

import pathlib
import re
import runpy
import sys
import unittest

SOURCE, CTEST, BUILD_DIR = sys.argv[1:]
TESTS = runpy.run_path(f"{SOURCE}/tests/edge_cases/check_edge_cases")["tests_run_by"](CTEST, BUILD_DIR)
DOCUMENT = pathlib.Path(SOURCE, "docs", "security.md").read_text(encoding="utf-8")
STACK = pathlib.Path(SOURCE, "docs", "stack.md").read_text(encoding="utf-8")
FEWEST_INVARIANTS = 12


def rows_of(document, heading):
    """The cells of each row of the table under a heading."""
    section = re.search(rf"^## {heading}\n(.*?)(?=^## |\Z)", document, re.MULTILINE | re.DOTALL)[1]
    rows = [line.strip("|").split("|") for line in section.splitlines() if line.startswith("|")]
    return [[cell.strip() for cell in row] for row in rows[2:]]


def tests_in(cell):
    return re.findall(r"`(\w+\.\w+)`", cell)


def faults_of(document):
    faults = []
    invariants = rows_of(document, "What holds for any input")
    beside = rows_of(document, "What holds of the toolkit and the text library")
    hazards = rows_of(document, "What the contract itself leaves to you")
    if len(invariants) < FEWEST_INVARIANTS:
        faults.append(f"only {len(invariants)} invariants")
    if [row[0] for row in invariants] != [str(number + 1) for number in range(len(invariants))]:
        faults.append("the invariants are not numbered from 1 on")
    faults += [f"no test holds: {row[-2]}" for row in invariants + beside if not tests_in(row[-1])]
    faults += [f"nothing said of what a caller does: {row[0]}" for row in hazards if not all(row[:3])]
    named = {test for row in invariants + beside + hazards for test in tests_in(row[-1])}
    faults += [f"there is no test {test}" for test in sorted(named - TESTS)]

    deepest = max(int(figure) for row in re.findall(r"^\| `vesk_.*$", STACK, re.MULTILINE)
                  for figure in re.findall(r" (\d+) ", row))
    if f"more than {deepest:,} bytes of stack" not in document:
        faults.append(f"the deepest stack of docs/stack.md is {deepest:,} bytes")
    return faults


class SecurityDocument(unittest.TestCase):
    def expect_only(self, fault, old, new):
        """The document with `old` replaced by `new` has this fault and no other."""
        self.assertIn(old, DOCUMENT, "the document has changed: choose another place to damage")
        self.assertEqual(faults_of(DOCUMENT.replace(old, new, 1)), [fault])

    def test_names_only_tests_that_run(self):
        self.assertEqual(faults_of(DOCUMENT), [])

    def test_test_that_does_not_exist_is_noticed(self):
        self.expect_only("there is no test guard_pages.input_is_read", "guard_pages.input_is_only_read",
                         "guard_pages.input_is_read")

    def test_test_of_a_hazard_that_does_not_exist_is_noticed(self):
        self.expect_only("there is no test free_bytes.by_reference", "`free_bytes.by_reference_are_left_alone`",
                         "`free_bytes.by_reference`")

    def test_invariant_without_a_test_is_noticed(self):
        row = next(line for line in DOCUMENT.splitlines() if line.startswith("| 10 |"))
        cells = row.split("|")
        self.expect_only(f"no test holds: {cells[2].strip()}", row, "|".join([*cells[:3], " a promise |"]))

    def test_hazard_without_advice_is_noticed(self):
        self.expect_only("nothing said of what a caller does: A message that is decoded into again",
                         "| Calls free first. |", "| |")

    def test_too_few_invariants_are_noticed(self):
        rows = [line for line in DOCUMENT.splitlines() if re.match(r"\| \d+ \|", line)]
        kept = "\n".join(rows[:FEWEST_INVARIANTS - 1])
        self.expect_only(f"only {FEWEST_INVARIANTS - 1} invariants", "\n".join(rows), kept)

    def test_other_stack_is_noticed(self):
        figure = re.search(r"more than ([0-9,]+) bytes of stack", DOCUMENT)[1]
        self.expect_only(f"the deepest stack of docs/stack.md is {figure} bytes", f"more than {figure} bytes of stack",
                         "more than 8 bytes of stack")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
