"""What the report makes of measured times."""

import contextlib
import io
import pathlib
import re
import tempfile
import unittest

import document
import report


def measured(rounds, workload="request", operation="decode"):
    result = {"data": "drawn", "messages": 256, "longest_encoding": 100, "longest_part": 10, "operations": {operation: rounds}}
    return {workload: result}


class Report(unittest.TestCase):
    def test_ratio_is_the_median_of_the_ratios_within_rounds(self):
        # The second round was slow for both: the medians of the times say 100 / 220.
        summary = report.summarise(measured({"vesk": [100, 200, 90], "protobuf heap": [200, 400, 220]}))
        self.assertEqual(summary["request"]["operations"]["decode"]["ratios"]["protobuf heap"], 0.5)

    def test_rounds_that_a_peer_sat_out_do_not_count(self):
        summary = report.summarise(measured({"vesk": [100, 1, 1], "nanopb malloc": [400, None, None]}))
        self.assertEqual(summary["request"]["operations"]["decode"]["ratios"]["nanopb malloc"], 0.25)

    def test_neither_floor_nor_literal_is_a_peer(self):
        rounds = {"vesk": [10, 10], "literal": [5, 5], "floor": [1, 1], "protobuf heap": [20, 20],
                  "protobuf arena": [15, 15]}
        operation = report.summarise(measured(rounds))["request"]["operations"]["decode"]
        self.assertEqual(operation["fastest_peer"], "protobuf arena")

    def test_a_missed_target_is_told(self):
        for ours, expected in ((75, "1 of 1 targets met"), (76, "request decode (arena) 0.76 > 0.75")):
            summary = report.summarise(measured({"vesk": [ours, ours], "protobuf heap": [100, 100]}))
            with contextlib.redirect_stdout(io.StringIO()) as output:
                report.print_score(summary)
            self.assertIn(expected, output.getvalue())

    def test_a_message_that_is_used_again_does_not_count_where_memory_is_freed(self):
        rounds = {"vesk": [50, 50], "protobuf reused": [40, 40], "protobuf heap": [100, 100]}
        operations = report.summarise(measured(rounds, operation="decode_and_free"))["request"]["operations"]
        rows = report.rows_of(operations)
        self.assertEqual([row[3:5] for row in rows], [["0.50", "0.60 met"], ["1.25", ""]])

    def test_every_workload_that_is_measured_has_a_title_and_every_title_a_workload(self):
        source = (pathlib.Path(__file__).parent / "workloads.cpp").read_text(encoding="utf-8")
        self.assertEqual(sorted(re.findall(r'plan\("(\w+)",', source)), sorted(report.TITLES))
        self.assertEqual(set(re.findall(r'return "(\w+)";', source)), set(report.DATA))
        self.assertLessEqual(set(report.TARGETS) | set(report.LITERAL_TARGETS), set(report.TITLES))


class Document(unittest.TestCase):
    def test_only_what_stands_between_the_marks_is_replaced(self):
        text = "before\n<!-- measured: growth -->\nold\n<!-- end -->\nafter\n"
        self.assertEqual(document._replace_part(text, "growth", "new\n"), text.replace("old", "new"))

    def test_a_mark_that_is_missing_is_an_error(self):
        with self.assertRaisesRegex(ValueError, "has 0 places for growth"):
            document._replace_part("text", "growth", "new")

    def test_the_checked_in_page_has_a_place_for_every_part(self):
        page = pathlib.Path(__file__).parent.parent / "docs/performance.md"
        names = list(report.OPERATIONS)
        times = {name: {"nanoseconds": {"vesk": 1.0}, "ratios": {"protobuf heap": 0.5}, "target": 1.0,
                        "fastest_peer": "protobuf heap"} for name in names}
        summary = {"request": {"data": "drawn", "longest_encoding": 1, "longest_part": 1, "operations": times}}
        counted = {"instructions": {"request": dict.fromkeys(names, 1.0)},
                   "literal_instructions": {"request": dict.fromkeys(names, 2.0)},
                   "growth_exponents": dict.fromkeys(names, 1.0)}
        with tempfile.TemporaryDirectory() as folder:
            copy = pathlib.Path(folder) / "performance.md"
            copy.write_text(page.read_text(encoding="utf-8"), encoding="utf-8")
            document.write_document(copy, {"cpu": "A", "compiler": "B"}, summary, counted)
            text = copy.read_text(encoding="utf-8")
        self.assertIn("**0.50** of 1.00", text)
        self.assertIn("Measured on A, B.", text)


if __name__ == "__main__":
    unittest.main()
