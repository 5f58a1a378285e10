#!/usr/bin/python3
"""What scripts/bare refuses before it makes anything."""

import unittest

from command_tree import CommandTree


class Bare(unittest.TestCase):
    def setUp(self):
        self.tree = CommandTree(self)

    def refused(self, *arguments):
        done = self.tree.call("scripts/bare", *arguments)
        self.assertEqual((done.returncode, done.stdout), (2, ""))
        self.assertFalse((self.tree.root / "build").exists())
        (line,) = done.stderr.splitlines()
        return line

    def test_refuses_what_it_does_not_understand(self):
        self.assertIn("takes a suite and a command", self.refused())
        self.assertIn("takes a suite and a command", self.refused("bookworm"))
        self.assertIn("unknown option --bogus", self.refused("--bogus", "bookworm", "true"))

    def test_refuses_a_machine_that_cannot_make_a_system(self):
        self.assertIn("debootstrap is missing", self.refused("bookworm", "true"))
        self.tree.stand_in("debootstrap", "exit 1")
        self.assertIn("debootstrap knows no suite nonsense", self.refused("nonsense", "true"))


if __name__ == "__main__":
    unittest.main()
