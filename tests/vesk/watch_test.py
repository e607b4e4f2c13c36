"""`vesk watch` beside the real service, and beside one that answers what a test wants.

    watch_test.py PROGRAM SERVICE CHASSIS [unittest arguments]
"""

import contextlib
import json
import pathlib
import queue
import random
import signal
import socket
import struct
import subprocess
import sys
import threading
import time
import unittest

from folder_case import FolderCase

PROGRAM, SERVICE, CHASSIS = sys.argv[1:4]
PATIENCE = 60
REQ_INV_DATA, REQ_BY_TYPE, RESP_INV_DATA, REFUSAL = 1, 2, 4, 6
KINDS = {"fan": 5, "port": 12, "led": 16}


def frame(kind, body, magic=b"VSK1", length=None):
    return magic + struct.pack(">II", kind, len(body) if length is None else length) + body


def entity(kind, index, **more):
    return {"entity_common": {"eid": {"f1": 1, "f2": 1, "f3": 0, "f4": KINDS[kind], "f5": index}}, **more}


def answer(**lists):
    """A whole frame that answers a request."""
    message = {"f1": 1, "f2": 3, **lists}
    body = subprocess.run([PROGRAM, "encode", "resp_inv_data"], input=json.dumps(message).encode(), capture_output=True,
                          check=True).stdout
    return frame(RESP_INV_DATA, body)


class Stub:
    """Answers one request after the other with what it was given, the last again and again. None: hangs up."""

    def __init__(self, path, answers):
        self.answers = answers
        self.hangs_up = False  # after an answer
        self.requests = []
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(path)
        self.listener.listen()
        self.thread = threading.Thread(target=self.serve, daemon=True)
        self.thread.start()

    def serve(self):
        with contextlib.suppress(OSError):
            while True:
                connection, _ = self.listener.accept()
                with connection, contextlib.suppress(OSError):
                    self.serve_one(connection)

    def serve_one(self, connection):
        while True:
            header = connection.recv(12, socket.MSG_WAITALL)
            if len(header) < 12:
                return
            _, kind, length = struct.unpack(">4sII", header)
            self.requests.append((kind, connection.recv(length, socket.MSG_WAITALL) if length else b""))
            reply = self.answers.pop(0) if len(self.answers) > 1 else self.answers[0]
            if reply is None:
                return
            connection.sendall(reply)
            if self.hangs_up:
                return

    def close(self):
        self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()
        self.thread.join(PATIENCE)


