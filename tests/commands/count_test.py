#!/usr/bin/python3
"""How reports are counted: nothing that did not pass may look as if it had."""

import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

COUNT = Path(__file__).resolve().parents[2] / "scripts/test/count.py"


class Count(unittest.TestCase):
    def counted(self, form, text):
        with tempfile.NamedTemporaryFile("w", suffix=".report") as report:
            report.write(text)
            report.flush()
            done = subprocess.run([sys.executable, COUNT, form, report.name], capture_output=True, text=True,
                                  check=False)
        if done.returncode != 0:
            self.assertEqual(len(done.stderr.splitlines()), 1, done.stderr)
            return None
        return tuple(map(int, done.stdout.split()))

    def test_a_case_that_did_not_run_has_failed(self):
        self.assertEqual(self.counted("junit", '<testsuite><testcase status="run"/><testcase status="fail"/>'
                                               '<testcase status="notrun"/></testsuite>'), (1, 2))

    def test_a_skipped_or_cancelled_test_of_the_processor_has_failed(self):
        self.assertEqual(self.counted("tap", "# tests 9\n# pass 5\n# fail 1\n# cancelled 1\n# skipped 1\n# todo 1\n"),
                         (5, 4))

    def test_failures_errors_and_skips_of_python_have_failed(self):
        self.assertEqual(self.counted("unittest", "Ran 6 tests in 0.1s\n\nOK\n"), (6, 0))
        self.assertEqual(self.counted("unittest", "Ran 6 tests in 0.1s\n\nFAILED (failures=1, errors=2)\n"), (3, 3))
        self.assertEqual(self.counted("unittest", "Ran 6 tests in 0.1s\n\nOK (skipped=2)\n"), (4, 2))

    def test_a_program_counts_in_its_last_line(self):
        self.assertEqual(self.counted("lines", "ok   one\n7 passed, 2 failed\n"), (7, 2))

    def test_a_report_that_breaks_off_is_not_counted(self):
        for form, text in {"junit": '<testsuite><testcase status="run"/>', "tap": "# pass 5\n", "lines": "ok   one\n",
                           "unittest": "test_one ... ok\n"}.items():
            with self.subTest(form):
                self.assertIsNone(self.counted(form, text))
                self.assertIsNone(self.counted(form, ""))


if __name__ == "__main__":
    unittest.main()
