"""What goes into the macOS application besides its program: property lists and scripts.

usage: packaging_test.py SOURCE_FOLDER FILLED_IN_INFO_PLIST VERSION
"""

import os
import plistlib
import subprocess
import sys
import tempfile
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
        drawing = (SOURCE.parent / "icon.svg").read_text()
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


class Packaging(unittest.TestCase):
    """The script with stand-ins for the programs of macOS, each of which notes how it was called."""

    SYSTEM_LIBRARY = "/usr/lib/libSystem.B.dylib"

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.calls = self.folder / "calls"
        self.app = self.folder / "ZUNTO Helper.app"
        self.write(self.app / "Contents/Info.plist", "")
        self.write(self.app / "Contents/MacOS/ZUNTO Helper", "")
        self.write(self.app / "Contents/Resources/processor/src/index.mjs", "")
        for tool, answer in (("node", "number"), ("yt-dlp", ""), ("ffmpeg", ""), ("ffprobe", "")):
            self.write(self.folder / "tools" / tool, f"#!/bin/sh\necho 'run {tool}' >>'{self.calls}'\necho {answer}\n")
        self.stand_in("file", "echo Mach-O")
        self.stand_in("xattr", "")
        self.stand_in("codesign", f"echo codesign \"$@\" >>'{self.calls}'")

    def write(self, path, text):
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)
        path.chmod(0o755)

    def stand_in(self, name, script):
        self.write(self.folder / "system" / name, f"#!/bin/sh\n{script}\n")

    def package(self, library):
        self.stand_in("otool", f"printf '%s:\\n\\t{library} (version)\\n' \"$2\"")
        tools = [part for tool in ("node", "yt-dlp", "ffmpeg", "ffprobe")
                 for part in (f"--{tool}", self.folder / "tools" / tool)]
        path = f"{self.folder / 'system'}:{os.environ['PATH']}"
        return subprocess.run(["sh", SOURCE / "package.sh", self.app, *tools], capture_output=True, text=True,
                              check=False, env={**os.environ, "PATH": path})

    def test_refuses_a_helper_that_needs_a_package_managers_library(self):
        answer = self.package("/opt/homebrew/lib/libboost_json.dylib")
        self.assertEqual(answer.returncode, 1)
        self.assertIn("ZUNTO Helper needs libraries that are not of the system", answer.stderr)
        self.assertFalse(self.calls.exists())

    def test_signs_from_the_inside_out_and_then_runs_every_tool(self):
        answer = self.package(self.SYSTEM_LIBRARY)
        self.assertEqual(answer.returncode, 0, answer.stderr)
        calls = self.calls.read_text().splitlines()
        signed = [Path(call).name for call in calls if "--sign" in call]
        self.assertEqual(signed, ["ffmpeg", "ffprobe", "yt-dlp", "node", "ZUNTO Helper.app"])
        for call in calls:
            if "--sign" in call:
                self.assertIn("--options runtime", call)
        self.assertEqual([call for call in calls if call.startswith("run ")],
                         ["run node", "run yt-dlp", "run ffmpeg", "run ffprobe"])
        self.assertTrue(any("--verify --deep --strict" in call for call in calls))

    def test_refuses_a_runtime_that_does_not_run_once_signed(self):
        self.write(self.folder / "tools/node", "#!/bin/sh\nexit 133\n")
        answer = self.package(self.SYSTEM_LIBRARY)
        self.assertEqual(answer.returncode, 1)
        self.assertIn("node does not run", answer.stderr)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
