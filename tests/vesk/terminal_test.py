"""The command vesk on a terminal: colours and a progress bar, and neither where there is none.

    terminal_test.py PROGRAM
"""

import os
import pathlib
import pty
import re
import signal
import subprocess
import sys
import threading
import time
import unittest

from folder_case import FolderCase

PROGRAM = str(pathlib.Path(sys.argv[1]).resolve())
PEM = bytes.fromhex("0a070a0012037073751807")  # entity_common {eid f2} f3
BAD = PEM + bytes.fromhex("220100")  # f4, which is no bytes
COLOUR = re.compile(r"\x1b\[[\d;]*m")
BAR = re.compile(r"\r\x1b\[K\[[= ]{30}\] +(?:\d+ %, +)?\d+ s")
SHARE = re.compile(r"(\d+) %")
ERASED = "\r\x1b[K"
PATIENCE = 60


class Terminal:
    """A terminal, and what was written to it."""

    def __init__(self):
        self.mine, self.theirs = pty.openpty()
        self.seen = b""
        self.reader = threading.Thread(target=self.read)
        self.reader.start()

    def read(self):
        try:
            while piece := os.read(self.mine, 65536):
                self.seen += piece
        except OSError:  # the other end is closed
            pass

    def wait_for_bar(self, bar=BAR):
        end = time.monotonic() + PATIENCE
        while not bar.search(self.seen.decode()):
            if time.monotonic() > end:
                raise TimeoutError(f"no bar: {self.seen}")
            time.sleep(0.05)

    def close(self):
        os.close(self.theirs)
        self.reader.join(PATIENCE)
        os.close(self.mine)
        return self.seen.decode().replace("\r\n", "\n")


class Case(FolderCase):
    def setUp(self):
        super().setUp()
        for name, content in (("good.bin", PEM), ("bad.bin", BAD)):
            (self.folder / name).write_bytes(content)

    def environment(self, **more):
        kept = {name: value for name, value in os.environ.items() if name != "NO_COLOR"}
        return {**kept, "TERM": "xterm", **more}

    def on_terminal(self, *arguments, **more):
        terminal = Terminal()
        done = subprocess.run([PROGRAM, *arguments], cwd=self.folder, stdin=subprocess.DEVNULL, stdout=terminal.theirs,
                              stderr=subprocess.PIPE, env=self.environment(**more), timeout=PATIENCE, check=False)
        self.assertEqual(done.stderr, b"")
        return terminal.close()


class Colours(Case):
    VERBS = (("map", "pem_data", "bad.bin"), ("check", "pem_data", "good.bin", "bad.bin"),
             ("diff", "pem_data", "good.bin", "empty.bin"))

    def setUp(self):
        super().setUp()
        (self.folder / "empty.bin").write_bytes(b"")

    def test_on_a_terminal_they_are_all_that_differs(self):
        for verb in self.VERBS:
            shown = self.on_terminal(*verb)
            self.assertRegex(shown, COLOUR)
            plain = subprocess.run([PROGRAM, *verb], cwd=self.folder, capture_output=True, check=False).stdout.decode()
            self.assertNotRegex(plain, COLOUR)
            self.assertEqual(COLOUR.sub("", shown), plain)

    def test_where_no_color_is_set_or_the_terminal_is_dumb_there_are_none(self):
        for verb in self.VERBS:
            self.assertNotIn("\x1b", self.on_terminal(*verb, NO_COLOR="1"))
            self.assertNotIn("\x1b", self.on_terminal(*verb, TERM="dumb"))
            self.assertIn("\x1b", self.on_terminal(*verb, NO_COLOR=""))

    def test_json_has_none(self):
        for verb in (("map", "--json", "pem_data", "bad.bin"), ("check", "--json", "pem_data", "bad.bin")):
            self.assertNotIn("\x1b", self.on_terminal(*verb))

    def test_each_role_has_its_own_and_what_is_refused_stands_out(self):
        shown = self.on_terminal("map", "pem_data", "bad.bin")
        for colour, hexadecimal in (("34", "0a"), ("35", "07"), ("32", "70 73 75"), ("1;31", "22"), ("2", "01 00")):
            self.assertIn(f"\x1b[{colour}m{hexadecimal}", shown)
        self.assertRegex(shown, "\x1b\\[1;31mVESK_WRONG_WIRE_TYPE")


