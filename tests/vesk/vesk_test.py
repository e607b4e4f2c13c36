"""The command vesk as a user sees it: what it prints, where, and its exit status.

    vesk_test.py PROGRAM CASE
"""

import base64
import json
import os
import resource
import signal
import stat
import subprocess
import sys
import unittest

from folder_case import FolderCase

PROGRAM = os.path.abspath(sys.argv[1])
PEM = bytes.fromhex("0a10120c7073753c2f7363726970743e200718c025")  # entity_common {f2 f4} f3
JSON = '{"entity_common": {"f2": "psu</script>", "f4": 7}, "f3": 4800}'
BAD = bytes.fromhex("1801" "2201" "00")  # f3, then f4 with another wire type
CHECK_MEMBERS = ["file", "code", "at", "path", "bytes", "blocks", "largest", "lost_bytes", "lost_blocks", "unknown_bytes"]


class Case(FolderCase):
    def file(self, content, name="input"):
        path = self.folder / name
        path.write_bytes(content)
        return str(path)

    def run_vesk(self, *arguments, stdin=b"", **more):
        return subprocess.run([PROGRAM, *arguments], input=stdin, capture_output=True, timeout=60, check=False, **more)

    def vesk(self, *arguments, stdin=b"", status=0):
        done = self.run_vesk(*arguments, stdin=stdin)
        self.assertEqual(done.returncode, status, done.stderr.decode() + done.stdout.decode()[:2000])
        if status == 0:
            self.assertEqual(done.stderr, b"")
        return done.stdout.decode()

    def fails(self, *arguments, stdin=b"", status=1, says=""):
        done = self.run_vesk(*arguments, stdin=stdin)
        self.assertEqual(done.returncode, status, done.stdout.decode()[:2000])
        line = done.stderr.decode()
        self.assertEqual(line.count("\n"), 1, line)
        self.assertTrue(line.startswith("vesk: "), line)
        self.assertIn(says, line)
        return line


class Types(Case):
    def test_all_are_named(self):
        types = json.loads(self.vesk("types", "--json"))
        self.assertEqual(len(types), 95)
        self.assertEqual(set(types[0]), {"name", "unit", "fields", "size"})
        self.assertIn("pem_data", self.vesk("types"))

    def test_show_has_the_fields_in_declaration_order(self):
        shown = json.loads(self.vesk("show", "pem_data", "--json"))
        self.assertEqual([field["name"] for field in shown["fields"]], ["entity_common", "fru_common", "f3", "f4"])
        self.assertEqual([field["presence_bit"] for field in shown["fields"]], [0, 1, 2, 3])
        self.assertIn("resp_inv_data", shown["nested_by"])
        self.assertIn("entity_common_data", self.vesk("show", "pem_data"))

    def test_mistyped_name_is_answered_with_the_nearest(self):
        self.fails("show", "pem_dta", says="the nearest is pem_data")


