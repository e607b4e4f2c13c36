#!/usr/bin/env python3
"""vesk --schema: command_test.py VESK LIBRARY OTHER runs the verbs on the types of a library, and on one that has none."""

import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

VESK, LIBRARY, OTHER = sys.argv[1:4]


def vesk(*arguments, text="", schema=LIBRARY, cwd=None):
    """What a call prints, and its errors and status."""
    run = subprocess.run([VESK, *(["--schema", schema] if schema else []), *arguments], input=text, capture_output=True,
                         text=True, timeout=30, check=False, cwd=cwd)
    return run.stdout, run.stderr, run.returncode


DOCUMENT = ('{"one_sint32":-3,"one_double_value":0.5,"some_uint32":[1,300],"packed_sint32":[-1,2],"inner":{"level":-1},'
            '"texts":["one","two"],"blobs":["AQI="]}')


class Schema(unittest.TestCase):
    maxDiff = None

    def good(self, *arguments, **named):
        out, errors, status = vesk(*arguments, **named)
        self.assertEqual((errors, status), ("", 0))
        return out

    def bytes_of(self, document):
        return self.good("encode", "foreign_all", "--hex", text=document)

    def test_types_and_fields_are_those_of_the_library(self):
        self.assertEqual([line["name"] for line in json.loads(self.good("types", "--json"))],
                         ["foreign_all", "foreign_inner"])
        shown = json.loads(self.good("show", "foreign_all", "--json"))
        kinds = {field["name"]: field["kind"] for field in shown["fields"]}
        self.assertEqual(kinds["one_enumeration"], "enum")
        self.assertEqual(kinds["some_float_value"], "repeated float")
        self.assertEqual(kinds["packed_sfixed64"], "repeated sfixed64, packed")
        self.assertEqual(kinds["blobs"], "repeated bytes")

    def test_columns_are_as_wide_as_what_is_in_them(self):
        self.assertEqual(self.good("types"), "NAME           UNIT     FIELDS  SIZE\n"
                                             f"foreign_all    by_hand  49      {self.size_of('foreign_all')}\n"
                                             f"foreign_inner  by_hand  4       {self.size_of('foreign_inner')}\n")
        lines = self.good("show", "foreign_all").splitlines()[1:-2]
        for heading in ("NAME", "KIND", "BIT", "OFFSET"):  # the longest number has nine digits, the longest kind 34 letters
            at = lines[0].index(heading)
            for line in lines:
                self.assertEqual(line[at - 2:at], "  ", line)
                self.assertNotEqual(line[at], " ", line)

    def size_of(self, name):
        return json.loads(self.good("show", name, "--json"))["size"]

    def test_document_is_encoded_and_decoded_again(self):
        decoded = self.good("decode", "foreign_all", "--hex", text=self.bytes_of(DOCUMENT))
        self.assertEqual(json.loads(decoded), json.loads(DOCUMENT))
        text = self.good("decode", "foreign_all", "--hex", "--text", text=self.bytes_of(DOCUMENT))
        self.assertIn('packed_sint32: -1\npacked_sint32: 2\n', text)
        again = self.good("encode", "foreign_all", "--hex", "--text", text=text)
        self.assertEqual(again, self.bytes_of(DOCUMENT))

    def test_table_has_a_row_for_each_field(self):
        table = self.good("decode", "foreign_all", "--hex", "--table", text=self.bytes_of(DOCUMENT))
        rows = dict(line.split(None, 1) for line in table.splitlines() if line.strip())
        self.assertEqual(rows, {"one_sint32": "-3", "one_double_value": "0.5", "some_uint32": "1, 300",
                                "packed_sint32": "-1, 2", "inner.level": "-1", "texts": '"one", "two"',
                                "blobs": "2 bytes: 0102"})

    def test_map_names_each_element(self):
        spans = json.loads(self.good("map", "foreign_all", "--hex", "--json", text=self.bytes_of(DOCUMENT)))
        self.assertEqual([span["from"] for span in spans[1:]], [span["to"] for span in spans[:-1]])
        values = {span["path"]: span["text"] for span in spans if span["role"] == "value"}
        self.assertEqual(values["one_sint32"], "-3")
        self.assertEqual(values["one_double_value"], "0.5")
        self.assertEqual([values["some_uint32[0]"], values["some_uint32[1]"]], ["1", "300"])
        self.assertEqual([values["packed_sint32[0]"], values["packed_sint32[1]"]], ["-1", "2"])
        self.assertEqual(values["texts[1]"], '"two"')
        tags = {span["path"]: span["text"] for span in spans if span["role"] == "tag"}
        self.assertEqual(tags["packed_sint32"], "field 1600 packed_sint32, repeated number")
        self.assertEqual(tags["texts[0]"], "field 43 texts, repeated string")

    def test_map_and_check_say_why_bytes_are_refused(self):
        refused = {
            "90010590012d": ("", ""),
            "90010595012d": ("some_sint32", "field 18 some_sint32, repeated number: refused, since it has wire type 5"),
            "92010280": ("some_sint32[0]", "field 18 some_sint32, repeated number: refused, its length of 2 reaches "
                         "1 byte past the end"),
            "9201020580": ("some_sint32[1]",
                           "field 18 some_sint32, repeated number: refused, its last element is cut short"),
            "900105080190012d": ("some_sint32", "field 18 some_sint32, repeated number: refused, since the repeated field "
                                 "began before"),
            "45010203": ("one_fixed32", "field 8 one_fixed32, number: refused, its number is cut short"),
        }
        for given, (path, meaning) in refused.items():
            out, _, status = vesk("check", "foreign_all", "--hex", "--json", text=given)
            report = json.loads(out)
            self.assertEqual(report["path"], path, given)
            self.assertEqual(status, 1 if meaning else 0)
            spans = json.loads(self.good("map", "foreign_all", "--hex", "--json", text=given))
            self.assertEqual(spans[-1]["to"], len(given) // 2)
            if meaning:
                self.assertEqual([span["text"] for span in spans if span["from"] == report["at"]], [meaning])

    def test_differences_name_what_a_protobuf_reads_in_another_way(self):
        rows = {"900105080190012d": "A list whose elements have another field between them",
                "90010595012d000000": "A known field with a wire type that is not its own",
                "8a01058080808010": "A flag whose number has bits above the 32nd only"}
        for given, row in rows.items():
            out, _, _ = vesk("check", "foreign_all", "--hex", "--json", "--differences", text=given)
            self.assertEqual([difference["row"] for difference in json.loads(out)["differences"]], [row], given)

    def test_peek_prints_a_value_or_a_line_for_each_element(self):
        given = self.bytes_of(DOCUMENT)
        for path, expected in {"one_double_value": "0.5\n", "some_uint32": "1\n300\n", "packed_sint32[1]": "2\n",
                               "texts": '"one"\n"two"\n', "inner.level": "-1\n"}.items():
            self.assertEqual(self.good("peek", "foreign_all", path, "--hex", text=given), expected)

    def test_diff_and_guess_know_the_library(self):
        with tempfile.TemporaryDirectory() as folder:
            files = []
            for name, document in (("a", '{"some_sint32":[1,2]}'), ("b", '{"some_sint32":[1,-2,3]}')):
                files.append(os.path.join(folder, name))
                with open(files[-1], "w", encoding="utf-8") as file:
                    file.write(self.bytes_of(document))
            out, errors, status = vesk("diff", "foreign_all", "--hex", *files)
            self.assertEqual((out, errors, status), ("some_sint32[1]: 2 | -2\nsome_sint32[2]: absent | 3\n", "", 1))
            self.assertTrue(self.good("guess", "--hex", files[0]).startswith("foreign_all: 2 fields, none unknown"))

    def test_library_in_the_folder_needs_no_slash(self):
        with tempfile.TemporaryDirectory() as folder:
            shutil.copy(LIBRARY, os.path.join(folder, "here.so"))
            self.assertIn("foreign_inner", self.good("types", schema="here.so", cwd=folder))

    def test_errors_are_one_line_each(self):
        def refused(*arguments, schema=LIBRARY):
            out, errors, status = vesk(*arguments, schema=schema)
            self.assertEqual(out, "")
            self.assertEqual(len(errors.splitlines()), 1, errors)
            self.assertNotEqual(status, 0)
            return errors

        self.assertIn('no type is called "pem_data"; the nearest is foreign_', refused("show", "pem_data"))
        self.assertIn("/nowhere/lib.so", refused("types", schema="/nowhere/lib.so"))
        self.assertIn("has no vesk_schema_all_types; name a library of what protoc-gen-vesk has made",
                      refused("types", schema=OTHER))
        self.assertIn("--frames and --schema", refused("check", "--frames", "x"))
        self.assertIn("--schema has no meaning for watch", refused("watch", "--socket", "x"))
        self.assertIn("--schema wants a library, and a verb after it", refused())
        self.assertIn("no verb is called \"shwo\"", refused("shwo", "foreign_all"))
        self.assertIn("--schema wants a library", refused("--schema", schema=None))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
