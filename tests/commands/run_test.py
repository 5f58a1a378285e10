#!/usr/bin/python3
"""./run as a newcomer may call it: what cannot work ends with one clear line, and nothing of the user's is lost."""

import socket
import subprocess
import tempfile
import unittest
from pathlib import Path

from command_tree import ROOT, CommandTree


class Run(unittest.TestCase):
    def setUp(self):
        self.tree = CommandTree(self)

    def refused(self, *arguments, **environment):
        """The one line that says why."""
        done = self.tree.call("run", *arguments, **environment)
        self.assertNotEqual(done.returncode, 0)
        self.assertNotIn("started", done.stdout)
        self.assertNotIn("demonstration", done.stdout)
        (line,) = done.stderr.splitlines()
        return line

    def demonstrated(self, *arguments, **environment):
        done = self.tree.call("run", "--demo", *arguments, **environment)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return done.stdout.splitlines()[-1]

    def test_demonstrates_where_there_is_no_display(self):
        done = self.tree.call("run")
        self.assertTrue(done.stdout.splitlines()[-1].startswith("demonstration: "), done.stdout + done.stderr)

    def test_starts_the_helper_on_a_display_that_answers(self):
        with tempfile.TemporaryDirectory() as folder, socket.socket(socket.AF_UNIX) as server:
            server.bind(f"{folder}/wayland-1")
            server.listen()
            server.settimeout(20)
            done = self.tree.call("run", "zunto-helper:?url=x", XDG_RUNTIME_DIR=folder, WAYLAND_DISPLAY="wayland-1")
        self.assertEqual(done.stdout.splitlines()[-1], "helper started: zunto-helper:?url=x")

    def test_refuses_a_display_that_does_not_answer(self):
        for name in (":4077", "no-such-host:3", "localhost:4078.0", "nonsense"):
            with self.subTest(name):
                self.assertEqual(self.refused(DISPLAY=name),
                                 f"run: the display {name} does not answer (./run --demo needs none)")
        self.assertIn("wayland-9 does not answer",
                      self.refused(WAYLAND_DISPLAY="wayland-9", XDG_RUNTIME_DIR="/nowhere"))

    def test_refuses_what_it_does_not_understand(self):
        for arguments, why in {
            ("--output",): "--output takes a path (see ./run --help)",
            ("--output", "--demo"): "--output takes a path (see ./run --help)",
            ("--node", ""): "--node takes a path (see ./run --help)",
            ("--yt-dlp", "missing"): "--yt-dlp takes a program, and missing is none",
            ("--ffmpeg", "/"): "--ffmpeg takes a program, and / is none",
            ("--install", "--demo"): "--install goes with nothing else (see ./run --help)",
            ("--install", "--wayland"): "--install goes with nothing else (see ./run --help)",
            ("--wayland",): "--wayland goes with --demo (see ./run --help)",
            ("zunto-helper:", "--install"): "--install goes with nothing else (see ./run --help)",
            ("--bogus",): "unknown option --bogus (see ./run --help)",
            ("https://e.org",): "https://e.org is no link that begins with zunto-helper: (see ./run --help)",
        }.items():
            with self.subTest(arguments):
                self.assertEqual(self.refused(*arguments), f"run: {why}")

    def test_paths_are_the_callers(self):
        tool = self.tree.caller / "my-yt-dlp"
        tool.write_text("#!/bin/sh\n", encoding="utf-8")
        tool.chmod(0o755)
        line = self.demonstrated("--output", "shown", "--yt-dlp", "./my-yt-dlp")
        self.assertIn(f"--output {self.tree.caller}/shown", line)
        staged = self.tree.root / "build/release/bin/resources/runtime/bin/yt-dlp"
        self.assertEqual(staged.resolve(), tool)

    def test_demonstrates_under_wayland_when_asked(self):
        self.assertNotIn("--wayland", self.demonstrated())
        self.assertIn(" --wayland ", self.demonstrated("--wayland"))

    def test_refuses_an_output_folder_that_cannot_serve(self):
        (self.tree.caller / "file").touch()
        self.assertIn("is not a folder", self.refused("--demo", "--output", "file"))
        self.assertIn("cannot be made: Not a directory", self.refused("--demo", "--output", "file/below"))

    def test_never_touches_files_of_the_users_in_the_output_folder(self):
        for name in ("saved", "screenshots", "evidence"):
            own = self.tree.caller / "shown" / name / "own.txt"
            own.parent.mkdir(parents=True)
            own.touch()
            with self.subTest(name):
                self.assertIn("which no demonstration has made", self.refused("--demo", "--output", "shown"))
                self.assertTrue(own.exists())
            own.unlink()

    def test_refuses_a_node_that_is_too_old(self):
        for version, why in {"echo v18.14.2": "is Node.js 18.14.2, and 18.15 or later is needed",
                             "echo v16.20.2": "is Node.js 16.20.2, and 18.15 or later is needed",
                             "exit 1": "is no Node.js that runs here"}.items():
            self.tree.stand_in("node", version)
            with self.subTest(version):
                self.assertEqual(self.refused("--demo"), f"run: {self.tree.tools}/node {why}")

    def test_says_which_packages_are_missing_where_it_cannot_install_them(self):
        self.tree.stand_in("dpkg-query", 'case $* in *" ninja-build" | *" curl") exit 1 ;; *) echo installed ;; esac')
        self.tree.stand_in("id", "echo 1000")
        self.assertEqual(self.refused("--demo"), "run: no sudo here; run as root: apt-get install ninja-build curl")
        (self.tree.tools / "apt-get").unlink()
        self.assertEqual(self.refused("--demo"),
                         "run: no apt-get here; what is missing is called on Debian: ninja-build curl")

    def test_says_what_is_missing_on_a_system_without_debians_packages(self):
        for name in ("apt-get", "dpkg-query"):
            (self.tree.tools / name).unlink()
        for name in ("g++", "ninja", "openbox", "xdotool", "Xvfb"):
            self.tree.stand_in(name, "true")
        self.tree.stand_in("pkg-config", 'test "$2" = Qt6Widgets')
        line = self.refused("--demo")
        self.assertTrue(line.startswith("run: no apt-get here; what is missing is called on Debian: "), line)
        missing = line.split(": ", 2)[2].split()
        for name in ("cmake", "g++", "pkg-config", "ninja-build", "openbox", "qt6-base-dev", "xvfb", "yt-dlp"):
            self.assertNotIn(name, missing)
        for name in ("libsystemd-dev", "dbus", "x11-utils", "at-spi2-core"):
            self.assertIn(name, missing)

    def test_runs_on_a_system_without_debians_packages_that_has_all(self):
        for name in ("apt-get", "dpkg-query"):
            (self.tree.tools / name).unlink()
        for name in ("g++", "ninja", "pkg-config", "Xvfb", "openbox", "xprop", "xdotool", "import", "fc-list",
                     "dbus-daemon", "openssl", "ip", "ps", "trayer"):
            self.tree.stand_in(name, "true")
        plugins = self.tree.caller / "plugins"
        (plugins / "platforms").mkdir(parents=True)
        (plugins / "platforms/libqwayland-generic.so").touch()
        self.tree.stand_in("qtpaths6", f"echo {plugins}")
        self.assertTrue(self.demonstrated().startswith("demonstration: "))

    def test_installs_what_is_missing_as_root_by_sudo(self):
        self.tree.stand_in("dpkg-query", 'case $* in *" ninja-build") exit 1 ;; *) echo installed ;; esac')
        self.tree.stand_in("id", "echo 1000")
        self.tree.stand_in("sudo", 'echo "sudo $*"')
        done = self.tree.call("run", "--demo")
        self.assertIn("sudo apt-get update -q\n", done.stdout)
        self.assertRegex(done.stdout, r"sudo env .*apt-get install .* ninja-build\n")

    def test_makes_the_package_and_installs_that_with_what_it_needs(self):
        self.tree.stand_in("cpack", "mkdir -p build/release/package; touch build/release/package/helper_1_amd64.deb")
        self.tree.stand_in("apt-get", 'echo "apt-get $*"')
        self.tree.stand_in("id", "echo 1000")
        self.tree.stand_in("sudo", 'echo "as root:"; "$@"')
        done = self.tree.call("run", "--install")
        package = f"{self.tree.root}/build/release/package/helper_1_amd64.deb"
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertIn(f"as root:\napt-get install -q -y --reinstall --allow-downgrades {package}\n", done.stdout)
        self.assertRegex(done.stdout.splitlines()[-1], "^Remove it as root: apt-get remove zunto-helper$")

    def test_says_why_the_package_was_not_made_or_not_installed(self):
        self.tree.stand_in("cpack", "echo no space is left; exit 1")
        done = self.tree.call("run", "--install")
        self.assertNotEqual(done.returncode, 0)
        self.assertIn("no space is left", done.stdout)
        self.tree.stand_in("cpack", "mkdir -p build/release/package; touch build/release/package/helper_1_amd64.deb")
        self.tree.stand_in("id", "echo 0")
        self.tree.stand_in("apt-get", "exit 100")
        self.assertIn("helper_1_amd64.deb could not be installed", self.refused("--install"))
        self.tree.stand_in("id", "echo 1000")
        self.assertEqual(self.refused("--install"), "run: no sudo here; run as root: ./run --install")
        (self.tree.tools / "apt-get").unlink()
        self.assertEqual(self.refused("--install"),
                         "run: no apt-get here; README.md tells how to install without a package")

    def test_takes_the_names_that_packages_have_in_this_release(self):
        older = ["libboost1.81-dev", "libboost-json1.81-dev", "libboost-url1.81-dev"]
        newer = ["libboost-dev", "libboost-json-dev", "libboost-url-dev"]
        for offered, installed, wanted in (([*older, *newer], [], older), (newer, [], newer),
                                           ([*older, *newer], newer, older), (newer, older[:1], newer[1:])):
            with self.subTest(offered=offered, installed=installed):
                self.assertEqual(self.newly_installed("run", offered, installed), wanted)
        self.assertEqual(self.newly_installed("run", newer, newer), [])

    def test_does_without_a_tool_that_no_release_offers_any_more(self):
        self.assertEqual(self.newly_installed("test", ["curl"], [], lacking="curl|clang-format-14|clang-tidy-14"),
                         ["curl"])
        self.assertEqual(self.newly_installed("test", ["clang-format-14"], [], lacking="clang-format-14|clang-tidy-14"),
                         ["clang-format-14"])

    def newly_installed(self, command, offered, installed, lacking="libboost*"):
        """What apt is asked for where nothing is missing but what matches `lacking`, less what is installed of it."""
        self.tree.stand_in("dpkg-query", 'for last in "$@"; do :; done; case $last in '
                                         f'{"|".join(installed) or "-"}) echo installed ;; {lacking}) exit 1 ;; '
                                         "*) echo installed ;; esac")
        self.tree.stand_in("apt-cache", f'case $1,$2 in madison,{"|madison,".join(offered)}) echo "$2 | 1" ;; esac')
        self.tree.stand_in("apt-get", 'if [ "$1" = install ]; then echo "apt-get $*"; fi')
        done = self.tree.call(command, *{"run": ["--demo"], "test": ["format"]}[command])
        asked = [line for line in done.stdout.splitlines() if line.startswith("apt-get install")]
        return [word for line in asked for word in line.split()[2:] if not word.startswith("-")]

    def test_a_warning_of_a_newer_compiler_does_not_stop_it(self):
        for preset, stops in (("release", False), ("bench", False), ("gcc", True), ("sanitize", True)):
            done = subprocess.run(["cmake", "--preset", preset, "-N"], cwd=ROOT, capture_output=True, text=True,
                                  check=True)
            self.assertEqual('CMAKE_COMPILE_WARNING_AS_ERROR="ON"' in done.stdout, stops, preset)

    def test_refuses_a_tree_in_which_nothing_can_be_written(self):
        why = f"run: {self.tree.root}/build/release cannot be written; a copy of this tree can be built elsewhere"
        self.tree.root.chmod(0o555)
        self.assertEqual(self.refused("--demo", as_user=True), why)
        self.tree.root.chmod(0o755)
        (self.tree.root / "build").mkdir(mode=0o555)
        self.assertEqual(self.refused("--demo", as_user=True), why)

    def test_refuses_to_run_beside_another_demonstration_of_the_same_tree(self):
        (self.tree.root / "tests/desktop/demo.py").write_text("import time; print('begun', flush=True); time.sleep(60)",
                                                              encoding="utf-8")
        first = self.tree.start("run", "--demo")
        self.addCleanup(first.communicate)
        self.addCleanup(first.kill)
        while first.stdout.readline() not in ("begun\n", ""):
            pass
        self.assertEqual(self.refused("--demo"),
                         f"run: another run uses this tree: process {first.pid}. Wait for its end")

    def test_takes_a_temporary_folder_that_is_unfit_for_sockets_for_another_one(self):
        with tempfile.TemporaryDirectory() as folder:
            blank, long = Path(folder, "with blank"), Path(folder, "d" * 60)
            blank.mkdir()
            long.mkdir()
            self.assertTrue(self.demonstrated(TMPDIR=folder).endswith(f" in {folder}"))
            for unfit in (blank, long, Path(folder, "missing")):
                with self.subTest(unfit):
                    self.assertTrue(self.demonstrated(TMPDIR=str(unfit)).endswith(" in /tmp"))


if __name__ == "__main__":
    unittest.main()
