#!/usr/bin/python3
"""What ./test takes and refuses."""

import shutil
import subprocess
import unittest
from pathlib import Path

from command_tree import ROOT, CommandTree


class Test(unittest.TestCase):
    def test_help_names_every_suite_with_its_time(self):
        done = subprocess.run([ROOT / "test", "--help"], capture_output=True, text=True, timeout=30, check=True)
        self.assertRegex(done.stdout, r"\n  logic +\S.* \(about \d+ min\)\n")
        self.assertRegex(done.stdout, r"\n  desktop +\S.* \(about \d+ min\)\n")

    def test_refuses_what_it_does_not_know_before_it_removes_anything(self):
        tree = CommandTree(self)
        kept = tree.root / "build/reports/kept"
        kept.parent.mkdir(parents=True)
        kept.touch()
        for name, why in {"--soak": "--soak takes a number of schedules (see ./test --help)",
                          "--fuzz": "--fuzz takes a number of seconds (see ./test --help)",
                          "--bogus": "unknown option --bogus (see ./test --help)",
                          "nonsense": "there is no suite and no test named nonsense (see ./test --help)",
                          "a b;": "there is no suite and no test named a b; (see ./test --help)"}.items():
            with self.subTest(name):
                done = tree.call("test", "format", name)
                self.assertEqual((done.returncode, done.stderr), (2, f"test: {why}\n"))
                self.assertTrue(kept.exists())

    def test_lives_with_the_package_on_the_releases_that_it_is_given(self):
        tree = CommandTree(self)
        bare = tree.root / "scripts/bare"
        bare.write_text('#!/bin/sh\necho "on $1: $2" | tee -a "$0.calls"\necho "3 passed, 0 failed"\n',
                        encoding="utf-8")
        done = tree.call("test", "--package")
        self.assertEqual((done.returncode, done.stdout.splitlines()[-1]), (0, "6 passed, 0 failed"), done.stderr)
        self.assertEqual(Path(f"{bare}.calls").read_text(encoding="utf-8").splitlines(),
                         [f"on {release}: tests/package/live.sh" for release in ("bookworm", "trixie")])
        done = tree.call("test", "--package", "sid")
        self.assertIn("on sid: tests/package/live.sh", done.stdout)
        done = tree.call("test", "--package", "../sid")
        self.assertEqual((done.returncode, done.stderr),
                         (2, "test: ../sid is no release of Debian (see ./test --help)\n"))
        bare.write_text("#!/bin/sh\nexit 1\n", encoding="utf-8")
        done = tree.call("test", "--package", "sid")
        self.assertEqual(done.returncode, 1)
        self.assertIn("Failed: Package on a bare sid (./test --package sid)\n", done.stdout)

    def test_soaks_for_as_many_schedules_as_asked(self):
        tree = CommandTree(self)
        tree.stand_in("date", "echo 17")
        tree.stand_in("cmake", "mkdir -p build/gcc/tests/simulation; cd build/gcc/tests/simulation; "
                               'printf "%s\\n" \'#!/bin/sh\' \'echo "schedules: $*"; echo "5 passed, 0 failed"\' '
                               ">simulation; chmod +x simulation")
        tree.stand_in("tee", f"exec {shutil.which('tee')} \"$@\"")
        done = tree.call("test", "--soak", 5)
        self.assertIn("schedules: --schedules 5 --from 17000000\n", done.stdout, done.stderr)
        self.assertIn("\n5 passed, 0 failed\n", done.stdout)

    def test_makes_up_input_for_as_long_as_asked(self):
        tree = CommandTree(self)
        tree.stand_in("node", '[ "$1" = --version ] && echo v18.19.0 || '
                              '{ echo "fuzzing for $ZUNTO_FUZZ_SECONDS s"; echo "# pass 3" >build/reports/*.report; }')
        for file in ("tests/fuzz/fuzz.py", "processor/test/fuzz.test.mjs"):
            (tree.root / file).parent.mkdir(parents=True)
            (tree.root / file).write_text("import sys; print('fuzz:', *sys.argv[1:]); print('7 passed, 0 failed')\n",
                                          encoding="utf-8")
        done = tree.call("test", "--fuzz", 90)
        self.assertIn("fuzz: --seconds 90 build/sanitize build/fuzz\n", done.stdout, done.stderr)
        self.assertIn("fuzzing for 90 s\n", done.stdout)
    def test_tries_faults_on_the_program_that_run_builds(self):
        tree = CommandTree(self)
        (tree.root / "tests/desktop/faults.py").write_text(
            "import sys; print('tried on', sys.argv[2]); print('4 passed, 0 failed')", encoding="utf-8")
        done = tree.call("test", "--faults")
        self.assertIn(f"tried on {tree.root}/build/release/bin/zunto-helper\n", done.stdout, done.stderr)
        self.assertEqual((done.returncode, done.stdout.splitlines()[-1]), (0, "4 passed, 0 failed"))

    def test_knows_the_tests_of_the_tree_by_name(self):
        script = f'root={ROOT}; cd {ROOT}; source scripts/test/suites.sh; case_format "$1"'
        for name, form in {"AnalyzeFlow": "junit", "HelperDelegateEdgeCases": "junit", "FormFace": "junit",
                           "processor/test/rules.test.mjs": "tap"}.items():
            with self.subTest(name):
                done = subprocess.run(["bash", "-c", script, "bash", name], capture_output=True, text=True, check=True)
                self.assertEqual(done.stdout, f"{form}\n")

    def test_refuses_an_old_node_instead_of_leaving_the_processors_tests_out(self):
        tree = CommandTree(self)
        tree.stand_in("node", "echo v18.14.2")
        done = tree.call("test")
        self.assertEqual(done.returncode, 2)
        self.assertIn("18.15 or later is needed", done.stderr)

    def test_finds_the_sources_of_a_tree_that_is_no_clone(self):
        tree = CommandTree(self)
        for place in ("app/one.cpp", "app/one.h", "app/one.txt", "build/rooms/two.h", "build-old/three.cpp"):
            (tree.root / place).parent.mkdir(parents=True, exist_ok=True)
            (tree.root / place).touch()
        tree.stand_in("clang-format-14", 'echo "clang-format version 14.0.6"; for name in "$@"; do '
                                         'echo "looked at $name"; done')
        done = tree.call("test", "format")
        self.assertEqual(sorted(line for line in done.stdout.splitlines() if line.startswith("looked at .")),
                         ["looked at ./app/one.cpp", "looked at ./app/one.h"], done.stdout + done.stderr)

    def test_neither_formats_nor_lints_with_another_release_of_the_tools(self):
        tree = CommandTree(self)
        tree.stand_in("clang-format", 'echo "Debian clang-format version 19.1.7"')
        tree.stand_in("clang-tidy", 'echo "Debian LLVM version 19.1.7"')
        done = tree.call("test", "format", "lint")
        self.assertEqual(done.stdout.splitlines()[-3:], ["Not run: Format (./test format)",
                                                         "Not run: Lint (./test lint)", "0 passed, 0 failed"])
        self.assertIn("clang-tidy 14 is not here", done.stdout)
        self.assertEqual(done.returncode, 1)


if __name__ == "__main__":
    unittest.main()
