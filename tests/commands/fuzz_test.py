#!/usr/bin/python3
"""How a run of made-up input is judged: one that did nothing, or found something, has failed."""

import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "fuzz"))

import fuzz  # noqa: E402

LOADED = "INFO: Loaded 1 modules   (900 inline 8-bit counters): 900 [0x1, 0x2),\n"
REACHED = "#2\tINITED cov: 10 ft: 20 corp: 1/1b\n#9\tDONE   cov: 300 ft: 400 corp: 5/10b lim: 4\n"
DONE = "stat::number_of_executed_units: 9\n"
FOUND = "==1==ERROR: AddressSanitizer: SEGV\nartifact_prefix='f/'; Test unit written to f/crash-1\n"


class Verdict(unittest.TestCase):
    def verdict(self, text, status=0):
        return fuzz.verdict("links", text, status, "fuzz_links", "f/log")

    def test_executions_and_coverage_are_told(self):
        self.assertEqual(self.verdict(LOADED + REACHED + DONE),
                         (True, "ok   links: 9 executions, 300 of 900 edges, 400 features, 5 inputs kept"))

    def test_what_was_found_is_told_with_how_to_run_it_again(self):
        ok, line = self.verdict(LOADED + REACHED + FOUND + DONE, status=1)
        self.assertFalse(ok)
        self.assertIn("ERROR: AddressSanitizer: SEGV\n     Again: fuzz_links f/crash-1", line)

    def test_a_run_without_executions_or_coverage_has_failed(self):
        for text in ("", LOADED + REACHED, LOADED + DONE, REACHED + DONE,
                     LOADED + REACHED + DONE.replace("9", "0")):
            with self.subTest(text):
                self.assertFalse(self.verdict(text)[0])

    def test_every_target_has_seeds(self):
        here = Path(fuzz.__file__).parent
        names = {file.stem for file in here.glob("*.cpp")}
        self.assertEqual(names, {folder.name for folder in (here / "seeds").iterdir() if any(folder.iterdir())})


if __name__ == "__main__":
    unittest.main()
