"""What packages and the installer take of what is installed, without making any: nothing is left behind, and nothing is
named that isn't there."""
import fnmatch
import json
import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

SOURCE = pathlib.Path(os.environ["QUORVANE_SOURCE"])
BUILD = pathlib.Path(os.environ["QUORVANE_BUILD"])
PROGRAM = os.environ["QUORVANE_PROGRAM"]
DEBIAN = SOURCE / "packaging" / "debian"
WINDOWS = SOURCE / "packaging" / "windows"
PACKAGES = ("quorvane", "libquorvane3", "libquorvane3-dev")
TRIPLET = "x86_64-linux-gnu"


def output(*command, **more):
    return subprocess.run(command, check=True, capture_output=True, text=True, **more).stdout


def patterns(package):
    """The patterns of a package's list of files; what follows one is where they go."""
    return [line.split()[0] for line in (DEBIAN / f"{package}.install").read_text().splitlines() if line]


class DebianTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.stage = pathlib.Path(tempfile.mkdtemp(prefix="quorvane-packages-"))
        cls.addClassCleanup(shutil.rmtree, cls.stage)
        output("cmake", "--install", str(BUILD), "--prefix", str(cls.stage))
        cls.files = sorted(cls.packaged(path.relative_to(cls.stage).as_posix())
                           for path in cls.stage.rglob("*") if path.is_symlink() or path.is_file())

    @staticmethod
    def packaged(path):
        """Where a package has it: libraries lie in a directory of the processor's kind there."""
        of_library = path.startswith("lib/") and not path.startswith("lib/systemd/")
        return "usr/" + (path.replace("lib/", f"lib/{TRIPLET}/", 1) if of_library else path)

    def takers(self, path):
        above = [path, *map(str, pathlib.PurePosixPath(path).parents)]
        return [package for package in PACKAGES
                if any(fnmatch.fnmatchcase(each, pattern) and each.count("/") == pattern.count("/")
                       for pattern in patterns(package) for each in above)]

    def test_each_installed_file_is_in_one_package(self):
        self.assertGreater(len(self.files), 100)
        for path in self.files:
            self.assertEqual(len(self.takers(path)), 1, f"{path} is in {self.takers(path)}")

    def test_each_pattern_names_something(self):
        for package in PACKAGES:
            for pattern in patterns(package):
                self.assertTrue(any(fnmatch.fnmatchcase(path, pattern) or fnmatch.fnmatchcase(path, pattern + "/*")
                                    for path in self.files), f"{package}: {pattern}")

    def test_each_command_has_a_page_and_a_schema_in_the_programs_package(self):
        for command in json.loads(output(PROGRAM, "_commands")):
            words = command["command"].split()
            page = "-".join(["quorvane", *words[:1]])
            path = f"usr/share/man/man1/{page}.1"
            self.assertIn(path, self.files)
            self.assertEqual(self.takers(path), ["quorvane"])

    def test_unit_completion_and_schemas_are_the_programs(self):
        for path in ("usr/lib/systemd/user/quorvane@.service", "usr/share/bash-completion/completions/quorvane",
                     "usr/share/zsh/site-functions/_quorvane", "usr/share/fish/vendor_completions.d/quorvane.fish",
                     "usr/share/quorvane/schemas/status.json"):
            self.assertIn(path, self.files)
            self.assertEqual(self.takers(path), ["quorvane"])

    def test_the_pages_that_packages_bring_are_there(self):
        for package in PACKAGES:
            for kind in ("docs", "examples"):
                listed = DEBIAN / f"{package}.{kind}"
                for path in listed.read_text().split() if listed.exists() else []:
                    self.assertTrue(list(SOURCE.glob(path)), f"{listed.name}: {path}")

    def test_the_latest_entry_is_of_the_programs_version(self):
        version = re.match(r"quorvane3 \((.*)\) ", (DEBIAN / "changelog").read_text()).group(1)
        self.assertEqual(output(PROGRAM, "--version").split(), ["quorvane", version])

    def test_a_build_needs_what_every_build_needs(self):
        control = (DEBIAN / "control").read_text()
        field = re.search(r"Build-Depends:(.*?)\n\S", control, re.S).group(1)
        named = {re.match(r"[^ (]+", each.strip()).group() for each in field.split(",")}
        needed = output("bash", "-c", f". '{SOURCE}/cmake/install_packages.sh' && echo ${{BUILD_PACKAGES[@]}}").split()
        # Packages are built where a compiler is, and may be built without its cache.
        self.assertEqual(named - {"debhelper-compat"}, set(needed) - {"g++", "ccache"})

    def test_the_library_exports_what_its_symbols_say(self):
        lines = [line for line in (DEBIAN / "libquorvane3.symbols").read_text().splitlines() if line.startswith(" ")]
        exported = output("nm", "-D", "--defined-only", "--format=just-symbols", str(self.stage / "lib" / "libquorvane3.so"))
        self.assertEqual({line.strip().split("@")[0] for line in lines}, set(exported.split()))


