"""Adds up what the test programs reported; exits 0 only if nothing failed.

Prints what the failed tests said, and ends with one line of counts."""
import collections
import pathlib
import sys
import xml.etree.ElementTree as tree

MOST_LINES, MOST_LETTERS = 12, 300  # of what a failed test said


def count(report):
    """What a report says: how many tests passed, failed, and were skipped."""
    passed = failed = skipped = 0
    for suite in tree.parse(report).getroot().iter("testsuite"):
        bad = int(suite.get("failures", 0)) + int(suite.get("errors", 0))
        left_out = int(suite.get("skipped", 0)) + int(suite.get("disabled", 0))
        passed += int(suite.get("tests", 0)) - bad - left_out
        failed += bad
        skipped += left_out
    return passed, failed, skipped


def failures(report):
    """The names of a report's failed tests, each with the beginning of what it said."""
    for case in tree.parse(report).getroot().iter("testcase"):
        said = [each.get("message", "") for each in case if each.tag in ("failure", "error")]
        if said:
            name = ".".join(filter(None, (case.get("classname"), case.get("name"))))
            yield name, "\n".join(said).splitlines()[:MOST_LINES]


def ends_of_output(results):
    """What the failed test programs of a build said at last, by their names."""
    path = results / "ctest.junit"
    if not path.exists():
        return {}
    return {case.get("name"): (case.findtext("system-out") or "").splitlines()[-MOST_LINES:]
            for case in tree.parse(path).getroot().iter("testcase") if case.find("failure") is not None}


def print_lines(lines):
    for line in lines:
        print(f"    {line[:MOST_LETTERS]}")


def print_failures(results):
    """What failed, by name: programs that left no report (scripts, and what crashed or took too long) as well."""
    reported = set()
    for report in sorted(results.glob("*/*.xml")):
        try:
            failed = list(failures(report))
        except tree.ParseError:
            continue
        for name, lines in failed:
            reported.add((report.parent.name, report.stem))
            print(f"failed: {name} ({report.parent.name})")
            print_lines(lines)
    for listed in sorted(results.glob("*/failed")):
        said = ends_of_output(listed.parent)
        for line in listed.read_text().splitlines():
            program = line.partition(":")[2]
            if (listed.parent.name, program) not in reported:
                print(f"failed: {program} ({listed.parent.name}), without a report of its tests")
                print_lines(said.get(program, []))


def main():
    results, broken = pathlib.Path(sys.argv[1]), int(sys.argv[2])
    passed = collections.Counter()
    failed = skipped = 0
    for report in sorted(results.glob("*/*.xml")):
        try:
            good, bad, left_out = count(report)
        except tree.ParseError:
            print(f"unreadable report: {report}")
            failed += 1
            continue
        passed["Wine" if report.parent.name == "mingw" else "Linux"] += good
        failed += bad
        skipped += left_out
    print_failures(results)
    # A step that broke without a failed test in a report (a build, a crash) counts as one failure.
    failed = max(failed, broken)
    if skipped:
        print(f"{skipped} were left out: what they need isn't here")
    total = sum(passed.values())
    print(f"{total} passed, {failed} failed ({passed['Linux']} passed on Linux, "
          f"{passed['Wine']} as Windows programs under Wine)")
    return 0 if failed == 0 and total > 0 else 1


sys.exit(main())
