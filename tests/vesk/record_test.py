"""`vesk record` and `vesk replay`: record_test.py PROGRAM FOLDER SOURCE [unittest arguments]

FOLDER has the programs to record (recorded_calls.c says what they do), SOURCE is the root of the sources. Where the recorder
is left out, FOLDER is "-", and the tests that replay what the tests themselves have written remain.
"""

import json
import os
import pathlib
import random
import re
import shutil
import signal
import stat
import struct
import subprocess
import sys
import time
import unittest

from folder_case import FolderCase

PROGRAM, FOLDER, SOURCE = sys.argv[1:4]
CALLS = FOLDER + "/recorded_calls"
PATIENCE = 120
ENCODE, DECODE, DUPLICATE, FREE = range(4)
HAS_CONTENT, HAS_NO_ALLOC = 1, 2
OK, MALFORMED, NO_MEMORY = 0, -1, -4

# ---- The file, written by hand ----

WORD = (1 << 64) - 1
FACTOR = 0x9E3779B97F4A7C15
MARK = 0x4C4C4143


def checksum(data, seed):
    sums = [(seed + lane + 1) & WORD for lane in range(4)]
    whole = len(data) // 32 * 32
    for at in range(0, whole, 32):
        for lane, word in enumerate(struct.unpack_from("=4Q", data, at)):
            sums[lane] = (sums[lane] ^ word) * FACTOR & WORD
            sums[lane] ^= sums[lane] >> 32
    total = len(data)
    for lane, word in enumerate(struct.unpack("=4Q", data[whole:].ljust(32, b"\0"))):
        total = (total ^ word) * FACTOR & WORD
        total = ((total ^ total >> 32) ^ sums[lane]) * FACTOR & WORD
        total ^= total >> 32
    return total


def call(operation, content, result, bits=HAS_CONTENT, flags=0, requests=0, refused=0, type_place=0):
    head = struct.pack("=IHBBIIIIQQQQ", MARK, type_place, operation, bits, flags, 7, 8, 0, 1_000_000_500, 99, len(content),
                       checksum(content, 0))
    outcome = struct.pack("=qQII", result or 0, 250, requests, refused)
    head_sum = checksum(head, MARK)
    outcome_sum = 0 if result is None else checksum(outcome, head_sum)
    padding = bytes(-len(content) % 8)
    return head + struct.pack("=Q", head_sum) + outcome + struct.pack("=Q", outcome_sum) + content + padding


def recording(*calls, types=(b"scratch_eeprom",), more=b"", **header):
    names = b"".join(name + b"\0" for name in types)
    names += bytes(-len(names) % 8)
    records_at = 96 + len(names)
    body = b"".join(calls)
    values = {"magic": b"VESKREC1", "order": 0x01020304, "types": len(types), "records_at": records_at, "size": 1 << 20,
              "began_at": 1_700_000_000_000_000_000, "monotonic": 1_000_000_000, "r0": 0, "r1": 0,
              "next": records_at + len(body), "full_at": 0, "not_noted": 0, "processes": 1, **header}
    return struct.pack("=8sIIQQQQQQQQQQ", *values.values()) + names + body + more


NORTH = bytes.fromhex("0a056e6f727468")  # scratch_eeprom {f1: "north"}
GOOD = call(DECODE, NORTH, OK, requests=1)


class Case(FolderCase):
    def setUp(self):
        super().setUp()
        self.out = str(self.folder / "calls.rec")

    def vesk(self, *arguments, **more):
        return subprocess.run([PROGRAM, *arguments], capture_output=True, text=True, timeout=PATIENCE, check=False, **more)

    def record(self, *program, options=(), status=0, says="", **more):
        done = self.vesk("record", self.out, *options, "--", *program, **more)
        self.assertEqual(done.returncode, status, done.stderr)
        self.assertRegex(done.stderr, r"\A(vesk: [^\n]*\n)?\Z")
        self.assertIn(says, done.stderr)
        if not says:
            self.assertEqual(done.stderr, "")
        return done.stdout

    def replay(self, *arguments, status=0, says=""):
        """The output, and how the calls came out: the objects that --json gives."""
        done = self.vesk("replay", self.out, *arguments)
        self.assertEqual(done.returncode, status, done.stderr + done.stdout)
        if says:
            self.assertIn(says, done.stderr)
        else:
            self.assertEqual(done.stderr, "")
        self.calls = [json.loads(line) for line in self.vesk("replay", "--json", self.out).stdout.splitlines()]
        return done.stdout

    def fails(self, *arguments, says, status=1):
        done = self.vesk(*arguments)
        self.assertEqual((done.returncode, done.stdout), (status, ""), done.stderr)
        self.assertRegex(done.stderr, r"\Avesk: [^\n]*\n\Z")
        self.assertIn(says, done.stderr)


