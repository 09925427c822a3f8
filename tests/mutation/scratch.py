"""A copy of the source tree with a build of its own, in which files may be broken and mended."""
import contextlib
import fcntl
import json
import os
import pathlib
import resource
import shutil
import subprocess
import sys
import tempfile

# Of a mutant: cheap to compile, and its warnings are nobody's business.
_MUTANT_FLAGS = "-O1 -w"
_QUICK_SHARE = 0.2
_MOST_MEMORY = 8 << 30
_MOST_FILE = 4 << 30


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

    def _build_command(self, tests):
        targets = [test.target["name"] for test in tests]
        return self._under + ["cmake", "--build", str(self.build), "-j", str(self._jobs), "--target"] + targets

    def _call(self, command, **variables):
        surroundings = dict(os.environ, CCACHE_BASEDIR=str(self.tree), CCACHE_NOHASHDIR="1",
                            QUORVANE_MUTATION_CACHE=shutil.which("ccache") or "", **variables)
        return run_alone(command, env=surroundings)

    def measure(self, test):
        """Runs a whole test program, and notes what each of its cases takes. Gives what `run` gives."""
        report = self._temporary.with_suffix(".json")
        report.unlink(missing_ok=True)
        done = self._run_program(test, 900, GTEST_OUTPUT=f"json:{report}")
        if report.exists():
            test.split(json.loads(report.read_text()))
        return done

    def run(self, test, part):
        """Runs a part of a test program until its first failure, given five times the time that it takes when nothing
        is broken, and 20 seconds. Gives "passed", "failed" or "timed out", and its output."""
        cases, seconds = part
        return self._run_program(test, 20 + 5 * seconds, GTEST_FAIL_FAST="1", GTEST_FILTER=":".join(cases))

    def _run_program(self, test, seconds, **variables):
        shutil.rmtree(self._temporary, ignore_errors=True)
        self._temporary.mkdir()
        surroundings = dict(os.environ, TMPDIR=str(self._temporary), **test.environment, **variables)
        command = self._under + ["timeout", "--kill-after=5", f"{seconds:.0f}"] + test.command
        done = run_alone(command, cwd=test.directory, env=surroundings, preexec_fn=_limit)
        if done.returncode in (124, 137, -9):
            return "timed out", done.stdout
        return "passed" if done.returncode == 0 else "failed", done.stdout

    @contextlib.contextmanager
    def broken(self, path, change):
        """The copy of a file has the text that `change` makes of its own as long as this lasts."""
        copy = self.tree / path
        original = copy.read_bytes()
        try:
            copy.write_text(change(original.decode()))
            yield
        finally:
            copy.write_bytes(original)

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
        self.parts = None  # the quick cases and the others, each with the time that they take when nothing is broken

    def take(self, entry):
        """How it is run, as CTest tells it once the program is there."""
        properties = {told["name"]: told["value"] for told in entry.get("properties", [])}
        self.command = [word for word in entry.get("command", []) if "--gtest_output" not in word]
        self.directory = properties.get("WORKING_DIRECTORY", ".")
        self.environment = dict(pair.split("=", 1) for pair in properties.get("ENVIRONMENT", []))

    def split(self, report):
        """Divides the cases: most of them take a small part of the time, and kill most of the mutants."""
        times = sorted((float(case["time"].rstrip("s")), f"{suite['name']}.{case['name']}")
                       for suite in report["testsuites"] for case in suite["testsuite"])
        whole = sum(time for time, _ in times)
        quick, others, spent = [], [], 0
        for time, name in times:
            spent += time
            (quick if spent <= _QUICK_SHARE * whole else others).append((time, name))
        self.parts = [([name for _, name in part], sum(time for time, _ in part)) for part in (quick, others) if part]


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


def _limit():
    """What a mutant that runs away may take."""
    resource.setrlimit(resource.RLIMIT_AS, (_MOST_MEMORY, _MOST_MEMORY))
    resource.setrlimit(resource.RLIMIT_FSIZE, (_MOST_FILE, _MOST_FILE))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
