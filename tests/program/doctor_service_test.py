"""`doctor` looks at the unit that runs a mailbox, and what it says to do can be done."""
import pathlib
import shlex
import shutil
import subprocess
import tempfile
import unittest

from systemd import UserSystemd
from world import DEADLINE, PROGRAM, World


class DoctorTest(unittest.TestCase):
    def setUp(self):
        self.world = World(tempfile.mkdtemp(prefix="quorvane-doctor-"))
        self.addCleanup(shutil.rmtree, self.world.home)
        self.systemd = UserSystemd(self.world)
        self.world.exchange.mkdir()
        self.mailbox = self.world.home / "alice's mail"

    def found(self, area, mailbox=None):
        told = subprocess.run([PROGRAM, "doctor", mailbox or self.mailbox, "--json"], env=self.world.environment,
                              capture_output=True, text=True, timeout=DEADLINE)
        findings = [one for one in self.world.told((), told.stdout, told.stderr)["findings"] if one["area"] == area]
        self.assertEqual(len(findings), 1, findings)
        return findings[0]

    def do(self, line):
        """As somebody copies it."""
        environment = {**self.world.environment,
                       "PATH": f"{pathlib.Path(PROGRAM).parent}:{self.world.environment['PATH']}"}
        told = subprocess.run(["bash", "-c", line], env=environment, capture_output=True, text=True, timeout=DEADLINE)
        self.assertEqual(told.returncode, 0, f"{line}: {told.stderr}")

    def done(self, finding):
        """Does what a finding says, behind the colon if there is one."""
        self.do(finding["todo"].split(": ")[-1])

    def test_a_unit_is_seen_from_its_making_to_its_failure(self):
        self.world.run("init", self.mailbox, "--exchange", self.world.exchange, "--name", "alice")
        finding = self.found("service")
        self.assertEqual(finding["state"], "note")
        self.do(finding["todo"].split(": ")[-1] + " --yes")
        self.assertEqual(self.found("service")["state"], "good")
        self.systemd.set("active")
        self.assertEqual(self.found("service")["state"], "note")
        self.done(self.found("service"))
        self.assertEqual(self.found("service")["state"], "good")
        self.systemd.set("enabled")
        self.assertIn("isn't enabled", self.found("service")["what"])
        self.done(self.found("service"))
        self.assertEqual(self.found("service")["state"], "good")
        self.systemd.set("active")
        self.systemd.set("inactive", "failed\n")
        self.systemd.set("result", "watchdog\n")
        finding = self.found("service")
        self.assertEqual((finding["state"], "(watchdog)" in finding["what"]), ("act", True))
        words = shlex.split(finding["todo"].split(": ")[-1])
        self.assertEqual(words[:3], ["journalctl", "--user", "-u"])
        self.assertEqual(words[3], self.systemd.told("enabled")[-1])

    def test_where_there_is_no_systemd_that_is_told_and_needs_nobody(self):
        self.systemd.set("absent")
        self.world.run("init", self.mailbox, "--exchange", self.world.exchange, "--name", "alice")
        finding = self.found("service")
        self.assertEqual((finding["state"], finding["todo"]), ("good", ""))
        self.assertIn("no systemd", finding["what"])

    def test_what_it_says_to_do_can_be_pasted_whatever_the_paths(self):
        self.world.run("init", self.mailbox, "--exchange", self.world.exchange, "--name", "alice")
        (self.mailbox / "device.key").chmod(0o644)
        self.done(self.found("permissions"))
        self.assertEqual(self.found("permissions")["state"], "good")
        (self.mailbox / "rejected").mkdir()
        self.done(self.found("packages"))
        self.assertFalse((self.mailbox / "rejected").exists())
        maildir = self.world.home / "Maildir"
        folder = "Bob's \"plans\" & $more"
        self.world.run("mirror", self.mailbox, folder, maildir)
        self.do(self.found("run")["todo"] + " --until-idle --idle-seconds 0.3")
        shutil.rmtree(maildir)
        self.do(self.found("run")["todo"] + " --until-idle --idle-seconds 0.3")
        self.assertEqual(self.found("mirrors")["state"], "act")
        self.done(self.found("mirrors"))
        self.assertEqual(self.world.run("mirror", self.mailbox), [])
        plain = self.world.home / "plain"
        self.world.run("init", plain, "--name", "plain")
        self.assertEqual(self.found("exchange", plain)["todo"],
                         f"name it once: quorvane run {plain} --exchange DIRECTORY")


if __name__ == "__main__":
    unittest.main()
