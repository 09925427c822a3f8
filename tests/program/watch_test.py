"""`status --watch`: drawn on a terminal, told by lines elsewhere."""
import json
import shutil
import signal
import tempfile
import time
import unittest

from terminal import AtTerminal
from world import DEADLINE, World


class WatchTest(unittest.TestCase):
    def setUp(self):
        self.world = World(tempfile.mkdtemp(prefix="quorvane-watch-"))
        self.addCleanup(shutil.rmtree, self.world.home)
        self.world.make("alice")
        self.alice = self.world.mail("alice")
        self.world.run("folder", "make", self.alice, "Projects")

    def await_name(self, name):
        self.world.run("share", self.alice, "Projects", "--with", name)

    def watched(self, **options):
        return AtTerminal(self.world, "status", self.alice, "--watch", **options)

    def test_a_change_is_drawn_and_q_ends_it(self):
        with self.watched() as terminal:
            terminal.await_text("SHARED FOLDER")
            at = terminal.await_text("to apply: 0")
            begun = time.monotonic()
            self.await_name("bob")
            at = terminal.await_text("awaited: bob", at)
            self.assertLess(time.monotonic() - begun, 4, "it was seen by chance alone")
            self.assertIn("\033[H", terminal.seen[:at])
            terminal.type("xq")
            self.assertEqual(terminal.end(), 0)
            self.assertTrue(terminal.seen.endswith("\033[?25h\033[?1049l"))

    def test_while_nothing_happens_nothing_is_drawn(self):
        with self.watched() as terminal:
            terminal.await_text("to apply: 0")
            time.sleep(1.0)  # that nothing comes can only be seen by waiting
            terminal.type("q")
            self.assertEqual(terminal.end(), 0)
            self.assertEqual(terminal.seen.count("\033[H"), 1)

    def test_it_fits_the_terminal(self):
        with self.watched(columns=30, lines=10) as terminal:
            at = terminal.await_text("\033[J")
            self.assertIn("\u2026", terminal.plain(), "the mailbox's path is longer")
            begun = time.monotonic()
            terminal.resize(300, 10)
            end = terminal.await_text("\033[J", at)
            self.assertLess(time.monotonic() - begun, 4, "it was seen by chance alone")
            self.assertNotIn("\u2026", terminal.seen[at:end])
            terminal.resize(300, 2)
            terminal.await_text("lines more", end)
            terminal.process.send_signal(signal.SIGINT)
            self.assertEqual(terminal.end(), 0)
            self.assertTrue(terminal.seen.endswith("\033[?25h\033[?1049l"))

    def test_colours_are_for_terminals_that_want_them(self):
        for environment, is_coloured in (({}, True), ({"NO_COLOR": "1"}, False)):
            with self.watched(**environment) as terminal:
                terminal.await_text("to apply: 0")
                self.assertEqual("\033[1mSHARED" in terminal.seen, is_coloured)
                terminal.type("Q")
                self.assertEqual(terminal.end(), 0)

    def test_elsewhere_lines_come_and_go(self):
        process = self.world.start("status", self.alice, "--watch")
        self.await_line(process, " + SHARED FOLDER")
        self.await_name("bob")
        self.await_line(process, " + awaited: bob")
        self.world.run("unshare", self.alice, "Projects")
        gone = self.await_line(process, " - Projects")
        self.assertNotIn("\033", gone)
        process.send_signal(signal.SIGTERM)
        process.communicate(timeout=DEADLINE)
        self.assertEqual(process.returncode, 0)

    def await_line(self, process, wanted):
        signal.alarm(DEADLINE)
        line = "-"
        while wanted not in line:
            self.assertTrue(line, "in vain: " + wanted)
            line = process.stdout.readline()
        signal.alarm(0)
        return line

    def test_with_json_each_state_is_a_value_a_line(self):
        process = self.world.start("status", self.alice, "--watch", "--json")
        self.assertEqual(json.loads(process.stdout.readline())["awaited"], [])
        self.await_name("bob")
        told = {"awaited": []}
        while not told["awaited"]:
            told = json.loads(process.stdout.readline())
        self.assertEqual(told["awaited"], ["bob"])
        process.send_signal(signal.SIGINT)
        output, errors = process.communicate(timeout=DEADLINE)
        self.assertEqual((process.returncode, errors), (0, ""), output)


if __name__ == "__main__":
    unittest.main()
