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
    result = {"data": "drawn", "messages": 256, "longest_encoding": 100, "longest_part": 10,
              "operations": {operation: rounds}}
    return {workload: result}


class Report(unittest.TestCase):
    def test_ratio_is_the_median_of_the_ratios_within_rounds(self):
        # The second round was slow for both: the medians of the times say 100 / 220.
        summary = report.summarise(measured({"vesk": [100, 200, 90], "protobuf heap": [200, 400, 220]}))
        self.assertEqual(summary["request"]["operations"]["decode"]["ratios"]["protobuf heap"], 0.5)

    def test_rounds_that_a_peer_sat_out_do_not_count(self):
        summary = report.summarise(measured({"vesk": [100, 1, 1], "nanopb malloc": [400, None, None]}))
        self.assertEqual(summary["request"]["operations"]["decode"]["ratios"]["nanopb malloc"], 0.25)

    def test_rounds_of_another_process_count_as_well(self):
        rows = measured({"vesk": [100, 100], "protobuf heap": [200, 200]})
        report.add_rounds(rows, measured({"vesk": [100, 100, 100], "protobuf heap": [400, 400, None]}))
        operation = report.summarise(rows)["request"]["operations"]["decode"]
        self.assertEqual((operation["rounds"], operation["ratios"]["protobuf heap"]), (5, 0.375))

    def test_neither_floor_nor_literal_nor_the_library_with_another_identifier_is_a_peer(self):
        rounds = {"vesk": [10, 10], "literal": [5, 5], "floor": [1, 1], "free identifier": [6, 6],
                  "protobuf heap": [20, 20], "protobuf arena": [15, 15]}
        operation = report.summarise(measured(rounds))["request"]["operations"]["decode"]
        self.assertEqual(operation["fastest_peer"], "protobuf arena")

    def test_a_library_named_on_the_command_line_is_no_peer_and_has_its_own_ratios(self):
        rounds = {"vesk": [50], "before": [40], "protobuf heap": [100]}
        summary = report.summarise(measured(rounds))
        self.assertEqual(report.rows_of(summary["request"]["operations"], ["before"])[1][2:4] +
                         report.rows_of(summary["request"]["operations"], ["before"])[1][-1:],
                         ["100 ns  protobuf heap", "0.50", "1.25"])
        self.assertRegex(self.printed_summary(measured(rounds)), r"drawn anew: to before +1 +1\.25\n")

    def printed_summary(self, measured_rows, cpu=""):
        with contextlib.redirect_stdout(io.StringIO()) as output:
            report.print_summary(report.summarise(measured_rows), report.targets_for(cpu))
        return output.getvalue()

    def test_a_kind_of_data_is_held_to_its_target_by_the_geometric_mean_of_its_rows(self):
        rows = {}
        for workload, ours in (("sensor", 40), ("request", 90), ("request_daily", 100)):
            rows |= measured({"vesk": [ours], "protobuf heap": [100]}, workload)
        rows["request_daily"]["data"] = "daily"
        means = report.geometric_means(report.summarise(rows))
        self.assertEqual([means[data]["rows"] for data in ("drawn", "daily")], [2, 1])
        self.assertAlmostEqual(means["drawn"]["decode"], 0.6)
        self.assertAlmostEqual(means["daily"]["decode"], 1.0)

    def test_a_mean_above_its_target_is_told(self):
        for ours, expected in ((50, "0.50 <= 0.50"), (51, "0.51 >  0.50")):
            self.assertIn(expected, self.printed_summary(measured({"vesk": [ours], "protobuf heap": [100]})))

    def test_a_variant_is_held_to_nine_tenths_of_the_target(self):
        for ours, expected in ((45, "0.45 <= 0.45"), (46, "0.46 >  0.45")):
            self.assertIn(expected, self.printed_summary(measured({"vesk": [ours], "protobuf heap": [100]}), "x86-64-v3"))
        self.assertEqual(report.target_text(report.targets_for("x86-64-v3")["daily"]["measure"]), "0.855")

    def test_a_row_above_a_limit_is_told_with_the_highest_that_it_is_above(self):
        for ours, expected in ((100, "limits: none"), (101, "request decode (arena) 1.01 > 1.0"),
                               (111, "request decode (arena) 1.11 > 1.1")):
            self.assertIn(expected, self.printed_summary(measured({"vesk": [ours], "protobuf heap": [100]})))

    def test_a_row_above_a_limit_shows_what_the_identifier_has_to_do_with_it(self):
        rounds = {"vesk": [120], "protobuf heap": [100], "free identifier": [90]}
        self.assertIn("request decode (arena) 1.20 > 1.1, with a free identifier 0.90\n",
                      self.printed_summary(measured(rounds)))

    def test_a_row_whose_peers_do_other_work_has_neither_limit_nor_target(self):
        row = measured({"vesk": [200], "protobuf heap": [100]}, "idprom_4k_by_reference")
        row["idprom_4k_by_reference"]["data"] = "by_reference"
        summary = report.summarise(row)
        self.assertEqual(report.rows_above_limits(summary), [])
        self.assertEqual(report.geometric_means(summary), {})

    def test_a_message_that_is_used_again_does_not_count_where_memory_is_freed(self):
        rounds = {"vesk": [50, 50], "protobuf reused": [40, 40], "protobuf heap": [100, 100]}
        operations = report.summarise(measured(rounds, operation="decode_and_free"))["request"]["operations"]
        rows = report.rows_of(operations)
        self.assertEqual([row[2:4] for row in rows[1:]], [["100 ns  protobuf heap", "0.50"], ["40 ns  protobuf reused", "1.25"]])

    def test_every_workload_that_is_measured_has_a_title_and_every_title_a_workload(self):
        source = (pathlib.Path(__file__).parent / "workloads.cpp").read_text(encoding="utf-8")
        self.assertEqual(sorted(re.findall(r'plan\("(\w+)",', source)), sorted(report.TITLES))
        self.assertEqual(set(re.findall(r'return "(\w+)";', source)), set(report.DATA))
        self.assertLess(set(report.TARGETS), set(report.DATA))


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
        times = {name: {"nanoseconds": {"vesk": 1.0}, "ratios": {"protobuf heap": 1.05}, "above_limit": 1.0,
                        "free_identifier_ratio": 0.9, "fastest_peer": "protobuf heap"} for name in names}
        summary = {"request": {"data": "drawn", "longest_encoding": 1, "longest_part": 1, "operations": times}}
        counts = {"instructions": 30.0, "mispredictions": 1.5}
        literal = {"instructions": 40.0, "mispredictions": 2.5}
        counted = {"counts": {"request": dict.fromkeys(names, counts)},
                   "literal_counts": {"request": dict.fromkeys(names, literal)},
                   "growth_exponents": dict.fromkeys(names, 1.0)}
        with tempfile.TemporaryDirectory() as folder:
            copy = pathlib.Path(folder) / "performance.md"
            copy.write_text(page.read_text(encoding="utf-8"), encoding="utf-8")
            document.write_document(copy, {"cpu": "A", "compiler": "B"}, summary, counted)
            document.write_variant(copy, {"cpu": "A", "compiler": "B"}, "x86-64-v3", summary)
            text = copy.read_text(encoding="utf-8")
        self.assertIn("`x86-64-v3`, measured on A, B.", text)
        self.assertIn("1.05 of 0.45", text)
        self.assertIn("1.05 of 0.50", text)
        self.assertIn("| decode (arena) | 1.05 | 1.0 | 0.90 |", text)
        self.assertIn("| 30 (0.75) |", text)
        self.assertIn("| 1.5 (2.5) |", text)
        self.assertIn("Measured on A, B.", text)


if __name__ == "__main__":
    unittest.main()
