"""The pages' commands: those of README and the guide are run as they stand, all others are looked at for what they name.

Before a block of a page a comment may say who pastes it and when:

    <!-- as: bob -->             on bob's machine, alice's otherwise
    <!-- when: COMMAND -->       once that command succeeds
    <!-- ends: alice -->         after her runs have ended
    <!-- answers: A, B -->       says this, line by line, when it is asked
    <!-- checked: WHO -->        it isn't run here: a test of that name does it, or ./check; else, why nobody does

A block of output behind it tells what it prints, with "..." for what differs each time.
"""
import json
import os
import pathlib
import re
import shlex
import shutil
import signal
import subprocess
import tempfile
import unittest

from world import DEADLINE, PROGRAM, World

SOURCE = pathlib.Path(os.environ["QUORVANE_SOURCE"])
PAGES = [SOURCE / "README.md", SOURCE / "CONTRIBUTING.md", *sorted((SOURCE / "docs").glob("*.md"))]
BLOCK = re.compile(r"(?:<!-- (?P<notes>[^>]*) -->\n)?```(?:sh|bat)\n(?P<text>.*?)```(?:\n\n```text\n(?P<output>.*?)```)?", re.S)
# What the guide may run beside the program.
OTHERS = {"mv", "cp"}


def blocks(page):
    for found in BLOCK.finditer(page.read_text()):
        notes = dict(note.split(": ", 1) for note in (found["notes"] or "").split("; ") if note)
        yield notes, found["text"], found["output"] or ""


def command_lines(text):
    """Its lines, those that end in a backslash joined, without comments."""
    for line in text.replace("\\\n", " ").splitlines():
        words = shlex.split(line, comments=True)
        if words:
            yield line, words


def described():
    told = subprocess.run([PROGRAM, "_commands"], check=True, capture_output=True).stdout
    return {one["command"]: one for one in json.loads(told)}


class NamesTest(unittest.TestCase):
    """What pages name is there."""

    @classmethod
    def setUpClass(cls):
        cls.commands = described()
        cls.targets = (pathlib.Path(os.environ["QUORVANE_BUILD"]) / "build.ninja").read_text()

    def options(self, command):
        own = self.commands[command]["options"] + self.commands[""]["options"]
        return {name for option in own for name in option["names"]}

    def look_at(self, words, where):
        """A command line of the program, or the beginning of one in a sentence."""
        words = words[1:]
        if not words or words[0].startswith("-") or words[0] == "COMMAND":
            command, rest = "", words
        else:
            two = " ".join(words[:2])
            command, rest = (two, words[2:]) if two in self.commands else (words[0], words[1:])
        self.assertIn(command, self.commands, where)
        for word in rest:
            if word in ("|", "<", ">", "&", "&&", ";"):
                break
            if word.startswith("-") and len(word) > 1:
                self.assertIn(word.split("=")[0], self.options(command), where)

    def test_each_block_is_a_script_whose_commands_are_there(self):
        count = 0
        for page in PAGES:
            for _, text, _ in blocks(page):
                shell = subprocess.run(["bash", "-n"], input=text, text=True, capture_output=True)
                self.assertEqual(shell.returncode, 0, f"{page.name}: {text}: {shell.stderr}")
                for line, words in command_lines(text):
                    count += 1
                    self.look_at_line(words, f"{page.name}: {line}")
        self.assertGreater(count, 60)

    def look_at_line(self, words, where):
        for place, word in enumerate(words):
            if word == "quorvane" and place == 0 or word.endswith("bin/quorvane.exe") and place == 1:
                self.look_at(words[place:], where)
        for word in words:
            if re.match(r"(\./|cmake/|fuzz/|tests/|packaging/)", word) and not word.endswith(".deb"):
                self.assertTrue((SOURCE / word).exists() or word.startswith("./build"), where)
        if "--preset" in words:
            presets = json.loads((SOURCE / "CMakePresets.json").read_text())["configurePresets"]
            self.assertIn(words[words.index("--preset") + 1], [one["name"] for one in presets], where)
        if "--target" in words:
            for target in words[words.index("--target") + 1:]:
                self.assertIn(f"\nbuild {target}: phony", self.targets, where)

    def test_what_others_are_said_to_run_they_run(self):
        check = (SOURCE / "check").read_text()
        count = 0
        for page in PAGES:
            for notes, text, _ in blocks(page):
                who = notes.get("checked", "").removesuffix(" does it")
                if who != notes.get("checked", ""):
                    self.assertTrue((SOURCE / who).exists(), f"{page.name}: {who}")
                if who != "./check":
                    continue
                for line, words in command_lines(text):
                    count += 1
                    named = {words[words.index("--preset") + 1]} if "--preset" in words else set()
                    named |= {word for word in words if re.match(r"(cmake|fuzz|tests)/", word)} - {"cmake/run_wine.sh"}
                    for name in named:
                        self.assertRegex(check, rf"(?<![\w-]){re.escape(name)}(?![\w-])", f"{page.name}: {line}")
        self.assertGreater(count, 15)

    def test_what_takes_seconds_alone_is_run(self):
        """Single test programs, and what others of the house tell of themselves."""
        build = pathlib.Path(os.environ["QUORVANE_BUILD"])
        done = set()
        for page in PAGES:
            for _, text, _ in blocks(page):
                for line, words in command_lines(text):
                    isTest = re.match(r"build/release/bin/\w+_test$", words[0])
                    isHelp = words[1:] == ["--help"] and (SOURCE / words[0]).is_file()
                    if not isTest and not isHelp:
                        continue
                    program = build / words[0].removeprefix("build/release/") if isTest else SOURCE / words[0]
                    done.add(program.name)
                    ended = subprocess.run([program, *words[1:]], capture_output=True, text=True, timeout=DEADLINE)
                    self.assertEqual(ended.returncode, 0, f"{page.name}: {line}: {ended.stdout}{ended.stderr}")
        self.assertGreater(len(done), 1)

    def test_commands_in_sentences_are_there(self):
        count = 0
        for page in PAGES:
            text = re.sub(r"```.*?```", "", page.read_text(), flags=re.S)
            for span in re.findall(r"`(quorvane [^`]*)`", text):
                words = [re.sub(r"^\[|\]$", "", word) for word in " ".join(span.split()).split(" ")]
                if re.match(r"[a-z-]", words[1]):
                    count += 1
                    self.look_at(words, f"{page.name}: {span}")
        self.assertGreater(count, 20)

    def test_pages_lead_to_files_that_are_there(self):
        for page in PAGES:
            for link in re.findall(r"\]\(([^)#:]+)(?:#[^)]*)?\)", page.read_text()):
                self.assertTrue((page.parent / link).exists(), f"{page.name}: {link}")


