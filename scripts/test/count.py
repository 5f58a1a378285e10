#!/usr/bin/env python3
"""Prints how many cases of a report passed and how many failed: count.py FORMAT REPORT

A report that is missing, broken off or empty cannot be counted; the exit status is 1 then.
"""

import re
import sys
import xml.etree.ElementTree as tree


def junit(text):
    cases = list(tree.fromstring(text).iter("testcase"))
    good = sum(case.get("status") == "run" for case in cases)
    return good, len(cases) - good


def tap(text):
    """Of Node's reporter. What was skipped or left for later has not passed."""
    counts = dict(re.findall(r"^# (pass|fail|cancelled|skipped|todo) (\d+)$", text, re.MULTILINE))
    return int(counts["pass"]), sum(int(counts[name]) for name in ("fail", "cancelled", "skipped", "todo"))


def unittest(text):
    """Of Python's runner."""
    (ran,) = re.findall(r"^Ran (\d+) tests? in ", text, re.MULTILINE)
    result, details = re.findall(r"^(OK|FAILED)(?: \((.*)\))?$", text, re.MULTILINE)[-1]
    bad = sum(int(number) for number in re.findall(r"\d+", details))
    if result == "FAILED" and bad == 0:
        raise ValueError("a failure without a number")
    return max(int(ran) - bad, 0), bad


def lines(text):
    """Of a program that closes with a line of its own."""
    (counts,) = re.findall(r"^(\d+) passed, (\d+) failed$", text, re.MULTILINE)
    return int(counts[0]), int(counts[1])


def main():
    count = {"junit": junit, "tap": tap, "unittest": unittest, "lines": lines}[sys.argv[1]]
    try:
        with open(sys.argv[2], encoding="utf-8", errors="replace") as report:
            good, bad = count(report.read())
    except (OSError, LookupError, ValueError, tree.ParseError) as error:
        sys.exit(f"{sys.argv[2]} cannot be counted: {error}")
    print(good, bad)


if __name__ == "__main__":
    main()
