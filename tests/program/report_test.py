"""The page that `report` writes, read by parsers of others: of a mailbox with hostile names and much going on."""
import html.parser
import pathlib
import re
import shutil
import stat
import tempfile
import unittest
import xml.etree.ElementTree

from world import World

HOSTILE = "<img src=x onerror=alert(1)> & \"co\" 'x' \u202e </title>"
FOLDER = "Plans <b>2026</b> & more"


class Parsed(html.parser.HTMLParser):
    """What a browser would make of it, as far as these tests ask."""

    def __init__(self, text):
        super().__init__(convert_charrefs=True)
        self.tags, self.headings, self.text, self.ids, self.links, self.attributes = [], [], [], [], [], []
        self.feed(text)
        self.close()

    def handle_starttag(self, tag, attributes):
        attributes = dict(attributes)
        self.tags.append(tag)
        self.attributes += attributes.items()
        if re.fullmatch("h[1-6]", tag):
            self.headings.append(int(tag[1]))
        if "id" in attributes:
            self.ids.append(attributes["id"])
        if tag == "a":
            self.links.append(attributes["href"])

    handle_startendtag = handle_starttag

    def handle_data(self, data):
        self.text.append(data)


class ReportTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.place = pathlib.Path(tempfile.mkdtemp(prefix="quorvane-report-"))
        cls.addClassCleanup(shutil.rmtree, cls.place)
        cls.world = world = World(cls.place / "home")
        world.home.mkdir()
        world.make("alice", "bob")
        alice, bob = world.mail("alice"), world.mail("bob")
        for number, sample in enumerate(("01-plain", "03-html-only", "20-flowed", "29-urgent"), 1):
            world.bring_in("alice", FOLDER, sample)
        world.run("edit", alice, FOLDER, "4", "--subject", HOSTILE)
        world.run("share", alice, FOLDER, "--with", "bob", "dave")
        world.begin_runs("alice", "bob", accept=["alice"])
        world.await_items("bob", FOLDER, 4)
        items = {one["id"]: str(number) for number, one in enumerate(world.items("bob", FOLDER), 1)}
        first = [one["id"] for one in world.items("alice", FOLDER)]
        world.run("delete", bob, FOLDER, items[first[3]])
        world.await_items("alice", FOLDER, 3)
        world.eventually("an acknowledgement", lambda: cls.acknowledged("alice") and cls.acknowledged("bob"))
        world.end_runs()
        # Neither hears of the other's change before it has made its own.
        world.run("edit", alice, FOLDER, first[0], "--subject", "by alice")
        world.run("edit", bob, FOLDER, first[0], "--subject", "by bob")
        world.begin_runs("alice", "bob")
        cls.addClassCleanup(world.end_runs)
        world.eventually("a conflict", lambda: len(world.run("conflicts", alice)) == 1)
        # A package counts when all of it was applied.
        world.eventually("two items", lambda: sum(day["received"]["items"] for day in world.run(
            "report", alice, "--days", "2")["traffic"]) >= 2)
        # While a run is under way.
        cls.data = world.run("report", alice, "-o", "report.html")
        cls.path = world.home / "report.html"
        cls.page = cls.path.read_text()
        cls.parsed = Parsed(cls.page)

    @classmethod
    def acknowledged(cls, name):
        return all(member["unacknowledged"] == 0 for member in cls.world.run("status", cls.world.mail(name))["members"])

    def test_it_is_well_formed_and_each_id_stands_once(self):
        xml.etree.ElementTree.fromstring(self.page)
        self.assertEqual(len(self.parsed.ids), len(set(self.parsed.ids)))
        for link in self.parsed.links:
            self.assertIn(link.removeprefix("#"), self.parsed.ids)

    def test_headings_go_down_step_by_step(self):
        headings = self.parsed.headings
        self.assertEqual([headings[0], headings.count(1)], [1, 1])
        for above, below in zip(headings, headings[1:]):
            self.assertLessEqual(below, above + 1)

    def test_texts_from_outside_are_texts(self):
        self.assertTrue({"script", "img", "iframe"}.isdisjoint(self.parsed.tags))
        self.assertNotIn("onerror", dict(self.parsed.attributes))
        text = "".join(self.parsed.text)
        self.assertIn("<img src=x onerror=alert(1)> & \"co\" 'x'", text)
        self.assertIn(FOLDER, text)

    def test_it_refers_to_nothing_outside(self):
        for name, value in self.parsed.attributes:
            self.assertNotIn(name, ("src", "srcset", "action", "data", "poster"))
            if name == "href":
                self.assertTrue(value.startswith("#"), value)
            elif name != "xmlns":
                self.assertNotIn("://", value or "", name)
        self.assertTrue({"script", "link", "object", "embed", "base"}.isdisjoint(self.parsed.tags))
        self.assertNotRegex(self.page, r"@import|url\(")

    def test_each_plot_has_a_name_and_numbers_that_unfold(self):
        document = xml.etree.ElementTree.fromstring(self.page)
        plots = document.findall(".//{*}figure")
        self.assertEqual(len(plots), 3)
        for plot in plots:
            picture = plot.find("{*}svg")
            self.assertTrue(picture.find("{*}title").text and picture.find("{*}desc").text)
            self.assertTrue(plot.findall("{*}details/{*}table/{*}tbody/{*}tr"))
            self.assertTrue(plot.find("{*}details/{*}summary").text)

    def test_what_it_shows_is_what_json_tells(self):
        data = self.data
        self.assertTrue(data["running"])
        self.assertEqual(data["awaited"], ["dave"])
        self.assertEqual([one["folder"] for one in data["shares"]], [FOLDER])
        self.assertEqual(len(data["conflicts"]), 1)
        self.assertEqual(data["trash"]["count"], len(data["trash"]["entries"]))
        self.assertIn(HOSTILE.split(" \u202e")[0], data["trash"]["entries"][-1]["subject"])
        self.assertEqual(len(data["traffic"]), 30)
        sent, received = ([day[way] for day in data["traffic"]] for way in ("sent", "received"))
        # Four items and an edit went out; a deletion and an edit came in.
        self.assertGreaterEqual(sum(day["items"] for day in sent), 5)
        self.assertGreaterEqual(sum(day["items"] for day in received), 2)
        # Not those that are in no package, nor anything twice.
        self.assertLessEqual(sum(day["items"] for day in received), 4)
        sealed = sum(path.stat().st_size for path in self.world.exchange.glob(self.world.device("alice") + "/out/*.qvx"))
        self.assertGreaterEqual(sum(day["bytes"] for day in sent), sealed)
        for way in (sent, received):
            self.assertGreater(sum(day["bytes"] for day in way), 0)
            self.assertGreater(sum(day["packages"] for day in way), 0)
        self.assertGreaterEqual(sum(one["items"] for one in data["applied"]), 2)
        text = "".join(self.parsed.text)
        self.assertIn(data["trash"]["entries"][0]["why"], text)
        self.assertIn("No device of dave is known", text)

    def test_nobody_else_may_read_it_and_it_is_written_again(self):
        self.assertEqual(stat.S_IMODE(self.path.stat().st_mode), 0o600)
        before = self.path.stat().st_ino
        self.world.run("report", self.world.mail("alice"), "-o", "report.html", "--days", "7")
        self.assertNotEqual(self.path.stat().st_ino, before)
        self.assertTrue(self.path.read_text().endswith("</html>\n"))

    def test_what_is_no_report_stays(self):
        alice = self.world.mail("alice")
        other = self.world.home / "notes.html"
        other.write_text("<!DOCTYPE html>\n<html><body>mine</body></html>\n")
        link = self.world.home / "link.html"
        link.symlink_to(self.path)
        for path in (other, link, self.world.home):
            self.assertIn("which is no report", self.world.run("report", alice, "-o", path, code=1)["error"])
        self.assertIn("mine", other.read_text())
        self.assertTrue(link.is_symlink())
        self.world.run("report", alice, "-o", self.world.home / "new" / "r.html")
        self.assertEqual([path.name for path in (self.world.home / "new").iterdir()], ["r.html"])

    def test_without_a_file_it_has_to_be_json(self):
        process = self.world.start("report", self.world.mail("alice"))
        _, errors = process.communicate(timeout=60)
        self.assertEqual(process.returncode, 2, errors)
        self.assertEqual(len(self.world.run("report", self.world.mail("alice"), "--days", "3")["traffic"]), 3)


if __name__ == "__main__":
    unittest.main()
