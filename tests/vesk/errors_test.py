"""The command vesk where the system refuses something: one line on standard error that says what, where and what to do, the
right status, and no file that is half written.

    errors_test.py PROGRAM CASE
    errors_test.py PROGRAM Changing CHANGES_A_FILE
"""

import os
import pathlib
import resource
import signal
import subprocess
import sys
import time
import unittest

from folder_case import FolderCase

PROGRAM = str(pathlib.Path(sys.argv[1]).resolve())
PEM = bytes.fromhex("0a090a0012057073752031" "18c025")  # entity_common {eid f2} f3
PATIENCE = 60


class Case(FolderCase):
    def file(self, content, name="input.bin"):
        (self.folder / name).write_bytes(content)
        return name

    def run_vesk(self, *arguments, before=(), **more):
        return subprocess.run([*before, PROGRAM, *arguments], cwd=self.folder, stderr=subprocess.PIPE,
                              **{"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE, **more}, timeout=PATIENCE, check=False)

    def fails(self, line, *arguments, status=1, **more):
        done = self.run_vesk(*arguments, **more)
        self.assertEqual((done.returncode, done.stderr.decode()), (status, f"vesk: {line}\n"))
        return done

    def assert_files(self, *names):
        self.assertEqual(sorted(path.name for path in self.folder.iterdir()), sorted(names))


class Memory(Case):
    def test_file_that_memory_has_no_room_for_is_one_line_and_the_others_are_tried(self):
        with open(self.folder / "large.bin", "wb") as large:
            large.truncate(3 << 30)
        self.file(PEM)
        done = self.run_vesk("check", "pem_data", "input.bin", "large.bin", "input.bin",
                             preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (400 << 20, 400 << 20)))
        self.assertEqual((done.returncode, done.stderr), (1, b"vesk: large.bin: not enough memory\n"))
        self.assertEqual(done.stdout.decode().count("input.bin: decodes"), 2)


class Inputs(Case):
    VERBS = (("check", "pem_data", "{}"), ("decode", "pem_data", "{}"), ("map", "pem_data", "{}"), ("guess", "{}"),
             ("peek", "pem_data", "f3", "{}"), ("encode", "pem_data", "{}"), ("diff", "pem_data", "{}", "{}"))

    def every_verb_fails(self, line, name, **more):
        for verb in self.VERBS:
            self.fails(line, *(word.format(name) for word in verb), **more)

    def test_directory(self):
        (self.folder / "chassis").mkdir()
        self.every_verb_fails("chassis: is a directory; name a file in it", "chassis")

    def test_file_that_is_not_there(self):
        self.every_verb_fails("away.bin: No such file or directory; look for a slip in the name", "away.bin")

    def test_file_without_permission(self):
        os.chmod(self.folder / self.file(PEM), 0)
        # The superuser reads everything, unless without that capability.
        weaker = ("setpriv", "--bounding-set=-dac_override,-dac_read_search") if os.geteuid() == 0 else ()
        self.every_verb_fails("input.bin: Permission denied; ask its owner for the right to it", "input.bin", before=weaker)

    def test_name_that_a_terminal_would_obey_is_quoted(self):
        self.every_verb_fails(r'"\x1b[2Jaway": No such file or directory; look for a slip in the name', "\x1b[2Jaway")

    def test_empty_file_is_an_empty_message(self):
        self.file(b"")
        for verb in self.VERBS[:4]:
            done = self.run_vesk(*(word.format("input.bin") for word in verb))
            self.assertEqual((done.returncode, done.stderr), (0, b""), verb)
        self.fails('"f3": the bytes have no such field', "peek", "pem_data", "f3", "input.bin")
        self.assertEqual(self.run_vesk("encode", "pem_data", "input.bin").returncode, 1)  # no JSON

    def test_standard_input_that_is_closed_is_no_empty_message(self):
        closed = ("sh", "-c", 'exec "$@" <&-', "sh")
        self.fails("-: Bad file descriptor", "check", "pem_data", before=closed)
        done = self.run_vesk("check", "pem_data", self.file(PEM), "-", before=closed)
        self.assertEqual((done.returncode, done.stderr), (1, b"vesk: -: Bad file descriptor\n"))

    def test_name_that_the_system_cannot_follow_is_one_line(self):
        (self.folder / "pem_data").symlink_to("pem_data")
        done = self.run_vesk("check", "--frames", "pem_data")
        self.assertEqual(done.returncode, 2, done.stderr)
        self.assertEqual(done.stderr.count(b"\n"), 1)
        done = self.run_vesk("--schema", "a" * 300, "types")
        self.assertEqual((done.returncode, done.stderr.count(b"\n")), (1, 1), done.stderr)

    def test_input_that_does_not_block_is_waited_for(self):
        reader, writer = os.pipe()
        os.set_blocking(reader, False)
        with subprocess.Popen([PROGRAM, "check", "pem_data"], stdin=reader, stdout=subprocess.PIPE) as process:
            time.sleep(0.2)
            os.write(writer, PEM)
            os.close(writer)
            self.assertIn(b"decodes", process.communicate(timeout=PATIENCE)[0])
        os.close(reader)

    def test_several_files_get_a_line_each(self):
        (self.folder / "chassis").mkdir()
        done = self.run_vesk("check", "pem_data", self.file(PEM), "chassis", "away.bin", "input.bin")
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stdout.decode().count("input.bin: decodes"), 2)
        self.assertEqual(done.stderr.decode().splitlines(), [
            "vesk: chassis: is a directory; name a file in it",
            "vesk: away.bin: No such file or directory; look for a slip in the name"])

    def test_device_that_fails_is_named(self):
        memory = "/proc/self/mem"  # reading at 0 fails with EIO
        self.fails(f"{memory}: Input/output error", "check", "pem_data", memory)

    def test_standard_input_is_read_from_where_it_stands(self):
        self.file(b"\xff" * 7 + PEM)
        with open(self.folder / "input.bin", "rb", buffering=0) as file:
            file.seek(7)
            done = self.run_vesk("peek", "pem_data", "f3", stdin=file)
        self.assertEqual((done.returncode, done.stdout), (0, b"4800\n"))


