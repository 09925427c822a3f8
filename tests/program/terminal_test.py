"""The program at a terminal: completion in bash, zsh and fish by the scripts that are installed, tables and colours;
the manual pages, and the unit for systemd."""
import fcntl
import os
import pathlib
import pty
import re
import select
import shutil
import signal
import subprocess
import struct
import tempfile
import termios
import time
import unittest

from terminal import AtTerminal
from world import DEADLINE, PROGRAM, World

UNIT = pathlib.Path(os.environ["QUORVANE_UNIT"])
SCRIPTS = pathlib.Path(os.environ["QUORVANE_COMPLETION"])
BASH = r"""
. "$1"; shift
COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); COMP_LINE="$*"
_quorvane quorvane "${@: -1}" 2>/dev/null
printf '%s\n' "${COMPREPLY[@]}"
"""


class ShellsTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.world = World(tempfile.mkdtemp(prefix="quorvane-completion-"))
        cls.addClassCleanup(shutil.rmtree, cls.world.home)
        cls.world.environment["PATH"] = f"{pathlib.Path(PROGRAM).parent}:{os.environ['PATH']}"
        cls.world.make("alice")
        cls.world.run("folder", "make", cls.world.mail("alice"), "Big Projects")
        cls.world.run("folder", "make", cls.world.mail("alice"), "Bills")

    def given(self, *words):
        """The words that the program itself proposes."""
        return self.told([PROGRAM, "_complete", "--", *words])

    def told(self, command):
        output = subprocess.run(command, cwd=self.world.home, env=self.world.environment, check=True,
                                capture_output=True, text=True, timeout=DEADLINE).stdout
        return [line.split("\t")[0] for line in output.splitlines() if line]

    def test_the_program_knows_what_comes_next(self):
        self.assertEqual(self.given("un"), ["undelete", "unshare"])
        self.assertEqual(self.given("folder", ""), ["make", "rename", "move", "delete"])
        self.assertEqual(self.given("list", "--r"), ["--reverse"])
        self.assertEqual(self.given("folder", "delete", "--y"), ["--yes"])
        self.assertEqual(self.given("list", "--sort", ""), ["date", "sender", "subject", "size"])
        self.assertEqual(self.given("list", ""), ["<directories>"])
        self.assertEqual(self.given("list", "mail/alice", "B"), ["Big Projects", "Bills"])
        self.assertEqual(self.given("list", "~/mail/alice", "--reverse", "Bil"), ["Bills"])
        self.assertEqual(self.given("list", "nowhere", "B"), [])
        self.assertEqual(self.given("move", "mail/alice", "Bills", "1", "Bil"), ["Bills"])
        self.assertEqual(self.given("import", "mail/alice", "Bills", "a", "b"), ["<files>"])
        self.assertEqual(self.given("status", "mail/alice", ""), [])
        self.assertNotIn("_manual", self.given(""))

    def test_bash(self):
        def asked(*words):
            return self.told(["bash", "-c", BASH, "bash", SCRIPTS / "quorvane.bash", "quorvane", *words])
        self.assertEqual(asked("un"), ["undelete", "unshare"])
        self.assertEqual(asked("list", "--sort", "s"), ["sender", "subject", "size"])
        self.assertEqual(asked("list", "~/mail/alice", "B"), ["Big\\ Projects", "Bills"])
        self.assertEqual(asked("list", "~/mail/alice", "Big\\ P"), ["Big\\ Projects"])
        self.assertEqual(asked("frobnicate", ""), [])

    def test_fish(self):
        def asked(line):
            return self.told(["fish", "--no-config", "-c",
                              f"source {SCRIPTS}/quorvane.fish; complete -C '{line}'"])
        self.assertEqual(asked("quorvane un"), ["undelete", "unshare"])
        self.assertEqual(asked("quorvane list --sort su"), ["subject"])
        self.assertEqual(asked("quorvane list ~/mail/alice B"), ["Big Projects", "Bills"])
        self.assertEqual(asked("quorvane list ~/ma"), ["~/mail/"])

    def test_zsh(self):
        with ZshOnTerminal(self.world) as zsh:
            self.assertIn("quorvane undelete", zsh.after("quorvane und\t", "undelete "))
            self.assertIn("Bills", zsh.after("quorvane list mail/alice Bi\t\t", "Bills"))
            self.assertIn("\\ Projects", zsh.after("quorvane list mail/alice Big\t", "Projects"))
            self.assertIn("--sort subject", zsh.after("quorvane list --sort su\t", "subject"))