class Check(Case):
    def test_json_has_exactly_its_members(self):
        path = self.file(PEM)
        answer = json.loads(self.vesk("check", "--json", "pem_data", path))
        self.assertEqual(list(answer), CHECK_MEMBERS)
        self.assertEqual((answer["file"], answer["code"], answer["at"], answer["path"]), (path, 0, None, ""))
        self.assertEqual((answer["bytes"], answer["blocks"], answer["largest"]), (13, 1, 13))

    def test_error_is_named_by_place_and_path_and_ends_with_1(self):
        answer = json.loads(self.vesk("check", "--json", "pem_data", stdin=BAD, status=1))
        self.assertEqual((answer["file"], answer["code"], answer["at"], answer["path"]), ("-", -3, 2, "f4"))
        self.assertIn("VESK_WRONG_WIRE_TYPE at byte 2, f4", self.vesk("check", "pem_data", stdin=BAD, status=1))

    def test_all_of_several_files_are_tried(self):
        files = [self.file(PEM, "a"), self.file(BAD, "b"), str(self.folder / "away"), self.file(PEM, "c")]
        done = self.run_vesk("check", "--json", "pem_data", *files)
        self.assertEqual(done.returncode, 1)
        answers = [json.loads(line) for line in done.stdout.decode().splitlines()]
        self.assertEqual([answer["code"] for answer in answers], [0, -3, 0])
        self.assertIn("away: No such file", done.stderr.decode())

    def test_lines_on_both_outputs_are_in_the_order_of_the_files(self):
        files = [self.file(PEM, "a"), str(self.folder / "away"), self.file(PEM, "b")]
        done = subprocess.run([PROGRAM, "check", "pem_data", *files], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              timeout=60, check=False)
        lines = done.stdout.decode().splitlines()
        self.assertEqual([line.removeprefix("vesk: ").split(": ")[0] for line in lines], files)

    def test_differences_are_one_more_member_and_lines_after_the_verdict(self):
        data = bytes.fromhex("1801" "e00305" "2201" "00")  # an unknown field before the wrong wire type
        answer = json.loads(self.vesk("check", "--json", "--differences", "pem_data", stdin=data, status=1))
        self.assertEqual(list(answer), [*CHECK_MEMBERS, "differences"])
        self.assertEqual(answer["differences"],
                         [{"at": 2, "path": "", "row": "A field whose number the type does not have"},
                          {"at": 5, "path": "f4", "row": "A known field with a wire type that is not its own"}])
        self.assertEqual(json.loads(self.vesk("check", "--json", "--differences", "pem_data", stdin=PEM))["differences"], [])
        self.assertEqual(list(json.loads(self.vesk("check", "--json", "pem_data", stdin=PEM))), CHECK_MEMBERS)
        lines = self.vesk("check", "--differences", "pem_data", stdin=data, status=1).splitlines()
        self.assertEqual(lines[1:4], ["  byte 2: A field whose number the type does not have",
                                      "    protobuf: keeps it, and writes it again after the known ones",
                                      "    here:     drops it"])
        self.assertEqual(len(lines), 7)

    def test_hexadecimal_and_base64_are_read(self):
        for form, text in (("--hex", PEM.hex(" ") + "\n"), ("--base64", base64.encodebytes(PEM).decode())):
            self.assertEqual(json.loads(self.vesk("check", "--json", form, "pem_data", stdin=text.encode()))["code"], 0)


