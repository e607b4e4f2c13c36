"""Runs the inventory service and client as a user does, and as a bad neighbour would.

    exchange_test.py SERVICE CLIENT CHASSIS [unittest arguments]

Tests are named after subject, situation and outcome. Every service that a test starts must end well: with status 0,
without its socket file, and with nothing said by a sanitizer.
"""

import json
import os
import queue
import re
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import unittest

SERVICE, CLIENT, CHASSIS = (os.path.abspath(path) for path in sys.argv[1:4])

PATIENCE = 30  # seconds until something that must happen counts as hanging
SHORT = 0.3  # a time limit that a test waits for

MAGIC = b"VSK1"
REQ_INV_DATA, REQ_INV_DATA_BY_TYPE, REQ_INV_DATA_BY_EID, RESP_INV_DATA, RESP_INV_DATA_BY_EID, REFUSAL = range(1, 7)
BODY_LIMIT = 1024 * 1024
UNIT = re.compile(r" (°C|U|rpm|W|s|mV|MHz|%|MiB|Mbit/s|bytes)$")


# ---- The vocabulary in which frames and messages are written ----


def frame(kind, body, magic=MAGIC, length=None):
    return magic + struct.pack(">II", kind, len(body) if length is None else length) + body


def varint(number):
    encoded = b""
    while number >= 0x80:
        encoded += bytes([number & 0x7F | 0x80])
        number >>= 7
    return encoded + bytes([number])


def number_field(field, value):
    return varint(field << 3) + varint(value)


def bytes_field(field, content):
    return varint(field << 3 | 2) + varint(len(content)) + content


SEQUENCE = number_field(1, 1)  # what the client expects in its answer
ASK_EVERYTHING = frame(REQ_INV_DATA, SEQUENCE)


def fields_of(message):
    """The fields of a message: (number, value) with an int or bytes."""
    fields, at = [], 0

    def read_varint():
        nonlocal at
        value = shift = 0
        while True:
            byte = message[at]
            at += 1
            value |= (byte & 0x7F) << shift
            shift += 7
            if byte < 0x80:
                return value

    while at < len(message):
        tag = read_varint()
        value = read_varint()
        if tag & 7 == 2:
            at += value
            value = message[at - value : at]
        fields.append((tag >> 3, value))
    return fields


# ---- Connections ----


def connect(path):
    connection = socket.socket(socket.AF_UNIX)
    connection.settimeout(PATIENCE)
    connection.connect(path)
    return connection


def receive(connection, length):
    content = b""
    while len(content) < length:
        piece = connection.recv(length - len(content))
        if not piece:
            raise EOFError("hung up after %d of %d bytes" % (len(content), length))
        content += piece
    return content


def receive_frame(connection):
    magic, kind, length = struct.unpack(">4sII", receive(connection, 12))
    assert magic == MAGIC
    return kind, receive(connection, length)


def has_hung_up(connection):
    try:
        return connection.recv(1) == b""
    except ConnectionResetError:  # it left bytes unread, which is its right
        return True


