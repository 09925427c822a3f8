#!/usr/bin/env python3
"""The chain of real programs: a Dovecot, mbsync, a Maildir, a mirror, the exchange, a mirror, a Maildir, mbsync, another
Dovecot. Mails are delivered, marked, moved and deleted at both ends at the same time through IMAP, and each program is
killed meanwhile. Then both servers have to hold the mails that a plain model has, byte for byte, with its flags.

    tests/chain/chain.py QUORVANE [MAILS...] [--mails N] [--seed S] [--keep]

MAILS are files, or directories of .eml files; without any they are those in $QUORVANE_CORPUS, else in $QUORVANE_SAMPLES.
It needs dovecot-imapd and isync, and root, as Dovecot gives no mail to root and runs as nobody here; without them it ends
with 77 and tells what is missing. 2,000 mails: --mails 2000 --patience 900.
"""
import argparse
import dataclasses
import glob
import hashlib
import imaplib
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from xml.sax.saxutils import quoteattr

DOVECOT = '/usr/lib/dovecot/imap'
FOLDERS = {'INBOX': 'Work', 'Done': 'Done'}  # of the server, and of the mailbox
FLAGS = (r'\Seen', r'\Flagged', r'\Answered', r'\Draft')
MOST_GOING = 20  # at one end at once: more than a hundred would have to be confirmed
LARGEST = 1 << 20
SKIPPED = 77

imaplib._MAXLINE = 10_000_000  # pylint: disable=protected-access


@dataclasses.dataclass(order=True)
class Mail:
    """What a server shows of a mail, and what the model has of it."""
    number: int
    folder: str
    digest: str
    flags: frozenset = dataclasses.field(compare=False)

    def text(self):
        return f'{self.number} {self.folder} {self.digest} {" ".join(sorted(self.flags))}'


def digest_of(mail):
    # mbsync marks what it writes with a field of its own.
    return hashlib.sha256(re.sub(rb'(?m)^X-TUID: .*\r\n', b'', mail)).hexdigest()[:16]


def children_of(process):
    """The ids of all processes below one."""
    parents = {}
    for path in glob.glob('/proc/[0-9]*/stat'):
        try:
            with open(path) as file:
                fields = file.read().rpartition(')')[2].split()
        except OSError:
            continue
        parents.setdefault(int(fields[1]), []).append(int(path.split('/')[2]))
    found, left = [], [process]
    while left:
        below = parents.get(left.pop(), [])
        found += below
        left += below
    return found