class Decode(Case):
    def test_json_is_indented_and_ends_with_a_line(self):
        printed = self.vesk("decode", "pem_data", stdin=PEM)
        self.assertEqual(json.loads(printed), json.loads(JSON))
        self.assertTrue(printed.endswith("}\n") and "\n  " in printed)

    def test_text_format_and_table(self):
        self.assertIn("f3: 4800", self.vesk("decode", "--text", "pem_data", stdin=PEM))
        table = self.vesk("decode", "--table", "pem_data", stdin=PEM)
        self.assertRegex(table, r"entity_common\.f4 +7\n +f3 +4800")

    def test_lists_are_tables(self):
        answer = self.run_vesk("encode", "resp_inv_data", stdin=b'{"pem_list":[{"f3":1},{"f4":22}]}').stdout
        self.assertRegex(self.vesk("decode", "--table", "resp_inv_data", stdin=answer),
                         r"pem_list \(2\)\n +# +f3 +f4\n +0 +1\n +1 +22\n")

    def test_input_that_fails_is_one_line_and_1(self):
        self.fails("decode", "pem_data", stdin=BAD, says="VESK_WRONG_WIRE_TYPE at byte 2, f4")

    def test_control_characters_never_reach_the_terminal(self):
        controls = {*range(32), *range(0x7F, 0xA0)} - {10}
        # What changes the direction of the text around it, or breaks lines, or is not seen.
        hidden = {0x61C, *range(0x200B, 0x2010), *range(0x2028, 0x202F), *range(0x2060, 0x2070), 0xFEFF}
        harmless = "\u00a0\u00c2\u0619\u2010\u202f\u2070\ufeee\ufefe\U0001f6a8"
        text = harmless.join(map(chr, sorted(controls - {0} | hidden))) + harmless
        evil = self.run_vesk("encode", "led_data", stdin=json.dumps({"f5": text}).encode()).stdout
        empty = self.file(b"", "empty")
        for arguments in (["decode"], ["decode", "--text"], ["decode", "--table"], ["map"], ["map", "--json"], ["peek"]):
            printed = self.vesk(*arguments, "led_data", *["f5"] * (arguments == ["peek"]), stdin=evil)
            self.assertFalse(set(map(ord, printed)) & (controls | hidden), (arguments, printed))
            if "--text" not in arguments:
                self.assertIn(harmless[-1], printed)
        printed = self.vesk("diff", "led_data", self.file(evil), empty, status=1)
        self.assertFalse(set(map(ord, printed)) & (controls | hidden), printed)
        page = self.folder / "page.html"
        self.vesk("map", "--html", str(page), "led_data", self.file(evil, "evil\u202e\x1b"))
        self.assertFalse(set(map(ord, page.read_text(encoding="utf-8"))) & (controls | hidden))
        self.assertEqual(self.run_vesk("encode", "led_data", stdin=self.vesk("decode", "led_data", stdin=evil).encode()).stdout,
                         evil)
        for form, unknown in ((["--text"], "\u202e\x9b: 1"), ([], '{"\u202e\x9b": 1}')):
            line = self.fails("encode", *form, "led_data", stdin=unknown.encode())
            self.assertFalse(set(map(ord, line)) & (controls | hidden), line)

    def test_bytes_that_are_not_utf8_are_escaped_in_every_form(self):
        data = bytes.fromhex("2a02ff41")
        self.assertEqual(self.vesk("decode", "led_data", stdin=data), '{\n  "f5": "\\udcffA"\n}\n')
        self.assertEqual(self.vesk("decode", "--text", "led_data", stdin=data), 'f5: "\\377A"\n')
        self.assertEqual(self.vesk("decode", "--table", "led_data", stdin=data), "  f5  \\xffA\n")

    def test_string_with_a_nul_is_printed_and_cannot_be_encoded_again(self):
        data = bytes.fromhex("2a03410042")
        for form in ([], ["--text"]):
            printed = self.vesk("decode", *form, "led_data", stdin=data)
            self.fails("encode", *form, "led_data", stdin=printed.encode(), says="f5: ")


class Encode(Case):
    def test_decode_and_encode_give_the_same_bytes(self):
        done = self.run_vesk("encode", "pem_data", stdin=JSON.encode())
        self.assertEqual((done.returncode, done.stdout), (0, PEM))
        self.assertEqual(self.run_vesk("encode", "pem_data", stdin=self.run_vesk("decode", "pem_data", stdin=PEM).stdout)
                         .stdout, PEM)
        text = self.run_vesk("decode", "--text", "pem_data", stdin=PEM).stdout
        self.assertEqual(self.run_vesk("encode", "--text", "pem_data", stdin=text).stdout, PEM)

    def test_output_is_hexadecimal_or_base64_if_asked_for(self):
        self.assertEqual(self.vesk("encode", "--hex", "pem_data", stdin=JSON.encode()), PEM.hex() + "\n")
        self.assertEqual(self.vesk("encode", "--base64", "pem_data", stdin=JSON.encode()),
                         base64.b64encode(PEM).decode() + "\n")
        for size in range(7):
            document = json.dumps({"f20": base64.b64encode(bytes(range(size))).decode()}).encode()
            raw = self.run_vesk("encode", "eeprom_data", stdin=document).stdout
            self.assertEqual(base64.b64decode(self.vesk("encode", "--base64", "eeprom_data", stdin=document)), raw)

    def test_error_has_line_and_column(self):
        self.fails("encode", "pem_data", stdin=b'{\n  "f3": "x"}', says=":2:")
        self.fails("encode", "pem_data", stdin=b'{"f9": 1}', says="f9")