class Service:
    """A running service. Its log comes as a queue of lines, so a test waits for a line and not for some time."""

    def __init__(self, path, chassis, time_limit):
        self.path = path
        self.process = subprocess.Popen(
            [SERVICE, "--socket", path, "--chassis", chassis, "--time-limit", str(time_limit)],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.log = []
        self.new_lines = queue.Queue()
        self.reader = threading.Thread(target=self.read_log, daemon=True)
        self.reader.start()
        self.ready = self.process.stdout.readline()

    def read_log(self):
        for line in self.process.stderr:
            self.log.append(line)
            self.new_lines.put(line)

    def wait_for_log(self, pattern):
        while not re.search(pattern, self.new_lines.get(timeout=PATIENCE)):
            pass

    def end(self, number=signal.SIGTERM):
        """Sends a signal and returns the status."""
        self.process.send_signal(number)
        return self.wait()

    def wait(self):
        status = self.process.wait(timeout=PATIENCE)
        self.reader.join(timeout=PATIENCE)
        self.process.stdout.close()
        self.process.stderr.close()
        return status


class ExchangeTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory(prefix="exchange")
        self.addCleanup(directory.cleanup)
        self.directory = directory.name
        self.path = os.path.join(self.directory, "socket")
        self.services = []

    def tearDown(self):
        for service in self.services:
            self.stop(service)

    def start(self, chassis=CHASSIS, time_limit=PATIENCE):
        service = Service(self.path, chassis, time_limit)
        self.addCleanup(lambda: service.process.poll() is None and service.process.kill())
        self.assertRegex(service.ready, "^serving ", "".join(service.log))
        self.services.append(service)
        return service

    def stop(self, service, number=signal.SIGTERM):
        self.services = [other for other in self.services if other is not service]
        self.assertEqual(service.end(number), 0, "".join(service.log))
        self.assertFalse(os.path.exists(service.path), "the socket file is still there")
        for line in service.log:
            self.assertRegex(line, "^inventory_service: client [0-9]+: ")

    def connect(self):
        connection = connect(self.path)
        self.addCleanup(connection.close)
        return connection

    def run_program(self, *arguments):
        return subprocess.run(arguments, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=PATIENCE,
                              env=dict(os.environ, TMPDIR=self.directory))

    def client(self, *arguments):
        return self.run_program(CLIENT, "--socket", self.path, *arguments)

    def file(self, content, name="chassis.json"):
        path = os.path.join(self.directory, name)
        with open(path, "wb") as file:
            file.write(content if isinstance(content, bytes) else content.encode())
        return path

    def large_chassis(self):
        """More than the buffers of a socket take, so that the service writes it in parts."""
        entities = [{"eid": "1/1/1/base%d" % i, "name": "Part %d" % i, "description": "d" * 120} for i in range(4000)]
        return self.file(json.dumps({"entities": entities}), "large.json")

    def assert_good(self, result):
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return result.stdout

    def assert_one_line(self, result, pattern, status=1):
        self.assertEqual(result.returncode, status, result.stderr)
        self.assertEqual(result.stdout, "")
        self.assertRegex(result.stderr, r"\A[^\n]*\n\Z", "this should be one line")
        self.assertRegex(result.stderr, pattern)

    def assert_serves(self):
        with connect(self.path) as connection:
            connection.sendall(frame(REQ_INV_DATA, number_field(1, 77)))
            kind, body = receive_frame(connection)
        self.assertEqual((kind, dict(fields_of(body))[1]), (RESP_INV_DATA, 77))

    def assert_refused(self, connection, pattern):
        kind, words = receive_frame(connection)
        self.assertEqual(kind, REFUSAL)
        self.assertRegex(words.decode(), pattern)
        self.assertNotIn(b"\n", words)
        self.assertTrue(has_hung_up(connection))


def entities_of(path=CHASSIS):
    with open(path, encoding="utf-8") as file:
        return json.load(file)["entities"]


def kind_of(entity):
    return entity["eid"].split("/")[-1].rstrip("0123456789")


def shown_eids(output):
    """The first column of all tables."""
    return sorted(re.findall(r"^  (\d+/\d+/\d+/\S+)", output, re.MULTILINE))


class Answers(ExchangeTest):
    def test_example_chassis_is_as_rich_as_promised(self):
        entities = entities_of()
        self.assertGreaterEqual(len(entities), 60)
        self.assertGreaterEqual(len({kind_of(entity) for entity in entities}), 12)
        self.assertGreaterEqual(len({entity["eid"].split("/")[2] for entity in entities}), 4)

    def test_client_asks_for_everything_and_shows_every_entity(self):
        self.start()
        output = self.assert_good(self.client())
        self.assertEqual(shown_eids(output), sorted(entity["eid"] for entity in entities_of()))
        count = len(entities_of())
        self.assertTrue(output.startswith("%d of the %d entities" % (count, count)))
        self.assertNotRegex(output, " \n", "lines should not end in spaces")

    def test_client_asks_for_each_kind_and_shows_just_that_kind(self):
        self.start()
        for kind in sorted({kind_of(entity) for entity in entities_of()}):
            output = self.assert_good(self.client("--type", kind))
            wanted = sorted(entity["eid"] for entity in entities_of() if kind_of(entity) == kind)
            self.assertEqual(shown_eids(output), wanted)

    def test_client_asks_for_kind_that_is_not_there_and_shows_none(self):
        self.start(self.file('{"entities": [{"eid": "1/1/0/chassis1"}]}'))
        self.assertEqual(self.assert_good(self.client("--type", "fan")), "0 of the 1 entities of the chassis\n")

    def test_client_asks_for_one_entity_of_each_kind_and_shows_every_value(self):
        self.start()
        for entity in {kind_of(entity): entity for entity in entities_of()}.values():
            output = self.assert_good(self.client("--eid", entity["eid"]))
            lines = output.splitlines()
            self.assertEqual(lines[0], "%s (%s)" % (entity["eid"], kind_of(entity)))
            shown = {line[:22].strip(): UNIT.sub("", line[22:]) for line in lines[1:]}
            words = {True: "yes", False: "no"}
            wanted = {key.replace("_", " "): words[value] if isinstance(value, bool) else str(value)
                      for key, value in entity.items() if key != "eid"}
            self.assertEqual(shown, wanted)

    def test_client_asks_for_unknown_eid_and_says_that_there_is_none(self):
        self.start()
        self.assert_one_line(self.client("--eid", "1/1/7/port3/sensor9"),
                             "the chassis has no entity with the EID 1/1/7/port3/sensor9$")
        self.assert_serves()

    def test_client_keeps_the_bytes_of_its_answer(self):
        self.start()
        kept = os.path.join(self.directory, "answer.bin")
        shown = self.assert_good(self.client("--type", "fan", "--keep", kept))
        with connect(self.path) as connection:
            connection.sendall(frame(REQ_INV_DATA_BY_TYPE, SEQUENCE + number_field(3, 5)))
            body = receive_frame(connection)[1]
        with open(kept, "rb") as file:
            self.assertEqual(file.read(), body)
        self.assertEqual(len(shown_eids(shown)), sum(kind_of(entity) == "fan" for entity in entities_of()))
        self.assertEqual(self.client("--keep", "/dev/full").returncode, 1)
        nowhere = os.path.join(self.directory, "away", "answer.bin")
        result = self.client("--keep", nowhere)
        self.assertEqual((result.returncode, result.stderr),
                         (1, "inventory_client: cannot keep the answer in %s: No such file or directory\n" % nowhere))

    def test_client_gets_another_chassis_and_shows_that(self):
        path = self.file('{"entities": [{"eid": "2/1/0/chassis1", "name": "Grüner Schrank"}]}')
        output = self.assert_good(self.run_program(CLIENT, "--json", path))
        self.assertEqual(shown_eids(output), ["2/1/0/chassis1"])
        self.assertIn("Grüner Schrank", output)
        self.assertEqual(os.listdir(self.directory), ["chassis.json"], "something of the private service is left")

    def test_connection_carries_several_requests_and_each_gets_its_answer(self):
        self.start()
        connection = self.connect()
        requests = [number_field(1, sequence) for sequence in (5, 6, 4294967295)]
        connection.sendall(b"".join(frame(REQ_INV_DATA, request) for request in requests))
        for sequence in (5, 6, 4294967295):
            kind, body = receive_frame(connection)
            self.assertEqual((kind, dict(fields_of(body))[1]), (RESP_INV_DATA, sequence))

    def test_help_of_both_programs_says_how_to_use_them(self):
        for program in (SERVICE, CLIENT):
            output = self.assert_good(self.run_program(program, "--help"))
            self.assertIn("--socket", output)

    def test_options_that_make_no_sense_get_one_line(self):
        for arguments, pattern in (
            (["--colour", "red"], "colour"),
            ([], "--socket or --json"),
            (["--socket", "s", "--json", "f"], "--socket or --json"),
            (["--socket", "s", "extra"], "only options"),
            (["--socket", "s", "--type", "toaster"], "no kind \"toaster\""),
            (["--socket", "s", "--eid", "1/1/x"], "not an EID"),
            (["--socket", "s", "--eid", "1/1/1/fan01"], "not an EID"),
            (["--socket", "s", "--eid", "1/1/1/fan4294967296"], "not an EID"),
            (["--socket", "s", "--eid", "1/1/1/fan1", "--type", "fan"], "together"),
            (["--socket", "s", "--time-limit", "-1"], "time-limit"),
            (["--socket", "s", "--time-limit", "nan"], "time-limit"),
            (["--socket", "s", "--memory-limit", "-1"], "memory-limit"),
        ):
            self.assert_one_line(self.run_program(CLIENT, *arguments), pattern, status=2)
        for arguments, pattern in (([], "required"), (["--socket", "s", "--chassis", "f", "--time-limit", "0"], "0")):
            self.assert_one_line(self.run_program(SERVICE, *arguments), pattern, status=2)


class BadFrames(ExchangeTest):
    def refuse(self, sent, pattern, time_limit=PATIENCE):
        service = self.start(time_limit=time_limit)
        connection = self.connect()
        connection.sendall(sent)
        self.assert_refused(connection, pattern)
        service.wait_for_log("client 1: refused: .*" + pattern)
        self.assert_serves()

    def test_frame_that_is_truncated_inside_is_refused(self):
        self.refuse(frame(REQ_INV_DATA, b"\x08"), "does not decode: it is truncated or inconsistent")

    def test_frame_with_wrong_wire_type_is_refused(self):
        self.refuse(frame(REQ_INV_DATA_BY_TYPE, bytes_field(1, b"x")), "does not decode: one of its fields has the")

    def test_frame_with_field_that_cannot_be_skipped_is_refused(self):
        self.refuse(frame(REQ_INV_DATA_BY_EID, varint(9 << 3 | 4)), "does not decode: it holds an unknown field")

    def test_frame_that_asks_for_too_much_memory_is_refused(self):
        elements = bytes_field(6, b"") * 100000
        self.refuse(frame(REQ_INV_DATA_BY_EID, bytes_field(1, elements)), "asks for more memory than the limit")

    def test_frame_over_the_size_limit_is_refused_by_its_header(self):
        self.refuse(frame(REQ_INV_DATA, b"", length=BODY_LIMIT + 1), "over the size limit")

    def test_frame_of_unknown_kind_is_refused(self):
        self.refuse(frame(99, b""), "unknown message kind 99")

    def test_frame_of_an_answer_is_refused(self):
        self.refuse(frame(RESP_INV_DATA, b""), "unknown message kind 4")

    def test_frame_without_the_magic_is_refused(self):
        self.refuse(b"GET / HTTP/1.1\r\n\r\n", "not a frame")

    def test_request_for_unknown_kind_of_entity_is_refused(self):
        self.refuse(frame(REQ_INV_DATA_BY_TYPE, number_field(3, 18)), "no kind of entity with the code 18")

    def test_half_a_header_and_silence_is_refused_after_the_time_limit(self):
        self.refuse(ASK_EVERYTHING[:5], "not complete within the time limit", time_limit=SHORT)

    def test_half_a_body_and_silence_is_refused_after_the_time_limit(self):
        self.refuse(ASK_EVERYTHING[:-1], "not complete within the time limit", time_limit=SHORT)

    def test_silence_from_the_start_is_ended_after_the_time_limit(self):
        self.start(time_limit=SHORT)
        self.assertTrue(has_hung_up(self.connect()))
        self.assert_serves()

    def test_request_with_hostile_eid_gets_its_lookup_error(self):
        self.start()
        element = bytes_field(6, number_field(1, 4294967295) + number_field(2, 4294967295))
        eid = b"".join(number_field(field, 4294967295) for field in range(1, 6)) + element * 1000
        connection = self.connect()
        connection.sendall(frame(REQ_INV_DATA_BY_EID, bytes_field(1, eid)))
        kind, body = receive_frame(connection)
        self.assertEqual(kind, RESP_INV_DATA_BY_EID)
        error = dict(fields_of(dict(fields_of(body))[20]))
        self.assertEqual((error[1], error[2]), (eid, 1))

    def test_request_that_repeats_nested_messages_costs_no_memory(self):
        self.start()
        policy = bytes_field(6, bytes_field(1, b"north") + bytes_field(2, b"south"))
        connection = self.connect()
        connection.sendall(frame(REQ_INV_DATA, policy * 3))
        self.assertEqual(receive_frame(connection)[0], RESP_INV_DATA)


class Neighbours(ExchangeTest):
    def test_client_that_goes_away_in_the_middle_of_a_frame_is_noted(self):
        service = self.start()
        with connect(self.path) as connection:
            connection.sendall(ASK_EVERYTHING[:7])
        service.wait_for_log("went away in the middle of a frame")
        self.assert_serves()

    def test_client_that_goes_away_in_the_middle_of_its_answer_does_not_end_the_service(self):
        service = self.start(self.large_chassis())
        with connect(self.path) as connection:
            connection.sendall(ASK_EVERYTHING)
            receive(connection, 1)
        service.wait_for_log("went away before its answer")
        self.assert_serves()

    def test_client_that_does_not_take_its_answer_is_left_after_the_time_limit(self):
        service = self.start(self.large_chassis(), time_limit=SHORT)
        connection = self.connect()
        connection.sendall(ASK_EVERYTHING)
        service.wait_for_log("does not take its answer")
        self.assert_serves()
        with self.assertRaises((EOFError, ConnectionResetError)):
            receive_frame(connection)

    def test_clients_that_dawdle_hold_up_nobody(self):
        self.start(self.large_chassis())
        half_sent = [self.connect() for _ in range(10)]
        for connection in half_sent:
            connection.sendall(ASK_EVERYTHING[:-1])
        not_taken = [self.connect() for _ in range(10)]
        for connection in not_taken:
            connection.sendall(ASK_EVERYTHING)
        self.assert_good(self.client("--eid", "1/1/1/base7", "--time-limit", str(PATIENCE / 3)))
        # Those that dawdled get what they are due all the same.
        for connection in half_sent[:1] + not_taken[:1]:
            if connection in half_sent:
                connection.sendall(ASK_EVERYTHING[-1:])
            self.assertEqual(receive_frame(connection)[0], RESP_INV_DATA)

    def test_more_clients_than_the_service_takes_at_once_are_all_answered(self):
        self.start()
        connections = [self.connect() for _ in range(100)]
        for connection in connections:
            connection.sendall(ASK_EVERYTHING)
        answers = set()
        for connection in connections:
            answers.add(receive_frame(connection))
            connection.close()
        self.assertEqual([kind for kind, _ in answers], [RESP_INV_DATA])

    def test_many_client_programs_at_once_are_all_answered(self):
        self.start()
        programs = [subprocess.Popen([CLIENT, "--socket", self.path], stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
                    for _ in range(16)]
        outputs = {program.communicate(timeout=PATIENCE)[0] for program in programs}
        self.assertEqual([program.returncode for program in programs], [0] * 16)
        self.assertEqual(len(outputs), 1)

    def test_request_that_comes_byte_by_byte_is_answered(self):
        self.start()
        connection = self.connect()
        for byte in ASK_EVERYTHING:
            connection.send(bytes([byte]))
        self.assertEqual(receive_frame(connection)[0], RESP_INV_DATA)

    def test_answer_that_is_taken_in_small_pieces_comes_whole(self):
        self.start(self.large_chassis())
        connection = self.connect()
        connection.sendall(ASK_EVERYTHING)
        self.assert_serves()  # by then the service has written all that the socket takes
        head = b"".join(receive(connection, 1) for _ in range(2000))
        _, _, length = struct.unpack(">4sII", head[:12])
        body = head[12:] + receive(connection, 12 + length - len(head))
        self.assertGreater(length, 500000)
        self.assertEqual(sum(field == 20 for field, _ in fields_of(body)), 4000)


class BadChassis(ExchangeTest):
    """Each is tried with the service and, through its private service, with the client."""

    def refuse(self, content, pattern):
        self.refuse_file(self.file(content), pattern)

    def refuse_file(self, path, pattern):
        before = os.listdir(self.directory)
        self.assert_one_line(self.run_program(SERVICE, "--socket", self.path, "--chassis", path), pattern)
        self.assert_one_line(self.run_program(CLIENT, "--json", path), pattern)
        self.assertEqual(os.listdir(self.directory), before, "something is left")

    def refuse_entity(self, members, pattern):
        entity = '{"eid": "1/1/3/port2", %s}' % members
        self.refuse('{"entities": [{"eid": "1/1/0/chassis1"}, %s]}' % entity, r"entity 2 \(1/1/3/port2\): " + pattern)

    def test_json_that_is_malformed_is_named_by_line_and_column(self):
        self.refuse('{\n  "entities": [\n    {"eid" "1/1/0/chassis1"}\n  ]\n}\n', r"chassis\.json:3:2\d: syntax error")

    def test_json_that_ends_early_is_named_by_line_and_column(self):
        self.refuse('{\n  "entities": [', r"chassis\.json:2:16: .*unexpected end of input")

    def test_json_that_is_empty_is_named_by_line_and_column(self):
        self.refuse("", r"chassis\.json:1:1: .*unexpected end of input")

    def test_json_that_is_not_utf8_is_named_by_line_and_column(self):
        self.refuse(b'{"entities": [{"eid": "\xff"}]}', r"chassis\.json:1:2\d: .*UTF-8")

    def test_file_that_is_missing_is_named(self):
        self.refuse_file(os.path.join(self.directory, "none.json"), r"none\.json: No such file or directory")

    def test_file_that_is_a_directory_is_named(self):
        self.refuse_file(self.directory, "Is a directory")

    def test_file_without_end_is_refused(self):
        self.refuse_file("/dev/zero", "too long")

    def test_key_that_is_unknown_is_named(self):
        self.refuse_entity('"speeed": 1', 'unknown key "speeed"')

    def test_key_of_another_kind_is_unknown(self):
        self.refuse_entity('"cores": 1', 'unknown key "cores"')

    def test_key_at_the_top_that_is_unknown_is_named(self):
        self.refuse('{"entities": [], "entity": []}', 'unknown key "entity"')

    def test_number_that_is_too_large_is_named_with_its_range(self):
        self.refuse_entity('"temperature": 201', '"temperature": 201 is out of range.*from 0 to 200')

    def test_number_that_is_negative_is_named_with_its_range(self):
        self.refuse_entity('"temperature": -1', '"temperature": -1 is out of range')

    def test_number_with_a_fraction_is_named_with_its_range(self):
        self.refuse_entity('"temperature": 20.5', '"temperature": 20.5 is out of range')

    def test_number_of_more_than_64_bits_is_named_with_its_range(self):
        self.refuse_entity('"uptime": 18446744073709551616', '"uptime": 1.8.* is out of range')

    def test_number_of_64_bits_is_taken_whole(self):
        self.start(self.file('{"entities": [{"eid": "1/1/0/fan1", "uptime": 18446744073709551615}]}'))
        self.assertIn("18446744073709551615 s", self.assert_good(self.client("--eid", "1/1/0/fan1")))

    def test_value_of_wrong_type_is_named(self):
        self.refuse_entity('"temperature": "warm"', '"temperature": "warm" is not a number')
        self.refuse_entity('"name": 7', '"name": 7 is not text')
        self.refuse_entity('"alarm": 1', '"alarm": 1 is neither true nor false')
        self.refuse_entity('"state": "sideways"', '"state": "sideways" is not one of unknown')

    def test_text_that_is_too_long_is_named_with_its_range(self):
        self.refuse_entity('"name": "%s"' % ("n" * 49), '"name": its length of 49 bytes is out of range')

    def test_text_with_a_nul_is_named(self):
        self.refuse_entity(r'"name": "a\u0000b"', '"name": text cannot hold a NUL')

    def test_eid_that_stands_twice_is_named(self):
        self.refuse('{"entities": [{"eid": "1/1/0/fan1"}, {"eid": "1/1/0/fan2"}, {"eid": "1/1/0/fan1"}]}',
                    r"entity 3 \(1/1/0/fan1\): another entity has the same EID")

    def test_eid_that_is_missing_or_wrong_is_named_by_its_place(self):
        self.refuse('{"entities": [{"name": "x"}]}', 'entity 1: "eid" must be there')
        self.refuse('{"entities": [{"eid": "1/1/toaster1"}]}', 'entity 1: "1/1/toaster1" is not an EID')
        self.refuse(r'{"entities": [{"eid": "1/1/0/fan1\u0000"}]}', "entity 1: .* is not an EID")

    def test_entities_that_are_no_list_are_refused(self):
        self.refuse('{"entities": {}}', '"entities" must be there and be a list')
        self.refuse("[]", "a chassis description is an object")

    def test_chassis_that_no_frame_can_hold_is_refused_at_the_start(self):
        entities = [{"eid": "1/1/1/base%d" % i, "description": "d" * 120} for i in range(8000)]
        self.refuse(json.dumps({"entities": entities}), "the chassis takes [0-9]+ bytes, and a frame holds 1048576")


class SocketPaths(ExchangeTest):
    def serve(self, path):
        return self.run_program(SERVICE, "--socket", path, "--chassis", CHASSIS)

    def test_path_in_use_is_left_to_its_service(self):
        self.start()
        self.assert_one_line(self.serve(self.path), "in use by a running service")
        self.assert_serves()

    def test_path_of_a_killed_service_is_taken_over(self):
        killed = self.start()
        self.services.clear()
        self.assertEqual(killed.end(signal.SIGKILL), -signal.SIGKILL)
        self.assertTrue(os.path.exists(self.path))
        self.start()
        self.assert_serves()

    def test_path_of_another_file_is_left_alone(self):
        path = self.file("precious", "notes.txt")
        self.assert_one_line(self.serve(path), "exists and is not a socket")
        with open(path) as file:
            self.assertEqual(file.read(), "precious")

    def test_path_that_is_too_long_or_empty_or_nowhere_is_named(self):
        self.assert_one_line(self.serve(os.path.join(self.directory, "s" * 108)), "a socket path has 1 to 107 bytes")
        self.assert_one_line(self.serve(""), "a socket path has 1 to 107 bytes")
        self.assert_one_line(self.serve(os.path.join(self.directory, "none", "s")), "No such file or directory")

    def test_path_that_was_replaced_is_not_removed_at_the_end(self):
        service = self.start()
        os.unlink(self.path)
        self.file("somebody else's", "socket")
        self.services.clear()
        self.assertEqual(service.end(), 0)
        self.assertTrue(os.path.exists(self.path))

    def test_service_stops_on_either_signal_in_the_middle_of_everything(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            service = self.start(self.large_chassis())
            half_sent, not_taken = self.connect(), self.connect()
            half_sent.sendall(ASK_EVERYTHING[:-1])
            not_taken.sendall(ASK_EVERYTHING)
            receive(not_taken, 1)
            self.stop(service, number)


class BadServices(ExchangeTest):
    """The client against a service that a test plays."""

    def play(self, act):
        """Accepts one client, reads its request and leaves the rest to `act`."""
        listener = socket.socket(socket.AF_UNIX)
        listener.settimeout(PATIENCE)
        listener.bind(self.path)
        listener.listen()

        def run():
            with listener, listener.accept()[0] as connection:
                connection.settimeout(PATIENCE)
                receive_frame(connection)
                act(connection)

        actor = threading.Thread(target=run)
        actor.start()
        self.addCleanup(actor.join)

    def answer(self, content):
        self.play(lambda connection: connection.sendall(content))

    @staticmethod
    def wait_until_it_goes(connection):
        has_hung_up(connection)

    def test_service_that_is_not_there_is_named(self):
        self.assert_one_line(self.client(), "no service at .*socket: No such file or directory")

    def test_service_that_was_killed_is_named(self):
        with socket.socket(socket.AF_UNIX) as stale:
            stale.bind(self.path)
        self.assert_one_line(self.client(), "no service at .*socket: Connection refused")

    def test_service_that_goes_without_an_answer_is_noticed(self):
        self.answer(b"")
        self.assert_one_line(self.client(), "went away without an answer")

    def test_service_that_goes_in_the_middle_of_the_header_is_noticed(self):
        self.answer(frame(RESP_INV_DATA, SEQUENCE)[:6])
        self.assert_one_line(self.client(), "went away in the middle of its answer")

    def test_service_that_goes_in_the_middle_of_the_body_is_noticed(self):
        self.answer(frame(RESP_INV_DATA, SEQUENCE + b"\x10\x01")[:-1])
        self.assert_one_line(self.client(), "went away in the middle of its answer")

    def test_service_that_says_nothing_is_left_after_the_time_limit(self):
        self.play(self.wait_until_it_goes)
        self.assert_one_line(self.client("--time-limit", str(SHORT)), "did not answer within the time limit")

    def test_service_that_stops_in_the_middle_is_left_after_the_time_limit(self):
        def act(connection):
            connection.sendall(frame(RESP_INV_DATA, SEQUENCE)[:-1])
            self.wait_until_it_goes(connection)

        self.play(act)
        self.assert_one_line(self.client("--time-limit", str(SHORT)), "did not answer within the time limit")

    def test_answer_that_comes_byte_by_byte_is_shown(self):
        body = SEQUENCE + bytes_field(20, bytes_field(1, bytes_field(2, b"Slow part")))

        def act(connection):
            for byte in frame(RESP_INV_DATA, body):
                connection.send(bytes([byte]))

        self.play(act)
        self.assertIn("Slow part", self.assert_good(self.client()))

    def test_answer_over_the_memory_limit_ends_with_the_allocation_code_in_words(self):
        self.start()
        self.assert_one_line(self.client("--memory-limit", "10000"),
                             r"asks for more memory than the limit allows of 10000 bytes \(code -4\)")
        self.assert_serves()

    def test_answer_of_many_empty_elements_stays_within_the_memory_limit(self):
        self.answer(frame(RESP_INV_DATA, SEQUENCE + bytes_field(6, b"") * 500000))
        self.assert_one_line(self.client(), r"asks for more memory than the limit allows of 8388608 bytes \(code -4\)")

    def test_answer_that_does_not_decode_is_named(self):
        self.answer(frame(RESP_INV_DATA, SEQUENCE + bytes_field(20, bytes_field(1, b"\x12\x05abc"))))
        self.assert_one_line(self.client(), r"does not decode: it is truncated or inconsistent \(code -1\)")

    def test_answer_over_the_size_limit_is_named(self):
        self.answer(frame(RESP_INV_DATA, b"", length=BODY_LIMIT + 1))
        self.assert_one_line(self.client(), "over the size limit")

    def test_answer_that_is_no_frame_is_named(self):
        self.answer(b"HTTP/1.1 400 Bad Request\r\n")
        self.assert_one_line(self.client(), "not a frame")

    def test_answer_of_wrong_kind_is_named(self):
        self.answer(frame(RESP_INV_DATA_BY_EID, SEQUENCE))
        self.assert_one_line(self.client(), r"wrong kind of message \(5\)")

    def test_answer_to_another_request_is_named(self):
        self.answer(frame(RESP_INV_DATA, number_field(1, 2)))
        self.assert_one_line(self.client(), "not to this request")

    def test_answer_without_an_entity_is_named(self):
        self.answer(frame(RESP_INV_DATA_BY_EID, SEQUENCE))
        self.assert_one_line(self.client("--eid", "1/1/0/fan1"), "holds no entity")

    def test_answer_that_repeats_a_nested_message_loses_no_memory(self):
        base = bytes_field(18, bytes_field(1, bytes_field(2, b"Twice")))
        self.answer(frame(RESP_INV_DATA_BY_EID, SEQUENCE + base + base))
        self.assertIn("Twice", self.assert_good(self.client("--eid", "1/1/0/base1")))

    def test_refusal_is_shown_in_its_words(self):
        self.answer(frame(REFUSAL, b"not on Sundays\x1b[2J"))
        self.assert_one_line(self.client(), r"the service refuses the request: not on Sundays\.\[2J")

    def test_text_with_terminal_commands_is_shown_without_them(self):
        common = bytes_field(2, b"\x1b[31mred\xc2\x9b\x07") + bytes_field(3, "é".encode() * 200)
        self.answer(frame(RESP_INV_DATA_BY_EID, SEQUENCE + bytes_field(18, bytes_field(1, common))))
        output = self.assert_good(self.client("--eid", "1/1/0/base1"))
        self.assertIn(".[31mred..", output)
        self.assertIn("é" * 95 + "\n", output)


if __name__ == "__main__":
    for needed in (SERVICE, CLIENT, CHASSIS):
        if not os.path.isfile(needed):
            sys.exit("exchange_test: there is no %s" % needed)
    unittest.main(argv=sys.argv[:1] + sys.argv[4:], verbosity=2)