class Library(Case):
    """What is preloaded: it must be nothing but the 380 functions to the program, and nothing but libc to the loader."""

    RECORDER = str(pathlib.Path(PROGRAM).parent / "recorder/libvesk_recorder.so")

    def tool(self, *arguments):
        return subprocess.run([*arguments, self.RECORDER], capture_output=True, text=True, check=True).stdout

    def test_exports_exactly_the_functions(self):
        symbols = sorted(line for unit in ("inventory_db", "client_service")
                         for line in (pathlib.Path(SOURCE) / unit / f"{unit}.symbols").read_text().split()
                         if re.search("_(encode_ext|decode_ext|duplicate|free_ext)$", line))
        exported = [line.split()[-1] for line in self.tool("nm", "--dynamic", "--defined-only").splitlines()]
        self.assertEqual(len(symbols), 380)
        self.assertEqual(sorted(exported), symbols)

    def test_needs_libc_alone(self):
        self.assertEqual(re.findall(r"\(NEEDED\).*\[(.*)\]", self.tool("readelf", "--dynamic")), ["libc.so.6"])

    def test_is_hardened(self):
        self.assertRegex(self.tool("readelf", "--dynamic"), "BIND_NOW|FLAGS_1.*NOW")
        headers = self.tool("readelf", "--program-headers", "--wide")
        self.assertIn("GNU_RELRO", headers)
        self.assertNotRegex(headers, "GNU_STACK.*RWE")
        self.assertIn("__stack_chk_fail", self.tool("nm", "--dynamic", "--undefined-only"))