class Map(Case):
    def spans(self, data, type_name="pem_data"):
        spans = json.loads(self.vesk("map", "--json", type_name, stdin=data))
        for span in spans:
            self.assertEqual(list(span), ["from", "to", "role", "path", "text"])
        self.assertEqual([span["from"] for span in spans], [0] * bool(spans) + [span["to"] for span in spans[:-1]])
        self.assertEqual(spans[-1]["to"] if spans else 0, len(data))
        return spans

    def test_good_message(self):
        roles = [(span["role"], span["path"]) for span in self.spans(PEM)]
        common = "entity_common"
        self.assertEqual(roles, [("tag", common), ("length", common), ("tag", common + ".f2"), ("length", common + ".f2"),
                                 ("value", common + ".f2"), ("tag", common + ".f4"), ("value", common + ".f4"),
                                 ("tag", "f3"), ("value", "f3")])
        self.assertEqual([span["text"] for span in self.spans(PEM)][-2:], ["field 3 f3, number", "4800"])

    def test_refused_tag_and_what_follows_it(self):
        self.assertEqual([(span["role"], span["from"], span["to"]) for span in self.spans(BAD)],
                         [("tag", 0, 1), ("value", 1, 2), ("tag", 2, 3), ("beyond", 3, 5)])

    def test_no_input_is_an_empty_array(self):
        self.assertEqual(self.spans(b""), [])

    def test_unknown_fields_and_list_elements(self):
        data = bytes.fromhex("f80307" "5a00" "5a021801")
        self.assertEqual([(span["role"], span["path"]) for span in self.spans(data, "resp_inv_data")],
                         [("unknown", ""), ("tag", "pem_list[0]"), ("length", "pem_list[0]"), ("tag", "pem_list[1]"),
                          ("length", "pem_list[1]"), ("tag", "pem_list[1].f3"), ("value", "pem_list[1].f3")])

    def test_terminal_has_nesting_verdict_and_cost(self):
        printed = self.vesk("map", "pem_data", stdin=PEM)
        self.assertIn("  field 2 f2, string", printed)
        self.assertIn("21 bytes of pem_data: decodes", printed)
        self.assertIn("13 bytes in 1 block,", printed)
        self.assertIn("VESK_WRONG_WIRE_TYPE at byte 2, f4", self.vesk("map", "pem_data", stdin=BAD))


class Page(Case):
    def test_page_is_whole_and_nothing_in_a_string_is_markup(self):
        target = self.folder / "page.html"
        self.vesk("map", "--html", str(target), "pem_data", stdin=PEM)
        page = target.read_text(encoding="utf-8")
        self.assertIn("default-src 'none'", page)
        self.assertEqual(page.count("</script>"), 2)
        self.assertNotIn("psu</script>", page)
        self.assertNotIn("@DATA@", page)
        self.assertEqual([path.name for path in self.folder.iterdir()], ["page.html"])

    def test_hyphen_is_standard_output(self):
        self.assertIn("</html>", self.vesk("map", "--html", "-", "pem_data", stdin=PEM))

    def test_file_that_cannot_be_written_is_one_line(self):
        self.fails("map", "--html", str(self.folder / "no" / "page.html"), "pem_data", stdin=PEM, says="No such file")


class Guess(Case):
    def test_right_type_is_among_the_first(self):
        sensor = self.run_vesk("encode", "sensor_data", stdin=json.dumps(
            {"entity_common": {"f2": "temperature", "f4": 3}, **{f"f{i}": i for i in range(3, 12)}, "f13": "celsius",
             "f15": True, "f17": 4, "f18": 5}).encode()).stdout
        guesses = json.loads(self.vesk("guess", "--json", stdin=sensor))
        self.assertEqual(guesses[0]["type"], "sensor_data")
        self.assertTrue(all({"type", "reason"} <= set(guess) for guess in guesses))

    def test_nothing_that_fits_is_an_empty_array(self):
        self.assertEqual(json.loads(self.vesk("guess", "--json", stdin=b"\x07\x07")), [])