class Side:
    """One member: a server, a Maildir that mbsync keeps in step with it, and a mailbox."""

    def __init__(self, root, name, quorvane):
        self.name, self.quorvane, self.run = name, quorvane, None
        self.home = os.path.join(root, name)
        self.server, self.maildir, self.mailbox, self.run_directory = (
            os.path.join(self.home, part) for part in ('server', 'mail', 'mailbox', 'run'))
        for path in (self.server, self.maildir, self.run_directory):
            os.makedirs(path)
        os.chmod(self.home, 0o755)
        self.logs = {program: open(os.path.join(self.home, program + '.log'), 'a')
                     for program in ('mbsync', 'dovecot', 'run')}
        self.write_dovecot_config()
        self.write_mbsync_config()

    def write_dovecot_config(self):
        config = os.path.join(self.home, 'dovecot.conf')
        with open(config, 'w') as file:
            file.write(f'base_dir = {self.run_directory}\nstate_dir = {self.run_directory}\n'
                       f'mail_location = maildir:{self.server}\nssl = no\n'
                       'mail_uid = nobody\nmail_gid = nogroup\nfirst_valid_uid = 0\nfirst_valid_gid = 0\n'
                       'stats_writer_socket_path =\n')
        for path in (self.server, self.run_directory):
            shutil.chown(path, 'nobody', 'nogroup')
        self.tunnel = (f'exec runuser -u nobody -- env HOME={self.server} USER=nobody {DOVECOT} -c {config} '
                       f'2>>{self.logs["dovecot"].name}')

    def write_mbsync_config(self):
        self.mbsyncrc = os.path.join(self.home, 'mbsyncrc')
        with open(self.mbsyncrc, 'w') as file:
            file.write(f'IMAPStore server\nTunnel "{self.tunnel}"\n\n'
                       f'MaildirStore local\nPath {self.maildir}/\nInbox {self.maildir}/INBOX\nSubFolders Verbatim\n\n'
                       'Channel all\nFar :server:\nNear :local:\nPatterns INBOX Done\nCreate Both\nExpunge Both\n'
                       'SyncState *\n')

    def call(self, *arguments):
        done = subprocess.run([self.quorvane, *arguments], capture_output=True, text=True)
        if done.returncode != 0:
            sys.exit(f'quorvane {" ".join(arguments)} ended with {done.returncode}: {done.stderr}')

    def imap(self):
        return imaplib.IMAP4_stream(self.tunnel)

    def sync(self, rng=None, victim=None):
        """Lets mbsync do its work; kills it, or its Dovecot, somewhere in the midst."""
        process = subprocess.Popen(['mbsync', '-c', self.mbsyncrc, '-Dsm', '-a'], stdout=self.logs['mbsync'],
                                   stderr=self.logs['mbsync'], start_new_session=True)
        if victim:
            time.sleep(rng.uniform(0.05, 0.6))
        if victim == 'mbsync':
            os.killpg(process.pid, signal.SIGKILL)
        if victim == 'dovecot':
            for child in children_of(process.pid):
                try:
                    os.kill(child, signal.SIGKILL)
                except ProcessLookupError:
                    pass
        try:
            process.wait(300)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()
            sys.exit(f'{self.name}: mbsync did not end')

    def start(self):
        self.run = subprocess.Popen([self.quorvane, 'run', self.mailbox], stdout=self.logs['run'], stderr=self.logs['run'])

    def kill(self):
        if self.run.poll() is not None:
            print(f'{self.name}: the run had ended with {self.run.returncode}', flush=True)
        self.run.kill()
        self.run.wait()

    def mails(self):
        """What the server holds, sorted."""
        found, imap = [], self.imap()
        for folder in FOLDERS:
            imap.select(folder, readonly=True)
            for part in imap.uid('FETCH', '1:*', '(FLAGS BODY.PEEK[])')[1]:
                if isinstance(part, tuple):
                    flags = re.search(rb'FLAGS \(([^)]*)\)', part[0]).group(1).decode().split()
                    number = re.search(rb'Message-ID: <chain-(\d+)@', part[1])
                    found.append(Mail(int(number.group(1)) if number else -1, folder, digest_of(part[1]),
                                      frozenset(flags) & frozenset(FLAGS)))
        imap.logout()
        return sorted(found)

    def deliver(self, mails):
        imap = self.imap()
        for mail, text in mails:
            imap.append(mail.folder, ' '.join(mail.flags), None, text)
        imap.logout()

    def change(self, changes):
        """(mail, what, argument) each."""
        imap = self.imap()
        for folder in FOLDERS:
            imap.select(folder)
            uids = {}
            for part in imap.uid('FETCH', '1:*', '(BODY.PEEK[HEADER.FIELDS (MESSAGE-ID)])')[1]:
                if isinstance(part, tuple):
                    uids[int(re.search(rb'chain-(\d+)@', part[1]).group(1))] = re.search(rb'UID (\d+)', part[0]).group(1)
            for mail, what, argument in changes:
                if mail.folder == folder:
                    imap.uid(what, uids[mail.number], *argument)
            imap.expunge()
        imap.logout()


