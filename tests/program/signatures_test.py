"""Signatures of mail, judged by others' programs: openssl, gpg, and DKIM's body hashes. What held when a mail came
in holds at the other member, and still does when the mail's subject and marks are edited there."""
import base64
import hashlib
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

import dkim.canonicalization
import dkim.util

from world import World

CORPUS = os.environ.get("QUORVANE_CORPUS")
FOLDER = "Signed"
BOUNDARY = "=_of_the_test"

# The parts that a signature is sensitive to: spaces at ends of lines, an empty line at the end, lines that look like
# a mailbox's separator, 8 bits, a long line, a nested multipart.
SIGNED_PARTS = {
    "spaces": b"Content-Type: text/plain; charset=us-ascii\r\n\r\nwith spaces   \r\nand a tab\t\r\n\r\n\r\n",
    "from": b"Content-Type: text/plain\r\n\r\nFrom here on\r\n>From there on\r\n-- \r\nsignature\r\n",
    "eight": "Content-Type: text/plain; charset=utf-8\r\nContent-Transfer-Encoding: 8bit\r\n\r\nGrüße\r\n".encode(),
    "long": b"Content-Type: text/plain\r\n\r\n" + b"x" * 990 + b"\r\n",
    "odd-header": b"CONTENT-TYPE:text/plain;\r\n  charset = \"utf-8\"\r\nX-Own:  kept \r\n\r\ntext without an end",
    "nested": (b"Content-Type: multipart/mixed; boundary=inner\r\n\r\npreamble\r\n--inner\r\n\r\none\r\n--inner\r\n"
               b"Content-Type: application/octet-stream\r\nContent-Transfer-Encoding: base64\r\n\r\nAAEC\r\nAw==\r\n"
               b"--inner--\r\nepilogue\r\n"),
}


class Gpg:
    """A keyring of its own with one key."""

    def __init__(self, home):
        self.home = home
        home.mkdir(mode=0o700)
        self.call("--quick-gen-key", "signer@example.org", "ed25519", "sign", "never")

    def call(self, *arguments, **options):
        return subprocess.run(["gpg", "--batch", "--quiet", "--passphrase", "", "--pinentry-mode", "loopback",
                               "--homedir", self.home, *arguments], capture_output=True, **options)

    def sign(self, part):
        return self.call("--detach-sign", "--armor", "--digest-algo", "SHA256", input=part, check=True).stdout

    def is_good(self, mail):
        """Of a multipart/signed with our boundary."""
        _, part, signature = mail.split(b"--" + BOUNDARY.encode())[:3]
        part = part.removeprefix(b"\r\n").removesuffix(b"\r\n")
        with tempfile.NamedTemporaryFile(dir=self.home) as file:
            file.write(signature[signature.index(b"-----BEGIN"):])
            file.flush()
            return self.call("--verify", file.name, "-", input=part).returncode == 0

    def mail(self, name, part):
        signature = self.sign(part).replace(b"\n", b"\r\n")
        return (f"From: signer@example.org\r\nTo: bob@example.org\r\nSubject: {name}\r\n"
                f"Message-ID: <{name}@example.org>\r\nMIME-Version: 1.0\r\n"
                f"Content-Type: multipart/signed; micalg=pgp-sha256; boundary=\"{BOUNDARY}\";\r\n"
                f" protocol=\"application/pgp-signature\"\r\n\r\n--{BOUNDARY}\r\n").encode() + part + (
                    f"\r\n--{BOUNDARY}\r\nContent-Type: application/pgp-signature\r\n\r\n").encode() + signature + (
                        f"\r\n--{BOUNDARY}--\r\n").encode()


def header_end(mail):
    ends = [mail.index(end) + len(end) for end in (b"\r\n\r\n", b"\n\n") if end in mail]
    return min(ends, default=len(mail))


def good_body_hashes(mail):
    """Of the DKIM signatures of a mail, the body hashes that are those of its body."""
    lines = mail[:header_end(mail)].replace(b"\r\n", b"\n").replace(b"\n ", b" ").replace(b"\n\t", b" ").split(b"\n")
    body = mail[header_end(mail):].replace(b"\r\n", b"\n").replace(b"\n", b"\r\n")
    good = []
    for line in lines:
        name, _, value = line.partition(b":")
        if name.strip().lower() != b"dkim-signature":
            continue
        try:
            tags = dkim.util.parse_tag_value(value)
            policy = dkim.canonicalization.CanonicalizationPolicy.from_c_value(tags.get(b"c", b"simple/simple"))
            digest = hashlib.new("sha1" if tags[b"a"].endswith(b"sha1") else "sha256")
            wanted = b"".join(tags[b"bh"].split())
        except (KeyError, dkim.util.InvalidTagValueList, dkim.canonicalization.InvalidCanonicalizationPolicyError):
            continue
        canonical = policy.canonicalize_body(body)
        digest.update(canonical[:int(tags[b"l"])] if b"l" in tags else canonical)
        if base64.b64encode(digest.digest()) == wanted:
            good.append(wanted)
    return good