class Progress(Case):
    """Of work that takes long because its input comes slowly."""

    def slowly(self, *arguments, seconds=None, stderr=None):
        """The input comes after some seconds, or once there is a bar."""
        terminal = Terminal()
        with subprocess.Popen([PROGRAM, *arguments], cwd=self.folder, stdin=subprocess.PIPE,
                              stdout=subprocess.PIPE, stderr=stderr or terminal.theirs, env=self.environment()) as process:
            if seconds is None:
                terminal.wait_for_bar()
            else:
                time.sleep(seconds)
            output, error = process.communicate(BAD, timeout=PATIENCE)
        return terminal.close(), output, error

    def test_work_of_over_a_second_has_a_bar_that_is_gone_at_the_end(self):
        for verb in (("check", "pem_data"), ("map", "pem_data"), ("map", "--html", "page.html", "pem_data"), ("guess",)):
            shown, output, _ = self.slowly(*verb)
            self.assertEqual(BAR.sub("", shown), ERASED, verb)
            self.assertNotIn(b"\r", output or b"")

    def test_line_of_an_error_comes_after_the_bar_is_gone(self):
        shown, _, _ = self.slowly("decode", "pem_data")
        self.assertRegex(BAR.sub("", shown), "^" + re.escape(ERASED) + "vesk: -: VESK_WRONG_WIRE_TYPE at byte 11, f4: [^\\n]*\\n$")

    def test_output_on_the_same_terminal_comes_after_the_bar_is_gone(self):
        terminal = Terminal()
        with subprocess.Popen([PROGRAM, "check", "pem_data"], stdin=subprocess.PIPE, stdout=terminal.theirs,
                              stderr=terminal.theirs, env=self.environment(NO_COLOR="1")) as process:
            terminal.wait_for_bar()
            process.communicate(PEM, timeout=PATIENCE)
        shown = terminal.close()
        self.assertRegex(BAR.sub("", shown), "^" + re.escape(ERASED) + "-: decodes; [^\\n]*\\n$")

    def test_short_work_has_none(self):
        shown, _, _ = self.slowly("check", "pem_data", seconds=0)
        self.assertEqual(shown, "")

    def test_where_standard_error_is_no_terminal_there_is_none(self):
        _, _, error = self.slowly("check", "pem_data", seconds=2, stderr=subprocess.PIPE)
        self.assertEqual(error, b"")

    def test_share_that_is_done_is_shown_where_it_is_known(self):
        (self.folder / "large.bin").write_bytes(PEM * 1000000)
        terminal = Terminal()
        with subprocess.Popen([PROGRAM, "map", "--json", "pem_data", "large.bin"], cwd=self.folder, stdout=subprocess.PIPE,
                              stderr=terminal.theirs, env=self.environment()) as process:
            process.stdout.read(1 << 20)
            terminal.wait_for_bar(SHARE)  # nobody reads: it waits with a small share done
            process.stdout.close()
            process.wait(timeout=PATIENCE)
        shown = terminal.close()
        shares = [int(share) for share in SHARE.findall(shown)]
        self.assertTrue(shares and 0 <= shares[-1] < 50, shown)
        self.assertTrue(shown.endswith("vesk: standard output: Broken pipe; what should read it has ended\n"), shown)

    def test_signal_takes_the_bar_away(self):
        terminal = Terminal()
        with subprocess.Popen([PROGRAM, "map", "--html", "page.html", "pem_data"], cwd=self.folder, stdin=subprocess.PIPE,
                              stderr=terminal.theirs, env=self.environment()) as process:
            terminal.wait_for_bar()
            process.send_signal(signal.SIGINT)
            process.wait(timeout=PATIENCE)
        shown = terminal.close()
        self.assertTrue(shown.endswith(ERASED), shown)
        self.assertFalse((self.folder / "page.html").exists())


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[2:]], verbosity=2)
