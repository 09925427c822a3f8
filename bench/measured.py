"""What the benchmarks of the whole program share: mails, mailboxes that are called and run, and the time that it takes."""
import os
import random
import shutil
import subprocess
import sys
import tempfile
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def fail(why):
    sys.exit(f'bench/{os.path.basename(sys.argv[0])}: {why}')


def program_and_numbers(documentation):
    """The program to measure and the numbers behind it on the command line; prints what --help asks for."""
    arguments = sys.argv[1:]
    if arguments and arguments[0].startswith('-'):
        print(documentation)
        sys.exit(0 if arguments[0] in ('-h', '--help') else 2)
    program = arguments[0] if arguments else os.path.join(ROOT, 'build/release/bin/quorvane')
    if not os.access(program, os.X_OK):
        fail(f'there is no program {program}')
    return program, [int(one) for one in arguments[1:]]


def await_that(what, condition, patience):
    """How many seconds it took until `condition` held; fails after `patience` of them."""
    begin = time.monotonic()
    while not condition():
        if time.monotonic() - begin > patience:
            fail(f'{what} took longer than {patience} s')
        time.sleep(0.002)
    return time.monotonic() - begin


def processor_time(process):
    with open(f'/proc/{process.pid}/stat') as file:
        fields = file.read().rpartition(')')[2].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf('SC_CLK_TCK')


def make_mails(maildir, count):
    """A Maildir of mails of 6 KB, and how many bytes they are."""
    rng = random.Random(1)
    words = [''.join(rng.choices('abcdefghijklmnopqrstuvwxyz', k=rng.randint(2, 9))) for _ in range(4000)]
    for part in ('cur', 'new', 'tmp'):
        os.makedirs(os.path.join(maildir, part))
    size = 0
    for number in range(count):
        lines, body = [], 0
        while body < 5700:
            lines.append(' '.join(rng.choices(words, k=11)))
            body += len(lines[-1]) + 1
        text = (f'From: Ann <a@example.org>\nTo: Zoe <z@example.org>\nSubject: mail {number}\n'
                f'Date: Thu, 1 Jan 2026 00:00:{number % 60:02} +0000\nMessage-ID: <{number}@example.org>\n\n'
                + '\n'.join(lines) + '\n')
        size += len(text)
        with open(os.path.join(maildir, 'cur', f'{1800000000 + number}.M{number}.host:2,'), 'w') as file:
            file.write(text)
    return size


class Cost:
    """What a child process took: seconds of the user's, the system's and by the clock, and its peak of memory in MB."""

    def __init__(self, command, where):
        begin = time.monotonic()
        with open(os.path.join(where, 'out'), 'w') as out, open(os.path.join(where, 'errors'), 'w') as errors:
            child = subprocess.Popen(command, stdout=out, stderr=errors)
            status, used = os.wait4(child.pid, 0)[1:]
        child.returncode = os.waitstatus_to_exitcode(status)
        self.clock = time.monotonic() - begin
        self.user, self.system, self.peak = used.ru_utime, used.ru_stime, used.ru_maxrss / 1024
        if child.returncode != 0:
            with open(os.path.join(where, 'errors')) as errors:
                fail(f'"{" ".join(command)}" failed: {errors.read().strip()}')

    def processor(self):
        return self.user + self.system


class Pair:
    """The mailboxes of two members, ann and zoe, with an exchange, in a directory that goes with them."""

    def __init__(self, program):
        self.program, self.place, self.runs = program, tempfile.mkdtemp(prefix='quorvane-bench-'), []
        os.mkdir(self.path('exchange'))
        for name in ('ann', 'zoe'):
            self.call('init', self.path(name), '--name', name, '--exchange', self.path('exchange'))
        self.call('members', 'add', self.path('ann'), 'zoe')
        self.call('members', 'add', self.path('zoe'), 'ann')

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for run in self.runs:
            run.terminate()
            run.wait()
        shutil.rmtree(self.place, ignore_errors=True)

    def path(self, name):
        return os.path.join(self.place, name)

    def call(self, *arguments):
        return Cost([self.program, *arguments], self.place)

    def run_until_idle(self, name, *options):
        return self.call('run', self.path(name), '--until-idle', '--idle-seconds', '0.1', *options)

    def start(self, name, *options):
        """A run that goes on until the end."""
        self.runs.append(subprocess.Popen([self.program, 'run', self.path(name), *options], stdout=subprocess.DEVNULL,
                                          stderr=open(self.path(name + '.log'), 'w')))

    def idle(self, seconds):
        """What each run costs while nothing happens, in percent of a core."""
        time.sleep(15)  # until what follows from what happened is done
        before = [processor_time(run) for run in self.runs]
        time.sleep(seconds)
        return [100 * (processor_time(run) - one) / seconds for run, one in zip(self.runs, before)]