def is_cms_good(mail):
    with tempfile.NamedTemporaryFile() as file:
        file.write(mail)
        file.flush()
        return subprocess.run(["openssl", "cms", "-verify", "-noverify", "-in", file.name, "-out", "/dev/null"],
                              capture_output=True, check=False).returncode == 0


def corpus_mails():
    """What signs its body in a way that can be judged here."""
    for path in sorted(pathlib.Path(CORPUS, "mail").iterdir()) if CORPUS else []:
        mail = path.read_bytes() if path.is_file() else b""
        head = mail[:header_end(mail)].lower()
        if b"pkcs7" in mail and is_cms_good(mail):
            yield mail, "cms"
        elif b"dkim-signature" in head and good_body_hashes(mail):
            yield mail, "dkim"


def pass_over_missing(_function, _path, failure):
    """For rmtree: gpg's agent, asked to end, removes its sockets meanwhile."""
    if not issubclass(failure[0], FileNotFoundError):
        raise failure[1]


class SignaturesTest(unittest.TestCase):
    def setUp(self):
        self.place = pathlib.Path(tempfile.mkdtemp(prefix="quorvane-signatures-"))
        self.addCleanup(shutil.rmtree, self.place, onerror=pass_over_missing)
        self.world = World(self.place / "home")
        self.world.home.mkdir()
        self.gpg = Gpg(self.place / "gpg")
        self.addCleanup(subprocess.run, ["gpgconf", "--homedir", self.gpg.home, "--kill", "gpg-agent"], check=False)

    def holds(self, mail, kind, hashes):
        if kind == "pgp":
            return self.gpg.is_good(mail)
        return is_cms_good(mail) if kind == "cms" else set(hashes) <= set(good_body_hashes(mail))

    def exported(self, name, directory):
        """The mails of the folder, by the bytes of their first files."""
        files = self.world.run("export", self.world.mail(name), FOLDER, self.place / directory)["files"]
        return [pathlib.Path(file).read_bytes() for file in files]

    def test_what_held_holds_at_the_other_member_and_after_an_edit_there(self):
        mails = [(self.gpg.mail(name, part), "pgp") for name, part in SIGNED_PARTS.items()]
        for mail, _ in mails:
            self.assertTrue(self.gpg.is_good(mail), mail)
        mails += corpus_mails()
        kinds = [kind for _, kind in mails]
        print({kind: kinds.count(kind) for kind in sorted(set(kinds))})
        if CORPUS:
            self.assertGreaterEqual(kinds.count("cms"), 8)
            self.assertGreaterEqual(kinds.count("dkim"), 30)
        directory = self.place / "in"
        directory.mkdir()
        for number, (mail, _) in enumerate(mails):
            (directory / f"{number:04}.eml").write_bytes(mail)
        self.world.make("alice", "bob")
        alice, bob = self.world.mail("alice"), self.world.mail("bob")
        self.world.run("import", alice, FOLDER, "--again", directory)
        self.world.run("share", alice, FOLDER, "--with", "bob")
        self.world.begin_runs("alice", "bob", accept=["alice"])
        self.world.await_items("bob", FOLDER, len(mails))
        self.world.end_runs()

        self.assertEqual(sorted(self.exported("bob", "out")), sorted(mail for mail, _ in mails))

        order = {mail: number for number, mail in enumerate(self.exported("bob", "order"), 1)}
        for number in order.values():
            self.world.run("edit", bob, FOLDER, str(number), "--subject", f"edited {number}", "--flag", "--answered")
        edited = self.exported("bob", "edited")
        self.assertEqual(len(edited), len(mails))
        for mail, kind in mails:
            now = edited[order[mail] - 1]
            self.assertIn(f"edited {order[mail]}".encode(), now[:header_end(now)])
            self.assertTrue(self.holds(now, kind, good_body_hashes(mail)), (kind, now[:2000]))

    def test_the_judges_can_say_no(self):
        mail = self.gpg.mail("spaces", SIGNED_PARTS["spaces"])
        self.assertFalse(self.gpg.is_good(mail.replace(b"spaces   \r\n", b"spaces\r\n")))
        for mail, kind in corpus_mails():
            if kind == "dkim":
                self.assertEqual(good_body_hashes(mail[:header_end(mail)] + b"another body\r\n"), [])
                break


if __name__ == "__main__":
    unittest.main()
