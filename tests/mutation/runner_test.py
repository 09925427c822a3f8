"""Tests of the runner: which mutants are found in a source, how they are switched, and that the tree is left alone."""
import os
import pathlib
import subprocess
import sys
import tempfile
import time
import unittest

FOLDER = pathlib.Path(__file__).resolve().parent
sys.dont_write_bytecode = True
sys.path.insert(0, str(FOLDER))
import mutants  # noqa: E402
import scratch  # noqa: E402
import switches  # noqa: E402

SOURCE = r'''
#include <vector>
#define IGNORED if (a == b) return;
namespace n {
constexpr int kLimit = 8;  // if (x) f();
struct Pair {
    int first = 0;
    int Sum() const noexcept { return first + 1; }
};

HRESULT Work(const std::vector<int>& list, int count)
{
    const Traced traced{"if (a) b();"};
    const Lock lock(mutex);
    if (count < 0 || list.empty())
        return E_INVALIDARG;
    HR_TRY(traced, Open(count));
    Close();
    std::vector<int> copy(list);
    copy.clear();
    count += sizeof word;
    list_ = static_cast<Head*>(word);
    head->next = list_;
    if (copy.empty())
        return traced(E_FAIL);
    return count > 1 ? S_OK : Finish(copy);
}
}  // namespace n
'''


class FindTest(unittest.TestCase):
    def setUp(self):
        self.found = mutants.find("a.cpp", SOURCE)

    def changes(self, kind):
        return [(mutant.old, mutant.text) for mutant in self.found if mutant.kind == kind]

    def test_statements_are_dropped_and_declarations_are_not(self):
        self.assertEqual([old for old, _ in self.changes("drop")], ["HR_TRY(traced, Open(count));", "Close();",
                                                                    "copy.clear();", "count += sizeof word;",
                                                                    "list_ = static_cast<Head*>(word);",
                                                                    "head->next = list_;"])

    def test_a_variable_that_nothing_uses_is_a_guard(self):
        self.assertEqual(self.changes("guard"), [("const Lock lock(mutex);", ";")])

    def test_conditions_are_turned_round(self):
        self.assertEqual(self.changes("negate"), [
            ("count < 0 || list.empty()", "!(count < 0 || list.empty())"), ("copy.empty()", "!(copy.empty())"),
            ("count > 1", "!(count > 1)")])

    def test_bounds_are_shifted_and_templates_are_no_comparisons(self):
        self.assertEqual(self.changes("bound"), [("+ 1", "+ 0"), ("<", "<="), ("0", "1"), (">", ">="), ("1", "2")])

    def test_codes_are_exchanged(self):
        self.assertEqual(self.changes("code"), [("E_INVALIDARG", "E_FAIL"), ("E_FAIL", "E_UNEXPECTED")])

    def test_early_exits_are_left_out_and_the_last_return_is_not(self):
        self.assertEqual(self.changes("exit"), [("return E_INVALIDARG;", ";"), ("return traced(E_FAIL);", ";")])

    def test_a_call_whose_code_is_returned_is_skipped(self):
        self.assertEqual(self.changes("skip"), [("return count > 1 ? S_OK : Finish(copy);", "return S_OK;")])

    def test_steps_are_ignored_or_not_traced(self):
        self.assertEqual(self.changes("ignore"),
                         [("HR_TRY(traced, Open(count));", "static_cast<void>(Open(count));")])
        self.assertEqual(self.changes("trace"),
                         [("HR_TRY(traced, Open(count));", "HR_TRY_QUIET(Open(count));"), ("traced", "")])

    def test_neighbours_that_may_depend_on_each_other_change_places(self):
        self.assertEqual([" ".join(text.split()) for _, text in self.changes("order")],
                         ["Close(); HR_TRY(traced, Open(count));", "count += sizeof word; copy.clear();",
                          "head->next = list_; list_ = static_cast<Head*>(word);"])

    def test_a_mutant_changes_its_place_alone(self):
        for mutant in self.found:
            broken = mutants.apply(SOURCE, mutant)
            self.assertEqual(broken[:mutant.start], SOURCE[:mutant.start])
            self.assertEqual(broken[mutant.start + len(mutant.text):], SOURCE[mutant.end:])
            self.assertNotEqual(broken, SOURCE)
            self.assertEqual(SOURCE.splitlines()[mutant.line - 1][mutant.column - 1:].split("\n")[0],
                             SOURCE[mutant.start:].split("\n")[0])


