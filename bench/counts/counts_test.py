"""Sees the gate of counts fail, and pass, without counting."""

import contextlib
import io
import json
import pathlib
import tempfile
import unittest
from unittest import mock

import counts

COMPILER = "GNU 12.2.0"


def counted(instructions, branches=0, mispredictions=0):
    return {"instructions": instructions, "branches": branches, "mispredictions": mispredictions}


class Gate(unittest.TestCase):
    def check(self, before, after, compiler=COMPILER):
        """What the gate prints when the counts were `before` at the time of the baseline and are `after` now."""
        with tempfile.TemporaryDirectory() as folder, contextlib.redirect_stdout(io.StringIO()) as output:
            baseline = pathlib.Path(folder) / "baseline.json"
            with mock.patch.object(counts, "count", return_value=before):
                counts.write_baseline("program", baseline, COMPILER)
            with mock.patch.object(counts, "count", return_value=after):
                counts.check_baseline("program", baseline, compiler)
        return output.getvalue()

    def check_one(self, before, after):
        return self.check({"request": {"decode": before}}, {"request": {"decode": after}})

    def test_unchanged_counts_pass(self):
        self.assertEqual(self.check_one(counted(1000, 200, 5), counted(1000, 200, 5)), "")

    def test_rise_of_instructions_by_2_percent_passes(self):
        self.assertEqual(self.check_one(counted(1000), counted(1020)), "")

    def test_rise_of_instructions_above_2_percent_fails(self):
        with self.assertRaisesRegex(counts.Failure, r"^rose: request decode: 1,000 -> 1,021 instructions per call"):
            self.check_one(counted(1000), counted(1021))

    def test_fall_of_instructions_below_2_percent_asks_for_a_new_baseline(self):
        self.assertRegex(self.check_one(counted(1000), counted(900)),
                         "^fell, remake it with bench/run --remake-baseline: request decode: 1,000 -> 900 instructions")

    def test_mispredictions_may_rise_by_a_tenth_and_2_of_100_branches_and_2(self):
        self.assertEqual(self.check_one(counted(9000, 1000, 50), counted(9000, 1000, 77)), "")
        with self.assertRaisesRegex(counts.Failure, "^rose: request decode: 50.0 -> 77.1 mispredictions per call"):
            self.check_one(counted(9000, 1000, 50), counted(9000, 1000, 77.1))

    def test_half_the_instructions_with_three_times_the_mispredictions_fail(self):
        with self.assertRaisesRegex(counts.Failure, "^rose: request decode: 16.3 -> 43.8 mispredictions per call"):
            self.check_one(counted(1614, 91, 16.3), counted(905, 91, 43.8))

    def test_branches_alone_may_rise(self):
        self.assertEqual(self.check_one(counted(1000, 100, 5), counted(1000, 200, 5)), "")

    def test_fall_of_mispredictions_asks_for_a_new_baseline(self):
        self.assertRegex(self.check_one(counted(9000, 1000, 90), counted(9000, 1000, 20)),
                         "^fell, .*: request decode: 90.0 -> 20.0 mispredictions")

    def test_other_compiler_fails(self):
        with self.assertRaisesRegex(counts.Failure, "what GNU 12.2.0 makes and this is GNU 13.1.0"):
            self.check({"request": {"decode": counted(1000)}}, {"request": {"decode": counted(1000)}}, "GNU 13.1.0")

    def test_other_cases_fail(self):
        with self.assertRaisesRegex(counts.Failure, "has other cases"):
            self.check({"request": {"decode": counted(1000)}},
                       {"request": {"decode": counted(1000), "encode": counted(1000)}})

    def test_growth_beyond_linear_fails(self):
        grown = {f"growth_{records}": {"encode": counted(records ** 1.03)} for records in (1000, 10000)}
        with mock.patch.object(counts, "count", return_value=grown):
            with self.assertRaisesRegex(counts.Failure, "encode: instructions grow .* 1.030"):
                counts.check_growth("program")

    def test_growth_without_a_series_fails(self):
        with mock.patch.object(counts, "count", return_value={"growth_1": {"encode": counted(5)}}):
            with self.assertRaisesRegex(counts.Failure, "no growth series"):
                counts.check_growth("program")

    def test_bytes_by_reference_that_cost_by_size_fail(self):
        by_size = {"eeprom_16k_by_reference": {"encode": counted(300)}, "eeprom_64k_by_reference": {"encode": counted(301)}}
        with mock.patch.object(counts, "count", return_value=by_size):
            with self.assertRaisesRegex(counts.Failure, "encode by reference: 300 .* 301"):
                counts.check_reference("program")


class Dump(unittest.TestCase):
    def test_what_is_counted_inside_the_library_counts_and_what_is_in_its_callees_does_not(self):
        dump = """\
desc: Trigger: Client Request: request decode 256

positions: instr
events: Ir Bc Bcm Bi Bim

ob=/build/libvesk_inventory.so.1.0.0
fn=decode
0 100 10 3 1 1
+3 20 5
cob=/lib/libc.so.6
cfn=memcpy
calls=7 0
0 5000 60 20
* 3

ob=/lib/libc.so.6
fn=memcpy
0 5000 60 20
"""
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder) / "dump.1"
            path.write_text(dump, encoding="utf-8")
            self.assertEqual(counts._read_dump(path, (counts.LIBRARY,)),
                             ("request decode 256", {"Ir": 123, "Bc": 15, "Bcm": 3, "Bi": 1, "Bim": 1}))


if __name__ == "__main__":
    unittest.main()
