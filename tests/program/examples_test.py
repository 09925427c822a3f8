"""Each example of the program's help and of its manual pages (which are made of the same) is run."""
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import tempfile
import unittest

from world import DEADLINE, PROGRAM, SAMPLES, World

# Ends with another code than 0 where no run is under way.
CODES = {"verify": 3}
# After these the world is as it was.
READERS = {"status", "list", "show", "export", "invitations", "conflicts", "compare", "inspect", "log", "doctor", "report"}


def described():
    return json.loads(subprocess.run([PROGRAM, "_commands"], check=True, capture_output=True).stdout)


class ExamplesTest(unittest.TestCase):
    def setUp(self):
        self.place = pathlib.Path(tempfile.mkdtemp(prefix="quorvane-examples-"))
        self.world = World(self.place / "home")
        self.world.home.mkdir()
        self.world.environment["PATH"] = f"{pathlib.Path(PROGRAM).parent}:{os.environ['PATH']}"
        self.addCleanup(shutil.rmtree, self.place)

    def line(self, text):
        return text.replace("/mnt/exchange", str(self.world.exchange))

    def start(self, text, output=subprocess.DEVNULL):
        return subprocess.Popen(["bash", "-c", "exec " + self.line(text)], cwd=self.world.home,
                                env=self.world.environment, text=True, stdin=subprocess.DEVNULL,
                                stdout=output, stderr=subprocess.PIPE)

    def do(self, text, code=0):
        process = self.start(text)
        _, errors = process.communicate(timeout=DEADLINE)
        self.assertEqual(process.returncode, code, f"{text}: {errors}")

    def is_running(self, mailbox):
        return self.world.run("status", mailbox)["running"]

    def end(self, process, text):
        process.send_signal(signal.SIGTERM)
        _, errors = process.communicate(timeout=DEADLINE)
        self.assertEqual(process.returncode, 0, f"{text}: {errors}")


    def furnish(self):
        world = self.world
        world.make("alice", "bob")
        world.run("init", world.home / "far" / "carol", "--name", "carol", "--exchange", world.exchange)
        world.run("init", world.home / "far" / "alice", "--name", "alice", "--exchange", world.exchange)
        for folder in ("Projects", "Archive/2025", "Plans", "Shared", "Offered", "Gone"):
            world.bring_in("alice", folder, "01-plain", "03-html-only")
        world.run("folder", "make", world.mail("alice"), "Empty")
        world.run("folder", "delete", world.mail("alice"), "Gone", "--yes")
        world.run("folder", "make", world.mail("bob"), "Drafts")
        world.run("share", world.mail("alice"), "Shared", "--with", "bob")
        world.begin_runs("alice", "bob", accept=["alice"])
        world.await_items("bob", "Shared", 2)
        world.end_runs()
        world.run("share", world.mail("alice"), "Offered", "--with", "bob")
        # One after the other: of what bob has taken alice hasn't heard, so that it still lies in the exchange.
        for name in ("alice", "bob"):
            world.run("run", world.mail(name), "--until-idle", "--idle-seconds", "0.5")
        self.assertTrue(world.run("invitations", world.mail("bob")))
        self.lay_mail()
        world.run("mirror", world.mail("alice"), "Plans", world.home / "Plans")
        world.run("backup", world.mail("bob"), world.home / "backups" / "old")

    def lay_mail(self):
        home = self.world.home
        for part in ("cur", "new", "tmp"):
            (home / "Maildir" / part).mkdir(parents=True)
        shutil.copy(SAMPLES / "20-flowed.eml", home / "Maildir" / "cur" / "1.host:2,S")
        shutil.copy(SAMPLES / "29-urgent.eml", home / "letter.eml")
        (home / "old-mail.mbox").write_text("From x Sat Nov 21 00:00:00 2026\nSubject: old\n\nText\n")
        self.world.run("export", self.world.mail("alice"), "Projects", home / "messages", "--format", "msg")
        shutil.move(next((home / "messages").glob("*.msg")), home / "letter.msg")
        (home / "backups").mkdir()


class HelpExamplesTest(ExamplesTest):
    def test_each_command_has_an_example(self):
        for command in described():
            self.assertTrue(command["examples"], command["command"])
            for example in command["examples"]:
                self.assertTrue(example.startswith(f"quorvane {command['command']}".rstrip()) or not command["command"],
                                example)

    def test_help_and_manual_pages_hold_them(self):
        manual = self.place / "man"
        manual.mkdir()
        subprocess.run([PROGRAM, "_manual", manual], check=True)
        for command in described():
            words = command["command"].split()
            told = subprocess.run([PROGRAM, *words, "--help"], check=True, capture_output=True, text=True).stdout
            page = (manual / ("-".join(["quorvane", *words[:1]]) + ".1")).read_text()
            page = page.replace("\\-", "-").replace("\\(ti", "~").replace("\\(aq", "'")
            for example in command["examples"]:
                self.assertIn(example, told)
                self.assertIn(example, page)

    def test_examples_do_what_they_say(self):
        self.furnish()
        kept = self.place / "kept"
        shutil.copytree(self.world.home, kept)
        done = set()
        is_fresh = True
        for command in described()[1:] + described()[:1]:
            for example in command["examples"]:
                if example in done:
                    continue  # with the command that it shows
                done.add(example)
                with self.subTest(example):
                    if not is_fresh:
                        shutil.rmtree(self.world.home)
                        shutil.copytree(kept, self.world.home)
                    is_fresh = example.split()[1] in READERS
                    self.try_one(command["command"], example)

    # What stands for a device in the examples of a command.
    def device_for(self, command):
        far = {"members add": "carol", "members link": "alice", "members unlink": "alice"}
        if command in far:
            return self.world.run("members", self.world.home / "far" / far[command])["device"]
        return self.world.device("bob" if command == "members drop" else "alice")

    def filled_in(self, command, example):
        if "DEVICE" in example:
            example = example.replace("DEVICE", self.device_for(command))
        if " ID" in example:
            example = example.replace(" ID", " " + self.world.run("invitations", self.world.mail("bob"))[0]["id"])
        if "NUMBER" in example:
            out = self.world.exchange / self.world.device("alice") / "out"
            example = example.replace("NUMBER", min(out.glob("*.qvx"), default=out / "none").stem)
        return example

    def try_one(self, command, example):
        if command == "members unlink":
            self.world.run("members", "link", self.world.mail("alice"), self.device_for(command))
        line = self.filled_in(command, example)
        words = line.split()
        if "--follow" in words or "--watch" in words:
            process = self.start(line, subprocess.PIPE)
            self.assertTrue(process.stdout.readline(), line)
            return self.end(process, line)
        if words[1] != "run" or "--until-idle" in words:
            return self.do(line, CODES.get(command, 0))
        process = self.start(line)
        self.world.eventually("a run", lambda: self.is_running(self.world.mail("alice")))
        self.end(process, line)


if __name__ == "__main__":
    unittest.main()
