#!/usr/bin/env python3
"""The chain of real programs: a Dovecot, mbsync, a Maildir, a mirror, the exchange, a mirror, a Maildir, mbsync, another
Dovecot. Mails are delivered, marked, moved and deleted at both ends through IMAP, and each program is killed meanwhile;
then both servers have to hold the same mails, byte for byte, with the same flags.

    tests/chain/chain.py QUORVANE MAILS.eml... [--mails N] [--seed S]

By hand: it needs dovecot-imapd and isync, and root, as Dovecot gives no mail to root and runs as nobody here.
"""
import argparse
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

FOLDERS = {'INBOX': 'Work', 'Done': 'Done'}
FLAGS = (r'\Seen', r'\Flagged', r'\Answered')


class Side:
    """One member: a server, a Maildir that mbsync fetches from it, and a mailbox."""

    def __init__(self, root, name, quorvane):
        self.name, self.quorvane = name, quorvane
        self.home = os.path.join(root, name)
        self.server = os.path.join(self.home, 'server')
        self.maildir = os.path.join(self.home, 'mail')
        self.mailbox = os.path.join(self.home, 'mailbox')
        for path in (self.server, self.maildir):
            os.makedirs(path)
        self.run_directory = os.path.join(self.home, 'run')
        os.makedirs(self.run_directory)
        config = os.path.join(self.home, 'dovecot.conf')
        with open(config, 'w') as file:
            file.write(f'base_dir = {self.run_directory}\nstate_dir = {self.run_directory}\n'
                       f'mail_location = maildir:{self.server}\nlog_path = /dev/null\ninfo_log_path = /dev/null\nssl = no\n'
                       'mail_uid = nobody\nmail_gid = nogroup\nfirst_valid_uid = 0\nfirst_valid_gid = 0\n'
                       'stats_writer_socket_path =\n')
        for path in (self.server, self.run_directory):
            shutil.chown(path, 'nobody', 'nogroup')
        self.tunnel = (f'runuser -u nobody -- env HOME={self.server} USER=nobody '
                       f'/usr/lib/dovecot/imap -c {config}')
        self.mbsyncrc = os.path.join(self.home, 'mbsyncrc')
        with open(self.mbsyncrc, 'w') as file:
            file.write(f'IMAPStore server\nTunnel "{self.tunnel}"\n\n'
                       f'MaildirStore local\nPath {self.maildir}/\nInbox {self.maildir}/INBOX\nSubFolders Verbatim\n\n'
                       'Channel all\nFar :server:\nNear :local:\nPatterns INBOX Done\nCreate Both\nExpunge Both\n'
                       'SyncState *\n')
        self.run = None

    def call(self, *arguments):
        return subprocess.run([self.quorvane, *arguments], check=True, capture_output=True, text=True).stdout

    def imap(self):
        return imaplib.IMAP4_stream(self.tunnel)

    def sync(self, kill_after=None):
        process = subprocess.Popen(['mbsync', '-c', self.mbsyncrc, '-q', '-a'], stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL, start_new_session=True)
        try:
            process.wait(kill_after if kill_after is not None else 120)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)  # with its Dovecot
            process.wait()
        return process.returncode

    def start(self):
        log = open(os.path.join(self.home, 'run.log'), 'a')
        self.run = subprocess.Popen([self.quorvane, 'run', self.mailbox], stdout=log, stderr=log)

    def kill(self):
        self.run.kill()
        self.run.wait()

    def mails(self):
        """(folder, digest, flags) of all mails, sorted."""
        found = []
        imap = self.imap()
        for folder in FOLDERS:
            imap.select(folder, readonly=True)
            status, parts = imap.uid('FETCH', '1:*', '(FLAGS BODY.PEEK[])')
            for part in parts:
                if isinstance(part, tuple):
                    flags = re.search(rb'FLAGS \(([^)]*)\)', part[0]).group(1).decode().split()
                    # mbsync marks what it uploads with a field of its own.
                    mail = re.sub(rb'(?m)^X-TUID: .*\r\n', b'', part[1])
                    found.append((folder, hashlib.sha256(mail).hexdigest()[:16],
                                  ' '.join(sorted(flag for flag in flags if flag in FLAGS))))
        imap.logout()
        return sorted(found)

    def change(self, rng, count):
        imap = self.imap()
        imap.select('INBOX')
        uids = imap.uid('SEARCH', 'ALL')[1][0].split()
        rng.shuffle(uids)
        for uid in uids[:count]:
            imap.uid('STORE', uid, rng.choice(['+FLAGS', '-FLAGS']), rng.choice(FLAGS))
        moved, deleted = uids[count:count + max(1, count // 4)], uids[-max(1, count // 4):]
        for uid in moved:
            imap.uid('MOVE', uid, 'Done')
        for uid in set(deleted) - set(moved):
            imap.uid('STORE', uid, '+FLAGS', r'(\Deleted)')
        imap.expunge()
        imap.logout()
        return len(set(deleted) - set(moved))


def settle(sides, deadline=60):
    """Syncs both until they show the same twice in a row."""
    last, end = None, time.time() + deadline
    while time.time() < end:
        for side in sides:
            side.sync()
        time.sleep(2)
        now = [side.mails() for side in sides]
        if now[0] == now[1] and now == last:
            return True
        last = now
    return False


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('quorvane')
    parser.add_argument('mail', nargs='+')
    parser.add_argument('--mails', type=int, default=20)
    parser.add_argument('--seed', type=int, default=1)
    options = parser.parse_args()
    rng = random.Random(options.seed)
    root = tempfile.mkdtemp(prefix='quorvane-chain-')
    os.chmod(root, 0o755)
    exchange = os.path.join(root, 'exchange')
    os.makedirs(exchange)
    sides = [Side(root, name, options.quorvane) for name in ('alice', 'bob')]
    try:
        for side in sides:
            os.chmod(side.home, 0o755)
            side.call('init', side.mailbox, '--name', side.name, '--exchange', exchange)
        sides[0].call('members', 'add', sides[0].mailbox, 'bob')
        sides[1].call('members', 'add', sides[1].mailbox, 'alice')
        for folder in FOLDERS.values():
            sides[0].call('import', sides[0].mailbox, folder, options.mail[0])
            sides[0].call('delete', sides[0].mailbox, folder, '1')
            sides[0].call('share', sides[0].mailbox, folder, '--flags', '--with', 'bob')
        for _ in range(3):
            for side, other in ((sides[0], 'bob'), (sides[1], 'alice')):
                side.call('run', side.mailbox, '--until-idle', '--idle-seconds', '1', '--accept-from', other)
        for side in sides:
            imap = side.imap()
            imap.create('Done')
            imap.logout()
            side.sync()
            for name, folder in FOLDERS.items():
                side.call('mirror', side.mailbox, folder, os.path.join(side.maildir, name))
            side.start()
        for i in range(options.mails):
            with open(options.mail[i % len(options.mail)], 'rb') as file:
                mail = b'Message-ID: <chain-%d@example.org>\r\n' % i + re.sub(rb'\r?\n', b'\r\n', file.read())
            imap = sides[i % 2].imap()
            imap.append('INBOX', rng.choice(['', r'\Seen', r'\Flagged']), None, mail)
            imap.logout()
        for side in sides:
            side.sync(kill_after=rng.uniform(0.05, 1.0))
        time.sleep(1)
        for side in sides:
            side.kill()
            side.start()
        ok = settle(sides)
        print('delivered:', 'equal' if ok else 'NOT EQUAL', [len(side.mails()) for side in sides], flush=True)
        gone = 0
        for side in sides:
            gone += side.change(rng, max(2, options.mails // 8))
            side.sync(kill_after=rng.uniform(0.05, 1.0))
            side.kill()
            side.start()
            ok = settle(sides) and ok
        counts = [len(side.mails()) for side in sides]
        print('changed:', 'equal' if ok else 'NOT EQUAL', counts, 'of', options.mails, 'deleted', gone, flush=True)
        ok = ok and counts[0] == options.mails - gone
        if not ok:
            for side in sides:
                print(side.name, side.mails())
                print(open(os.path.join(side.home, 'run.log')).read()[-2000:])
        return 0 if ok else 1
    finally:
        for side in sides:
            if side.run:
                side.kill()
        if '--keep' not in sys.argv:
            shutil.rmtree(root, ignore_errors=True)


sys.exit(main())
