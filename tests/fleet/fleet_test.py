"""Runs the fleet, and compares the collector's database with what the chassis themselves say they sent.

    fleet_test.py RUN PROGRAMS [unittest arguments]
"""

import collections
import os
import pathlib
import re
import signal
import sqlite3
import subprocess
import sys
import tempfile
import time
import unittest

RUN, PROGRAMS = (os.path.abspath(path) for path in sys.argv[1:3])
PATIENCE = 60  # seconds until something that must happen counts as hanging

Sent = collections.namedtuple("Sent", "chassis session sequence kind body")


class Said:
    """What the chassis say they sent, as the simulator's record has it."""

    def __init__(self, path):
        self.sent, self.restarts, self.ends, self.states = [], [], {}, {}
        for line in path.read_text(encoding="utf-8").splitlines():
            what, chassis, *rest = line.split(" ")
            if what == "sent":
                self.sent.append(Sent(chassis, int(rest[0]), int(rest[1]), rest[2], rest[3]))
            elif what == "restart":
                self.restarts.append((chassis, *map(int, rest[:3])))
            elif what == "end":
                self.ends[chassis] = tuple(map(int, rest))
            elif what == "state":
                self.states[chassis, rest[0]] = rest[1]

    def sure(self):
        """What must have arrived: all but what a chassis had not been answered when it booted again."""
        answered = {(chassis, session): last for chassis, session, _, last in self.restarts}
        return [sent for sent in self.sent if sent.sequence <= answered.get((sent.chassis, sent.session), sent.sequence)]


def differences(folder):
    """A line for everything in which the database and the chassis disagree."""
    said = Said(folder / "record")
    database = sqlite3.connect(folder / "fleet.db")
    database.text_factory = lambda text: text.decode(errors="replace")

    def rows(query):
        return database.execute(query + " AND chassis LIKE 'chassis-%'").fetchall()

    wrong = []
    sent = {(s.chassis, s.session, s.sequence): s.body for s in said.sent if s.kind == "notification"}
    sure = {(s.chassis, s.session, s.sequence) for s in said.sure() if s.kind == "notification"}
    stored = {tuple(key): body.hex() for *key, body
              in rows("SELECT chassis, session, sequence, body FROM notification WHERE 1")}
    wrong += [f"notification {key} is lost" for key in sorted(sure - stored.keys())]
    wrong += [f"notification {key} is not as it was sent" for key, body in stored.items() if sent.get(key) != body]

    inventories = {(s.chassis, s.session, s.sequence): s.body for s in said.sent if s.kind == "inventory"}
    newest = {}
    for chassis, session, sequence in sorted(inventories):
        newest[chassis] = (session, sequence)
    stored = {chassis: (session, sequence, body.hex()) for chassis, session, sequence, body
              in rows("SELECT chassis, session, sequence, body FROM inventory WHERE 1")}
    for chassis, key in newest.items():
        if stored.get(chassis, (0, 0))[:2] != key:
            wrong.append(f"the last inventory of {chassis} is {stored.get(chassis, (0, 0))[:2]}, not {key}")
        elif stored[chassis][2] != inventories[chassis, *key]:
            wrong.append(f"the last inventory of {chassis} is not as it was sent")

    states = {(chassis, eid): "failed" if state == "down" or alarm else "well" for chassis, eid, state, alarm
              in rows("SELECT chassis, eid, state, alarm FROM entity WHERE 1")}
    wrong += [f"{key} is {states.get(key)}, not {said.states.get(key)}" for key in sorted(states.keys() | said.states.keys())
              if states.get(key) != said.states.get(key)]

    progress = {row[0]: row[1:] for row in database.execute(
        "SELECT name, session, sequence, messages, dropped, missing, refused FROM chassis WHERE name LIKE 'chassis-%'")}
    for chassis, (session, last, answered, dropped) in said.ends.items():
        if answered != last:
            wrong.append(f"{chassis} still waits for the answers after {answered} of {last}")
        if progress.get(chassis, (0, 0))[:2] != (session, last):
            wrong.append(f"{chassis} is at {progress.get(chassis)}, not at {session}, {last}")
            continue
        _, _, messages, said_dropped, missing, refused = progress[chassis]
        all_sent = sum(s.chassis == chassis for s in said.sent)
        all_sure = sum(s.chassis == chassis for s in said.sure())
        if not all_sure <= messages <= all_sent:
            wrong.append(f"{chassis}: {messages} messages were taken, of {all_sent} that were sent")
        if missing or refused:
            wrong.append(f"{chassis}: {missing} missing, {refused} refused")
        if said_dropped > dropped:
            wrong.append(f"{chassis}: {said_dropped} dropped, it says {dropped}")
    if not said.sent or not said.states:
        wrong.append("the chassis sent nothing")
    return wrong