class Record(Case):
    def test_every_kind_of_call_is_noted_and_comes_out_the_same(self):
        self.record(CALLS, "each")
        self.assertEqual(self.replay(), "21 calls of 1 process (5 encode, 7 decode, 2 duplicate, 7 free; 3 not made again): "
                                        "no difference\n")
        shown = [(one["type"], one["operation"], one["result"], one["here"], one["requests"], one["length"])
                 for one in self.calls if one["operation"] != "free"]
        record = "scratch_eeprom"
        self.assertEqual(shown, [
            (record, "encode", 24, None, 0, 0),
            (record, "encode", 24, None, 0, 0),
            (record, "encode", 19, 19, 0, 24),
            (record, "encode", 24, 24, 0, 24),
            (record, "duplicate", OK, OK, 3, 24),
            (record, "duplicate", NO_MEMORY, NO_MEMORY, 3, 24),
            (record, "decode", OK, OK, 3, 24),
            (record, "decode", OK, OK, 2, 24),
            (record, "decode", NO_MEMORY, NO_MEMORY, 2, 24),
            (record, "decode", NO_MEMORY, NO_MEMORY, 0, 24),
            (record, "decode", MALFORMED, MALFORMED, 2, 23),
            (record, "decode", OK, OK, 0, 0),
            (record, "decode", OK, OK, 1, 7),
            ("led_data", "encode", 0, None, 0, 0)])

    def test_only_its_owner_may_read_the_file_also_where_an_older_one_was_open_to_all(self):
        pathlib.Path(self.out).write_bytes(b"old")
        os.chmod(self.out, 0o666)
        self.record(CALLS, "each", umask=0)
        self.assertEqual(stat.S_IMODE(os.stat(self.out).st_mode), 0o600)
        self.assertEqual(os.listdir(self.folder), ["calls.rec"])
        self.replay()

    def test_status_is_the_programs(self):
        for status in (0, 1, 77, 255):
            self.record(CALLS, "exit", str(status), status=status, says="holds no call")
        for number in (signal.SIGKILL, signal.SIGSEGV, signal.SIGPIPE, signal.SIGINT):
            self.record(CALLS, "signal", str(int(number)), status=128 + number, says="holds no call")

    def test_words_and_environment_are_passed_on(self):
        words = ["", "a b", "[a,b]", "--help", "--", "{x}", "%%", '"']
        told = self.record("printf", "<%s>\\n", *words, says="holds no call")
        self.assertEqual(told, "".join(f"<{word}>\n" for word in words))
        self.assertEqual(self.record(CALLS, "environment", "MARKER", env={**os.environ, "MARKER": "kept"}, says="no call"),
                         "kept\n")
        preloaded = self.record(CALLS, "environment", "LD_PRELOAD", says="no call", env={**os.environ, "LD_PRELOAD": "libc.so.6"})
        self.assertTrue(preloaded.startswith("libc.so.6:/"), preloaded)

    def test_threads_lose_nothing(self):
        self.record(CALLS, "threads", "8", "1000")
        self.assertIn("16000 calls of 1 process (0 encode, 8000 decode, 0 duplicate, 8000 free): no difference", self.replay())
        self.assertEqual(len({one["thread"] for one in self.calls}), 8)

    def test_children_and_what_they_become_are_noted(self):
        self.record(CALLS, "fork")
        self.assertIn("8 calls of 2 processes", self.replay())
        parent = self.calls[0]["process"]
        self.assertEqual([one["process"] == parent for one in self.calls], [True] * 2 + [False] * 4 + [True] * 2)
        self.assertEqual([one["process"] == one["thread"] for one in self.calls], [True] * 8)

    def test_children_of_a_script_are_noted(self):
        self.record("sh", "-c", f"{CALLS} some 1; {CALLS} some 2")
        self.assertIn("6 calls of 2 processes", self.replay())

    def test_program_that_ends_itself_leaves_what_it_did(self):
        self.record(CALLS, "abort", status=128 + signal.SIGABRT)
        self.assertIn("2 calls of 1 process", self.replay())

    def test_input_of_a_call_that_did_not_return_is_there(self):
        self.record(CALLS, "abort-within", status=128 + signal.SIGABRT)
        told = self.replay("--extract", str(self.folder / "inputs"))
        self.assertIn("call 1, decode of scratch_eeprom: did not return; here it does, with VESK_OK (0)\n", told)
        self.assertEqual((self.folder / "inputs/000001-scratch_eeprom-decode-did_not_return.bin").read_bytes(),
                         b"\x0a\x0cthe last one")
        self.assertIsNone(self.calls[0]["result"])

    def test_when_all_is_killed_the_file_replays(self):
        process = subprocess.Popen([PROGRAM, "record", self.out, "--", CALLS, "some", "100000000"], start_new_session=True)
        while not os.path.exists(self.out) or not self.vesk("replay", "--json", self.out).stdout:
            time.sleep(0.05)
        os.killpg(process.pid, signal.SIGKILL)
        process.wait(PATIENCE)
        self.assertIn("no difference", self.vesk("replay", self.out).stdout)

    def test_calls_after_the_limit_are_counted_and_the_program_goes_on(self):
        self.record(CALLS, "threads", "4", "1000", options=("--limit", "64K"), says="the limit was reached")
        self.assertLessEqual(os.path.getsize(self.out), 65536)
        told = self.replay()
        later = int(re.search("The limit of 65536 bytes was reached: ([0-9]+) later calls not noted", told)[1])
        self.assertEqual(len(self.calls) + later, 8000)
        self.assertGreater(len(self.calls), 400)

    def test_one_call_over_the_limit_ends_recording(self):
        self.record(CALLS, "each", options=("--limit", "4K"), says="the limit was reached")
        self.assertIn("no difference", self.replay())

    def test_file_has_no_room_to_spare(self):
        self.record(CALLS, "some", "3")
        self.assertLess(os.path.getsize(self.out), 4096)

    def test_processes_left_behind_are_noted_until_they_end(self):
        self.record(CALLS, "leave", says="processes that the program has left behind")
        ends = time.monotonic() + PATIENCE
        while len(self.vesk("replay", "--json", self.out).stdout.splitlines()) < 100 and time.monotonic() < ends:
            time.sleep(0.1)
        self.assertIn("100 calls of 1 process", self.replay())

    def test_plug_in_that_alone_has_the_library_is_noted(self):
        self.record(FOLDER + "/recorded_calls_of_plug_in", "plug-in", FOLDER + "/librecorded_plug_in.so")
        self.assertIn("1 call of 1 process (1 encode", self.replay())

    def test_program_that_cuts_the_recording_short_is_one_line(self):
        self.record("sh", "-c", f": > '{self.out}'", status=1, says="has cut it short")

    def test_standard_error_that_is_closed_is_not_the_recording(self):
        subprocess.run(["sh", "-c", 'exec "$@" 2>&-', "sh", PROGRAM, "record", self.out, "--limit", "4K", "--", CALLS, "each"],
                       check=True, timeout=PATIENCE)
        self.assertTrue(pathlib.Path(self.out).read_bytes().startswith(b"VESKREC1"))

    def test_other_signals_for_vesk_reach_the_program(self):
        process = subprocess.Popen([PROGRAM, "record", self.out, "--", "python3", "-c", """if True:
            import signal, sys
            signal.signal(signal.SIGUSR1, lambda *_: sys.exit(7))
            print("ready", flush=True)
            while True: signal.pause()"""], stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.assertEqual(process.stdout.readline(), b"ready\n")
        process.send_signal(signal.SIGUSR1)
        process.communicate(timeout=PATIENCE)
        self.assertEqual(process.returncode, 7)

    def test_signals_for_vesk_reach_the_program(self):
        process = subprocess.Popen([PROGRAM, "record", self.out, "--", CALLS, "wait"], stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE)
        self.assertEqual(process.stdout.readline(), b"ready\n")
        process.terminate()
        self.assertIn(b"holds no call", process.communicate(timeout=PATIENCE)[1])
        self.assertEqual(process.returncode, 5)


class Refused(Case):
    def refused(self, *words, says, status=1):
        self.fails("record", self.out, *words, says=says, status=status)
        self.assertEqual(os.listdir(self.folder), self.before)

    def setUp(self):
        super().setUp()
        self.before = []

    def test_library_that_is_linked_in_is_one_line_also_without_its_symbols(self):
        linked = FOLDER + "/recorded_calls_statically"
        subprocess.run([linked, "each"], check=True)
        self.refused("--", linked, "each", says="has the library linked statically")
        stripped = str(self.folder / "stripped")
        subprocess.run(["strip", "-o", stripped, linked], check=True)
        self.before = ["stripped"]
        self.refused("--", stripped, "each", says="has the library linked statically")

    def test_program_without_a_loader_is_one_line(self):
        static = str(self.folder / "static")
        subprocess.run(["cc", "-static", "-x", "c", "-", "-o", static], input=b"int main(void) { return 0; }", check=True)
        self.before = ["static"]
        self.refused("--", static, says="is linked statically: nothing can be preloaded into it")

    def test_program_of_another_machine_is_one_line(self):
        other = self.folder / "other"
        content = bytearray(pathlib.Path(CALLS).read_bytes())
        content[18:20] = struct.pack("=H", 0xF7)
        other.write_bytes(content)
        other.chmod(0o755)
        self.before = ["other"]
        self.refused("--", str(other), says="is for another machine")

    def test_damaged_program_is_never_the_end_of_vesk(self):
        chance = random.Random(5)
        content = pathlib.Path(CALLS).read_bytes()
        other = self.folder / "other"
        for _ in range(60):
            damaged = bytearray(content[:chance.choice([20, 64, 500, len(content)])])
            for _ in range(20):
                place = chance.choice([range(16, 64), range(len(damaged))])
                damaged[chance.choice(place) % len(damaged)] = chance.randrange(256)
            damaged[:4] = b"\x7fELF"
            damaged[16:18] = b"\xff\xff"  # of no type that can be run
            other.write_bytes(damaged)
            other.chmod(0o755)
            done = self.vesk("record", self.out, "--", str(other))
            self.assertEqual(done.returncode, 1, done.stderr)
            self.assertRegex(done.stderr, r"\Avesk: [^\n]*\n\Z")

    def test_program_that_cannot_be_started_is_one_line(self):
        self.refused("--", "no_such_program", says="no_such_program cannot be started: no folder of PATH")
        self.refused("--", "./no_such_program", says="cannot be started: No such file")
        self.refused("--", str(self.folder), says="cannot be started: is a directory")
        text = self.folder / "text"
        text.write_text("no program\n")
        self.before = ["text"]
        self.refused("--", str(text), says="cannot be started: Permission denied")
        text.chmod(0o755)
        self.refused("--", str(text), says="cannot be started: Exec format error")

    def test_place_that_takes_no_file_is_one_line(self):
        for place, says in ((str(self.folder), "is no regular file"), ("/dev/null", "is no regular file"),
                            (str(self.folder / "away/x"), "No such file")):
            self.fails("record", place, "--", CALLS, "each", says=says)
        self.fails("record", self.out, "--limit", "1000000G", "--", CALLS, "each", says="bytes aside")
        self.assertEqual(os.listdir(self.folder), [])

    def test_options_that_make_no_sense_are_2(self):
        for limit in ("", "0", "1K", "-5", "64k", "1Q", "1.5M", "M", "99999999999999999999"):
            self.refused("--limit", limit, "--", CALLS, "each", says="--limit", status=2)
        self.refused(CALLS, "each", says="PROGRAM stands after --", status=2)
        self.refused(says="PROGRAM", status=2)
        self.refused("--", says="PROGRAM stands after --", status=2)
        self.refused(CALLS, "--", CALLS, says="PROGRAM stands after --", status=2)

    def test_program_is_never_taken_for_the_recording(self):
        program = self.folder / "program"
        shutil.copy(CALLS, program)
        self.before = ["program"]
        for words in (["--", str(program), "each"], ["--limit", "4K", "--", str(program)]):
            self.fails("record", *words, says="OUT is required", status=2)
        self.fails("record", str(program), "--", str(program), "each", says="is the program: OUT is another file", status=2)
        self.assertEqual(program.read_bytes(), pathlib.Path(CALLS).read_bytes())
        self.assertEqual(os.listdir(self.folder), self.before)

    def test_older_recording_stays_where_the_program_cannot_be_started(self):
        self.record(CALLS, "each")
        recorded = pathlib.Path(self.out).read_bytes()
        text = self.folder / "text"
        text.write_text("no program\n")
        text.chmod(0o755)
        self.before = ["calls.rec", "text"]
        self.fails("record", self.out, "--", str(text), says="cannot be started: Exec format error")
        self.assertEqual(sorted(os.listdir(self.folder)), self.before)
        self.assertEqual(pathlib.Path(self.out).read_bytes(), recorded)
        self.record(CALLS, "each")
        self.assertEqual(sorted(os.listdir(self.folder)), self.before)

    def test_recorder_that_is_missing_is_one_line_and_where_it_would_be_installed_it_is_found(self):
        alone = self.folder / "bin/vesk"
        alone.parent.mkdir()
        shutil.copy(PROGRAM, alone)
        record = [str(alone), "record", self.out, "--", CALLS, "each"]
        libraries = {**os.environ, "LD_LIBRARY_PATH": os.path.dirname(PROGRAM)}  # which are not where it lies now
        done = subprocess.run(record, capture_output=True, text=True, check=False, env=libraries)
        self.assertEqual(done.returncode, 1)
        place = re.fullmatch(r"vesk: libvesk_recorder.so is missing: [^\n]* nor at ([^\n]*)\n", done.stderr)[1]
        pathlib.Path(place).parent.resolve().mkdir(parents=True)
        shutil.copy(Library.RECORDER, place)
        self.assertEqual(subprocess.run(record, check=False, env=libraries).returncode, 0)
        self.assertIn("21 calls", self.replay())


class Replay(Case):
    def write(self, *calls, **header):
        pathlib.Path(self.out).write_bytes(recording(*calls, **header))

    def test_code_that_differs_is_a_line(self):
        self.write(GOOD, call(DECODE, NORTH[:-1], OK), GOOD)
        self.assertEqual(self.replay(status=1),
                         "call 2, decode of scratch_eeprom: was VESK_OK (0), is VESK_MALFORMED (-1)\n"
                         "3 calls of 1 process (0 encode, 3 decode, 0 duplicate, 0 free): 1 difference\n")
        self.assertEqual([one["difference"] is None for one in self.calls], [True, False, True])
        self.assertEqual(self.calls[0], {
            "call": 1, "type": "scratch_eeprom", "operation": "decode", "result": 0, "here": 0, "difference": None,
            "length": 7, "flags": 0, "requests": 1, "time": "2023-11-14T22:13:20.000000500Z", "nanoseconds": 250,
            "process": 7, "thread": 8})

    def test_other_differences_are_a_line_each(self):
        spare = bytes.fromhex("188025") + NORTH  # in another order than it is encoded
        for one, says in ((call(DECODE, NORTH, OK, requests=2), "asked for 2 blocks, asks for 1"),
                          (call(ENCODE, NORTH, 9), "was 9 bytes, is 7 bytes"),
                          (call(ENCODE, NORTH[:-1], 6), "its encoding is refused: VESK_MALFORMED (-1)"),
                          (call(ENCODE, spare, 10), "encodes to other bytes from byte 0 on"),
                          (call(ENCODE, NORTH + b"\x80\x01\x01", 10), "was encoded in 10 bytes, is in 7"),
                          (call(DUPLICATE, spare, OK, requests=1), "encodes to other bytes from byte 0 on"),
                          (call(DUPLICATE, NORTH, MALFORMED, requests=1), "was VESK_MALFORMED (-1), is VESK_OK (0)")):
            self.write(GOOD, one)
            self.assertIn("call 2, ", told := self.replay(status=1))
            self.assertIn(says, told)

    def test_refused_request_is_refused_again(self):
        for operation in (DECODE, DUPLICATE):
            self.write(call(operation, NORTH, NO_MEMORY, requests=1, refused=1),
                       call(operation, NORTH, NO_MEMORY, bits=HAS_CONTENT | HAS_NO_ALLOC))
            self.replay()

    def test_type_that_is_gone_is_a_line(self):
        self.write(GOOD, call(DECODE, NORTH, OK, type_place=1), types=(b"scratch_eeprom", b"of_old"))
        self.assertIn("call 2, decode of of_old: this library has no such type\n", self.replay(status=1))

    def test_cut_short_at_any_byte_what_stands_before_is_replayed(self):
        whole = recording(*[GOOD] * 3)
        first = len(whole) - 3 * len(GOOD)
        for length in range(first, len(whole)):
            pathlib.Path(self.out).write_bytes(whole[:length])
            done = self.vesk("replay", self.out)
            self.assertEqual(done.returncode, 0)
            self.assertTrue(done.stdout.startswith(f"{(length - first) // len(GOOD)} call"), done.stdout)
            self.assertIn(f"is cut short: {len(whole) - length} bytes are missing at its end\n", done.stderr)

    def test_damage_at_any_byte_costs_one_call(self):
        whole = recording(*[GOOD] * 3)
        first = len(whole) - 2 * len(GOOD)
        outcome = range(first + 64, first + 96)  # of the second; without it the call has not returned
        padding = range(first + 96 + len(NORTH), first + len(GOOD))
        for at in range(first, first + len(GOOD)):
            damaged = bytearray(whole)
            damaged[at] ^= 0x41
            pathlib.Path(self.out).write_bytes(damaged)
            done = self.vesk("replay", self.out)
            self.assertEqual(done.returncode, 0, done.stdout)
            if at in outcome:
                self.assertIn("call 2, decode of scratch_eeprom: did not return", done.stdout)
            elif at not in padding:
                self.assertIn("2 calls", done.stdout)
                self.assertIn(f"bytes {first} to {first + len(GOOD) - 1} are damaged or were not written to the end",
                              done.stderr)

    def test_room_that_nobody_wrote_to_is_skipped(self):
        self.write(GOOD, bytes(64), GOOD)
        self.assertIn("2 calls", self.replay(says="are damaged or were not written to the end"))

    def test_what_follows_the_end_is_not_looked_at(self):
        self.write(GOOD, more=bytes(10000))
        self.assertIn("1 call ", self.replay())
        self.write(GOOD, more=GOOD, full_at=112 + len(GOOD), next=1 << 40, not_noted=1)
        self.assertIn("1 call of 1 process (0 encode, 1 decode, 0 duplicate, 0 free): no difference\n"
                      "The limit of 1048576 bytes was reached: 1 later call not noted\n", self.replay())

    def test_random_damage_is_never_the_end_of_vesk(self):
        chance = random.Random(3)
        whole = recording(GOOD, call(ENCODE, NORTH, 7), call(DUPLICATE, NORTH, OK, requests=1), call(FREE, b"", 0, bits=0))
        for _ in range(200):
            damaged = bytearray(whole[:chance.choice([chance.randrange(len(whole)), len(whole)])])
            for _ in range(chance.randrange(1, 6)):
                if damaged:
                    damaged[chance.randrange(len(damaged))] = chance.choice([0, 255, chance.randrange(256)])
            pathlib.Path(self.out).write_bytes(damaged)
            self.assertIn(self.vesk("replay", self.out).returncode, (0, 1))

    def test_what_is_no_recording_is_one_line(self):
        whole = recording(GOOD)
        other_order = bytearray(whole)
        other_order[8:12] = other_order[11:7:-1]
        for content, says in ((b"", "is no recording"), (whole[:95], "cut short in its header"), (b"x" * 200, "is no recording"),
                              (bytes(other_order), "another byte order"), (whole[:100], "its header is damaged"),
                              (recording(GOOD, records_at=1 << 60), "its header is damaged"),
                              (recording(GOOD, records_at=len(whole)), "its header is damaged"),
                              (recording(GOOD, next=0), "its header is damaged"),
                              (recording(GOOD, full_at=8), "its header is damaged"),
                              (recording(GOOD, types=(b"a" * 7,), records_at=100), "its names of types are damaged")):
            pathlib.Path(self.out).write_bytes(content)
            self.fails("replay", self.out, says=says)
        self.fails("replay", str(self.folder), says="is a directory")
        self.fails("replay", str(self.folder / "away"), says="No such file")

    def test_inputs_are_extracted_for_their_owner_alone(self):
        self.write(GOOD, call(DECODE, b"\x0a", MALFORMED), call(ENCODE, NORTH, 7), call(FREE, b"", 0, bits=0),
                   call(DECODE, NORTH, 7777), call(DUPLICATE, NORTH, OK, requests=1))
        folder = self.folder / "inputs"
        self.replay("--extract", str(folder), status=1)
        self.assertEqual({path.name: path.read_bytes() for path in folder.iterdir()}, {
            "000001-scratch_eeprom-decode-VESK_OK.bin": NORTH,
            "000002-scratch_eeprom-decode-VESK_MALFORMED.bin": b"\x0a",
            "000003-scratch_eeprom-encode-VESK_OK.bin": NORTH,
            "000005-scratch_eeprom-decode-code_7777.bin": NORTH,
            "000006-scratch_eeprom-duplicate-VESK_OK.bin": NORTH})
        self.assertEqual(stat.S_IMODE(folder.stat().st_mode), 0o700)
        self.assertEqual({stat.S_IMODE(path.stat().st_mode) for path in folder.iterdir()}, {0o600})

    def test_what_was_found_before_an_input_that_cannot_be_extracted_is_told(self):
        self.write(call(DECODE, NORTH, MALFORMED), GOOD)
        folder = self.folder / "inputs"
        (folder / "000002-scratch_eeprom-decode-VESK_OK.bin").mkdir(parents=True)
        done = self.vesk("replay", "--extract", str(folder), self.out)
        self.assertEqual(done.returncode, 1)
        self.assertIn("call 1, decode of scratch_eeprom: ", done.stdout)
        self.assertIn("is a directory", done.stderr)

    def test_end_past_the_file_that_a_killed_program_has_left_costs_nothing(self):
        whole = recording(GOOD, size=len(recording(GOOD)), next=1 << 40)
        pathlib.Path(self.out).write_bytes(whole)
        self.assertIn("1 call of 1 process", self.replay())

    def test_folder_that_cannot_be_made_is_one_line(self):
        self.write(GOOD)
        self.fails("replay", "--extract", str(self.folder / "away/x"), self.out, says="No such file")

    def test_names_of_types_in_a_file_reach_neither_terminal_nor_folder(self):
        for name in (b"../pem_data", b"\x1b[2J", b"", b"pem data"):
            self.write(GOOD, types=(name,))
            self.fails("replay", "--extract", str(self.folder / "inputs"), self.out, says="its names of types are damaged")
        self.assertEqual(os.listdir(self.folder), ["calls.rec"])


class Ratio(Case):
    def test_programs_are_slowed_by_no_more_than_the_page_says(self):
        page = (pathlib.Path(SOURCE) / "docs/recording.md").read_text(encoding="utf-8")
        said = dict(re.findall(r"^\| (\w+ of \w+) .*\| ([0-9.]+) \|$", page, flags=re.M))
        inputs = self.folder / "inputs"
        self.record(str(pathlib.Path(PROGRAM).parent / "examples/inventory_client"), "--json", SOURCE + "/examples/chassis.json")
        self.replay("--extract", str(inputs))
        answer = next(inputs.glob("*-resp_inv_data-decode-*"))
        told = self.record(FOLDER + "/recorded_ratio", str(answer), options=("--limit", "1G"))
        measured = dict(re.findall(r"^(\w+ of \w+), [0-9]+ bytes: ([0-9.]+) times as long$", told, flags=re.M))
        self.assertEqual(set(measured), set(said))
        for name, times in measured.items():
            # Others use the machine meanwhile, and another machine is another ratio: the page's figure once more is left.
            self.assertLessEqual(float(times), 2 * float(said[name]), name)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[4:]])
