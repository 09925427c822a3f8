"""`setup`: a mailbox made ready for daily use, by answers on a terminal or by options."""
import getpass
import pathlib
import shlex
import shutil
import subprocess
import tempfile
import unittest

from systemd import UserSystemd
from terminal import AtTerminal
from world import DEADLINE, PROGRAM, SAMPLES, World


class SetupTest(unittest.TestCase):
    def setUp(self):
        self.world = World(tempfile.mkdtemp(prefix="quorvane-setup-"))
        self.addCleanup(shutil.rmtree, self.world.home)
        self.systemd = UserSystemd(self.world)
        self.mailbox = self.world.home / "my mail's"
        self.world.exchange.mkdir()

    @property
    def unit(self):
        path = str(self.mailbox).strip("/").replace("-", r"\x2d").replace("'", r"\x27").replace(" ", r"\x20")
        return f"quorvane@{path.replace('/', '-')}.service"

    @property
    def unit_file(self):
        return self.world.home / ".config" / "systemd" / "user" / self.unit

    def lay_mail(self, *maildirs):
        for name in maildirs:
            for part in ("cur", "new", "tmp"):
                (self.world.home / name / part).mkdir(parents=True)
        shutil.copy(SAMPLES / "20-flowed.eml", self.world.home / maildirs[0] / "new" / "1.host")

    def set_up(self, *options):
        return self.world.run("setup", self.mailbox, *options)

    @staticmethod
    def states(told):
        return [(step["step"], step["state"]) for step in told["steps"]]

    def all_steps(self, state, mirrors=1):
        return ([("mailbox", state), ("exchange", state)] + [("mirror", state)] * mirrors
                + [("unit", state), ("enable", state), ("start", state)])

    def test_answers_on_a_terminal_make_all_of_it(self):
        self.lay_mail("Maildir", "Maildir/.Plans")
        with AtTerminal(self.world, "setup", self.mailbox) as terminal:
            terminal.answer(f"[{getpass.getuser()}]: ", "not a name\n")
            terminal.answer("a name has letters", "")
            terminal.answer("are to know you", "")
            terminal.type("alice\n")
            terminal.answer(f"[{self.world.home}/Maildir]: ", "~/nowhere\n")
            terminal.answer("there is no Maildir in ~/nowhere", "\n")
            terminal.answer("[later]: ", "~/exchange\n")
            terminal.answer("Do that [yes]: ", "")
            self.assertFalse(self.mailbox.exists(), "nothing was agreed to yet")
            terminal.type("\n")
            self.assertEqual(terminal.end(), 0)
            self.assertIn("what comes next", terminal.plain())
            self.assertIn("quorvane share " + shlex.quote(str(self.mailbox)).replace("'\"'\"'", "'\\''"), terminal.plain())
        again = self.set_up("--yes")
        self.assertEqual(again["name"], "alice")
        self.assertEqual(self.states(again), self.all_steps("was done", mirrors=2))
        self.assertEqual([one["folder"] for one in self.world.run("mirror", self.mailbox)], ["Inbox", "Plans"])
        self.assertEqual(self.systemd.deeds(), ["--user daemon-reload", f"--user enable -- {self.unit}",
                                                f"--user start --no-block -- {self.unit}"])

    def test_the_unit_begins_this_program_and_systemd_understands_it(self):
        self.set_up("--exchange", self.world.exchange, "--yes")
        text = self.unit_file.read_text()
        self.assertIn(f'ExecStart="{pathlib.Path(PROGRAM).resolve()}" run %f\n', text)
        if shutil.which("systemd-analyze"):
            told = subprocess.run(["systemd-analyze", "verify", "--user", "--man=no", self.unit_file],
                                  stdin=subprocess.DEVNULL, env=self.world.environment, capture_output=True, text=True,
                                  timeout=DEADLINE)
            self.assertEqual(told.returncode, 0, told.stderr)
        if shutil.which("systemd-escape"):
            name = subprocess.run(["systemd-escape", "--template=quorvane@.service", "--path", self.mailbox], check=True,
                                  capture_output=True, text=True).stdout.strip()
            self.assertEqual(name, self.unit)

    def test_what_systemd_is_told_to_run_runs(self):
        self.lay_mail("Maildir")
        self.set_up("--exchange", self.world.exchange, "--yes")
        words = [line for line in self.unit_file.read_text().splitlines() if line.startswith("ExecStart=")][0]
        command = words.removeprefix("ExecStart=").replace("%f", "").replace('"', "").split()
        subprocess.run([*command, self.mailbox, "--until-idle", "--idle-seconds", "0.5"], check=True, timeout=DEADLINE,
                       env=self.world.environment, stdout=subprocess.DEVNULL)
        self.assertEqual(len(self.world.items_of(self.mailbox, "Inbox")), 1)

    def test_options_say_all_that_answers_do(self):
        self.lay_mail("other/Maildir")
        told = self.set_up("--name", "alice", "--mail", self.world.home / "other" / "Maildir", "--exchange",
                           self.world.exchange, "--no-service", "--yes")
        self.assertEqual(self.states(told), [("mailbox", "done"), ("exchange", "done"), ("mirror", "done"),
                                             ("unit", "left out")])
        self.assertEqual((told["exchange"], told["unit"]), (str(self.world.exchange), ""))
        self.assertEqual(self.systemd.told("calls"), [])
        self.assertTrue((self.world.exchange / told["device"] / "card").is_file())

    def test_what_is_proposed_does_for_a_start(self):
        told = self.world.run("setup", "--yes")
        self.assertEqual(told["mailbox"], str(self.world.home / "quorvane"))
        self.assertEqual(self.states(told), [("mailbox", "done"), ("exchange", "left out"), ("unit", "left out")])
        self.assertIn(" --exchange DIRECTORY", told["next"][0]["command"])
        self.assertEqual(self.systemd.deeds(), [])

    def test_answers_that_end_leave_nothing(self):
        self.lay_mail("Maildir")
        for given in ("", "alice\n", "alice\n\n", "alice\n\n\n", "alice\n\n\nno\n"):
            told = subprocess.run([PROGRAM, "setup", self.mailbox], input=given, env=self.world.environment, text=True,
                                  capture_output=True, timeout=DEADLINE)
            self.assertEqual((told.returncode, told.stdout), (1, ""), given)
            last = told.stderr.splitlines()[-1]
            self.assertIn("nothing was made", last)
            self.assertFalse(self.mailbox.exists())
        self.assertEqual(self.systemd.deeds(), [])

    def test_one_that_was_cut_short_goes_on(self):
        self.lay_mail("Maildir")
        words = ("--name", "alice", "--exchange", self.world.exchange, "--yes")
        self.systemd.set("refuses-enable")
        process = self.world.start("setup", self.mailbox, *words)
        _, errors = process.communicate(timeout=DEADLINE)
        self.assertEqual((process.returncode, len(errors.splitlines())), (1, 1), errors)
        self.assertIn("Failed to enable unit: not now", errors)
        self.systemd.clear("refuses-enable")
        device = self.world.run("members", self.mailbox)["device"]
        told = self.set_up(*words)
        self.assertEqual(self.states(told), [("mailbox", "was done"), ("exchange", "was done"), ("mirror", "was done"),
                                             ("unit", "was done"), ("enable", "done"), ("start", "done")])
        self.assertEqual(told["device"], device)
        self.assertEqual(self.systemd.deeds().count("--user daemon-reload"), 1)

    def test_one_that_was_killed_anywhere_goes_on(self):
        self.lay_mail("Maildir", "Maildir/.Plans")
        shutil.rmtree(self.world.home / "Maildir" / ".Plans" / "tmp")
        words = ("--name", "alice", "--exchange", self.world.exchange, "--yes")
        def is_half_made():
            return (self.mailbox / "being-made").exists() and (self.mailbox / "store.sqlite").exists()
        self.kill_once(is_half_made, *words)
        self.assertTrue(is_half_made(), "it was killed too late")
        self.world.run("status", self.mailbox, code=1)
        self.kill_once(lambda: (self.mailbox / "host.db").exists() and not is_half_made(), *words)
        self.kill_once(lambda: (self.world.home / "Maildir" / ".Plans" / "tmp").exists(), *words)
        self.set_up(*words)
        self.assertEqual(self.states(self.set_up(*words)), self.all_steps("was done", mirrors=2))
        self.assertTrue(self.world.run("doctor", self.mailbox)["well"])

    def kill_once(self, moment, *words):
        process = self.world.start("setup", self.mailbox, *words)
        while process.poll() is None and not moment():
            pass
        process.kill()
        process.communicate(timeout=DEADLINE)

    def test_a_program_that_moved_gets_its_unit_anew(self):
        words = ("--exchange", self.world.exchange, "--yes")
        self.set_up(*words)
        self.unit_file.write_text(self.unit_file.read_text().replace(PROGRAM, "/opt/gone/quorvane"))
        self.assertIn(("unit", "done"), self.states(self.set_up(*words)))
        self.assertIn(PROGRAM, self.unit_file.read_text())

    def test_without_systemd_it_says_how_to_begin_a_run(self):
        self.systemd.set("absent")
        told = self.set_up("--exchange", self.world.exchange, "--yes")
        self.assertIn(("unit", "left out"), self.states(told))
        command = told["next"][0]["command"]
        self.assertTrue(command.startswith("quorvane run '"))
        environment = {**self.world.environment,
                       "PATH": f"{pathlib.Path(PROGRAM).parent}:{self.world.environment['PATH']}"}
        subprocess.run(["bash", "-c", command + " --until-idle --idle-seconds 0.2"], check=True, env=environment,
                       stdout=subprocess.DEVNULL, timeout=DEADLINE)

    def test_what_cant_be_is_refused_before_anything_is_made(self):
        for options, code in ((("--mail", self.world.home / "nowhere"), 1), (("--exchange", "/no/where"), 1),
                              (("--name", "no name"), 2)):
            self.world.run("setup", self.mailbox, *options, "--yes", code=code)
            self.assertFalse(self.mailbox.exists())


if __name__ == "__main__":
    unittest.main()