def descendants(folder):
    """Processes that have the folder of a run in their arguments."""
    found = []
    for path in pathlib.Path("/proc").glob("[0-9]*/cmdline"):
        try:
            if str(folder).encode() in path.read_bytes():
                found.append(path.parent.name)
        except OSError:
            pass
    return found


class FleetTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory(prefix="fleet_test")
        self.addCleanup(directory.cleanup)
        self.folder = pathlib.Path(directory.name)
        self.kept = self.folder / "kept"

    def start(self, *options):
        return subprocess.Popen([RUN, PROGRAMS, *map(str, options)], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                env=dict(os.environ, TMPDIR=str(self.folder)), start_new_session=True)

    def run_fleet(self, *options, status=0):
        process = self.start("--keep", self.kept, *options)
        output, errors = process.communicate(timeout=600)
        logs = "".join(f"{path.name}: {path.read_text(errors='replace')[-500:]}" for path in self.kept.glob("*.log"))
        self.assertEqual(process.returncode, status, output + errors + logs)
        self.assertEqual(os.listdir(self.folder), ["kept"], "the run left something")
        self.assertEqual(descendants(self.folder), [])
        return output

    def assert_nothing_differs(self):
        wrong = differences(self.kept)
        self.assertEqual(wrong, [], f"{len(wrong)} differences, the first: {wrong[:5]}")

    def database(self, query):
        database = sqlite3.connect(self.kept / "fleet.db")
        database.text_factory = lambda text: text.decode(errors="replace")
        return database.execute(query).fetchall()

    def assert_hostile_was_counted(self):
        [(refused, over_pace, out_of_turn, words)] = self.database(
            "SELECT refused, over_pace, out_of_turn, last_refusal FROM chassis WHERE name = 'hostile'")
        self.assertGreater(min(refused, over_pace, out_of_turn), 0)
        self.assertTrue(words)


class Ten(FleetTest):
    """Ten chassis, a few seconds."""

    def test_database_is_as_the_chassis_say(self):
        output = self.run_fleet("--chassis", 10, "--seconds", 2, "--rate", 20, "--inventory-every", 1, "--hostile")
        self.assert_nothing_differs()
        self.assert_hostile_was_counted()
        self.assertIn("who is where (11)", output)
        self.assertRegex(output, "what failed \\([1-9]")
        self.assertIn("heard 0 messages of others", output)
        self.assertTrue(output.endswith("all is well\n"), output)

    def test_broker_and_collector_that_die_over_tcp_lose_nothing(self):
        self.run_fleet("--chassis", 10, "--seconds", 3, "--rate", 20, "--inventory-every", 1, "--kill-broker", 0.5,
                       "--kill-collector", 0.5, "--tcp")
        self.assert_nothing_differs()


class Limits(FleetTest):
    def test_boots_lose_only_what_was_not_answered(self):
        self.run_fleet("--chassis", 10, "--seconds", 2, "--rate", 20, "--restart-every", 0.5)
        self.assert_nothing_differs()
        self.assertTrue(Said(self.kept / "record").restarts)

    def test_queue_that_is_full_drops_the_oldest_and_the_last_state_is_right(self):
        output = self.run_fleet("--chassis", 10, "--seconds", 4, "--rate", 50, "--inventory-every", 100, "--kill-broker", 0.5,
                                "--down", 2)
        self.assert_nothing_differs()
        dropped = {chassis: end[3] for chassis, end in Said(self.kept / "record").ends.items()}
        self.assertGreater(sum(dropped.values()), 0)
        self.assertEqual(dict(self.database("SELECT name, dropped FROM chassis")), dropped)
        self.assertIn(f" {sum(dropped.values())} dropped by full queues", output)

    def test_collector_that_loses_its_database_goes_on_with_what_is_still_kept(self):
        self.run_fleet("--chassis", 10, "--seconds", 4, "--rate", 20, "--kill-collector", 1, "--lose-database")
        ends = {chassis: end[:2] for chassis, end in Said(self.kept / "record").ends.items()}
        rows = self.database("SELECT name, session, sequence, messages, missing FROM chassis")
        self.assertEqual({name: (session, sequence) for name, session, sequence, _, _ in rows}, ends)
        self.assertTrue(all(messages + missing == sequence for _, _, sequence, messages, missing in rows))
        self.assertGreater(sum(missing for *_, missing in rows), 0)

    def test_old_notifications_are_forgotten_and_nothing_else(self):
        self.run_fleet("--chassis", 2, "--seconds", 2, "--rate", 0, "--keep-notifications", 500)
        kept = self.database("SELECT chassis, count(*), min(sequence), max(sequence) FROM notification GROUP BY chassis")
        for chassis, count, first, last in kept:
            self.assertLess(count, 1600, chassis)  # it looks after each thousand
            self.assertGreater(first, 500, chassis)
            self.assertLessEqual(last - first - count, 5, chassis)  # inventories have sequences, too
        self.assertEqual(len(kept), 2)


