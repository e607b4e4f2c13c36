"""Breaks the ABI in one place after the other, and sees the program of a release fail.

    breaks_test.py RELEASE LIBRARIES INCLUDE COMPILER

A symbol, version node or SONAME is changed in copies of the libraries, in the names that the loader reads; a structure or
value in a copy of the release's headers, which is then as far from the libraries as if those had changed. No library is
built anew.
"""

import contextlib
import io
import pathlib
import re
import shutil
import sys
import tempfile
import unittest

import check_upgrade

RELEASE, LIBRARIES, INCLUDE = (pathlib.Path(path).resolve() for path in sys.argv[1:4])
COMPILER = sys.argv[4]


class Breaks(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        scratch = tempfile.TemporaryDirectory()
        cls.addClassCleanup(scratch.cleanup)
        cls.program = check_upgrade.build_program(RELEASE, COMPILER, pathlib.Path(scratch.name))

    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.release = pathlib.Path(scratch.name) / RELEASE.name
        self.libraries = pathlib.Path(scratch.name) / "libraries"
        shutil.copytree(RELEASE, self.release)
        self.libraries.mkdir()
        for name in ("vesk_inventory.so.1", "vesk_toolkit.so.1", "vesk_text.so.1", "vesk_drin_eid.so"):
            shutil.copy(LIBRARIES / f"lib{name}", self.libraries)  # the file, not the link

    def rename(self, library, before, after):
        """In the strings that the loader reads; both of one length, so that all else stays where it is."""
        self.assertEqual(len(before), len(after))
        file = self.libraries / f"libvesk_{library}.so.1"
        changed, count = re.subn(rb"\0%s\0" % before.encode(), b"\0%s\0" % after.encode(), file.read_bytes())
        self.assertGreater(count, 0, f"{file.name} has no name {before}")
        file.write_bytes(changed)

    def change_header(self, header, pattern, replacement):
        file = self.release / "include" / "vesk" / header
        text, count = re.subn(pattern, replacement, file.read_text(encoding="utf-8"), count=1, flags=re.S)
        self.assertEqual(count, 1, f"{header} has no {pattern}")
        file.write_text(text, encoding="utf-8")

    def verdict(self, function, *arguments):
        """Whether a check finds a fault, and what it says."""
        with contextlib.redirect_stdout(io.StringIO()) as said:
            try:
                found = function(*arguments)
            except SystemExit as end:
                found = end.code
        return bool(found), f"{said.getvalue()}{found if found else ''}"

    def assert_passes(self):
        found, said = self.verdict(check_upgrade.check, self.release, self.libraries, INCLUDE, COMPILER)
        self.assertFalse(found, said[:3000])
        self.assertRegex(said, r"^\d{3} functions called, 0 failures\n$")

    def assert_says(self, found_and_said, patterns):
        found, said = found_and_said
        self.assertTrue(found, said[:3000])
        for pattern in patterns:
            self.assertTrue(re.search(pattern, said), f"does not say '{pattern}' but:\n{said[:3000]}")

    def assert_run_fails(self, *patterns):
        """The program of the unchanged release, with the libraries as they are now."""
        self.assert_says(self.verdict(check_upgrade.faults_of_run, self.program, self.libraries), patterns)

    def assert_check_fails(self, *patterns):
        self.assert_says(self.verdict(check_upgrade.check, self.release, self.libraries, INCLUDE, COMPILER), patterns)

    def test_unchanged_copy_passes(self):
        self.assert_passes()

    def test_function_that_is_gone_is_named(self):
        for library, name in (("inventory", "vesk_fan_data_free_ext"), ("toolkit", "vesk_lint"),
                              ("text", "vesk_json_parse")):
            with self.subTest(library):
                self.setUp()
                self.rename(library, name, name[:-1] + "x")
                self.assert_run_fails(f"undefined symbol: {name}, version VESK_{library.upper()}_1", "the program fails")

    def test_version_node_that_is_gone_is_named(self):
        for library in ("inventory", "toolkit", "text"):
            with self.subTest(library):
                self.setUp()
                self.rename(library, f"VESK_{library.upper()}_1", f"VESK_{library.upper()}_2")
                self.assert_run_fails(f"version `VESK_{library.upper()}_1' not found", "the program fails")

    def test_library_under_another_soname_is_not_found(self):
        for library in ("inventory", "toolkit", "text"):
            with self.subTest(library):
                self.setUp()
                file = self.libraries / f"libvesk_{library}.so.1"
                file.rename(file.with_suffix(".2"))
                self.assert_run_fails(f"libvesk_{library}.so.1: cannot open shared object", "the program fails")

    def test_structure_that_grew_is_named(self):
        self.change_header("inventory_db.h", r"(struct vesk_entity_admin_status_data \{[^}]*?)[^;]* f4;", r"\1")
        self.assert_check_fails(r"layout-64.txt: vesk_entity_admin_status_data: was size 16, .*, is size 20",
                                r"layout-32.txt: vesk_entity_admin_status_data: was size 16, .*, is size 20",
                                "vesk_entity_admin_status_data has another size",
                                "vesk_entity_admin_status_data is decoded past its end")

    def test_members_that_were_swapped_are_named(self):
        self.change_header("client_service.h", r"(struct vesk_pem_data \{[^}]*?) f3;([^}]*) f4;", r"\1 f4;\2 f3;")
        self.assert_check_fails("layout-64.txt: vesk_pem_data.f3: was offset 308, .* is offset 304")

    def test_member_of_the_toolkit_that_moved_is_named(self):
        self.change_header("vesk_toolkit.h", r"(int32_t code;)(.*?)(uint32_t opaque;)", r"\3\2\1")
        self.assert_check_fails("toolkit-layout-64.txt: vesk_report.code: was offset 12, .* is offset 8")

    def test_arena_that_grew_is_named(self):
        self.change_header("vesk_toolkit.h", r"    uint64_t most_blocks;\n", "")
        self.assert_check_fails("toolkit-layout-64.txt: vesk_arena: was size", "the toolkit writes past a structure")

    def test_options_may_grow_at_their_end(self):
        self.change_header("vesk_text.h", r"    uint64_t memory_limit;\n", "")
        self.change_header("vesk_text.h", r"0, 0, 0, 0, UINT64_MAX\}", "0, 0, 0, 0}")
        self.assert_passes()

    def test_value_that_changed_is_named(self):
        self.change_header("vesk_runtime.h", "VESK_NO_MEMORY = -4", "VESK_NO_MEMORY = -5")
        self.assert_check_fails(r"values.txt: VESK_NO_MEMORY: was = -5, is = -4")

    def test_program_that_leaves_out_a_function_is_refused(self):
        file = self.release / "program.c"
        file.write_text(file.read_text(encoding="utf-8").replace("vesk_arena_limit_for(100)", "7296"), encoding="utf-8")
        self.assert_check_fails("program.c does not call vesk_arena_limit_for")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
