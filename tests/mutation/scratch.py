"""A copy of the source tree with a build of its own, in which files may be broken and mended."""
import collections
import contextlib
import fcntl
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import time

import switches

# Of a mutant: cheap to compile, and its warnings are nobody's business.
_MUTANT_FLAGS = "-O1 -w"
_HEADER = "build/mutants.h"
_QUICK = 0.3  # seconds; the quick cases of a program are run together, before the others
# What a mutant that runs away may take.
_LIMITS = ["prlimit", f"--as={8 << 30}", f"--fsize={4 << 30}", "--core=0"]


# A case of a test program: how long it takes when nothing is broken, and the numbers of the mutants that it reaches.
Case = collections.namedtuple("Case", "name seconds reached")
Batch = collections.namedtuple("Batch", "test cases")


class BrokenBuild(Exception):
    """The source doesn't build without any mutant."""


class Scratch:
    """Lies under `directory`, which one run at a time may use.

    under   what every build and test is run by, such as ["nice", "-n", "15"].
    jobs    how many compilers run at once.
    """

    def __init__(self, root, directory, under, jobs):
        self.root = pathlib.Path(root)
        self.tree = pathlib.Path(directory) / "tree"
        # As deep in its tree as the release's build: what that has compiled the cache has for this one too.
        self.build = self.tree / "build/mutation"
        self._temporary = pathlib.Path(directory) / "tmp"
        self._under = list(under)
        self._jobs = jobs
        self._targets = {}
        self._tests = {}
        self.tree.mkdir(parents=True, exist_ok=True)
        self._lock = open(pathlib.Path(directory) / "lock", "w")
        try:
            fcntl.flock(self._lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except OSError:
            sys.exit(f"another run uses {directory}; name one of its own with --directory")
        shutil.rmtree(self._temporary, ignore_errors=True)
        self._temporary.mkdir()

    def prepare(self):
        """Brings the copy up to date, whatever an earlier run left there, and configures its build."""
        self._copy_tree()
        query = self.build / ".cmake/api/v1/query/client-mutation"
        query.mkdir(parents=True, exist_ok=True)
        (query / "codemodel-v2").touch()
        command = ["cmake", "-S", str(self.tree), "-B", str(self.build), "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
                   f"-DCMAKE_CXX_COMPILER_LAUNCHER={pathlib.Path(__file__).resolve().parent / 'compile'}",
                   "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON", "-DQUORVANE_BUILD_BENCH=OFF"]
        self._expect(self._call(command), "cmake")
        self._read_targets()
        self._read_tests()

    def _copy_tree(self):
        listing = subprocess.run(["git", "-C", str(self.root), "ls-files", "-z", "-co", "--exclude-standard"],
                                 check=True, capture_output=True).stdout
        wanted = {name.decode() for name in listing.split(b"\0") if name}
        wanted = {name for name in wanted if (self.root / name).is_file()}
        for directory, folders, names in os.walk(self.tree):
            if pathlib.Path(directory) == self.tree and "build" in folders:
                folders.remove("build")
            for name in names:
                path = pathlib.Path(directory) / name
                if str(path.relative_to(self.tree)) not in wanted:
                    path.unlink()
        for name in wanted:
            original, copy = self.root / name, self.tree / name
            if copy.is_file() and copy.read_bytes() == original.read_bytes():
                continue
            copy.parent.mkdir(parents=True, exist_ok=True)
            # The copy's time is now: what an earlier run compiled of a mutant is older than it.
            shutil.copyfile(original, copy)
            shutil.copymode(original, copy)

    def _read_targets(self):
        """For each target its directory, its programs and what it needs, as CMake tells them."""
        reply = self.build / ".cmake/api/v1/reply"
        index = json.loads(max(reply.glob("index-*.json")).read_text())
        model = index["reply"]["client-mutation"]["codemodel-v2"]["jsonFile"]
        for target in json.loads((reply / model).read_text())["configurations"][0]["targets"]:
            told = json.loads((reply / target["jsonFile"]).read_text())
            self._targets[told["id"]] = told

    def _read_tests(self):
        """The tests that are programs of the same name; until a program is built, CTest can't tell its command."""
        told = subprocess.run(["ctest", "--test-dir", str(self.build), "--show-only=json-v1"], check=True,
                              capture_output=True, text=True).stdout
        programs = {target["name"]: target for target in self._targets.values() if target["type"] == "EXECUTABLE"}
        for entry in json.loads(told)["tests"]:
            if entry["name"] in programs:
                test = self._tests.setdefault(entry["name"], Test(programs[entry["name"]]))
                test.take(entry)

    def guards(self, path):
        """The tests that link what a file is compiled into: those of its folder, then the others, nearest first."""
        owners = {identifier for identifier, target in self._targets.items()
                  if any(source["path"] == path for source in target.get("sources", []))}
        folder = os.path.dirname(path)
        if not owners:  # a header: who has it in its folder
            owners = {identifier for identifier, target in self._targets.items()
                      if target["paths"]["source"] == folder and target["type"] != "UTILITY"}
        needing = [test for test in self._tests.values() if owners & self._needs(test.target["id"])]

        def distance(test):
            shared = os.path.commonpath([folder, test.folder])
            room = test.folder.split("/")[0]
            return (test.folder != folder, test.folder.startswith("tests/program"), room == "tests", -len(shared),
                    test.name)

        return sorted(needing, key=distance)

    def _needs(self, identifier):
        found, open_ = set(), [identifier]
        while open_:
            one = open_.pop()
            if one not in found:
                found.add(one)
                open_ += [needed["id"] for needed in self._targets[one].get("dependencies", [])]
        return found

    def compile(self, tests):
        """Builds test programs with a mutant in them. Whether that went well, and what the compiler said."""
        # The cache gives what it has of the whole files, and isn't filled with mutants.
        done = self._call(self._build_command(tests), QUORVANE_MUTATION_FLAGS=_MUTANT_FLAGS, CCACHE_READONLY="1")
        return done.returncode == 0, done.stdout

    def compile_whole(self, tests):
        """Builds test programs of the source as it is."""
        self._expect(self._call(self._build_command(tests)), "the build without a mutant")
        self._read_tests()

    def switch(self, numbered, tests):
        """Builds test programs with these mutants in them, all switched off; what can't be switched is left out. Gives
        the numbers of those that are in."""
        _write_if_new(self.tree / _HEADER, switches.HEADER)
        files = {}
        for number, mutant in numbered:
            files.setdefault(mutant.path, {})[number] = mutant
        originals = {path: (self.tree / path).read_bytes() for path in files}
        changed = set(files)
        while changed:
            for path in changed:
                self._write_switched(path, files[path], originals[path])
            compiled, said = self.compile(tests)
            culprits = [] if compiled else self._culprits(said, files, originals)
            if not compiled and not culprits:
                raise BrokenBuild(f"the build with switches failed:\n{said[-3000:]}")
            for path, number in culprits:
                del files[path][number]
            changed = {path for path, _ in culprits}
        return {number for of_file in files.values() for number in of_file}

    def _write_switched(self, path, of_file, original):
        text, _ = switches.switched(original.decode(), of_file.items())
        include = f'#include "{self.tree / _HEADER}"\n' if of_file else ""
        (self.tree / path).write_text(include + text)

    def _culprits(self, said, files, originals):
        """The mutants at whose switches the compiler saw an error; all of a file if it was at none of them."""
        found = set()
        for path, of_file in files.items():
            seen = re.findall(rf"{re.escape(path)}:(\d+):(\d+): error", said)
            if not seen or not of_file:
                continue
            text, places = switches.switched(originals[path].decode(), of_file.items())
            lines = text.splitlines(keepends=True)
            # The first line is the header's.
            offsets = [sum(map(len, lines[:int(line) - 2])) + int(column) - 1 for line, column in seen]
            numbers = {switches.innermost(places, offset) for offset in offsets} - {None}
            found |= {(path, number) for number in numbers or of_file}
        return found

    def _build_command(self, tests):
        targets = [test.target["name"] for test in tests]
        build = ["cmake", "--build", str(self.build), "-j", str(self._jobs), "--target", *targets, "--", "-k0"]
        return self._under + build

    def _call(self, command, **variables):
        surroundings = dict(os.environ, CCACHE_BASEDIR=str(self.tree), CCACHE_NOHASHDIR="1",
                            QUORVANE_MUTATION_CACHE=shutil.which("ccache") or "", **variables)
        return run_alone(command, env=surroundings)

    def measure(self, test, mutants):
        """Runs each case of a test program by itself, notes how long it takes and which of so many mutants' switches it
        reaches. Gives the output of those that fail, which are left out."""
        failures = ""
        test.cases = []
        names = self._names_of_cases(test)
        if not names:
            return f"left out: {test.name} has no cases\n"
        for name in names:
            with tempfile.NamedTemporaryFile(dir=self._temporary) as reached:
                reached.write(bytes(mutants + 1))
                reached.flush()
                started = time.monotonic()
                verdict, output = self._run_program(test, 300, GTEST_FILTER=name, QUORVANE_MUTANTS_REACHED=reached.name)
                seconds = time.monotonic() - started
                reached.seek(0)
                numbers = {number for number, byte in enumerate(reached.read()) if byte}
            if verdict == "passed":
                test.cases.append(Case(name, seconds, numbers))
            else:
                failures += f"left out: {test.name} {name} {verdict} without any mutant\n{output[-1500:]}"
        return failures

    def _names_of_cases(self, test):
        """As --gtest_list_tests prints them: a suite's name, and its cases' indented below it."""
        _, output = self._run_program(test, 60, ["--gtest_list_tests"])
        names, suite = [], ""
        for line in output.splitlines():
            name = line.split("#")[0]
            if re.match(r"[\w/]+\.\s*$", name):
                suite = name.strip()
            elif suite and re.match(r"  [\w/]+\s*$", name) and "DISABLED_" not in suite + name:
                names.append(suite + name.strip())
        return names

    def run(self, batch, number=None):
        """Runs cases of a test program until the first failure, with a mutant switched on or the one that is built in,
        given four times the time that they take when nothing is broken, and 15 seconds. Gives "passed", "failed" or
        "timed out", and its output."""
        chosen = {"QUORVANE_MUTANT": str(number)} if number else {}
        return self._run_program(batch.test, 15 + 4 * seconds_of(batch), GTEST_FAIL_FAST="1",
                                 GTEST_FILTER=":".join(case.name for case in batch.cases), **chosen)

    def _run_program(self, test, seconds, arguments=(), **variables):
        with tempfile.TemporaryDirectory(dir=self._temporary, ignore_cleanup_errors=True) as temporary:
            os.chmod(temporary, 0o755)  # some tests look at it with another user's eyes
            surroundings = dict(os.environ, TMPDIR=temporary, **test.environment, **variables)
            command = self._under + _LIMITS + ["timeout", "--kill-after=5", f"{seconds:.0f}", *test.command, *arguments]
            done = run_alone(command, cwd=test.directory, env=surroundings)
        if done.returncode in (124, 137, -9):
            return "timed out", done.stdout
        return "passed" if done.returncode == 0 else "failed", done.stdout

    @contextlib.contextmanager
    def broken(self, path, text):
        """The copy of a file has this text as long as this lasts."""
        copy = self.tree / path
        before = copy.read_bytes()
        try:
            copy.write_text(text)
            yield
        finally:
            copy.write_bytes(before)

    @staticmethod
    def _expect(done, what):
        if done.returncode != 0:
            raise BrokenBuild(f"{what} failed:\n{done.stdout[-3000:]}")


class Test:
    """A test program as CTest knows it."""

    def __init__(self, target):
        self.target = target
        self.name = target["name"]
        self.folder = target["paths"]["source"]
        self.command = []
        self.directory = "."
        self.environment = {}
        self.cases = None  # not measured yet

    def take(self, entry):
        """How it is run, as CTest tells it once the program is there."""
        properties = {told["name"]: told["value"] for told in entry.get("properties", [])}
        self.command = [word for word in entry.get("command", []) if "--gtest_output" not in word]
        self.directory = properties.get("WORKING_DIRECTORY", ".")
        self.environment = dict(pair.split("=", 1) for pair in properties.get("ENVIRONMENT", []))

    def batches(self, number=None):
        """The cases that reach a mutant's switch, or all of them: the quick ones together, the others one by one, so
        that a mutant which never ends costs the time of one."""
        reaching = sorted((case for case in self.cases if number is None or number in case.reached),
                          key=lambda case: case.seconds)
        quick = [case for case in reaching if case.seconds <= _QUICK]
        return [Batch(self, cases) for cases in [quick, *([case] for case in reaching[len(quick):])] if cases]


def seconds_of(batch):
    return sum(case.seconds for case in batch.cases)


def _write_if_new(path, text):
    if not path.exists() or path.read_text() != text:
        path.write_text(text)


def run_alone(command, **options):
    """Runs a command to its end, and leaves none of its processes behind. What it printed is `stdout`."""
    with tempfile.TemporaryFile("w+", errors="replace") as output:
        child = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.STDOUT,
                                 start_new_session=True, **options)
        try:
            child.wait()
        finally:
            subprocess.run(["pkill", "-KILL", "-s", str(child.pid)], check=False)
            child.wait()
        output.seek(0)
        return subprocess.CompletedProcess(command, child.returncode, output.read())
