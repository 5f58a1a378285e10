#!/usr/bin/python3
"""Where the mutation proof plants its faults, and how it judges: what it did not see must not count as proven."""

import sys
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests/mutation"))

import faults  # noqa: E402
import mutate  # noqa: E402

FILE = ROOT / "app/launcher.cpp"


def planted(code):
    """{name of a fault: the code with it}"""
    return {fault.name: fault.planted_in(code) for fault in faults.faults_in(code, {"Mode": ["on", "off"]})}


class Planting(unittest.TestCase):
    def test_operators_constants_and_texts_change(self):
        code = 'bool f(int a) { return a < 3 && g("x") == true; }\n'
        self.assertEqual(planted(code), {
            "`<` becomes `<=`": 'bool f(int a) { return a <= 3 && g("x") == true; }\n',
            "`3` becomes one more": 'bool f(int a) { return a < 4 && g("x") == true; }\n',
            "`&&` becomes `||`": 'bool f(int a) { return a < 3 || g("x") == true; }\n',
            '"x" becomes "x~"': 'bool f(int a) { return a < 3 && g("x~") == true; }\n',
            "`==` becomes `!=`": 'bool f(int a) { return a < 3 && g("x") != true; }\n',
            "`true` becomes `false`": 'bool f(int a) { return a < 3 && g("x") == false; }\n'})

    def test_conditions_are_negated(self):
        self.assertEqual(planted("void f() { if (a) const int b = 1; }\n")["the condition is negated"],
                         "void f() { if (!(a)) const int b = 1; }\n")
        self.assertEqual(planted("int x = f(a, b || c ? d : e);\n")["the condition is negated"],
                         "int x = f(a, !(b || c) ? d : e);\n")

    def test_statements_and_early_returns_are_left_out(self):
        self.assertEqual(planted("Task<void> f() {\n  co_await g();\n}\n"),
                         {"the statement is left out": "Task<void> f() {\n  ;\n}\n"})
        self.assertEqual(planted("int f() {\n  if (!a) return b;\n  return c;\n}\n"),
                         {"`!` is left out": "int f() {\n  if (a) return b;\n  return c;\n}\n",
                          "the return is left out": "int f() {\n  if (!a) ;\n  return c;\n}\n"})
        self.assertIn("the statement is left out", planted("void f() { g([this] { h(); }, {1, 2}); }\n"))
        self.assertIn("the break is left out", planted("void f() { switch (a) { case b: break; default: g(); } }\n"))

    def test_values_of_an_enumeration_are_swapped(self):
        self.assertEqual(planted("auto m = Mode::off;\n"), {"`off` becomes `on`": "auto m = Mode::on;\n"})
        self.assertEqual(planted("void f() { switch (a) { case Mode::off: return; } }\n").keys(),
                         {"the return is left out"})

    def test_what_is_no_code_and_what_only_declares_is_left_alone(self):
        for code in ('#include "a.h"  // 1 < 2\n', "/* return true; */\n",
                     "class A {\n  void f();\n  A() = default;\n};\n",
                     "virtual void f() const = 0;\n", "template <class T>\nvoid f(T&& a, Task<T> b);\n",
                     'static_assert(a, "why");\n', "void f() { std::vector<int> a; auto b = a; using std::ref; }\n"):
            with self.subTest(code):
                self.assertEqual(planted(code), {})

    def test_a_fault_is_told_from_its_equals_on_such_lines(self):
        found = faults.faults_in("void f() {\n  g();\n  g();\n}\n", {})
        self.assertEqual([(fault.line, fault.number, fault.count) for fault in found], [("g();", 2, 1), ("g();", 3, 2)])

    def test_enumerations_are_found(self):
        self.assertEqual(faults.enums_in("enum class A { b = 0, c };\nenum class D {\n  e,  ///< why\n  f\n};\n"),
                         {"A": ["b", "c"], "D": ["e", "f"]})

    def test_the_logic_offers_faults_in_every_folder_and_each_has_a_key_of_its_own(self):
        found = mutate.all_faults(mutate.sources())
        self.assertGreater(len(found), 1000)
        self.assertEqual({str(file.relative_to(ROOT).parent) for file, _ in found}, set(mutate.TESTS))
        self.assertEqual(len({mutate.key(file, fault) for file, fault in found}), len(found))

    def test_what_is_listed_as_equivalent_can_be_planted(self):
        self.assertEqual(mutate.Excuses(mutate.EQUIVALENT.read_text(encoding="utf-8")).unmatched(mutate.sources()), [])


class Judging(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.path = Path(folder.name) / "verdicts.json"
        self.sources = {FILE: "void f() {\n  g();\n  h();\n}\n"}
        self.planned = mutate.all_faults(self.sources)

    def judged(self, *verdicts, listed=""):
        kept = mutate.Verdicts(self.path, self.sources)
        for (file, fault), verdict in zip(self.planned, verdicts):
            kept.note(file, fault, verdict)
        return mutate.summary(self.planned, kept, mutate.Excuses(listed))

    def listed(self, line):
        return (f'[[equivalent]]\nfile = "app/launcher.cpp"\nline = "{line}"\nfault = "the statement is left out"\n'
                'reason = "nobody looks"\n')

    def test_a_survivor_fails_the_run_and_is_named(self):
        text, status = self.judged(mutate.SURVIVED, mutate.BY_TESTS)
        self.assertIn("survived: app/launcher.cpp:2: the statement is left out\n    g();\n", text)
        self.assertIn("\n2 faults: 1 caught by tests, 0 caught by the simulation, ", text)
        self.assertEqual(status, 1)

    def test_a_survivor_that_is_listed_does_not(self):
        text, status = self.judged(mutate.SURVIVED, mutate.BY_SIMULATION, listed=self.listed("g();"))
        self.assertIn("0 caught by tests, 1 caught by the simulation, 1 equivalent, as listed, 0 survived", text)
        self.assertEqual(status, 0)

    def test_one_that_is_listed_and_caught_fails_the_run(self):
        self.assertEqual(self.judged(mutate.BY_TESTS, mutate.BY_TESTS, listed=self.listed("g();"))[1], 1)

    def test_one_that_was_not_planted_fails_the_run(self):
        text, status = self.judged(mutate.BY_TESTS)
        self.assertIn("not planted: app/launcher.cpp:3", text)
        self.assertEqual(status, 1)

    def test_an_entry_that_matches_nothing_is_complained_of(self):
        self.assertEqual(len(mutate.Excuses(self.listed("i();")).unmatched(self.sources)), 1)

    def test_a_verdict_is_forgotten_when_its_source_has_changed(self):
        self.judged(mutate.BY_TESTS, mutate.NOT_COMPILING)
        self.assertFalse(mutate.Verdicts(self.path, self.sources).missing(*self.planned[0]))
        changed = {FILE: self.sources[FILE] + "\n"}
        self.assertTrue(mutate.Verdicts(self.path, changed).missing(*self.planned[0]))

    def test_who_hangs_or_crashes_has_not_passed(self):
        self.assertTrue(mutate.passes(["true"]))
        self.assertFalse(mutate.passes(["false"]))
        self.assertFalse(mutate.passes(["sh", "-c", "kill -SEGV $$"]))
        self.assertFalse(mutate.passes(["sleep", "60"], clock_seconds=0.1))


if __name__ == "__main__":
    unittest.main()
