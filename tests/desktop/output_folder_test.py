#!/usr/bin/python3
"""The folder of a demonstration's files, in which nothing of the user's is lost."""

import tempfile
import unittest
from pathlib import Path

from output_folder import OutputFolder, Unusable


class Output(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name) / "shown"

    def demonstrate(self, name="video.mp4"):
        with OutputFolder(self.folder) as output:
            (output.saved / name).touch()

    def test_replaces_what_an_earlier_demonstration_has_made(self):
        self.demonstrate("first.mp4")
        self.demonstrate("second.mp4")
        self.assertEqual([path.name for path in (self.folder / "saved").iterdir()], ["second.mp4"])

    def test_lists_also_what_a_demonstration_made_that_failed(self):
        with self.assertRaises(KeyboardInterrupt), OutputFolder(self.folder) as output:
            (output.saved / "first.mp4").touch()
            raise KeyboardInterrupt
        self.demonstrate()

    def test_refuses_a_folder_with_files_that_no_demonstration_has_made(self):
        self.demonstrate()
        for name in ("saved/own.mp4", "screenshots/own.png", "own.txt"):
            own = self.folder / name
            own.touch()
            with self.subTest(name):
                with self.assertRaises(Unusable):
                    self.demonstrate()
                self.assertTrue(own.exists())
                self.assertTrue((self.folder / "saved/video.mp4").exists())
            own.unlink()

    def test_refuses_a_folder_that_is_a_link_of_the_users(self):
        elsewhere = self.folder.parent / "elsewhere"
        elsewhere.mkdir()
        self.folder.mkdir()
        (self.folder / "saved").symlink_to(elsewhere)
        with self.assertRaises(Unusable):
            self.demonstrate()
        self.assertTrue(elsewhere.is_dir())

    def test_takes_an_empty_folder(self):
        self.folder.mkdir()
        self.demonstrate()


if __name__ == "__main__":
    unittest.main()
