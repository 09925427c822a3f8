"""What the pages say of a command in a sentence, as `check MAILBOX --repair`, is run: with mailboxes, folders and names in
place of the words in capitals, and with such as it needs where a sentence leaves them out."""
import os
import pathlib
import re
import shutil
import subprocess
import unittest

from examples_test import ExamplesTest, described

SOURCE = pathlib.Path(os.environ["QUORVANE_SOURCE"])
PAGES = [SOURCE / "README.md", SOURCE / "CONTRIBUTING.md", *sorted((SOURCE / "docs").glob("*.md"))]
# What stands for a word in capitals, behind some commands for another thing.
WORDS = {
    "MAILBOX": "~/mail/alice", "DIRECTORY": "~/mail/new", "FOLDER": "Projects", "MAILDIR": "~/Maildir", "NAME": "bob",
    "DIR": "~/made", "WORDS...": "subject:mail", "FILE.html": "report.html",
    "restore DIR": "~/backups/old", "restore MAILBOX": "~/mail/restored", "setup [MAILBOX]": "~/mail/new",
    "init NAME": "dora", "folder make FOLDER": "New", "resend FOLDER": "Shared", "share FOLDER": "Shared",
    "members add NAME": "carol",
}
# What a command gets whose arguments a sentence leaves out.
ARGUMENTS = {
    "run": "MAILBOX", "check": "MAILBOX", "status": "MAILBOX", "trash": "MAILBOX",
    "show": "MAILBOX FOLDER 1", "import": "MAILBOX FOLDER ~/letter.eml", "unshare": "MAILBOX Shared",
    "share": "MAILBOX FOLDER",
}
# And more that is needed to be asked nothing, or to come to an end.
MORE = {"setup": "--yes --no-service --no-mail --name dora", "run": "--until-idle --idle-seconds 0.1"}
# The values that options get whose value a sentence leaves out.
VALUES = {"--accept-from": "bob", "--ask-after": "5", "--silent-after": "9999", "--compare-after": "60", "--with": "bob",
          "--look-every": "5", "--package-size": "8", "--days": "90"}
# These are about a folder that is tied.
TIED = {"--remove", "--confirm"}


def spans():
    """Commands that are named with more than their names, in each page once."""
    commands = described()
    names = {one["command"] for one in commands}
    for page in PAGES:
        seen = set()
        for span in re.findall(r"`([^`]*)`", re.sub(r"```.*?```", "", page.read_text(), flags=re.S)):
            words = " ".join(span.split()).removeprefix("quorvane ").split(" ")
            count = 2 if " ".join(words[:2]) in names else 1
            command = " ".join(words[:count])
            # Those of README's tour are run where it is followed.
            if command in names and len(words) > count and span not in seen and "~/" not in span:
                seen.add(span)
                yield page.name, command, words[count:]


class SpansTest(ExamplesTest):
    def setUp(self):
        super().setUp()
        # Nothing is opened on a screen.
        for name in ("DISPLAY", "WAYLAND_DISPLAY"):
            self.world.environment.pop(name, None)

    def word(self, command, word, options):
        if word == "FOLDER" and command == "mirror":
            return "Plans" if TIED & set(options) else "Projects"
        if word in ("DEVICE", "ID"):
            far = "alice" if command in ("members link", "members unlink") else "carol"
            return self.world.run("members", self.world.home / "far" / far)["device"]
        return WORDS.get(f"{command} {word}", WORDS.get(word, word))

    def completed(self, command, rest):
        """The whole command line."""
        options = [word for word in rest if word.startswith("-")]
        hasArguments = rest[0][:1] != "-"
        words = [] if hasArguments else ARGUMENTS.get(command, "").split()
        if hasArguments and command in ARGUMENTS and not rest[0].startswith(("MAILBOX", "~", "[")):
            words.append("MAILBOX")  # a sentence says it of the mailbox at hand
        for place, word in enumerate(rest):
            words.append(word)
            following = rest[place + 1] if place + 1 < len(rest) else "-"
            if word in VALUES and following.startswith("-"):
                words.append(VALUES[word])
        if command == "resend":
            words.insert(0, "MAILBOX")
        words = [self.word(command, word, options) for word in words]
        return " ".join(["quorvane", command, *words, MORE.get(command, "")]).rstrip()

    def test_what_a_sentence_names_can_be_said(self):
        self.furnish()
        world = self.world
        (world.home / "made").mkdir()
        kept = self.place / "kept"
        shutil.copytree(world.home, kept)
        count = 0
        for page, command, rest in spans():
            shutil.rmtree(world.home)
            shutil.copytree(kept, world.home)
            if command == "backup":
                (world.home / "made").rmdir()
            if command == "members unlink":
                world.run("members", "link", world.mail("alice"), self.word(command, "DEVICE", []))
            line = self.completed(command, rest)
            with self.subTest(f"{page}: {command} {' '.join(rest)}"):
                count += 1
                if "--watch" in rest:
                    process = self.start(line, subprocess.PIPE)
                    self.assertTrue(process.stdout.readline(), line)
                    self.end(process, line)
                else:
                    self.do(line)
        self.assertGreater(count, 35)


if __name__ == "__main__":
    unittest.main()