class Peek(Case):
    def test_values(self):
        self.assertEqual(self.vesk("peek", "pem_data", "f3", stdin=PEM), "4800\n")
        self.assertEqual(self.vesk("peek", "pem_data", "entity_common.f2", stdin=PEM), '"psu</script>"\n')
        self.assertEqual(json.loads(self.vesk("peek", "pem_data", "entity_common", stdin=PEM)), json.loads(JSON)["entity_common"])

    def test_what_is_not_there_is_one_line(self):
        self.fails("peek", "pem_data", "f4", stdin=PEM, says="no such field")
        self.fails("peek", "pem_data", "f99", stdin=PEM, says="no such path (vesk show pem_data names its fields)")
        self.fails("peek", "pem_data", "f3", stdin=BAD, says="VESK_WRONG_WIRE_TYPE")


class Diff(Case):
    def test_same_messages_are_silent(self):
        self.assertEqual(self.vesk("diff", "pem_data", self.file(PEM, "a"), self.file(PEM, "b")), "")

    def test_differences_are_named_by_their_paths_and_end_with_1(self):
        other = self.run_vesk("encode", "pem_data", stdin=b'{"entity_common":{"f2":"psu"},"f3":4801,"f4":1}').stdout
        printed = self.vesk("diff", "pem_data", self.file(PEM, "a"), self.file(other, "b"), status=1)
        self.assertEqual(printed.splitlines(), ['entity_common.f2: "psu</script>" | "psu"', "entity_common.f4: 7 | absent",
                                                "f3: 4800 | 4801", "f4: absent | 1"])

    def test_long_values_that_part_after_what_is_shown_say_where(self):
        bytes_field = [self.file(bytes.fromhex("1229") + b"a" * 40 + last, last.decode()) for last in (b"x", b"y")]
        shown = "41 bytes: " + "61" * 32 + "..."
        self.assertEqual(self.vesk("diff", "scratch_eeprom", *bytes_field, status=1),
                         f"f2: {shown} | {shown} (the first 40 bytes are the same)\n")
        string = [self.file(bytes.fromhex("0a8927") + b"a" * 5000 + last, last.decode()) for last in (b"x", b"y")]
        self.assertTrue(self.vesk("diff", "scratch_eeprom", *string, status=1).endswith(" (the first 5000 bytes are the same)\n"))


class Frames(Case):
    @staticmethod
    def frame(kind, body):
        return b"VSK1" + kind.to_bytes(4, "big") + len(body).to_bytes(4, "big") + body

    def test_each_frame_gets_an_answer_of_its_kinds_type(self):
        stream = self.frame(1, b"") + self.frame(4, bytes.fromhex("5a00")) + self.frame(4, b"\x80")
        printed = self.run_vesk("check", "--json", "--frames", self.file(stream))
        answers = [json.loads(line) for line in printed.stdout.decode().splitlines()]
        self.assertEqual([answer["code"] for answer in answers], [0, 0, -1])
        self.assertEqual(printed.returncode, 1)
        self.assertEqual(len(self.vesk("decode", "--frames", stdin=self.frame(1, b"") + self.frame(4, b"")).split("}")), 3)

    def test_frames_before_one_that_is_cut_short_are_answered(self):
        done = self.run_vesk("check", "--frames", stdin=self.frame(1, b"") + self.frame(6, b"no") + self.frame(4, b"") + b"VS")
        self.assertEqual((done.returncode, done.stdout.decode().count("decodes")), (1, 2))
        self.assertEqual(done.stderr.decode().splitlines(),
                         ["vesk: -#1: frames of kind 6 hold no message", "vesk: -: frame 3 at byte 38: its header is cut short"])

    def test_what_is_no_frame_is_one_line(self):
        self.fails("check", "--frames", stdin=b"VSK2" + bytes(8), says="does not begin with VSK1")
        self.fails("check", "--frames", stdin=self.frame(4, b"abc")[:-1], says="cut short")


