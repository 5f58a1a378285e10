#!/usr/bin/python3
"""The lint's choice of files: what has changed, and what uses it."""

import json
import os
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

LINT = Path(__file__).resolve().parents[2] / "scripts/test/lint.py"


class Lint(unittest.TestCase):
    """Of a project of two sources and a header that one of them uses, with a stand-in for clang-tidy that is not
    content with a source that says "bad"."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        for name, text in {"app/one.cpp": "", "app/two.cpp": "", "app/two.h": "", ".clang-tidy": "",
                           "tests/three.cpp": "bad"}.items():
            (self.root / name).parent.mkdir(exist_ok=True)
            (self.root / name).write_text(text, encoding="utf-8")
        (self.root / "build").mkdir()
        (self.root / "build/compile_commands.json").write_text(json.dumps([
            {"directory": str(self.root / "build"), "file": str(self.root / name),
             "command": f"g++ -o {name}.o -c {name}"}
            for name in ("app/one.cpp", "app/two.cpp", "tests/three.cpp")]), encoding="utf-8")
        self.stand_in("ninja", 'printf "%s\\n" "app/one.cpp.o: #deps 1, deps mtime 1 (VALID)" '
                               '"    /usr/include/stdio.h" "" "app/two.cpp.o: #deps 1, deps mtime 1 (VALID)" "    ../app/two.h"')
        self.stand_in("clang-tidy", 'for last in "$@"; do :; done; if [ "$1" = --version ]; then echo 14; '
                                    'else echo "${last##*/}" >>calls; '
                                    'if grep -H bad "$last"; then exit 1; fi; fi')

    def stand_in(self, name, script):
        tool = self.root / "tools" / name
        tool.parent.mkdir(exist_ok=True)
        tool.write_text(f"#!/bin/sh\n{script}\n", encoding="utf-8")
        tool.chmod(0o755)

    def write(self, name, text):
        (self.root / name).write_text(text, encoding="utf-8")

    def looked_at(self, *options, fails=False):
        done = subprocess.run([sys.executable, LINT, *options, "build", "app"], cwd=self.root, capture_output=True,
                              env={**os.environ, "PATH": f"{self.root}/tools:{os.environ['PATH']}"}, text=True,
                              timeout=30, check=False)
        self.assertEqual((done.returncode, done.stderr), (int(fails), ""))
        self.last_line = done.stdout.splitlines()[-1]
        return sorted(line.split()[2] for line in done.stdout.splitlines() if line.startswith("["))

    def calls(self):
        """The files that clang-tidy was given since the last call."""
        log = self.root / "calls"
        names = sorted(log.read_text(encoding="utf-8").split())
        log.unlink()
        return names

    def test_looks_at_every_source_of_the_folders_first_and_then_only_at_changed_ones(self):
        self.assertEqual(self.looked_at(), ["app/one.cpp", "app/two.cpp"])
        self.assertEqual(self.looked_at(), [])
        self.write("app/one.cpp", "changed")
        self.assertEqual(self.looked_at(), ["app/one.cpp"])
        self.assertEqual(self.last_line, "2 passed, 0 failed")

    def test_looks_at_the_users_of_a_changed_header(self):
        self.looked_at()
        self.write("app/two.h", "changed")
        self.assertEqual(self.looked_at(), ["app/two.cpp"])

    def test_looks_at_everything_when_the_rules_have_changed(self):
        self.looked_at()
        self.write(".clang-tidy", "changed")
        self.assertEqual(self.looked_at(), ["app/one.cpp", "app/two.cpp"])

    def test_looks_at_everything_when_asked(self):
        self.looked_at()
        self.assertEqual(self.looked_at("--all"), ["app/one.cpp", "app/two.cpp"])

    def test_looks_again_at_what_was_not_clean(self):
        self.write("app/one.cpp", "bad")
        self.assertEqual(self.looked_at(fails=True), ["app/one.cpp", "app/two.cpp"])
        self.assertEqual(self.last_line, "1 passed, 1 failed")
        self.assertEqual(self.looked_at(fails=True), ["app/one.cpp"])

    def test_looks_at_sources_of_one_kind_together_and_at_each_alone_only_when_that_is_not_clean(self):
        self.looked_at()
        self.assertEqual(self.calls(), ["together.cpp"])
        self.write("app/one.cpp", "bad")
        self.looked_at("--all", fails=True)
        self.assertEqual(self.calls(), ["one.cpp", "together.cpp", "two.cpp"])
        self.assertEqual(self.last_line, "1 passed, 1 failed")

    def test_looks_at_sources_with_other_options_alone(self):
        database = self.root / "build/compile_commands.json"
        database.write_text(database.read_text(encoding="utf-8").replace("g++ -o app/two", "g++ -DX -o app/two"),
                            encoding="utf-8")
        self.looked_at()
        self.assertEqual(self.calls(), ["one.cpp", "two.cpp"])


if __name__ == "__main__":
    unittest.main()