class ScratchTest(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.root = pathlib.Path(temporary.name) / "root"
        self.root.mkdir()
        subprocess.run(["git", "init", "-q", str(self.root)], check=True)
        (self.root / "a.cpp").write_text("whole")
        self.place = scratch.Scratch(self.root, pathlib.Path(temporary.name) / "scratch", [], 1)
        self.addCleanup(self.place._lock.close)
        self.copy = self.place.tree / "a.cpp"

    def test_a_file_is_whole_again_and_newer_after_a_mutant(self):
        self.place._copy_tree()
        before = self.copy.stat().st_mtime_ns
        with self.assertRaises(KeyboardInterrupt):
            with self.place.broken("a.cpp", "whole no more"):
                self.assertEqual(self.copy.read_text(), "whole no more")
                raise KeyboardInterrupt
        self.assertEqual(self.copy.read_text(), "whole")
        self.assertGreater(self.copy.stat().st_mtime_ns, before)
        self.assertEqual((self.root / "a.cpp").read_text(), "whole")

    def test_what_a_killed_run_left_is_mended_by_the_next(self):
        self.place._copy_tree()
        self.copy.write_text("broken")
        (self.place.tree / "left.cpp").write_text("over")
        self.place._copy_tree()
        self.assertEqual(self.copy.read_text(), "whole")
        self.assertFalse((self.place.tree / "left.cpp").exists())

    def test_an_unchanged_file_keeps_its_time(self):
        self.place._copy_tree()
        before = self.copy.stat().st_mtime_ns
        self.place._copy_tree()
        self.assertEqual(self.copy.stat().st_mtime_ns, before)


    def test_an_error_at_a_switch_tells_the_mutant(self):
        found = dict(enumerate(mutants.find("a.cpp", PROGRAM), 1))
        text, _ = switches.switched(PROGRAM, found.items())
        dropped = next(number for number, mutant in found.items() if mutant.old == 'std::printf("b");')
        before = text[:text.index(f"QuorvaneMutant({dropped})")]
        # The header's line comes on top.
        line, column = before.count("\n") + 2, len(before) - before.rfind("\n")
        said = f"../a.cpp:{line}:{column}: error: no\nb.cpp:1:1: error: not here"
        original = {"a.cpp": PROGRAM.encode()}
        self.assertEqual(self.place._culprits(said, {"a.cpp": found}, original), {("a.cpp", dropped)})
        everything = {("a.cpp", number) for number in found}
        self.assertEqual(self.place._culprits("a.cpp:3:1: error: no", {"a.cpp": found}, original), everything)
        self.assertEqual(self.place._culprits("a.cpp:3:1: error: no", {"a.cpp": {}}, original), set())


class BatchesTest(unittest.TestCase):
    def setUp(self):
        self.test = scratch.Test({"name": "t", "paths": {"source": "f"}})
        self.test.cases = [scratch.Case("S.slower", 20, {1}), scratch.Case("S.slow", 9.5, {1, 2}),
                           scratch.Case("S.quick", 0.1, {1}), scratch.Case("S.quicker", 0.01, {1, 3})]

    def names(self, number):
        return [[case.name for case in batch.cases] for batch in self.test.batches(number)]

    def test_the_quick_cases_come_first_and_together(self):
        self.assertEqual(self.names(None), [["S.quicker", "S.quick"], ["S.slow"], ["S.slower"]])

    def test_only_the_cases_that_reach_a_mutant_are_asked(self):
        self.assertEqual(self.names(2), [["S.slow"]])
        self.assertEqual(self.names(3), [["S.quicker"]])
        self.assertEqual(self.names(4), [])


PROGRAM = r"""#include <cstdio>
#include <cstring>
struct Guard {
    Guard() { std::printf("("); }
    ~Guard() { std::printf(")"); }
};
int Print(const char* text)
{
    const Guard guard{};
    if (!text)
        return 0;
    std::printf("a");
    std::printf("b");  // one remark
    std::printf("c");
    return std::strlen(text) > 2 && text[0] == 'x' ? static_cast<int>(std::strlen(text)) + 1 : 0;
}
int main()
{
    switch (Print("xyz")) {
    case 4: std::printf("4"); break;
    default: std::printf("-");
    }
}
"""


class SwitchesTest(unittest.TestCase):
    """Of one program with all mutants in it, what it prints when one is on is what that mutant's own source would."""

    @classmethod
    def setUpClass(cls):
        temporary = tempfile.TemporaryDirectory()
        cls.addClassCleanup(temporary.cleanup)
        cls.folder = pathlib.Path(temporary.name)
        cls.numbered = list(enumerate(mutants.find("a.cpp", PROGRAM), 1))
        cls.text, cls.places = switches.switched(PROGRAM, cls.numbered)
        (cls.folder / "mutants.h").write_text(switches.HEADER)
        (cls.folder / "a.cpp").write_text('#include "mutants.h"\n' + cls.text)
        subprocess.run(["c++", "-std=c++20", "-w", "-o", "a", "a.cpp"], cwd=cls.folder, check=True)

    def printed(self, kind, old, new):
        number = next(number for number, mutant in self.numbered
                      if (mutant.kind, mutant.old) == (kind, old) and mutant.text.startswith(new))
        return self.run_with(QUORVANE_MUTANT=str(number))

    def run_with(self, **variables):
        return subprocess.run(["./a"], cwd=self.folder, capture_output=True, text=True, check=True,
                              env=dict(os.environ, **variables)).stdout

    def test_without_one_the_program_is_whole(self):
        self.assertEqual(self.run_with(), "(abc)4")
        self.assertEqual(self.run_with(QUORVANE_MUTANT="1000"), "(abc)4")

    def test_statements(self):
        self.assertEqual(self.printed("drop", 'std::printf("b");', ";"), "(ac)4")
        self.assertEqual(self.printed("guard", "const Guard guard{};", ";"), "abc4")

    def test_statements_that_change_places_with_either_neighbour(self):
        swapped = [self.run_with(QUORVANE_MUTANT=str(number)) for number, mutant in self.numbered
                   if mutant.kind == "order"]
        self.assertEqual(swapped, ["(bac)4", "(acb)4"])

    def test_expressions(self):
        self.assertEqual(self.printed("negate", "!text", "!("), "()-")
        self.assertEqual(self.printed("negate", "==", "!="), "(abc)-")
        self.assertEqual(self.printed("logic", "&&", "||"), "(abc)4")
        self.assertEqual(self.printed("bound", "+ 1", "+ 0"), "(abc)-")
        self.assertEqual(self.printed("bound", "2", "3"), "(abc)-")

    def test_what_is_reached_is_noted(self):
        reached = self.folder / "reached"
        reached.write_bytes(bytes(len(self.numbered) + 1))
        self.run_with(QUORVANE_MUTANTS_REACHED=str(reached))
        missed = [mutant.old for number, mutant in self.numbered if not reached.read_bytes()[number]]
        self.assertEqual(missed, ["return 0;", 'std::printf("-");'])

    def test_the_switch_around_a_place_is_found(self):
        for number, mutant in self.numbered:
            if mutant.kind == "drop":
                at = self.text.index(f"{{ if (QuorvaneMutant({number}))")
                self.assertEqual(switches.innermost(self.places, at), number)
        self.assertIsNone(switches.innermost(self.places, 0))


class RunAloneTest(unittest.TestCase):
    def test_what_a_command_leaves_running_ends_with_it(self):
        started = time.monotonic()
        done = scratch.run_alone(["sh", "-c", "sleep 100 & echo $!"])
        self.assertLess(time.monotonic() - started, 50)
        left = pathlib.Path("/proc") / done.stdout.strip() / "stat"
        while self.is_running(left):
            self.assertLess(time.monotonic() - started, 50)
            time.sleep(0.01)

    @staticmethod
    def is_running(stat):
        try:
            return stat.read_text().split()[2] != "Z"
        except OSError:
            return False


if __name__ == "__main__":
    unittest.main()
