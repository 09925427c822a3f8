"""Adds up what the test programs reported; prints one line and exits 0 only if nothing failed."""
import collections
import pathlib
import sys
import xml.etree.ElementTree as tree


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
    # A step that broke without a failed test in a report (a build, a crash) counts as one failure.
    failed = max(failed, broken)
    if skipped:
        print(f"{skipped} were left out: what they need isn't here")
    total = sum(passed.values())
    print(f"{total} passed, {failed} failed ({passed['Linux']} passed on Linux, "
          f"{passed['Wine']} as Windows programs under Wine)")
    return 0 if failed == 0 and total > 0 else 1


sys.exit(main())
