"""What each command prints under --json is what its schema in packaging/schemas says, and nothing else."""
import json
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

import jsonschema

from world import PROGRAM, SAMPLES, World

SCHEMAS = pathlib.Path(os.environ["QUORVANE_SCHEMAS"])


def commands():
    """Those that print anything themselves, by their whole names."""
    described = json.loads(subprocess.run([PROGRAM, "_commands"], check=True, capture_output=True).stdout)
    return [one["command"] for one in described if one["command"] and not one["needsCommand"]]


def schema_of(command):
    return json.loads((SCHEMAS / (command.replace(" ", "-") + ".json")).read_text())


def open_objects(schema, place="$"):
    """Where a schema lets anything in."""
    if isinstance(schema, list):
        return [found for i, one in enumerate(schema) for found in open_objects(one, f"{place}[{i}]")]
    if not isinstance(schema, dict):
        return []
    is_open = schema.get("type") == "object" and schema.get("additionalProperties") is not False
    below = [found for key, one in schema.items() for found in open_objects(one, f"{place}.{key}")]
    return ([place] if is_open else []) + below


class ValidatingWorld(World):
    """Holds each value that a command prints against that command's schema."""

    def __init__(self, home):
        super().__init__(home)
        self.names = commands()
        self.seen = set()

    def command_of(self, arguments):
        two = " ".join(map(str, arguments[:2]))
        return two if two in self.names else str(arguments[0])

    def told(self, arguments, output, errors):
        command = self.command_of(arguments) if output else "error"
        value = json.loads(output or errors.strip().splitlines()[-1])
        jsonschema.Draft202012Validator(schema_of(command)).validate(value)
        self.seen.add(command)
        return value