class Watching:
    """A running watch whose lines come as a queue."""

    def __init__(self, *arguments):
        self.process = subprocess.Popen([PROGRAM, "watch", *arguments], stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.lines = queue.Queue()
        self.reader = threading.Thread(target=self.read, daemon=True)
        self.reader.start()

    def read(self):
        for line in self.process.stdout:
            self.lines.put(line.decode())
        self.lines.put(None)

    def line(self):
        return self.lines.get(timeout=PATIENCE)

    def end(self, number=None):
        """The status, the lines not taken yet, and what standard error has."""
        if number is not None:
            self.process.send_signal(number)
        status = self.process.wait(PATIENCE)
        self.reader.join(PATIENCE)
        rest = []
        while (line := self.lines.get_nowait()) is not None:
            rest.append(line)
        with self.process.stderr as errors, self.process.stdout:
            return status, rest, errors.read().decode()


class Case(FolderCase):
    def setUp(self):
        super().setUp()
        self.path = str(self.folder / "socket")

    def serve(self, *answers):
        stub = Stub(self.path, list(answers))
        self.addCleanup(stub.close)
        return stub

    def watch(self, *arguments, interval="0.05"):
        watching = Watching("--socket", self.path, "--interval", interval, *arguments)
        self.addCleanup(lambda: watching.process.poll() is None and watching.end(signal.SIGKILL))
        return watching

    def assert_ends(self, watching, says, lines=()):
        status, rest, errors = watching.end()
        self.assertEqual((status, rest), (1, list(lines)), errors)
        self.assertRegex(errors, r"\Avesk: [^\n]*\n\Z")
        self.assertIn(says, errors)


class Changes(Case):
    FIRST = {"fan_list": [entity("fan", 1), entity("fan", 2)], "port_list": [entity("port", 7, f3=1000)]}

    def changed(self, second):
        self.serve(answer(**self.FIRST), answer(**second))
        watching = self.watch()
        self.assertEqual(watching.line(), "3 entities\n")
        return watching

    def test_member_that_changes_is_a_line_with_its_entity(self):
        second = dict(self.FIRST, port_list=[entity("port", 7, f3=2500, f4=1)])
        watching = self.changed(second)
        self.assertEqual(watching.line(), "port 1/1/0/port7: f3: 1000 | 2500\n")
        self.assertEqual(watching.line(), "port 1/1/0/port7: f4: absent | 1\n")
        self.assertEqual(watching.end(signal.SIGINT), (0, [], ""))

    def test_entity_that_comes_or_goes_is_a_line(self):
        second = dict(self.FIRST, fan_list=[entity("fan", 1), entity("fan", 3)])
        watching = self.changed(second)
        self.assertEqual(watching.line(), "fan 1/1/0/fan2: a message | absent\n")
        self.assertEqual(watching.line(), "fan 1/1/0/fan3: absent | a message\n")

    def test_order_of_the_answer_is_no_change(self):
        second = dict(self.FIRST, fan_list=self.FIRST["fan_list"][::-1], port_list=[entity("port", 7, f3=1001)])
        watching = self.changed(second)
        self.assertEqual(watching.line(), "port 1/1/0/port7: f3: 1000 | 1001\n")
        self.assertEqual(watching.end(signal.SIGTERM), (0, [], ""))

    def test_two_of_one_identifier_are_both_seen(self):
        second = dict(self.FIRST, fan_list=[*self.FIRST["fan_list"], entity("fan", 1)])
        self.assertEqual(self.changed(second).line(), "fan 1/1/0/fan1 (2): absent | a message\n")

    def test_strings_reach_the_terminal_escaped(self):
        hostile = entity("fan", 1)
        hostile["entity_common"]["f2"] = "\x1b]0;owned\x07\u009b31m\n\u202e</script>"
        self.serve(answer(fan_list=[entity("fan", 1)]), answer(fan_list=[hostile]))
        watching = self.watch()
        self.assertEqual(watching.line(), "1 entity\n")
        line = watching.line()
        self.assertTrue(line.startswith("fan 1/1/0/fan1: entity_common.f2: absent | \""), line)
        self.assertNotRegex(line[:-1], "[\x00-\x1f\x7f-\x9f]")

    def test_kinds_are_asked_for_one_by_one(self):
        stub = self.serve(answer(fan_list=[entity("fan", 1)]), answer(led_list=[entity("led", 1)]))
        watching = self.watch("fan", "led", "fan", interval="60")
        self.assertEqual(watching.line(), "2 entities\n")
        self.assertEqual(watching.end(signal.SIGINT), (0, [], ""))
        self.assertEqual(stub.requests, [(REQ_BY_TYPE, b"\x08\x01\x18\x05"), (REQ_BY_TYPE, b"\x08\x01\x18\x10")])

    def test_interval_lies_between_the_questions(self):
        stub = self.serve(answer(**self.FIRST))
        watching = self.watch(interval="0.5")
        watching.line()
        began = time.monotonic()
        while len(stub.requests) < 4 and time.monotonic() - began < PATIENCE:
            time.sleep(0.01)
        self.assertGreater(time.monotonic() - began, 1.4)  # three intervals, of which the first has begun
        self.assertEqual(watching.end(signal.SIGINT), (0, [], ""))


class RealService(Case):
    def start(self):
        service = subprocess.Popen([SERVICE, "--socket", self.path, "--chassis", CHASSIS], stdout=subprocess.PIPE)
        self.addCleanup(service.wait, PATIENCE)
        self.addCleanup(service.stdout.close)
        self.addCleanup(service.kill)
        self.assertTrue(service.stdout.readline().startswith(b"serving"))
        return service

    def test_all_of_its_entities_are_counted_and_none_changes(self):
        self.start()
        watching = self.watch()
        self.assertEqual(watching.line(), "87 entities\n")
        time.sleep(0.5)
        self.assertEqual(watching.end(signal.SIGINT), (0, [], ""))

    def test_only_those_of_the_kind_are_counted(self):
        self.start()
        entities = json.loads(pathlib.Path(CHASSIS).read_bytes())["entities"]
        leds = sum("/led" in one["eid"] for one in entities)
        watching = self.watch("led")
        self.assertEqual(watching.line(), f"{leds} entities\n")
        self.assertEqual(watching.end(signal.SIGTERM), (0, [], ""))

    def test_service_that_ends_is_one_line(self):
        service = self.start()
        watching = self.watch()
        watching.line()
        service.terminate()
        self.assert_ends(watching, "no service at " + self.path)


class BadServices(Case):
    def answered_with(self, reply, says):
        self.serve(reply)
        self.assert_ends(self.watch(), says)

    def test_none_is_one_line(self):
        self.assert_ends(self.watch(), "no service at " + self.path + ": No such file")

    def test_path_that_no_socket_can_have_is_one_line(self):
        for path in ("", "p" * 200):
            self.assert_ends(Watching("--socket", path), "this cannot be the path of a socket")

    def test_hanging_up_is_one_line(self):
        self.answered_with(None, "went away without an answer")

    def test_hanging_up_later_is_one_line(self):
        self.serve(answer(), None)
        self.assert_ends(self.watch(), "went away without an answer", ["0 entities\n"])

    def test_half_an_answer_is_one_line(self):
        stub = self.serve(frame(RESP_INV_DATA, b"\x08\x01", length=90))
        stub.hangs_up = True
        self.assert_ends(self.watch(), "went away in the middle of its answer")

    def test_other_frames_are_one_line(self):
        self.answered_with(frame(RESP_INV_DATA, b"", magic=b"HTTP"), "not a frame")

    def test_frame_over_the_limit_is_one_line(self):
        self.answered_with(frame(RESP_INV_DATA, b"", length=1 << 31), "over the size limit")

    def test_frame_of_another_kind_is_one_line(self):
        self.answered_with(frame(77, b""), "a frame of kind 77")

    def test_answer_that_does_not_decode_is_one_line_with_the_place(self):
        self.answered_with(frame(RESP_INV_DATA, b"\x08\x01\x5a\x7f"), "does not decode: ")

    def test_answer_to_somebody_else_is_one_line(self):
        self.answered_with(frame(RESP_INV_DATA, b"\x08\x02"), "not to this request")

    def test_answer_that_asks_for_too_much_memory_is_one_line(self):
        self.answered_with(frame(RESP_INV_DATA, b"\x08\x01" + b"\x5a\x00" * 5000), "more memory than its length warrants")

    def test_refusal_is_one_line_without_its_control_characters(self):
        self.serve(frame(REFUSAL, b"no\x1b[2J\nmore"))
        status, _, errors = self.watch().end()
        self.assertEqual(status, 1)
        self.assertRegex(errors, r'\Avesk: [^\n\x1b]*refuses: "no\\x1b\[2J\\x0amore"\n\Z')

    def test_silence_ends_after_five_seconds(self):
        self.serve(b"")
        self.assert_ends(self.watch(), "does not answer within 5 s")

    def test_random_bytes_are_one_line(self):
        chance = random.Random(1)
        body = answer(fan_list=[entity("fan", 1)])[12:]
        for _ in range(50):
            damaged = bytearray(body)
            damaged[chance.randrange(len(damaged))] = chance.randrange(256)
            stub = Stub(self.path, [frame(RESP_INV_DATA, bytes(damaged)), None])
            status, lines, errors = self.watch().end()
            stub.close()
            pathlib.Path(self.path).unlink()
            self.assertEqual(status, 1)
            self.assertRegex(errors, r"\Avesk: [^\n]*\n\Z")
            self.assertIn(lines, [[], ["0 entities\n"], ["1 entity\n"]])


class Options(Case):
    def test_help_has_an_example(self):
        for verb in ("watch", "record", "replay"):
            done = subprocess.run([PROGRAM, verb, "--help"], capture_output=True, text=True, check=True)
            self.assertIn("Example:\n  vesk " + verb, done.stdout)

    def run_watch(self, *arguments):
        return subprocess.run([PROGRAM, "watch", *arguments], capture_output=True, text=True, timeout=PATIENCE, check=False)

    def test_mistyped_kind_is_answered_with_the_nearest(self):
        done = self.run_watch("--socket", self.path, "fann")
        self.assertEqual((done.returncode, done.stdout), (1, ""))
        self.assertEqual(done.stderr, 'vesk: no kind is called "fann"; the nearest is fan\n')

    def test_intervals_that_make_no_sense_are_2(self):
        for interval in ("0", "-1", "nan", "inf", "soon", "1e9"):
            done = self.run_watch("--socket", self.path, "--interval", interval)
            self.assertEqual((done.returncode, done.stdout), (2, ""), interval)
            self.assertRegex(done.stderr, r"\Avesk: [^\n]*--interval[^\n]*\n\Z")

    def test_socket_must_be_named(self):
        self.assertEqual(self.run_watch("fan").returncode, 2)

    def test_broken_pipe_ends_it(self):
        self.serve(answer(fan_list=[entity("fan", 1)]), answer())
        process = subprocess.Popen([PROGRAM, "watch", "--socket", self.path, "--interval", "0.3"], stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE)
        self.assertEqual(process.stdout.readline(), b"1 entity\n")
        process.stdout.close()
        with process.stderr as errors:
            self.assertEqual(errors.read(), b"vesk: standard output: Broken pipe; what should read it has ended\n")
        self.assertEqual(process.wait(PATIENCE), 1)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[4:]])