class Processes(FleetTest):
    def assert_run_that_gets(self, number, leaves):
        process = self.start("--chassis", 3, "--seconds", PATIENCE)
        end = time.monotonic() + PATIENCE
        while len(descendants(self.folder)) < 3:
            self.assertLess(time.monotonic(), end, "broker, collector and simulator do not start")
            time.sleep(0.05)
        process.send_signal(number)
        process.communicate(timeout=PATIENCE)
        self.assertNotEqual(process.returncode, 0)
        while descendants(self.folder):
            self.assertLess(time.monotonic(), end, f"still there: {descendants(self.folder)}")
            time.sleep(0.05)
        self.assertEqual(len(os.listdir(self.folder)), leaves)

    def test_run_that_is_interrupted_leaves_nothing(self):
        self.assert_run_that_gets(signal.SIGINT, leaves=0)

    def test_run_that_is_ended_leaves_nothing(self):
        self.assert_run_that_gets(signal.SIGTERM, leaves=0)

    def test_run_that_is_killed_leaves_no_process(self):
        self.assert_run_that_gets(signal.SIGKILL, leaves=1)

    def test_run_without_its_programs_says_so_and_leaves_nothing(self):
        process = subprocess.run([RUN, str(self.folder)], capture_output=True, text=True, timeout=PATIENCE,
                                 env=dict(os.environ, TMPDIR=str(self.folder)), check=False)
        self.assertEqual((process.returncode, process.stderr.count("\n")), (1, 1), process.stderr)
        self.assertIn("fleet_collector", process.stderr)
        self.assertEqual((os.listdir(self.folder), descendants(self.folder)), ([], []))

    def test_program_that_fails_ends_the_run_with_its_words(self):
        process = subprocess.run([RUN, PROGRAMS, "--rate", "many"], capture_output=True, text=True, timeout=PATIENCE,
                                 env=dict(os.environ, TMPDIR=str(self.folder)), check=False)
        self.assertEqual((process.returncode, process.stderr.count("\n")), (1, 1), process.stderr)
        self.assertIn("the simulator ended with status 2: fleet_simulator: ", process.stderr)
        self.assertEqual((os.listdir(self.folder), descendants(self.folder)), ([], []))


class CatchesLoss(FleetTest):
    """The comparison sees a loss: chassis that send everything once lose what was under way when the broker died."""

    def test_without_sending_again_nothing_is_lost_while_the_broker_lives(self):
        self.run_fleet("--chassis", 10, "--seconds", 1, "--rate", 20, "--no-resend")
        self.assert_nothing_differs()

    def test_without_sending_again_a_broker_that_dies_loses_messages(self):
        self.run_fleet("--chassis", 10, "--seconds", 3, "--rate", 50, "--kill-broker", 0.3, "--down", 0.2, "--no-resend",
                       "--patience", 1, status=1)
        wrong = differences(self.kept)
        self.assertRegex("\n".join(wrong), "notification .* is lost")
        self.assertRegex("\n".join(wrong), "still waits for the answers")


class TwoHundred(FleetTest):
    """What a fleet goes through in earnest."""

    def assert_deaths(self, output, what, most_likely):
        deaths = int(re.search(what + ".*killed ([0-9]+) times", output).group(1))
        self.assertGreater(deaths, most_likely / 3)

    def test_database_is_as_the_chassis_say(self):
        self.run_fleet("--seconds", 30, "--inventory-every", 5)
        self.assert_nothing_differs()

    def test_broker_that_dies_at_any_moment_loses_nothing(self):
        output = self.run_fleet("--seconds", 60, "--rate", 5, "--kill-broker", 1)
        self.assert_nothing_differs()
        self.assert_deaths(output, "broker:", 60)

    def test_broker_and_collector_that_die_and_chassis_that_boot_lose_nothing_that_was_kept(self):
        output = self.run_fleet("--seconds", 60, "--rate", 5, "--kill-broker", 2, "--kill-collector", 2, "--restart-every", 20)
        self.assert_nothing_differs()
        self.assert_deaths(output, "broker:", 30)
        self.assert_deaths(output, "collector:", 30)

    def test_hostile_chassis_disturbs_nobody(self):
        output = self.run_fleet("--seconds", 30, "--rate", 5, "--hostile")
        self.assert_nothing_differs()
        self.assert_hostile_was_counted()
        self.assertIn("heard 0 messages of others", output)
        self.assertLess(float(re.search("each within ([0-9.]+) s", output).group(1)), 10, output)
        self.assertIn(" 0 dropped by full queues", output)

    def test_hostile_chassis_does_not_help_a_dying_broker(self):
        self.run_fleet("--seconds", 30, "--rate", 5, "--kill-broker", 1, "--kill-collector", 3, "--hostile")
        self.assert_nothing_differs()
        self.assert_hostile_was_counted()


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