class PastedTest(unittest.TestCase):
    """Who pastes a page, block by block, gets what it says."""

    mails = ("The plan",)

    def setUp(self):
        self.place = pathlib.Path(tempfile.mkdtemp(prefix="quorvane-guide-"))
        self.addCleanup(shutil.rmtree, self.place)
        self.exchange = self.place / "exchange"
        self.exchange.mkdir()
        self.homes = {name: self.place / name for name in ("alice", "bob", "carol", "laptop")}
        for home in self.homes.values():
            (home / "backups").mkdir(parents=True)
        (self.homes["alice"] / "old-mail.mbox").write_text(
            "\n".join(f"From x Sat Nov 21 00:00:00 2026\nSubject: {subject}\nFrom: carol@example.org\n"
                      "Date: Sat, 21 Nov 2026 10:00:00 +0000\n\nText\n" for subject in self.mails))
        (self.homes["alice"] / "Maildir").mkdir()
        for part in ("cur", "new", "tmp"):
            (self.homes["carol"] / "Maildir" / part).mkdir(parents=True)
        (self.homes["carol"] / "Maildir" / "new" / "1.a.host").write_text("Subject: hers\nFrom: bob@example.org\n\nText\n")
        self.runs = []
        self.addCleanup(lambda: self.end_runs(list(self.homes)))

    def start(self, who, text, stdin=subprocess.DEVNULL, **pipes):
        home = self.homes[who]
        path = f"{pathlib.Path(PROGRAM).parent}:{os.environ['PATH']}"
        line = text.replace("/mnt/exchange", str(self.exchange))
        # The user's own systemd isn't reached from here, nor are his settings.
        environment = {**os.environ, "HOME": str(home), "PATH": path, "XDG_RUNTIME_DIR": str(home)}
        for name in ("DBUS_SESSION_BUS_ADDRESS", "XDG_CONFIG_HOME", "MAILDIR"):
            environment.pop(name, None)
        return subprocess.Popen(["bash", "-c", line], cwd=home, text=True, stdin=stdin, env=environment, **pipes)

    def does(self, who, text, answers=""):
        process = self.start(who, text, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        output, errors = process.communicate(answers.replace("/mnt/exchange", str(self.exchange)), timeout=DEADLINE)
        return process.returncode, output, errors

    def told(self, who, text):
        code, output, errors = self.does(who, text + " --json")
        self.assertEqual(code, 0, f"{text}: {errors}")
        return json.loads(output)

    def end_runs(self, names):
        for who, process, line in self.runs:
            if who in names:
                process.send_signal(signal.SIGTERM)
                process.communicate(timeout=DEADLINE)
                self.assertEqual(process.returncode, 0, line)
        self.runs = [one for one in self.runs if one[0] not in names]

    def filled_in(self, who, line):
        if line.endswith(" ID"):
            line = line[:-2] + self.told(who, f"quorvane invitations ~/mail/{who}")[0]["id"]
        for name, home in (("DESK-ID", "alice"), ("LAPTOP-ID", "laptop")):
            if name in line:
                line = line.replace(name, self.told(home, "quorvane members ~/mail/alice")["device"])
        return line

    def watch(self, who, line):
        """What is shown until there is something, and it is stopped."""
        process = self.start(who, "exec " + line, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        shown = process.stdout.readline()
        process.send_signal(signal.SIGINT)
        _, errors = process.communicate(timeout=DEADLINE)
        self.assertEqual((bool(shown), process.returncode), (True, 0), errors)
        return shown

    def paste(self, who, line, words, answers):
        self.assertIn(words[0], OTHERS | {"quorvane"}, line)
        line = self.filled_in(who, line)
        if words[1] == "run" and "--until-idle" not in words:
            self.runs.append((who, self.start(who, "exec " + line, stdout=subprocess.DEVNULL,
                                              stderr=subprocess.DEVNULL), line))
            return ""
        if "--watch" in words:
            return self.watch(who, line)
        code, output, errors = self.does(who, line, answers)
        # Nobody knows yet what the others have.
        self.assertIn(code, (0, 1, 3) if words[1] == "verify" else (0,), f"{who}: {line}: {output}{errors}")
        if words[1] == "report":
            self.assertTrue((self.homes[who] / "report.html").stat().st_size)

        return output

    def follow(self, page):
        """How many lines of it were pasted."""
        done = 0
        for notes, text, expected in blocks(page):
            self.assertLessEqual(set(notes), {"as", "when", "ends", "answers", "checked"})
            if "checked" in notes:
                continue
            who = notes.get("as", "alice")
            if "ends" in notes:
                self.end_runs([notes["ends"]])
            if "when" in notes:
                World.eventually(f"{who}: {notes['when']}", lambda: self.does(who, notes["when"])[0] == 0)
            printed = ""
            for line, words in command_lines(text):
                printed += self.paste(who, line, words, notes.get("answers", "").replace(", ", "\n") + "\n")
                done += 1
            self.compare(expected, printed)
        return done

    def compare(self, expected, printed):
        """Each line that a page shows is printed, in its order; words that devices have differ each time."""
        lines = iter(printed.splitlines())
        for line in expected.splitlines():
            line = re.sub(r"\b[a-z]{5}(-[a-z]{5}){7}\b", "...", " ".join(line.split()))
            pattern = re.escape(line).replace(re.escape("..."), ".*")
            self.assertTrue(any(re.fullmatch(pattern, " ".join(one.split())) for one in lines),
                            f"'{line}' isn't in:\n{printed}")


class GuideTest(PastedTest):
    mails = ("old", "older")

    def test_the_guide_can_be_followed_by_pasting(self):
        self.assertGreater(self.follow(SOURCE / "docs" / "guide.md"), 43)
        self.assertEqual([one["subject"] for one in self.hers()], ["hers"])
        self.assertTrue((self.homes["alice"] / "projects").exists())
        self.assertIn("The plan, second draft", json.dumps(self.told("bob", "quorvane list ~/mail/bob Projects")))


    def hers(self):
        """What a run brings into the mailbox that was set up by answers."""
        self.told("carol", "quorvane run ~/quorvane --until-idle --idle-seconds 0.1")
        return self.told("carol", "quorvane list ~/quorvane Inbox")


class ReadmeTest(PastedTest):
    def test_the_tour_prints_what_readme_shows(self):
        self.assertGreater(self.follow(SOURCE / "README.md"), 10)
        spans = re.findall(r"`(quorvane [^`]*~/[^`]*)`", (SOURCE / "README.md").read_text())
        self.assertGreater(len(spans), 1)
        for span in spans:
            who = "bob" if "~/mail/bob" in span else "alice"
            code, _, errors = self.does(who, " ".join(span.split()))
            self.assertEqual(code, 0, f"{span}: {errors}")


if __name__ == "__main__":
    unittest.main()
