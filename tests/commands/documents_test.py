#!/usr/bin/python3
"""What the documents say about the tree: tests that they name, files that they lead to, sentences that they quote."""

import ast
import re
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
SECURITY = ROOT / "docs/security.md"
README = ROOT / "README.md"


def documents():
    return [*ROOT.glob("*.md"), *ROOT.glob("docs/*.md")]


def cpp_tests():
    declaration = re.compile(r"\b(?:TYPED_)?TEST(?:_[FP])?\(\s*(\w+)\s*,\s*(\w+)\s*\)")
    for file in [*ROOT.glob("tests/**/*.cpp"), *ROOT.glob("tests/**/*.mm")]:
        for group, name in declaration.findall(file.read_text(encoding="utf-8")):
            yield f"{group}.{name}"


def processor_tests():
    declaration = re.compile(r"\btest\(\s*(['\"`])(.+?)\1,")
    for file in ROOT.glob("processor/test/*.test.mjs"):
        for _, title in declaration.findall(file.read_text(encoding="utf-8")):
            yield title


def steps():
    for file in ROOT.glob("tests/*/*.py"):
        for node in ast.walk(ast.parse(file.read_text(encoding="utf-8"))):
            if isinstance(node, ast.Call) and getattr(node.func, "id", "") == "Step":
                if node.args and isinstance(node.args[0], ast.Constant):
                    yield node.args[0].value


class SecurityReview(unittest.TestCase):
    """Its lines are the points of its lists; the tests of a line are the points below it."""

    def setUp(self):
        text, self.left_open = SECURITY.read_text(encoding="utf-8").split("\n## What is left open\n")
        self.lines = [point.split("\n  - ") for point in re.split(r"\n(?=- )", text)[1:]]

    def names(self):
        return [re.fullmatch(r"`([^`]+)`", name.partition("\n")[0]) for _, *names in self.lines for name in names]

    def test_every_line_names_a_test(self):
        self.assertGreater(len(self.lines), 30)
        self.assertEqual([line for line, *names in self.lines if not names], [])
        self.assertNotIn("\n  - ", self.left_open)

    def test_every_test_that_it_names_exists(self):
        known = {*cpp_tests(), *processor_tests(), *steps()}
        for kind in cpp_tests, processor_tests, steps:
            self.assertTrue(set(kind()) & {name[1] for name in self.names() if name}, kind.__name__)
        self.assertEqual([name[1] if name else "not in backticks" for name in self.names()
                          if not name or name[1] not in known], [])


class Places(unittest.TestCase):
    """What documents name must be there."""

    def check(self, pattern, place):
        seen = 0
        for document in documents():
            for named in re.findall(pattern, document.read_text(encoding="utf-8")):
                with self.subTest(document.name, named=named):
                    self.assertTrue(place(document, named).exists())
                    seen += 1
        self.assertGreater(seen, 10)

    def test_links_lead_to_files(self):
        self.check(r"\]\(([^)#:]+)", lambda document, target: document.parent / target)

    def test_paths_below_a_folder_of_the_tree_exist(self):
        folders = "|".join(sorted(path.name for path in ROOT.iterdir() if path.is_dir() and path.name != "build"))
        self.check(rf"`((?:{folders})/[\w./-]+)", lambda _, path: ROOT / path)


class Changes(unittest.TestCase):
    def test_begin_with_the_version_of_the_tree(self):
        project = re.search(r"^project\(.* VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text(encoding="utf-8"),
                            re.MULTILINE)
        newest = re.search(r"^## ([\d.]+)", (ROOT / "CHANGELOG.md").read_text(encoding="utf-8"), re.MULTILINE)
        self.assertEqual(newest[1], project[1])


class WhenItDoesNotWork(unittest.TestCase):
    """The README's table of troubles, whose first column is quoted from the program. *name* is told by the occasion."""

    def test_quotes_the_program_word_for_word(self):
        text = README.read_text(encoding="utf-8").split("\n## When it does not work\n")[1].split("\n## ")[0]
        quotes = re.findall(r'^\| "(.+)" \|', text, re.MULTILINE)
        self.assertGreater(len(quotes), 5)
        sources = [file for room in ("app", "import", "protocol", "platform") for file in ROOT.glob(f"{room}/**/*.cpp")]
        said = "\n".join(file.read_text(encoding="utf-8") for file in [*sources, *ROOT.glob("processor/src/*.mjs")])
        # A long sentence is written in several literals.
        said = re.sub(r'"\s*\n\s*"', "", said)
        for quote in quotes:
            with self.subTest(quote):
                self.assertEqual([part for part in re.split(r"\*\w+\*", quote) if part not in said], [])


if __name__ == "__main__":
    unittest.main()
