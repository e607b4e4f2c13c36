"""Sees the gate of instruction counts fail, and pass, without counting."""

import contextlib
import io
import json
import pathlib
import tempfile
import unittest
from unittest import mock

import counts

COMPILER = "GNU 12.2.0"


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

    def test_unchanged_count_passes(self):
        self.assertEqual(self.check({"request": {"decode": 1000}}, {"request": {"decode": 1000}}), "")

    def test_rise_of_2_percent_passes(self):
        self.assertEqual(self.check({"request": {"decode": 1000}}, {"request": {"decode": 1020}}), "")

    def test_rise_above_2_percent_fails(self):
        with self.assertRaisesRegex(counts.Failure, r"rose by more than 2%: request decode: 1,000 -> 1,021 .*\+2.1%"):
            self.check({"request": {"decode": 1000}}, {"request": {"decode": 1021}})

    def test_fall_below_2_percent_asks_for_a_new_baseline(self):
        output = self.check({"request": {"decode": 1000}}, {"request": {"decode": 900}})
        self.assertRegex(output, "^fell, remake it with bench/run --remake-baseline: request decode")

    def test_other_compiler_fails(self):
        with self.assertRaisesRegex(counts.Failure, "what GNU 12.2.0 makes and this is GNU 13.1.0"):
            self.check({"request": {"decode": 1000}}, {"request": {"decode": 1000}}, "GNU 13.1.0")

    def test_other_cases_fail(self):
        with self.assertRaisesRegex(counts.Failure, "has other cases"):
            self.check({"request": {"decode": 1000}}, {"request": {"decode": 1000, "encode": 1000}})

    def test_growth_beyond_linear_fails(self):
        grown = {f"growth_{records}": {"encode": records ** 1.03} for records in (1000, 10000)}
        with mock.patch.object(counts, "count", return_value=grown):
            with self.assertRaisesRegex(counts.Failure, "encode: instructions grow .* 1.030"):
                counts.check_growth("program")

    def test_growth_without_a_series_fails(self):
        with mock.patch.object(counts, "count", return_value={"growth_1": {"encode": 5}}):
            with self.assertRaisesRegex(counts.Failure, "no growth series"):
                counts.check_growth("program")

    def test_bytes_by_reference_that_cost_by_size_fail(self):
        counted = {"eeprom_16k_by_reference": {"encode": 300}, "eeprom_64k_by_reference": {"encode": 301}}
        with mock.patch.object(counts, "count", return_value=counted):
            with self.assertRaisesRegex(counts.Failure, "encode by reference: 300 .* 301"):
                counts.check_reference("program")


class Dump(unittest.TestCase):
    def test_instructions_inside_the_library_count_and_those_of_its_callees_do_not(self):
        dump = """\
desc: Trigger: Client Request: request decode 256

ob=/build/libvesk_inventory.so.1.0.0
fn=decode
0 100
+3 20
cob=/lib/libc.so.6
cfn=memcpy
calls=7 0
0 5000
* 3

ob=/lib/libc.so.6
fn=memcpy
0 5000
"""
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder) / "dump.1"
            path.write_text(dump, encoding="utf-8")
            self.assertEqual(counts._read_dump(path), ("request decode 256", 123))


if __name__ == "__main__":
    unittest.main()
