#!/usr/bin/python3
"""Shows the helper's main job on real input, on a virtual display, and checks it from outside.

Makes a short clip, offers it on a local HTTPS site, drives the real window through the accessibility tree to save
a video, its sound and a subtitle, and then tries what may go wrong. Prints one line per step; the exit status is 0
when every step held. With --wayland the display is a compositor's, and what only that has is tried as well.
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
            sys.exit("demo: the packages python3-gi and gir1.2-atspi-2.0 are missing")
        os.execv(system, [system, *sys.argv])


_use_an_interpreter_with_accessibility()

import network  # noqa: E402
import sample_media  # noqa: E402
import screen  # noqa: E402
from media_server import MediaServer  # noqa: E402
from output_folder import OutputFolder, Unusable  # noqa: E402
from private_world import PrivateWorld  # noqa: E402
from steps import Failure, Results, run_steps  # noqa: E402


class Run:
    """What the steps work on: the world, the site, the helper under test and the folder of saved files."""

    def __init__(self, executable, output, world, server):
        self.executable = executable
        self.is_wayland = screen.is_wayland()
        self.world = world
        self.server = server
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
            _say(f"       no way back to the form: {reason}")


def main():
    options = _parse_options()
    private = network.enter_private_network()
    if not private and not network.port_is_free():
        sys.exit(f"demo: port {network.HELPER_PORT} is in use, probably by a helper that is running. Quit it first.")
    tools = [*_TOOLS, *(_WAYLAND_TOOLS if options.wayland else _X11_TOOLS)]
    missing = [tool for tool in tools if shutil.which(tool) is None]
    if missing:
        sys.exit(f"demo: missing on this machine: {', '.join(missing)}")
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    results = Results()
    started = time.monotonic()
    with OutputFolder(options.output) as output, PrivateWorld(wayland=options.wayland) as world:
        _say("Making a clip of three qualities with a tone and a subtitle track")
        media = sample_media.make_sample_media(world.media / "clip")
        with MediaServer(media, world.folder) as server:
            # The site's certificate is its own; the processor and its tools are not told about it.
            world.write_home_file(".config/zunto-helper/yt-dlp.conf", "--no-check-certificates\n")
            _say(f"Offering it at {server.link}")
            _drive(Run(options.helper, output, world, server), results, options.brief)
    _say(f"Screenshots and saved files: {options.output}  [{time.monotonic() - started:.0f} s in all]")
    if results.not_applicable:
        _say(f"{results.not_applicable} not applicable under Wayland")
    _say(f"{results.passed} passed, {results.failed} failed")
    return 1 if results.failed else 0


_TOOLS = ("Xvfb", "dbus-daemon", "xdotool", "import", "openssl", "ffmpeg", "ffprobe", "yt-dlp", "curl")
_X11_TOOLS = ("openbox", "trayer")
_WAYLAND_TOOLS = ("sway", "swaymsg", "waybar")


def _drive(run, results, is_brief):
    # They reach for the accessibility bus of the environment, so only now.
    from accessibility_checks import accessibility_steps
    from desktop_checks import desktop_steps
    from download_checks import analysis_steps, save_steps, trouble_steps
    from environment_checks import environment_steps
    from form_checks import form_steps
    from helper_program import HelperProgram
    from lifecycle_checks import fault_steps, lifecycle_steps
    from saving_checks import saving_steps
    from wayland_checks import last_wayland_steps, wayland_steps

    run.helper = HelperProgram(run.executable, run.world)
    try:
        steps = [*form_steps(), *analysis_steps(), *save_steps()]
        if run.is_wayland:
            steps += wayland_steps()
        if not is_brief:
            steps += [*accessibility_steps(), *trouble_steps(), *lifecycle_steps(), *fault_steps(), *saving_steps(),
                      *environment_steps(), *desktop_steps()]
        if run.is_wayland:
            steps += last_wayland_steps()
        run_steps(steps, run, results)
    finally:
        run.helper.stop()
        if results.failed:
            _keep_evidence(run)


def _keep_evidence(run):
    """The private home goes away with the run; what explains a failure is kept."""
    log = run.world.home / "Library/Logs/ZUNTO Helper/helper.log"
    for file in [log, *run.world.folder.glob("*.log")]:
        if file.is_file():
            shutil.copy(file, run.evidence)
            _say(f"kept {run.evidence / file.name}")


def _parse_options():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--helper", type=Path, required=True, help="the executable, with its resources beside it")
    parser.add_argument("--output", type=Path, required=True, help="folder for saved files and screenshots")
    parser.add_argument("--wayland", action="store_true", help="under a Wayland compositor instead of X11")
    parser.add_argument("--brief", action="store_true", help="only the main job, and what Wayland has of its own")
    options = parser.parse_args()
    options.helper = options.helper.resolve()
    options.output = options.output.resolve()
    if not os.access(options.helper, os.X_OK):
        parser.error(f"{options.helper} cannot be run")
    return options


def _say(line):
    print(line, flush=True)


if __name__ == "__main__":
    try:
        sys.exit(main())
    except Unusable as reason:
        sys.exit(f"demo: {reason}")
    except KeyboardInterrupt:
        _say("demo: interrupted")
        sys.exit(130)
