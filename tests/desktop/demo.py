#!/usr/bin/python3
"""Shows the helper's main job on real input, on a virtual display, and checks it from outside.

Makes a short clip, offers it on a local HTTPS site, drives the real window through the accessibility tree to save
a video, its sound and a subtitle, and then tries what may go wrong. Prints one line per step; the exit status is 0
when every step held. With --wayland the display is a compositor's, and what only that has is tried as well.
"""

import sample_media
from desktop_run import Run, make_parser, run_privately, say
from media_server import MediaServer
from steps import run_steps


def _demonstrate(options, output, world, results):
    say("Making a clip of three qualities with a tone and a subtitle track")
    media = sample_media.make_sample_media(world.media / "clip")
    with MediaServer(media, world.folder) as server:
        # The site's certificate is its own; the processor and its tools are not told about it.
        world.write_home_file(".config/zunto-helper/yt-dlp.conf", "--no-check-certificates\n")
        say(f"Offering it at {server.link}")
        run = Run(options.helper, output, world)
        run.server = server
        _drive(run, results, options.brief)
    if results.not_applicable:
        say(f"{results.not_applicable} not applicable under Wayland")


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
        run.end(results)


if __name__ == "__main__":
    parser = make_parser(__doc__)
    parser.add_argument("--wayland", action="store_true", help="under a Wayland compositor instead of X11")
    parser.add_argument("--brief", action="store_true", help="only the main job, and what Wayland has of its own")
    run_privately(parser, _demonstrate)