class Errors(Case):
    def test_help_has_an_example(self):
        self.assertIn("Example:", self.vesk("--help"))
        for verb in ("types", "show", "check", "decode", "encode", "map", "guess", "peek", "diff", "watch", "record", "replay"):
            self.assertIn("Example:", self.vesk(verb, "--help"))

    def test_options_that_make_no_sense_are_2(self):
        for arguments in (["no_such_verb"], ["check", "--hex", "--base64", "pem_data"], ["types", "--no-such-option"], [],
                          ["check"], ["diff", "pem_data", "a"], ["decode", "--text", "--table", "pem_data"],
                          ["map", "--json", "--html", "page", "pem_data"], ["map", "--frames", "--html", "page"],
                          ["map", "--html", "", "pem_data"], ["check", "pem_data", "-", "-"], ["diff", "pem_data", "-", "-"]):
            self.fails(*arguments, status=2)

    def test_mistyped_verb_or_option_is_answered_with_the_nearest(self):
        self.fails("chek", status=2, says='no verb is called "chek"; the nearest is check')
        self.fails("check", "--jsn", "pem_data", status=2, says='no option is called "--jsn"; the nearest is --json')
        self.fails("--hlep", status=2, says='no option is called "--hlep" before a verb; the nearest is --help')
        self.fails(status=2, says="VERB is missing")
        self.fails("show", "pem_data", "more", status=2, says='one argument too many: "more" (vesk show --help')
        self.fails("check", "--frames", "pem_data", status=2, says="TYPE is left out with --frames")

    def test_words_of_the_command_line_reach_the_terminal_as_escapes(self):
        for arguments in (["\x1b[31m"], ["check", "--\x1b[31m"], ["types", "\x1b[31m"], ["show", "\x1b[31m"],
                          ["check", "pem_data", "\x1b[31m"], ["watch", "--socket", "\x1b[31m"],
                          ["watch", "--socket", "s", "--interval", "\x1b[31m"], ["record", "out", "--", "\x1b[31m"]):
            done = self.run_vesk(*arguments, cwd=self.folder)
            self.assertNotIn(b"\x1b", done.stderr)
            self.assertIn(b"\\x1b[31m", done.stderr)

    def test_file_after_two_hyphens_may_begin_with_one(self):
        self.file(PEM, "-x")
        done = self.run_vesk("check", "pem_data", "--", "-x", cwd=self.folder)
        self.assertEqual((done.returncode, done.stdout.decode().split(":")[0]), (0, "./-x"))

    def test_file_may_have_a_name_that_means_something_to_a_parser(self):
        self.file(b"\x0b", "x")
        for name in ("[x]", "[x,x]", "[]", "++"):
            self.file(PEM, name)
            done = self.run_vesk("check", "pem_data", name, cwd=self.folder)
            self.assertEqual((done.returncode, done.stdout.decode().split(":")[0]), (0, "./" + name))

    def test_version_is_the_projects(self):
        self.assertRegex(self.vesk("--version"), r"^vesk \d+\.\d+\.\d+\n$")

    def test_usage_names_each_place_as_it_is_typed(self):
        for verb, usage in (("check", "[TYPE] [FILE...]"), ("map", "[TYPE] [FILE]"), ("peek", "TYPE PATH [FILE]"),
                            ("diff", "TYPE A B"), ("record", "OUT -- PROGRAM..."), ("watch", "[KIND...]")):
            self.assertIn(f"Usage: vesk {verb} [OPTION...] {usage}\n", self.vesk(verb, "--help"))
        self.assertIn("  --html FILE ", self.vesk("map", "--help"))

    def test_inputs_that_cannot_be_read_are_one_line_each(self):
        self.fails("check", "pem_data", str(self.folder), says="is a directory")
        self.fails("check", "pem_data", str(self.folder / "away"), says="No such file")
        self.fails("check", "--hex", "pem_data", stdin=b"0x", says="no hexadecimal digit at character 2")
        self.fails("check", "--hex", "pem_data", stdin=b"0a1", says="an odd number")
        self.fails("check", "--base64", "pem_data", stdin=b"!", says="no base64 at character 1")


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[2:]])
