"""Copies of the program, each beside resources of its own."""

import shutil
from pathlib import Path

TOOLS = ("node", "yt-dlp", "ffmpeg", "ffprobe")


def copy_program(executable, folder, tools, processor):
    """Into a new folder; answers the copy. `tools` is {name: path}, `processor` the script that serves."""
    place = folder / "resources/runtime/bin"
    place.mkdir(parents=True)
    for name, path in tools.items():
        (place / name).symlink_to(Path(path).resolve())
    source = folder / "resources/processor/src"
    source.mkdir(parents=True)
    (source / "index.mjs").symlink_to(processor.resolve())
    return Path(shutil.copy(executable, folder))


def with_instant_processor(executable, folder):
    """Its processor is a script that answers at once."""
    tools = {name: shutil.which(name) for name in TOOLS}
    return copy_program(executable, folder, tools, Path(__file__).with_name("instant_processor.mjs"))


def without_component(run, missing):
    """Its resources lack one tool."""
    resources = run.executable.parent / "resources"
    tools = {name: resources / "runtime/bin" / name for name in TOOLS if name != missing}
    return copy_program(run.executable, run.world.folder / f"without-{missing}", tools,
                        resources / "processor/src/index.mjs")