class ZshOnTerminal:
    """An interactive zsh, as a user has it."""

    def __init__(self, world):
        self.world = world

    def __enter__(self):
        self.process, self.terminal = self.spawn()
        self.type(f"fpath=({SCRIPTS} $fpath); autoload -Uz compinit; compinit -u -D; PS1=; echo rea''dy\n")
        self.await_text("ready")
        return self

    def __exit__(self, *_):
        os.close(self.terminal)
        os.waitpid(self.process, 0)

    def spawn(self):
        process, terminal = pty.fork()
        if process == 0:
            os.chdir(self.world.home)
            os.execvpe("zsh", ["zsh", "-f", "-i"], {**self.world.environment, "TERM": "dumb"})
        return process, terminal

    def type(self, text):
        os.write(self.terminal, text.encode())

    def await_text(self, wanted):
        seen, deadline = "", time.monotonic() + DEADLINE
        while wanted not in seen:
            ready, _, _ = select.select([self.terminal], [], [], max(0.0, deadline - time.monotonic()))
            if not ready:
                raise AssertionError(f"no '{wanted}' in {seen!r}")
            seen += os.read(self.terminal, 4096).decode(errors="replace")
        return seen

    def after(self, typed, wanted):
        """What the line looks like once it was completed; the line is given up then."""
        self.type(typed)
        seen = self.await_text(wanted)
        self.type("\x15")
        return re.sub(r"\x1b\[[0-9;?]*[A-Za-z]", "", seen)


class TerminalTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.world = World(tempfile.mkdtemp(prefix="quorvane-terminal-"))
        cls.addClassCleanup(shutil.rmtree, cls.world.home)
        cls.world.make("alice")
        cls.world.bring_in("alice", "In", "34-encoded-headers", "37-japanese-iso-2022-jp")
        cls.world.run("edit", cls.world.mail("alice"), "In", "2", "--unread")

    def listed(self, *options, columns=60, **environment):
        """What `list` shows on a terminal so wide."""
        mine, its = pty.openpty()
        fcntl.ioctl(its, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
        process = subprocess.Popen([PROGRAM, "list", self.world.mail("alice"), "In", *options], stdout=its,
                                   env={**self.world.environment, "TERM": "xterm", "NO_COLOR": "", **environment})
        os.close(its)
        shown = b""
        try:
            while piece := os.read(mine, 4096):
                shown += piece
        except OSError:
            pass  # the other end is closed
        os.close(mine)
        self.assertEqual(process.wait(DEADLINE), 0)
        return shown.decode().replace("\r\n", "\n")

    def test_a_table_fits_a_terminal(self):
        head, first, *_ = self.listed("--color", "never", columns=82).splitlines()
        self.assertNotIn("ID", head)
        self.assertIn("\u2026", first)
        wide = self.listed("--color", "never", columns=300).splitlines()
        self.assertIn("ID", wide[0])
        self.assertNotIn("\u2026", "".join(wide))

    def test_colours_are_for_terminals_that_want_them(self):
        self.assertTrue(self.listed().startswith("\033[1m#"))
        self.assertEqual(self.listed().count("\033[1m"), 2, "the head and the unread mail")
        for shown in (self.listed(NO_COLOR="1"), self.listed(TERM="dumb"), self.listed("--color", "never")):
            self.assertNotIn("\033", shown)
        self.assertIn("\033", self.listed("--color", "always", NO_COLOR="1"))
        piped = subprocess.run([PROGRAM, "list", self.world.mail("alice"), "In"], capture_output=True, check=True)
        self.assertNotIn(b"\033", piped.stdout)


class ProgressTest(unittest.TestCase):
    def test_long_work_is_shown_on_a_terminal(self):
        world = World(tempfile.mkdtemp(prefix="quorvane-progress-"))
        self.addCleanup(shutil.rmtree, world.home)
        world.make("alice", "bob")
        world.bring_in("alice", "In", "34-encoded-headers")
        world.run("share", world.mail("alice"), "In", "--with", "bob")
        world.run("export", world.mail("alice"), "In", world.home / "out", "--format", "msg")
        message = next((world.home / "out").glob("*.msg"))
        world.begin_runs("alice", "bob", accept=["alice"])
        world.await_items("bob", "In", 1)
        world.end_runs()
        # A compound file that is no message is shown as what it is.
        bare = world.home / "bare.ole"
        bare.write_bytes(message.read_bytes().replace("__properties_version1.0".encode("utf-16-le"),
                                                      "__properties_version1_0".encode("utf-16-le")))
        # What bob hasn't taken lies in the exchange.
        world.run("edit", world.mail("alice"), "In", "1", "--subject", "Edited")
        world.run("run", world.mail("alice"), "--until-idle", "--idle-seconds", "0.5")
        sealed = next((world.exchange / world.device("alice") / "out").glob("*.qvx"))
        for arguments, wanted in ((("inspect", sealed), "checking: "), (("verify", world.mail("alice")), "comparing: 100 %  1 item"),
                                  (("inspect", bare), "reading: 1 element")):
            with AtTerminal(world, *arguments) as terminal:
                terminal.end()
                self.assertIn(wanted, terminal.seen)

    def test_what_a_run_tells_stands_in_lines_of_its_own(self):
        world = World(tempfile.mkdtemp(prefix="quorvane-lines-"))
        self.addCleanup(shutil.rmtree, world.home)
        world.make("alice", "bob")
        world.bring_in("alice", "In", "34-encoded-headers", "01-plain")
        world.run("share", world.mail("alice"), "In", "--with", "bob")
        with AtTerminal(world, "run", world.mail("alice"), "-v", columns=30) as terminal:
            terminal.await_text("lies in the")
            terminal.process.send_signal(signal.SIGINT)
            self.assertEqual(terminal.end(), 0)
        shown = [line.rpartition("\r\x1b[K")[2] for line in terminal.seen.replace("\r\n", "\n").split("\n")]
        self.assertTrue(any(line.startswith("quorvane: ") for line in shown))
        for line in shown:
            self.assertNotIn("quorvane:", line[1:], "it goes on behind a progress")
        # In its last column a terminal would begin another line, which nobody wipes.
        progress = [line for line in terminal.seen.split("\r\x1b[K") if line.startswith("alice: ")]
        self.assertTrue(progress)
        for line in progress:
            self.assertLess(len(line.partition("\r")[0]), 30, line)


class HelpTest(unittest.TestCase):
    def test_help_is_as_wide_as_the_terminal(self):
        world = World(tempfile.mkdtemp(prefix="quorvane-help-"))
        self.addCleanup(shutil.rmtree, world.home)
        for words in ((), ("setup",), ("list",)):
            with AtTerminal(world, *words, "--help", columns=64) as terminal:
                self.assertEqual(terminal.end(), 0)
            lines = [line for line in terminal.plain().splitlines() if not line.startswith("  quorvane ")]
            self.assertGreater(len(lines), 10)
            for line in lines:
                self.assertLessEqual(len(line), 64, line)
            self.assertTrue(any(line.startswith(" " * 30) for line in lines), "texts stay in their column")


class FollowTest(unittest.TestCase):
    def test_a_log_is_followed_until_the_end_is_asked_for(self):
        world = World(tempfile.mkdtemp(prefix="quorvane-follow-"))
        self.addCleanup(shutil.rmtree, world.home)
        world.make("alice")
        process = world.start("log", world.mail("alice"), "--follow")
        self.assertTrue(process.stdout.readline().startswith("TIME"))
        log = world.mail("alice") / "logs" / "quorvane3.log"
        for code, told in (("0x80004005", "the operation failed"), ("0x80070005", "access denied")):
            with log.open("a") as file:
                file.write(f"11/23/26 07:55:14 CFolder::Resend(12) {code}\r\n")
            self.assertIn(told, process.stdout.readline())
        process.send_signal(signal.SIGINT)
        output, errors = process.communicate(timeout=DEADLINE)
        self.assertEqual((process.returncode, output, errors), (0, "", ""))


class ManualTest(unittest.TestCase):
    def test_all_of_it_is_installed(self):
        with tempfile.TemporaryDirectory() as place:
            subprocess.run(["cmake", "--install", os.environ["QUORVANE_BUILD"], "--component", "program", "--prefix", place],
                           check=True, stdout=subprocess.DEVNULL)
            share = pathlib.Path(place) / "share"
            for file in ("man/man1/quorvane.1", "man/man1/quorvane-list.1", "bash-completion/completions/quorvane",
                         "zsh/site-functions/_quorvane", "fish/vendor_completions.d/quorvane.fish",
                         "../lib/systemd/user/quorvane@.service", "quorvane/schemas/list.json", "quorvane/schemas/error.json"):
                self.assertTrue((share / file).is_file(), file)

    def test_pages_are_set_without_a_warning(self):
        with tempfile.TemporaryDirectory() as directory:
            subprocess.run([PROGRAM, "_manual", directory], check=True)
            pages = sorted(pathlib.Path(directory).glob("*.1"))
            self.assertGreater(len(pages), 25)
            for page in pages:
                told = subprocess.run(["groff", "-man", "-ww", "-Tutf8", "-z", page], capture_output=True, text=True)
                self.assertEqual((told.returncode, told.stderr), (0, ""), page.name)
            shown = subprocess.run(["groff", "-man", "-Tascii", "-P-cbou", pages[0].parent / "quorvane-list.1"],
                                   check=True, capture_output=True, text=True).stdout
            for part in ("NAME", "SYNOPSIS", "quorvane list MAILBOX [FOLDER] [WORDS ...]", "--sort", "EXIT STATUS"):
                self.assertIn(part, shown)


class UnitTest(unittest.TestCase):
    # Those that systemd has from version 254 on.
    LATER = {"RestartSteps", "RestartMaxDelaySec"}

    @unittest.skipUnless(shutil.which("systemd-analyze"), "there is no systemd-analyze")
    def test_systemd_understands_the_unit(self):
        with tempfile.TemporaryDirectory() as place:
            unit = pathlib.Path(place) / "quorvane@home-alice-mail.service"
            text = UNIT.read_text()
            self.assertIn("ExecStart=quorvane run %f\n", text)
            unit.write_text(text.replace("ExecStart=quorvane ", f"ExecStart={PROGRAM} "))
            told = subprocess.run(["systemd-analyze", "verify", "--user", "--man=no", unit], stdin=subprocess.DEVNULL,
                                  env={**os.environ, "HOME": place, "XDG_RUNTIME_DIR": place}, capture_output=True,
                                  text=True, timeout=DEADLINE)
            self.assertEqual(told.returncode, 0, told.stderr)
            lines = [line for line in told.stderr.splitlines() if unit.name in line]
            unknown = {match[1] for line in lines if (match := re.search(r"Unknown key (?:name )?'(\w+)'", line))}
            self.assertLessEqual(unknown, self.LATER, told.stderr)
            self.assertEqual(len(lines), len(unknown), told.stderr)


if __name__ == "__main__":
    unittest.main()
