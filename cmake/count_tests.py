"""Adds up what the test programs reported; prints one line and exits 0 only if nothing failed."""
import pathlib
import sys
import xml.etree.ElementTree as tree


def main():
    results, broken = pathlib.Path(sys.argv[1]), int(sys.argv[2])
    passed = failed = on_windows = 0
    for report in sorted(results.glob("*/*.xml")):
        try:
            suites = tree.parse(report).getroot()
        except tree.ParseError:
            print(f"unreadable report: {report}")
            failed += 1
            continue
        bad = int(suites.get("failures", 0)) + int(suites.get("errors", 0))
        good = int(suites.get("tests", 0)) - bad
        passed += good
        on_windows += good if report.parent.name == "mingw" else 0
        failed += bad
    # A step that broke without a failed test in a report (a build, a crash) counts as one failure.
    failed = max(failed, broken)
    print(f"{on_windows} of the passed tests ran as Windows programs under Wine")
    print(f"{passed} passed, {failed} failed")
    return 0 if failed == 0 and passed > 0 else 1


sys.exit(main())