class Chain:
    def __init__(self, options, root):
        self.options, self.rng = options, random.Random(options.seed)
        self.sides = [Side(root, name, options.quorvane) for name in ('alice', 'bob')]
        self.model = []
        self.share(os.path.join(root, 'exchange'))

    def share(self, exchange):
        os.makedirs(exchange)
        alice, bob = self.sides
        for side in self.sides:
            side.call('init', side.mailbox, '--name', side.name, '--exchange', exchange)
        alice.call('members', 'add', alice.mailbox, 'bob')
        bob.call('members', 'add', bob.mailbox, 'alice')
        for folder in FOLDERS.values():
            alice.call('folder', 'make', alice.mailbox, folder)
            alice.call('share', alice.mailbox, folder, '--flags', '--with', 'bob')
        for _ in range(3):
            for side, other in ((alice, 'bob'), (bob, 'alice')):
                side.call('run', side.mailbox, '--until-idle', '--idle-seconds', '1', '--accept-from', other)
        for side in self.sides:
            imap = side.imap()
            imap.create('Done')
            imap.logout()
            side.sync()
            for name, folder in FOLDERS.items():
                side.call('mirror', side.mailbox, folder, os.path.join(side.maildir, name))
            side.start()

    def deliver(self, paths):
        both = ([], [])
        for number in range(self.options.mails):
            with open(paths[number % len(paths)], 'rb') as file:
                text = b'Message-ID: <chain-%d@example.org>\r\n' % number + re.sub(rb'\r?\n', b'\r\n', file.read())
            mail = Mail(number, 'INBOX', digest_of(text), frozenset(flag for flag in FLAGS if self.rng.random() < 0.25))
            self.model.append(mail)
            both[number % 2].append((mail, text))
        for side, mails in zip(self.sides, both):
            side.deliver(mails)

    def change(self, own):
        """Both ends change anything at the same time: of a mail that stays each has flags of its own."""
        mails = list(self.model)
        self.rng.shuffle(mails)
        changes = ([], [])
        for side in (0, 1):
            going = [mails.pop() for _ in range(min(MOST_GOING, 1 + len(self.model) // 16))]
            for mail in going:
                if self.rng.random() < 0.5:
                    changes[side].append((mail, 'STORE', ('+FLAGS', r'(\Deleted)')))
                else:
                    changes[side].append((mail, 'MOVE', ('Done' if mail.folder == 'INBOX' else 'INBOX',)))
        for side in (0, 1):
            for mail in self.rng.sample(mails, len(mails) // 4):
                flag = self.rng.choice(own[side])
                changes[side].append((mail, 'STORE', ('-FLAGS' if flag in mail.flags else '+FLAGS', flag)))
        for side, some in zip(self.sides, changes):
            side.change(some)
        for mail, what, argument in changes[0] + changes[1]:
            if what == 'MOVE':
                mail.folder = argument[0]
            elif argument[1] in FLAGS:
                mail.flags ^= {argument[1]}
            else:
                self.model.remove(mail)

    def disturb(self):
        """Each program is killed once in the midst of its work."""
        for side, victim in zip(self.sides, self.rng.sample(('mbsync', 'dovecot'), 2)):
            side.sync(self.rng, victim)
        for side in self.sides:
            time.sleep(self.rng.uniform(0, 0.5))
            side.kill()
            side.start()

    def settle(self, what):
        """Both end at the model, and stay there."""
        begin, expected = time.time(), [mail.text() for mail in sorted(self.model)]
        seen, same = None, 0
        while same < 2 and time.time() - begin < self.options.patience:
            for side in self.sides:
                side.sync()
            seen = [[mail.text() for mail in side.mails()] for side in self.sides]
            same = same + 1 if seen == [expected, expected] else 0
        if same == 2:
            print(f'{what}: both servers hold the {len(expected)} mails ({time.time() - begin:.1f} s)', flush=True)
            return True
        print(f'{what}: NOT EQUAL after {self.options.patience} s')
        for side, mails in zip(self.sides, seen):
            for line in sorted(set(mails) ^ set(expected)):
                print(' ', side.name, 'has' if line in mails else 'lacks', line)
            for line in sorted(set(line for line in mails if mails.count(line) > 1)):
                print(' ', side.name, 'has twice', line)
        return False

    def run(self, paths):
        self.deliver(paths)
        self.disturb()
        if not self.settle('delivered'):
            return False
        self.change(((FLAGS[0], FLAGS[2]), (FLAGS[1], FLAGS[3])))
        self.disturb()
        if not self.settle('changed while killed'):
            return False
        self.change(((FLAGS[1], FLAGS[3]), (FLAGS[0], FLAGS[2])))
        return self.settle('changed')

    def end(self):
        for side in self.sides:
            if side.run:
                side.kill()


def skip(why):
    print(f'skipped: {why}')
    raise Skipped(why)


class Skipped(Exception):
    pass


def report(path, seconds, code, why):
    """What a test program of the project leaves of itself, for who counts them."""
    kinds = {0: '', SKIPPED: f'<skipped message={quoteattr(why)}/>'}
    os.makedirs(os.path.dirname(os.path.abspath(path)), exist_ok=True)
    with open(path, 'w') as file:
        file.write(f'<testsuites><testsuite name="Chain" tests="1" failures="{int(code not in kinds)}" '
                   f'skipped="{int(code == SKIPPED)}"><testcase name="BothServersHoldTheSame" time="{seconds:.1f}">'
                   f'{kinds.get(code, "<failure/>")}</testcase></testsuite></testsuites>\n')


def can_travel(path):
    """Whether IMAP and mbsync carry it as it is: lines end with CRLF, and the header with an empty one."""
    with open(path, 'rb') as file:
        text = re.sub(rb'\r?\n', b'\n', file.read(LARGEST + 1))
    return 0 < len(text) <= LARGEST and not re.search(rb'[\0\r]', text) and b'\n\n' in text


def mails_of(arguments):
    paths = []
    for argument in arguments:
        if os.path.isdir(argument):
            paths += sorted(glob.glob(os.path.join(argument, '**', '*.eml'), recursive=True))
        else:
            paths.append(argument)
    return [path for path in paths if can_travel(path)]


def default_mails():
    corpus = os.environ.get('QUORVANE_CORPUS')
    return [os.path.join(corpus, 'mail')] if corpus else [os.environ.get('QUORVANE_SAMPLES', '.')]


def run(options):
    if not shutil.which('mbsync') or not os.path.exists(DOVECOT):
        skip('isync or dovecot-imapd is not installed')
    if os.geteuid() != 0:
        skip('only root can run Dovecot as another user')
    paths = mails_of(options.mail or default_mails())
    if not paths:
        skip('there are no mails')
    root = tempfile.mkdtemp(prefix='quorvane-chain-')
    os.chmod(root, 0o755)
    print(f'seed {options.seed}, in {root}', flush=True)
    chain = None
    try:
        chain = Chain(options, root)
        return 0 if chain.run(paths) else 1
    finally:
        if chain:
            chain.end()
        if not options.keep:
            shutil.rmtree(root, ignore_errors=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('quorvane')
    parser.add_argument('mail', nargs='*')
    parser.add_argument('--mails', type=int, default=200)
    parser.add_argument('--seed', type=int, default=1)
    parser.add_argument('--patience', type=int, default=120,
                        help='seconds until both servers have to be in step; after a kill a run may miss a change for one minute')
    parser.add_argument('--keep', action='store_true', help='leave everything where it was made')
    parser.add_argument('--report', help='a file that gets the outcome as JUnit writes it')
    options = parser.parse_args()
    begin, code, why = time.time(), 1, ''
    try:
        code = run(options)
    except Skipped as skipped:
        code, why = SKIPPED, str(skipped)
    finally:
        if options.report:
            report(options.report, time.time() - begin, code, why)
    return code


sys.exit(main())
