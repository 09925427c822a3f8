"""A small world of mailboxes in a directory, for tests that look at what commands print."""
import json
import os
import pathlib
import signal
import subprocess
import time

PROGRAM = os.environ["QUORVANE_PROGRAM"]
SAMPLES = pathlib.Path(os.environ["QUORVANE_SAMPLES"])
DEADLINE = 60


class World:
    """Commands are run with `home` as the user's directory, and in it."""

    def __init__(self, home):
        self.home = pathlib.Path(home)
        self.exchange = self.home / "exchange"
        # The user's own systemd isn't reached from here, nor are his settings.
        self.environment = {**os.environ, "HOME": str(self.home), "XDG_RUNTIME_DIR": str(self.home)}
        for name in ("DBUS_SESSION_BUS_ADDRESS", "XDG_CONFIG_HOME", "MAILDIR"):
            self.environment.pop(name, None)
        self.runs = []

    def start(self, *arguments):
        return subprocess.Popen([PROGRAM, *map(str, arguments)], cwd=self.home, env=self.environment, text=True,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def run(self, *arguments, code=0):
        """What a command prints under --json; it has to end with that code."""
        process = self.start(*arguments, "--json")
        output, errors = process.communicate(timeout=DEADLINE)
        if process.returncode != code:
            raise AssertionError(f"{arguments}: exit code {process.returncode}: {errors}")
        return self.told(arguments, output, errors)

    def told(self, arguments, output, errors):
        return json.loads(output) if output else json.loads(errors)

    def mail(self, name):
        return self.home / "mail" / name

    def make(self, *names):
        self.exchange.mkdir()
        for name in names:
            self.run("init", self.mail(name), "--name", name, "--exchange", self.exchange)
        for name in names:
            for other in names:
                if other != name:
                    self.run("members", "add", self.mail(name), other)

    def device(self, name):
        return self.run("members", self.mail(name))["device"]

    def bring_in(self, name, folder, *samples):
        self.run("import", self.mail(name), folder, *[SAMPLES / (sample + ".eml") for sample in samples])

    def begin_runs(self, *names, accept=()):
        """Runs that accept what these share, until `end_runs`."""
        words = [word for name in accept for word in ("--accept-from", name)]
        self.runs = [self.start("run", self.mail(name), "--json", *words) for name in names]

    def end_runs(self):
        for process in self.runs:
            process.send_signal(signal.SIGTERM)
        for process in self.runs:
            output, errors = process.communicate(timeout=DEADLINE)
            if process.returncode != 0:
                raise AssertionError(f"run: exit code {process.returncode}: {errors}")
            self.told(("run",), output, errors)
        self.runs = []

    @staticmethod
    def eventually(what, condition):
        deadline = time.monotonic() + DEADLINE
        while not condition():
            if time.monotonic() > deadline:
                raise AssertionError("in vain: " + what)
            time.sleep(0.05)

    def items_of(self, mailbox, folder):
        """Those of a folder; none where there isn't one."""
        output, _ = self.start("list", mailbox, folder, "--json").communicate(timeout=DEADLINE)
        return json.loads(output) if output else []

    def items(self, name, folder):
        return self.items_of(self.mail(name), folder)

    def await_items(self, name, folder, count):
        self.eventually(f"{count} items in {name}'s {folder}", lambda: len(self.items(name, folder)) == count)
