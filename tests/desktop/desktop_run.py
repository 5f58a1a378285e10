"""What the programs that drive the window have in common: the private place they run in, and what their steps work on.

Every step is told in a line; the exit status is 0 when all held.
"""

import argparse
import os
import shutil
import signal
import sys
import time
from pathlib import Path


def _use_an_interpreter_with_accessibility():
    """The packages for it belong to the system's interpreter, which need not be the first one in PATH."""
    try:
        import gi  # noqa: F401
    except ImportError:
        system = "/usr/bin/python3"
        if os.path.realpath(sys.executable) == os.path.realpath(system) or not os.path.exists(system):
            sys.exit(f"{_name()}: the packages python3-gi and gir1.2-atspi-2.0 are missing")
        os.execv(system, [system, *sys.argv])


def _name():
    return Path(sys.argv[0]).stem


_use_an_interpreter_with_accessibility()

import network  # noqa: E402
import screen  # noqa: E402
from output_folder import OutputFolder, Unusable  # noqa: E402
from private_world import PrivateWorld  # noqa: E402
from steps import Failure, Results  # noqa: E402

_TOOLS = ("Xvfb", "dbus-daemon", "xdotool", "import", "openssl", "ffmpeg", "ffprobe", "yt-dlp", "curl")
_X11_TOOLS = ("openbox", "trayer")
_WAYLAND_TOOLS = ("sway", "swaymsg", "waybar")


class Run:
    """What the steps work on: the world, the helper under test and the folder of saved files."""

    def __init__(self, executable, output, world):
        self.executable = executable
        self.is_wayland = screen.is_wayland()
        self.world = world
        self.saved = output.saved
        self._screenshots = output.screenshots
        self.evidence = output.evidence
        self._pictures = 0
        self._new_pictures = []
        self.helper = None

    def take_picture(self, name):
        """Of the whole screen; they are numbered in the order they are taken."""
        self._pictures += 1
        path = self._screenshots / f"{self._pictures:02}-{name}.png"
        self._new_pictures.append(path if screen.take_picture(path) else f"of {name} could not be taken")

    def new_pictures(self):
        taken, self._new_pictures = self._new_pictures, []
        return taken

    def recover(self):
        """Clears the way for the next step."""
        try:
            self.helper.dismiss_panels()
        except (Failure, LookupError) as reason:
            say(f"       no way back to the form: {reason}")

    def end(self, results):
        self.helper.stop()
        if results.failed:
            self._keep_evidence()

    def _keep_evidence(self):
        """The private home goes away with the run; what explains a failure is kept."""
        for file in [self.world.log, *self.world.folder.glob("*.log")]:
            if file.is_file() and file.stat().st_size > 0:
                shutil.copy(file, self.evidence)
                say(f"kept {self.evidence / file.name}")


def make_parser(description):
    """Of the options that every such program takes; --wayland is one that not all have."""
    parser = argparse.ArgumentParser(description=description.splitlines()[0])
    parser.add_argument("--helper", type=Path, required=True, help="the executable, with its resources beside it")
    parser.add_argument("--output", type=Path, required=True, help="folder for saved files and screenshots")
    parser.set_defaults(wayland=False)
    return parser


def run_privately(parser, drive):
    """The whole of a program: `drive` is called with its options, the output folder, the world and the results."""
    try:
        sys.exit(_run(_parse_options(parser), drive))
    except Unusable as reason:
        sys.exit(f"{_name()}: {reason}")
    except KeyboardInterrupt:
        say(f"{_name()}: interrupted")
        sys.exit(130)


def _run(options, drive):
    private = network.enter_private_network()
    if not private and not network.port_is_free():
        sys.exit(f"{_name()}: port {network.HELPER_PORT} is in use, probably by a helper that is running. "
                 "Quit it first.")
    tools = [*_TOOLS, *(_WAYLAND_TOOLS if options.wayland else _X11_TOOLS)]
    missing = [tool for tool in tools if shutil.which(tool) is None]
    if missing:
        sys.exit(f"{_name()}: missing on this machine: {', '.join(missing)}")
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    results = Results()
    started = time.monotonic()
    with OutputFolder(options.output) as output, PrivateWorld(wayland=options.wayland) as world:
        drive(options, output, world, results)
    say(f"Screenshots and saved files: {options.output}  [{time.monotonic() - started:.0f} s in all]")
    say(f"{results.passed} passed, {results.failed} failed")
    return 1 if results.failed else 0


def _parse_options(parser):
    options = parser.parse_args()
    options.helper = options.helper.resolve()
    options.output = options.output.resolve()
    if not os.access(options.helper, os.X_OK):
        parser.error(f"{options.helper} cannot be run")
    return options


def say(line):
    print(line, flush=True)
