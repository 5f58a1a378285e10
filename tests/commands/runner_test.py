#!/usr/bin/python3
"""The runner of the suites, with suites made up for the purpose."""

import os
import signal
import subprocess
import tempfile
import time
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]

_SCRIPT = """
set -uo pipefail
root={root}
cd {folder}
source "$root/scripts/setup.sh"
source "$root/scripts/test/runner.sh"
case_format() {{ return 1; }}
reports={folder}
{suites}
for name in "$@"; do choose "$name"; done
if [ $# -eq 0 ]; then chosen=("${{suites[@]}}"); fi
lock_folder {folder}
run_suites
"""


class Runner(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def script(self, suites):
        path = self.folder / "test"
        path.write_text(_SCRIPT.format(root=ROOT, folder=self.folder, suites=suites), encoding="utf-8")
        return path

    def run_suites(self, suites, *names):
        return subprocess.run(["bash", self.script(suites), *names], capture_output=True, text=True, timeout=30,
                              check=False)

    def last_line(self, suites):
        done = self.run_suites(suites)
        return done.stdout.splitlines()[-1], done.returncode

    def test_adds_up_what_the_suites_count(self):
        self.assertEqual(self.last_line("""
            suite one 1 lines One;  suite_one() { echo "3 passed, 0 failed" >"$report"; }
            suite two 1 status Two; suite_two() { true; }"""), ("4 passed, 0 failed", 0))

    def test_a_runner_that_ends_before_its_report_has_failed(self):
        for form in ("junit", "tap", "unittest", "lines"):
            with self.subTest(form):
                self.assertEqual(self.last_line(f"suite one 1 {form} One; suite_one() {{ true; }}"),
                                 ("0 passed, 1 failed", 1))

    def test_a_suite_without_a_case_has_failed(self):
        self.assertEqual(self.last_line("""
            suite one 1 lines One; suite_one() { echo "0 passed, 0 failed" >"$report"; }"""),
                         ("0 passed, 1 failed", 1))

    def test_a_failure_beside_the_cases_counts(self):
        self.assertEqual(self.last_line("""
            suite one 1 lines One; suite_one() { echo "3 passed, 0 failed" >"$report"; false; }"""),
                         ("3 passed, 1 failed", 1))

    def test_a_failed_suite_does_not_keep_the_next_one_from_running_and_is_named(self):
        done = self.run_suites("""
            suite one 1 status One; suite_one() { false; }
            suite two 1 status Two; suite_two() { true; }""")
        self.assertEqual(done.stdout.splitlines()[-2:], ["Failed: One (./test one)", "1 passed, 1 failed"])

    def test_a_suite_without_its_tool_counts_neither_way_and_is_named(self):
        done = self.run_suites("""
            suite one 1 status One; suite_one() { leave_out "a tool"; return; }
            suite two 1 status Two; suite_two() { true; }""")
        self.assertIn("One: not run, a tool is not here", done.stdout)
        self.assertEqual(done.stdout.splitlines()[-2:], ["Not run: One (./test one)", "1 passed, 0 failed"])
        self.assertEqual(done.returncode, 0)

    def test_a_run_in_which_nothing_ran_has_not_succeeded(self):
        self.assertEqual(self.last_line('suite one 1 status One; suite_one() { leave_out "a tool"; return; }'),
                         ("0 passed, 0 failed", 1))

    def test_runs_the_named_suites_only_and_says_how_long_they_take(self):
        done = self.run_suites("""
            suite one 1 status One; suite_one() { false; }
            suite two 7 status Two; suite_two() { true; }""", "two")
        self.assertIn("[1/1] Two (about 7 min)", done.stdout)
        self.assertEqual(done.stdout.splitlines()[-1], "1 passed, 0 failed")

    def test_refuses_an_unknown_name_with_one_line_before_anything_runs(self):
        done = self.run_suites('suite one 1 status One; suite_one() { touch ran; }', "one", "nonsense")
        self.assertEqual(done.returncode, 2)
        self.assertEqual(done.stderr, "test: there is no suite and no test named nonsense (see ./test --help)\n")
        self.assertFalse((self.folder / "ran").exists())

    def test_a_second_run_is_refused_while_the_first_lasts(self):
        suites = "suite one 1 status One; suite_one() { touch started; sleep 30 & wait; }"
        first = subprocess.Popen(["bash", self.script(suites)], stdout=subprocess.DEVNULL, start_new_session=True)
        self.addCleanup(first.wait)
        self.addCleanup(os.killpg, first.pid, signal.SIGKILL)
        self.wait_for("started")
        second = self.run_suites(suites)
        self.assertEqual(second.returncode, 2)
        self.assertEqual(second.stderr, f"test: another run uses this tree: process {first.pid}. Wait for its end\n")

    def test_what_a_suite_leaves_behind_does_not_bar_the_next_run(self):
        suites = 'suite one 1 status One; suite_one() { sleep 30 >/dev/null 2>&1 & echo $! >left; }'
        self.addCleanup(lambda: os.kill(int((self.folder / "left").read_text()), signal.SIGKILL))
        self.assertEqual(self.run_suites(suites).returncode, 0)
        left = int((self.folder / "left").read_text())
        self.addCleanup(os.kill, left, signal.SIGKILL)
        self.assertEqual(self.run_suites(suites).returncode, 0)

    def test_an_interrupted_suite_has_failed_and_the_rest_is_left_out(self):
        self.interrupt("suite one 1 status One; suite_one() { sh -c 'touch started; exec sleep 30'; }",
                       "0 passed, 1 failed")

    def test_an_interrupted_suite_has_failed_even_if_all_that_it_counted_passed(self):
        self.interrupt("""suite one 1 lines One
            suite_one() { echo "3 passed, 0 failed" >"$report"; sh -c 'touch started; exec sleep 30'; true; }""",
                       "3 passed, 1 failed")

    def interrupt(self, first, last_line):
        suites = first + "; suite two 1 status Two; suite_two() { touch second; }"
        # A test in the background is deaf to it, and so would be what it starts.
        run = subprocess.Popen(["env", "--default-signal=INT", "bash", self.script(suites)], text=True,
                               stdout=subprocess.PIPE, start_new_session=True)
        self.wait_for("started")
        os.killpg(run.pid, signal.SIGINT)
        output, _ = run.communicate(timeout=20)
        self.assertEqual(run.returncode, 130)
        self.assertEqual(output.splitlines()[-3:], ["Interrupted; what is left was not run.",
                                                    "Failed: One (./test one)", last_line])
        self.assertFalse((self.folder / "second").exists())

    def wait_for(self, name):
        end = time.monotonic() + 20
        while not (self.folder / name).exists():
            self.assertLess(time.monotonic(), end, f"{name} did not appear")
            time.sleep(0.02)


if __name__ == "__main__":
    unittest.main()