class SchemasTest(unittest.TestCase):
    def test_each_command_has_a_schema_and_each_schema_a_command(self):
        self.assertEqual(sorted(path.stem for path in SCHEMAS.glob("*.json")),
                         sorted([name.replace(" ", "-") for name in commands()] + ["error"]))

    def test_schemas_are_schemas_and_let_nothing_else_in(self):
        for path in sorted(SCHEMAS.glob("*.json")):
            schema = json.loads(path.read_text())
            jsonschema.Draft202012Validator.check_schema(schema)
            self.assertEqual(open_objects(schema), [], path.name)

    def test_what_commands_print_is_what_their_schemas_say(self):
        home = tempfile.mkdtemp(prefix="quorvane-schemas-")
        try:
            self.world = ValidatingWorld(home)
            self.use_one_mailbox()
            self.share()
            self.end_sharing()
            self.assertEqual(sorted(set(commands()) - self.world.seen), [], "never run")
            self.assertIn("error", self.world.seen)
        finally:
            shutil.rmtree(home)

    def use_one_mailbox(self):
        world = self.world
        world.make("alice", "bob")
        alice = world.mail("alice")
        world.run("list", world.home / "nowhere", code=1)
        world.run("list", code=2)
        world.bring_in("alice", "Mine", "06-text-html-images-pdf", "32-many-recipients")
        world.bring_in("alice", "Mine", "06-text-html-images-pdf")
        (world.home / "broken.msg").write_bytes(b"no message")
        self.assertEqual(len(world.run("import", alice, "Mine", world.home / "broken.msg",
                                       SAMPLES / "01-plain.eml")["leftOut"]), 1)
        world.run("list", alice)
        self.assertEqual(len(world.run("list", alice, "Mine")), 3)
        item = world.run("show", alice, "Mine", "1")
        self.assertTrue(item["recipients"] and item["attachments"])
        world.run("edit", alice, "Mine", "1", "--flag")
        world.run("export", alice, "Mine", world.home / "out", "--format", "msg")
        message = next((world.home / "out").glob("*.msg"))
        self.assertEqual(world.run("inspect", message)["kind"], "message")
        world.run("folder", "make", alice, "Other/One")
        world.run("folder", "rename", alice, "Other/One", "Two")
        world.run("folder", "move", alice, "Other/Two", "/")
        world.run("move", alice, "Mine", "2", "Two")
        world.run("delete", alice, "Mine", "2")
        world.run("folder", "delete", alice, "Two", "--yes")
        entries = world.run("trash", alice)["entries"]
        self.assertEqual(len(world.run("undelete", alice, entries[0]["id"])), 1)
        world.run("mirror", alice, "Mine", world.home / "Maildir")
        self.assertEqual(len(world.run("mirror", alice)), 1)
        self.assertTrue(world.run("status", alice)["mirrors"])
        world.run("mirror", alice, "Mine", "--remove")
        self.assertEqual(len(world.run("mirror", alice, "Tree", world.home / "Tree", "--tree", "maildir++")["tied"]), 1)
        self.assertEqual(len(world.run("mirror", alice, "Tree", "--remove", "--below")["untied"]), 1)
        world.run("setup", world.home / "new", "--name", "carol", "--exchange", world.exchange, "--yes")
        world.run("setup", alice, "--name", "bob", "--yes", code=2)
        world.run("check", alice)
        self.assertTrue(world.run("doctor", alice)["well"])
        world.run("backup", alice, world.home / "backup")
        world.run("restore", world.home / "backup", world.home / "restored")

    def share(self):
        world = self.world
        alice, bob = world.mail("alice"), world.mail("bob")
        world.bring_in("alice", "Shared", "01-plain", "03-html-only")
        world.run("share", alice, "Shared", "--with", "bob", "dave", "--flags")
        world.run("share", alice, "Mine", "--with", "bob")
        self.assertTrue(world.run("status", alice)["awaited"])
        world.begin_runs("alice", "bob")
        world.eventually("two invitations", lambda: len(world.run("invitations", bob)) == 2)
        ids = {one["folder"]: one["id"] for one in world.run("invitations", bob)}
        self.assertTrue(world.run("status", bob)["folders"])
        world.run("decline", bob, ids["Mine"])
        world.run("accept", bob, ids["Shared"])
        world.await_items("bob", "Shared", 2)
        # Neither hears of the other's change before it has made its own.
        world.end_runs()
        self.inspect_packages()
        items = {one["id"]: number for number, one in enumerate(world.items("bob", "Shared"), 1)}
        first = world.items("alice", "Shared")[0]
        world.run("edit", alice, "Shared", first["id"], "--subject", "by alice")
        world.run("edit", bob, "Shared", items[first["id"]], "--subject", "by bob")
        world.run("compare", alice, "Shared", bob, "Shared", code=1)
        world.begin_runs("alice", "bob")
        world.eventually("a conflict", lambda: len(world.run("conflicts", alice)) == 1)
        world.await_items("alice", "Shared", 3)
        world.await_items("bob", "Shared", 3)
        self.assertTrue(world.run("status", alice)["shares"])
        self.verify()
        world.end_runs()
        self.assertTrue(world.run("log", alice))
        self.assertTrue(any(day["sent"]["items"] for day in world.run("report", alice, "-o", world.home / "r.html")["traffic"]))

    def verify(self):
        for _ in range(30):
            told = self.world.start("verify", self.world.mail("alice"), "Shared", "--wait", "1", "--json")
            output, errors = told.communicate(timeout=60)
            self.assertIn(told.returncode, (0, 1, 3), errors)
            value = self.world.told(("verify",), output, errors)
            if value["folders"][0]["members"]:
                return
        self.fail("nobody to compare with")

    def inspect_packages(self):
        world = self.world
        sealed = next(iter(world.exchange.glob("*/out/*.qvx")), None)
        if sealed:
            self.assertEqual(world.run("inspect", sealed, "--mailbox", world.mail("alice"))["kind"], "sealed package")

    def end_sharing(self):
        world = self.world
        alice, bob = world.mail("alice"), world.mail("bob")
        world.run("resend", alice, "Shared", "--to", "bob", "--all")
        self.assertTrue(world.run("status", alice)["resends"])
        world.run("cancel", alice, "Shared")
        world.run("leave", bob, "Shared")
        world.run("unshare", alice, "Shared", "--with", "bob")
        world.run("unshare", alice, "Mine")
        second = world.run("init", world.home / "second", "--name", "alice", "--exchange", world.exchange)
        world.run("members", "link", alice, second["device"])
        self.assertTrue(world.run("members", alice)["members"])
        world.run("members", "unlink", alice, second["device"])
        world.run("members", "drop", bob, world.device("alice"))
        world.run("members", "remove", alice, "bob")


if __name__ == "__main__":
    unittest.main()
