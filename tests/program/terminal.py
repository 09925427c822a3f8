"""A program at a terminal of its own."""
import fcntl
import os
import pty
import re
import select
import struct
import subprocess
import termios
import time

from world import DEADLINE, PROGRAM


class AtTerminal:
    """What it shows is gathered in `seen`, without control sequences where `plain` gives it."""

    def __init__(self, world, *arguments, columns=100, lines=40, **environment):
        self.mine, its = pty.openpty()
        self.resize(columns, lines, its)
        self.process = subprocess.Popen(
            [PROGRAM, *map(str, arguments)], cwd=world.home, stdin=its, stdout=its, stderr=its, start_new_session=True,
            preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0),
            env={**world.environment, "TERM": "xterm", "NO_COLOR": "", **environment})
        os.close(its)
        self.seen = ""

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        os.close(self.mine)

    def resize(self, columns, lines, terminal=None):
        fcntl.ioctl(self.mine if terminal is None else terminal, termios.TIOCSWINSZ,
                    struct.pack("HHHH", lines, columns, 0, 0))

    def type(self, text):
        os.write(self.mine, text.encode())

    def read(self, deadline):
        """Whether there was more."""
        ready, _, _ = select.select([self.mine], [], [], max(0.0, deadline - time.monotonic()))
        if not ready:
            raise AssertionError(f"nothing more than {self.seen!r}")
        try:
            piece = os.read(self.mine, 65536)
        except OSError:
            piece = b""  # the other end is closed
        self.seen += piece.decode(errors="replace")
        return bool(piece)

    def await_text(self, wanted, after=0):
        """Waits until it shows that, behind what was seen before; gives where it ends."""
        deadline = time.monotonic() + DEADLINE
        while wanted not in self.seen[after:]:
            if not self.read(deadline):
                raise AssertionError(f"no {wanted!r} in {self.seen!r}")
        return self.seen.index(wanted, after) + len(wanted)

    def answer(self, question, text):
        self.await_text(question)
        self.type(text)

    def end(self):
        """Its exit code, once it has ended."""
        deadline = time.monotonic() + DEADLINE
        while self.read(deadline):
            pass
        return self.process.wait(DEADLINE)

    def plain(self):
        return re.sub(r"\x1b\[[0-9;?]*[A-Za-z]", "", self.seen).replace("\r\n", "\n")
