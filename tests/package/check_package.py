#!/usr/bin/python3
"""Checks a package of the helper, and an installed one as the desktop starts it: by its bus and by links.

Prints one line per step; the exit status is 0 when every step held.
"""

import argparse
import os
import signal
import sys
from pathlib import Path

_ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(_ROOT / "tests/desktop"))

import network  # noqa: E402
import sample_media  # noqa: E402
import screen  # noqa: E402
from media_server import MediaServer  # noqa: E402
from private_world import PrivateWorld  # noqa: E402
from steps import Failure, Results, run_steps  # noqa: E402


class Run:
    """What the steps work on: the package, the prefix, and, while a session lasts, the world and what runs in it."""

    def __init__(self, package, prefix, pictures):
        self.package = package
        self.prefix = prefix
        self._pictures = pictures
        self._new_pictures = []
        self.world = None
        self.server = None
        self.helper = None

    @property
    def share(self):
        return self.prefix / "share"

    @property
    def program(self):
        return self.prefix / "bin/zunto-helper"

    @property
    def processor_files(self):
        return [path.name for path in (_ROOT / "processor/src").glob("*.mjs")]

    def make_browser(self):
        """A stand-in that notes what it is to open."""
        browser = self._pictures / "browser"
        self.opened.unlink(missing_ok=True)
        browser.write_text(f'#!/bin/sh\nprintf "%s\\n" "$*" >>"{self.opened}"\n', encoding="utf-8")
        browser.chmod(0o755)
        return browser

    @property
    def opened(self):
        return self._pictures / "opened"

    def take_picture(self, name):
        path = self._pictures / f"{name}.png"
        self._new_pictures.append(path if screen.take_picture(path) else f"of {name} could not be taken")

    def new_pictures(self):
        taken, self._new_pictures = self._new_pictures, []
        return taken

    def recover(self):
        """Each step begins with what it needs."""


def main():
    options = _parse_options()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    network.enter_private_network()
    if not network.port_is_free():
        sys.exit(f"port {network.HELPER_PORT} is in use, probably by a helper that is running. Quit it first.")
    options.output.mkdir(parents=True, exist_ok=True)
    run = Run(options.package, options.prefix, options.output)
    results = Results()
    if options.package:
        from archive_checks import archive_steps
        run_steps(archive_steps(), run, results)
    from files_checks import files_steps
    run_steps(files_steps(), run, results)
    # What the desktop looks for programs in, before the session bus starts: only what is installed here.
    variables = {"XDG_DATA_DIRS": f"{run.share}:/usr/share", "PATH": f"{run.prefix}/bin:{os.environ['PATH']}",
                 "BROWSER": str(run.make_browser())}
    with PrivateWorld(variables=variables) as world:
        run.world = world
        media = sample_media.make_sample_media(world.media / "clip")
        with MediaServer(media, world.folder) as run.server:
            world.write_home_file(".config/zunto-helper/yt-dlp.conf", "--no-check-certificates\n")
            # It reaches for the accessibility bus of the environment, so only now.
            from started_checks import end_helper, started_steps
            try:
                run_steps(started_steps(), run, results)
            finally:
                end_helper(run)
                if results.failed:
                    _show_logs(world)
    print(f"{results.passed} passed, {results.failed} failed", flush=True)
    return 1 if results.failed else 0


def _show_logs(world):
    for file in [world.log, *world.folder.glob("*.log")]:
        if file.is_file():
            print(f"--- {file.name}\n{file.read_text(encoding='utf-8', errors='replace')[-2000:]}", flush=True)


def _parse_options():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--package", type=Path, help="the .deb to look into")
    parser.add_argument("--prefix", type=Path, required=True, help="where the helper is installed")
    parser.add_argument("--output", type=Path, required=True, help="folder for screenshots")
    return parser.parse_args()


if __name__ == "__main__":
    try:
        sys.exit(main())
    except (Failure, KeyboardInterrupt) as reason:
        sys.exit(f"check_package: {reason or 'interrupted'}")