class Changing(Case):
    def while_it_is_read(self, size):
        """Gives the input another size before its bytes are read."""
        self.file(PEM)
        return {"env": {**os.environ, "LD_PRELOAD": str(pathlib.Path(sys.argv[3]).resolve()), "CHANGED_FILE": "input.bin", "CHANGED_SIZE": str(size)}}

    def test_file_that_grows_while_it_is_read(self):
        self.fails(f"input.bin: had {len(PEM)} bytes at first and has 100 now; try again once nothing writes to it",
                   "check", "pem_data", "input.bin", **self.while_it_is_read(100))

    def test_file_that_shrinks_while_it_is_read(self):
        self.fails(f"input.bin: had {len(PEM)} bytes at first and has 3 now; try again once nothing writes to it",
                   "check", "pem_data", "input.bin", **self.while_it_is_read(3))


class Outputs(Case):
    VERBS = (("types",), ("show", "pem_data"), ("check", "pem_data", "input.bin"), ("decode", "pem_data", "input.bin"),
             ("map", "pem_data", "input.bin"), ("map", "--json", "pem_data", "input.bin"), ("guess", "input.bin"),
             ("peek", "pem_data", "f3", "input.bin"), ("encode", "pem_data", "input.json"),
             ("diff", "pem_data", "input.bin", "empty.bin"), ("--help",), ("check", "--help"), ("--version",))

    def setUp(self):
        super().setUp()
        self.file(PEM)
        self.file(b"", "empty.bin")
        self.file(b'{"f3": 4800}', "input.json")
        self.before = sorted(path.name for path in self.folder.iterdir())

    def test_signal_that_the_caller_ignores_does_not_end_a_page(self):
        os.mkfifo(self.folder / "slow")
        page = subprocess.Popen([PROGRAM, "map", "--html", "page.html", "pem_data", "slow"], cwd=self.folder,
                                preexec_fn=lambda: signal.signal(signal.SIGHUP, signal.SIG_IGN))
        with open(self.folder / "slow", "wb") as slow:
            while not list(self.folder.glob("page.html.*")):
                time.sleep(0.01)
            page.send_signal(signal.SIGHUP)
            time.sleep(0.1)
            slow.write(PEM)
        self.assertEqual(page.wait(timeout=PATIENCE), 0)
        self.assert_files(*self.before, "page.html", "slow")

    def test_pipe_that_does_not_block_is_waited_for(self):
        reader, writer = os.pipe()
        os.set_blocking(writer, False)
        self.file(bytes.fromhex("5a00") * 20000)
        with subprocess.Popen([PROGRAM, "map", "--json", "resp_inv_data", "input.bin"], cwd=self.folder,
                              stdout=writer) as process:
            os.close(writer)
            with open(reader, "rb") as output:
                time.sleep(0.2)
                self.assertTrue(output.read().endswith(b"]\n"))
        self.assertEqual(process.returncode, 0)

    def test_full_disk(self):
        for verb in self.VERBS:
            with open("/dev/full", "wb") as full:
                self.fails("standard output: No space left on device; make room, or write elsewhere", *verb, stdout=full)

    def test_broken_pipe(self):
        for verb in self.VERBS:
            reader, writer = os.pipe()
            os.close(reader)
            self.fails("standard output: Broken pipe; what should read it has ended", *verb, stdout=writer)
            os.close(writer)

    def test_page_onto_a_full_device(self):
        self.fails("/dev/full: No space left on device; make room, or write elsewhere",
                   "map", "--html", "/dev/full", "pem_data", "input.bin")
        self.assertTrue(pathlib.Path("/dev/full").is_char_device(), "the device was replaced by a file")

    def test_page_where_there_is_no_room_leaves_nothing(self):
        limit = (4096, 4096)
        self.fails("page.html: File too large; make room, or write elsewhere", "map", "--html", "page.html", "pem_data",
                   "input.bin", preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, limit))
        self.assert_files(*self.before)

    def test_page_that_cannot_be_made_leaves_the_one_before(self):
        self.file(b"the page of yesterday", "page.html")
        self.fails("away.bin: No such file or directory; look for a slip in the name",
                   "map", "--html", "page.html", "pem_data", "away.bin")
        self.assert_files(*self.before, "page.html")
        self.assertEqual((self.folder / "page.html").read_bytes(), b"the page of yesterday")

    def test_page_in_a_folder_that_is_not_there(self):
        self.fails("no/page.html: No such file or directory; look for a slip in the name",
                   "map", "--html", "no/page.html", "pem_data", "input.bin")

    def test_page_onto_a_directory(self):
        (self.folder / "pages").mkdir()
        self.fails("pages: is a directory; name a file in it", "map", "--html", "pages", "pem_data", "input.bin")

    def test_page_beside_another_form_is_refused(self):
        for option in ("--frames", "--json"):
            self.fails(f"{option} excludes --html (vesk map --help says more)", "map", option, "--html", "page.html", "pem_data",
                       "input.bin", status=2)
        self.assert_files(*self.before)

    def test_page_through_a_link_replaces_what_it_leads_to(self):
        (self.folder / "real.html").write_bytes(b"")
        (self.folder / "page.html").symlink_to("real.html")
        self.assertEqual(self.run_vesk("map", "--html", "page.html", "pem_data", "input.bin").returncode, 0)
        self.assertTrue((self.folder / "page.html").is_symlink())
        self.assertGreater((self.folder / "real.html").stat().st_size, 0)

    def test_page_has_the_rights_of_a_new_file(self):
        self.run_vesk("map", "--html", "page.html", "pem_data", "input.bin", preexec_fn=lambda: os.umask(0o027))
        self.assertEqual((self.folder / "page.html").stat().st_mode & 0o777, 0o640)

    def test_signal_leaves_no_page_and_ends_by_that_signal(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            with subprocess.Popen([PROGRAM, "map", "--html", "page.html", "pem_data"], cwd=self.folder,
                                  stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE) as process:
                end = time.monotonic() + PATIENCE
                while len(list(self.folder.iterdir())) == len(self.before):  # until the page is begun
                    self.assertLess(time.monotonic(), end)
                    time.sleep(0.01)
                process.send_signal(number)
                output, error = process.communicate(timeout=PATIENCE)
            self.assertEqual((process.returncode, output, error), (-number, b"", b""))
            self.assert_files(*self.before)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], sys.argv[2]], verbosity=2)