class WindowsTest(unittest.TestCase):
    def setUp(self):
        self.place = pathlib.Path(tempfile.mkdtemp(prefix="quorvane-installer-"))
        self.addCleanup(shutil.rmtree, self.place)

    @staticmethod
    def parts(*arguments):
        return output("python3", str(WINDOWS / "installer_parts.py"), *map(str, arguments))

    @staticmethod
    def macro(text, name):
        return re.search(rf"^!macro {name}\b.*?$(.*?)^!macroend", text, re.S | re.M).group(1).strip().splitlines()

    def some_files(self):
        stage = self.place / "files"
        for path in ("quorvane.exe", "sdk/include/a $b.h", "sdk/include/deep/c.h", "sdk/d.h"):
            (stage / path).parent.mkdir(parents=True, exist_ok=True)
            (stage / path).write_text(path)
        return stage

    def test_what_is_brought_is_removed_by_its_name(self):
        text = self.parts("files", self.some_files())
        brought, folder = [], None
        for line in self.macro(text, "INSTALL"):
            word, path = re.fullmatch(r' *(SetOutPath|File) "(.*)"', line).groups()
            if word == "SetOutPath":
                folder = path
            else:
                brought.append("\\".join([folder, pathlib.PurePosixPath(path).name]).replace("a $b", "a $$b"))
        removed = [line.split('"')[1] for line in self.macro(text, "REMOVE") if "Delete" in line]
        self.assertEqual(len(brought), 4)
        self.assertEqual(sorted(brought), sorted(removed))

    def test_folders_go_after_what_is_in_them(self):
        folders = [line.split('"')[1] for line in self.macro(self.parts("files", self.some_files()), "REMOVE")
                   if "RMDir" in line]
        self.assertEqual(folders, ["$INSTDIR\\sdk\\include\\deep", "$INSTDIR\\sdk\\include", "$INSTDIR\\sdk"])

    def test_no_folder_is_removed_with_whatever_is_in_it(self):
        # A mailbox may lie in any of them.
        for text in (self.parts("files", self.some_files()), (WINDOWS / "installer.nsi").read_text()):
            self.assertNotRegex(text, r"(?i)rmdir\s+/r|delete\s+\S*\*")

    def test_each_value_of_the_mail_client_is_written_and_removed(self):
        registry = WINDOWS / "mail_client.reg.in"
        text = self.parts("mail", registry)
        values = len(re.findall(r'^(@|")', registry.read_text(), re.M))
        for verb, word in (("WRITE", r"Write\w+"), ("REMOVE", "DeleteRegValue")):
            lines = self.macro(text, f"{verb}_CLIENT") + self.macro(text, f"{verb}_COMPONENT")
            self.assertEqual(sum(bool(re.match(rf" *{word} ", line)) for line in lines), values)

    @unittest.skipUnless(shutil.which("makensis"), "makensis isn't installed")
    def test_the_installer_is_made(self):
        (self.place / "files.nsh").write_text(self.parts("files", self.some_files()))
        (self.place / "mail.nsh").write_text(self.parts("mail", WINDOWS / "mail_client.reg.in"))
        made = self.place / "quorvane3-setup.exe"
        output("makensis", "-V2", "-WX", "-NOCD", "-DVERSION=1.2.3", f"-DOUTPUT={made}",
               f"-DFILES={self.place}/files.nsh", f"-DMAIL={self.place}/mail.nsh", str(WINDOWS / "installer.nsi"))
        self.assertEqual(made.read_bytes()[:2], b"MZ")


if __name__ == "__main__":
    unittest.main()
