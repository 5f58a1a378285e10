#!/usr/bin/python3
"""The places that tests run in: a display without a bus, and a network whose port is free."""

import os
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

FACES = Path(__file__).resolve().parents[1] / "faces"
DEMO = FACES.parent / "desktop/demo.py"


class PrivatePlaces(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def output(self, *command, **environment):
        return subprocess.run(command, env={**os.environ, **environment}, capture_output=True, text=True, timeout=60,
                              check=False)

    def without_private_networks(self):
        """A PATH in which no new network is allowed, as in many containers."""
        (self.folder / "unshare").write_text("#!/bin/sh\necho Operation not permitted >&2\nexit 1\n", encoding="utf-8")
        (self.folder / "unshare").chmod(0o755)
        return f"PATH={self.folder}:{os.environ['PATH']}"

    def test_a_test_without_a_bus_has_an_address_that_leads_nowhere(self):
        done = self.output(FACES / "run_on_display.sh", "sh", "-c", "echo $DBUS_SESSION_BUS_ADDRESS")
        kind, _, path = done.stdout.strip().partition("unix:path=")
        self.assertEqual(kind, "")
        self.assertTrue(path)
        self.assertFalse(os.path.exists(path))

    def test_the_network_has_nothing_but_loopback(self):
        done = self.output(FACES / "run_on_private_network.sh", "cat", "/proc/net/dev")
        self.assertEqual([line.split(":")[0].strip() for line in done.stdout.splitlines() if ":" in line], ["lo"])

    def test_where_no_private_network_is_allowed_the_machines_own_serves(self):
        # The outer one is this test's machine, whose port is free.
        private = FACES / "run_on_private_network.sh"
        done = self.output(private, "env", self.without_private_networks(), private, "echo", "ran")
        self.assertEqual((done.returncode, done.stdout), (0, "ran\n"), done.stderr)

    def test_a_port_in_use_is_said_so_where_no_private_network_is_allowed(self):
        private = FACES / "run_on_private_network.sh"
        serve = ("import socket, subprocess, sys; s = socket.create_server(('127.0.0.1', 43127)); "
                 "sys.exit(subprocess.run(sys.argv[1:]).returncode)")
        done = self.output(private, "python3", "-c", serve, "env", self.without_private_networks(), private, "echo")
        self.assertEqual((done.returncode, done.stdout), (1, ""))
        self.assertIn("port 43127 is in use", done.stderr)

    def test_an_interrupted_demonstration_says_so_in_one_line(self):
        helper = shutil.which("true")
        # A test in the background is deaf to it, and so would be what it starts.
        demo = subprocess.Popen(["env", "--default-signal=INT", DEMO, "--helper", helper, "--output",
                                 self.folder / "shown"], text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.addCleanup(demo.wait)
        self.addCleanup(demo.kill)
        self.assertIn("Making a clip", demo.stdout.readline())
        demo.send_signal(2)
        output, _ = demo.communicate(timeout=60)
        self.assertEqual((output.splitlines()[-1], demo.returncode), ("demo: interrupted", 130))
        self.assertNotIn("Traceback", output)


if __name__ == "__main__":
    unittest.main()
