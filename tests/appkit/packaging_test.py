"""What goes into the macOS application besides its program: property lists and scripts.

usage: packaging_test.py SOURCE_FOLDER FILLED_IN_INFO_PLIST VERSION
"""

import plistlib
import subprocess
import sys
import unittest
from pathlib import Path

SOURCE, INFO, VERSION = Path(sys.argv[1]), Path(sys.argv[2]), sys.argv[3]


def linted(path):
    """The list's contents, by an independent reader: plistutil reports what it cannot read by giving nothing."""
    converted = subprocess.run(["plistutil", "-i", path, "-o", "-"], capture_output=True, check=True).stdout
    if not converted.startswith(b"bplist00"):
        raise AssertionError(f"plistutil does not take {path.name}")
    contents = plistlib.loads(converted)
    if contents != plistlib.loads(path.read_bytes()):
        raise AssertionError(f"two readers differ on {path.name}")
    return contents


class InfoPlist(unittest.TestCase):
    def setUp(self):
        self.info = linted(INFO)

    def test_leaves_nothing_to_be_filled_in(self):
        self.assertNotIn("@", INFO.read_text())

    def test_names_program_version_and_system(self):
        self.assertEqual(self.info["CFBundleExecutable"], "ZUNTO Helper")
        self.assertEqual(self.info["CFBundleName"], "ZUNTO Helper")
        self.assertEqual(self.info["CFBundlePackageType"], "APPL")
        self.assertEqual(self.info["CFBundleShortVersionString"], VERSION)
        self.assertEqual(self.info["CFBundleVersion"], VERSION)
        self.assertEqual(self.info["LSMinimumSystemVersion"], "12.0")
        self.assertRegex(self.info["CFBundleIdentifier"], r"^[A-Za-z0-9.-]+$")

    def test_declares_exactly_the_helpers_scheme(self):
        schemes = [scheme for kind in self.info["CFBundleURLTypes"] for scheme in kind["CFBundleURLSchemes"]]
        self.assertEqual(schemes, ["zunto-helper"])

    def test_is_an_ordinary_application_with_a_category_and_sharp_text(self):
        self.assertNotIn("LSUIElement", self.info)
        self.assertNotIn("NSMainNibFile", self.info)
        self.assertIs(self.info["NSHighResolutionCapable"], True)
        self.assertTrue(self.info["LSApplicationCategoryType"].startswith("public.app-category."))


class Entitlements(unittest.TestCase):
    def test_the_helper_needs_none(self):
        self.assertEqual(linted(SOURCE / "helper.entitlements"), {})

    def test_only_the_runtime_may_make_code(self):
        self.assertEqual(linted(SOURCE / "runtime.entitlements"), {"com.apple.security.cs.allow-jit": True})
        self.assertNotIn("com.apple.security.cs.allow-jit", linted(SOURCE / "yt-dlp.entitlements"))


class Icon(unittest.TestCase):
    def test_is_a_square_drawing(self):
        drawing = (SOURCE / "icon.svg").read_text()
        self.assertIn('viewBox="0 0 1024 1024"', drawing)


class Scripts(unittest.TestCase):
    def run_script(self, name, *arguments):
        return subprocess.run(["sh", SOURCE / name, *arguments], capture_output=True, text=True, check=False)

    def test_refuse_to_work_on_nothing(self):
        for name in ("package.sh", "make_icon.sh"):
            self.assertNotEqual(self.run_script(name).returncode, 0, name)

    def test_refuse_what_is_no_application(self):
        answer = self.run_script("package.sh", "/nonexistent.app", "--use-installed")
        self.assertEqual(answer.returncode, 1)
        self.assertIn("is no application", answer.stderr)

    def test_refuse_an_unknown_option(self):
        answer = self.run_script("package.sh", "/nonexistent.app", "--frobnicate")
        self.assertEqual(answer.returncode, 1)
        self.assertIn("unknown option --frobnicate", answer.stderr)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
