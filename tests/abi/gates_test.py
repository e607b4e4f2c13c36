"""Changes one thing at a time in a scratch copy of the headers and sees each gate fail, and pass without the change.
What the gates compare with is made of the unchanged copy, so that this test says nothing about the tree's own ABI.

    gates_test.py SOURCE BUILD COMPILER

The library of the scratch copy is C: every prototype of the headers with an empty body, the SONAME and the version
script of the real one. What abidiff compares, it has.
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

SOURCE, BUILD = map(os.path.abspath, sys.argv[1:3])
COMPILER = sys.argv[3]
GATES = os.path.join(SOURCE, "tests", "abi")
SYMBOL_FILES = [os.path.join(SOURCE, unit, unit + ".symbols") for unit in ("inventory_db", "client_service")]
SONAME = "libvesk_inventory.so.1"
LISTS = ("layout-64.txt", "layout-32.txt", "values.txt")
LEGIBLE = 3000  # characters of a gate's output that are worth showing


def empty_functions(header):
    """A C file with an empty body for every prototype of a header."""
    lines = [f"#include <vesk/{os.path.basename(header)}>"]
    with open(header, encoding="utf-8") as file:
        for prototype in re.findall(r"^VESK_API (.*?);", file.read(), flags=re.S | re.M):
            arguments = re.findall(r"(\w+)[,)]", prototype)
            result = "" if prototype.startswith("void ") else " return 0;"
            lines.append(f"{prototype} {{ {' '.join(f'(void){name};' for name in arguments)}{result} }}")
    return "\n".join(lines) + "\n"


class Gates(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        """Makes the lists and the baseline, as remaking them does."""
        scratch = tempfile.TemporaryDirectory()
        cls.addClassCleanup(scratch.cleanup)
        cls.expected = scratch.name
        for name in LISTS:
            subprocess.run([sys.executable, os.path.join(GATES, "abi_lists.py"), "write",
                            os.path.join(cls.expected, name), os.path.join(BUILD, "include"), COMPILER], check=True)
        unchanged = cls()
        unchanged.setUp()
        subprocess.run([os.path.join(GATES, "write_baseline"), unchanged.build_library(),
                        os.path.join(cls.expected, "vesk_inventory.abi")], check=True)
        unchanged.doCleanups()

    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.scratch = scratch.name
        shutil.copytree(os.path.join(BUILD, "include"), self.path("include"))  # the files, not the links
        shutil.copy(os.path.join(BUILD, "vesk_inventory.map"), self.path("exported.map"))

    def path(self, *parts):
        return os.path.join(self.scratch, *parts)

    def change(self, file, before, after):
        """Puts `after` in the place of `before`. In it "..." stands for any text; what stands up to the last one stays."""
        with open(self.path(file), encoding="utf-8") as opened:
            text = opened.read()
        pattern = ".*?".join(f"({re.escape(part)})" for part in before.split("..."))
        found = re.search(pattern, text, flags=re.S)
        self.assertIsNotNone(found, f"{file} has no '{before}' that could be changed")
        start, end = found.span(before.count("...") + 1)
        with open(self.path(file), "w", encoding="utf-8") as opened:
            opened.write(text[:start] + after + text[end:])

    def build_library(self, *options, soname=SONAME, extra=""):
        sources = []
        for unit in ("inventory_db", "client_service"):
            sources.append(self.path(unit + ".c"))
            with open(sources[-1], "w", encoding="utf-8") as file:
                file.write(empty_functions(self.path("include", "vesk", unit + ".h")) + extra)
            extra = ""
        library = self.path("libvesk_inventory.so")
        subprocess.run([COMPILER, *(options or ["-g"]), "-w", "-shared", "-fPIC", "-I", self.path("include"),
                        f"-Wl,-soname,{soname}", f"-Wl,--version-script={self.path('exported.map')}",
                        *sources, "-o", library], check=True)
        return library

    def run_gate(self, *command):
        done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        return done.returncode, done.stdout

    def compare_list(self, name):
        return self.run_gate(sys.executable, os.path.join(GATES, "abi_lists.py"), "compare",
                             os.path.join(self.expected, name), self.path("include"), COMPILER)

    def compare_library(self, library):
        return self.run_gate(os.path.join(GATES, "compare_library"), library,
                             os.path.join(self.expected, "vesk_inventory.abi"))

    def check_symbols(self, library):
        """The gate of tests/symbols. It also says that the scratch library imports nothing, which is not looked at."""
        return self.run_gate(os.path.join(SOURCE, "tests", "symbols", "check_library"), library, " ".join(SYMBOL_FILES),
                             "", "", SONAME, "VESK_INVENTORY_1")

    def assert_passes(self, gate):
        code, said = gate
        self.assertEqual(code, 0, said[:LEGIBLE])

    def assert_fails(self, gate, *mentioned):
        code, said = gate
        self.assertNotEqual(code, 0, said[:LEGIBLE])
        for text in mentioned:
            self.assertTrue(re.search(text, said), f"does not say '{text}' but:\n{said[:LEGIBLE]}")

    def test_unchanged_copy_passes(self):
        for name in LISTS:
            self.assert_passes(self.compare_list(name))
        library = self.build_library()
        self.assert_passes(self.compare_library(library))
        self.assertNotRegex(self.check_symbols(library)[1], "exported symbols|versions|SONAME")

    def test_wider_member_is_named(self):
        self.change("include/vesk/client_service.h", "struct vesk_pem_data {...fru_common;...uint32_t", "uint64_t")
        what_to_do = ("docs/abi.md says", "--target abi-baseline")
        was = r"vesk_pem_data\.f3: was offset \d+, size 4, alignment 4; "
        self.assert_fails(self.compare_list("layout-64.txt"), "The ABI moved: .* differ from layout-64.txt",
                          was + r"is offset \d+, size 8, alignment 8\n", r"vesk_pem_data\.f4: was offset", *what_to_do)
        self.assert_fails(self.compare_list("layout-32.txt"), "The ABI moved: .* differ from layout-32.txt",
                          was + r"is offset \d+, size 8, alignment 4\n", *what_to_do)
        self.assert_fails(self.compare_library(self.build_library()), "'struct vesk_pem_data' changed",
                          "vesk_pem_data::f3", "The ABI moved: libvesk_inventory.so differs", *what_to_do)

    def test_swapped_members_are_named(self):
        self.change("include/vesk/client_service.h", "typedef struct vesk_pem_data {...f3; ", "f4; ")
        self.change("include/vesk/client_service.h", "typedef struct vesk_pem_data {...f4; ...f4; ", "f3; ")
        for name in ("layout-64.txt", "layout-32.txt"):
            self.assert_fails(self.compare_list(name), r"vesk_pem_data\.f3: was", r"vesk_pem_data\.f4: was")
        self.assert_fails(self.compare_library(self.build_library()), "'struct vesk_pem_data' changed", "f3", "f4")

    def test_member_of_the_entity_identifier_is_named(self):
        self.change("include/vesk/drin_eid.h", "typedef struct vesk_drin_eid_st {...uint32_t", "uint16_t f0; uint32_t")
        for name in ("layout-64.txt", "layout-32.txt"):
            self.assert_fails(self.compare_list(name), r"drin_eid_st\.f0: is new, offset 0", r"drin_eid_st\.f1: was")
        self.assert_fails(self.compare_library(self.build_library()), "'struct vesk_drin_eid_st' changed")

    def test_changed_result_code_is_named(self):
        self.change("include/vesk/vesk_runtime.h", "VESK_NO_MEMORY = -", "VESK_NO_MEMORY = -1")
        self.assert_fails(self.compare_list("values.txt"), r"VESK_NO_MEMORY: was -4; is -14\n", "docs/abi.md says")

    def test_changed_presence_bit_is_named(self):
        self.change("include/vesk/client_service.h", "VESK_PEM_DATA_F3 = 2", "VESK_PEM_DATA_F3 = 7")
        self.assert_fails(self.compare_list("values.txt"), r"VESK_PEM_DATA_F3: was 2; is 7\n")

    def test_renamed_enumerator_is_named(self):
        self.change("include/vesk/vesk_runtime.h", "VESK_BYTES_BY_REFERENCE = 1", "VESK_REFERENCES = 1")
        self.assert_fails(self.compare_list("values.txt"), "VESK_BYTES_BY_REFERENCE: is gone, was 1",
                          "VESK_REFERENCES: is new, 1")

    def test_missing_symbol_is_named(self):
        self.change("exported.map", "vesk_fan_data_free_ext;", "")
        library = self.build_library()
        self.assert_fails(self.compare_library(library), "Removed function.*", r"\[D\].*vesk_fan_data_free_ext")
        self.assert_fails(self.check_symbols(library), "exported symbols", "< vesk_fan_data_free_ext")

    def test_additional_symbol_is_named(self):
        self.change("exported.map", "vesk_fan_data_free_ext;", "vesk_fan_data_free_ext; vesk_fan_data_clear;")
        library = self.build_library(extra="VESK_API void vesk_fan_data_clear(void) {}\n")
        self.assert_fails(self.compare_library(library), r"\[A\].*vesk_fan_data_clear")
        self.assert_fails(self.check_symbols(library), "exported symbols", "> vesk_fan_data_clear")

    def test_changed_argument_is_named(self):
        self.change("include/vesk/client_service.h", "vesk_fan_data_free_ext(...uint32_t flags", "uint64_t flags")
        self.assert_fails(self.compare_library(self.build_library()), "vesk_fan_data_free_ext", "parameter 4")

    def test_changed_soname_is_named(self):
        library = self.build_library(soname="libvesk_inventory.so.2")
        self.assert_fails(self.compare_library(library), "SONAME changed from '.*so.1' to 'libvesk_inventory.so.2'")
        self.assert_fails(self.check_symbols(library), "SONAME", "> libvesk_inventory.so.2")

    def test_changed_version_node_is_named(self):
        self.change("exported.map", "VESK_INVENTORY_1", "VESK_INVENTORY_2")
        library = self.build_library()
        self.assert_fails(self.compare_library(library), "380 Removed", r"\[D\].*@@VESK_INVENTORY_1")
        self.assert_fails(self.check_symbols(library), "versions of the exported symbols", "> VESK_INVENTORY_2")

    def test_library_without_debug_information_is_refused(self):
        self.assert_fails(self.compare_library(self.build_library("-g0")), "has no debug information")

    def test_size_and_writable_data_are_named(self):
        gate = os.path.join(GATES, "check_size")
        library = self.build_library()
        with open(self.path("data.c"), "w", encoding="utf-8") as file:
            file.write("int counter = 1;\nint calls;\n")
        subprocess.run([COMPILER, "-c", self.path("data.c"), "-o", self.path("data.o")], check=True)
        self.assert_passes(self.run_gate(gate, "260000", library))
        self.assert_fails(self.run_gate(gate, "1000", library), r"\.text is \d+ bytes too large")
        self.assert_fails(self.run_gate(gate, "260000", library, self.path("data.o")), r"data\.o: writable.*: \.data 4")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[4:])
