"""What the steps of faults.py work on: a helper whose processor is a script that holds what it is told to.

Import only inside a private world (see accessibility.py).
"""

import contextlib
import os
import re
from collections import Counter
from pathlib import Path

from desktop_run import Run
from helper_program import ANALYZED, READY, READY_LINE, STOPPED_LINE, HelperProgram
from lifecycle_checks import require_no_temporary_files
from program_copy import with_instant_processor
from saving_checks import analyze, everything_below, new_folder, save_to, written_into
from stand_in_processor import FILE_NAME
from steps import require, require_equal, wait_until

# What a helper may be in the middle of.
STARTING, IDLE, ANALYZING, PANEL, DOWNLOADING, SAVING = range(6)

# An end is told to the helper at once. Everything else it sees when it looks again: every 5 seconds, and a look may
# take one. The last second is for this program to look in its turn.
TOLD_SECONDS = 5
SEEN_SECONDS = 5 + 1 + 1

RESULT_BYTES = 4 << 20

_HELD = "Held…"


def pooled_threads(pid):
    """How many the toolkit keeps for work beside the main thread: as many as were ever busy at once, up to one for each
    core. Each has a descriptor."""
    names = (Path(f"/proc/{pid}/task/{thread}/comm") for thread in os.listdir(f"/proc/{pid}/task"))
    return [name.read_text(encoding="utf-8") for name in names].count("Thread (pooled)\n")


class FaultRun(Run):
    def __init__(self, executable, output, world):
        super().__init__(with_instant_processor(executable, world.folder / "program"), output, world)
        self._held = world.folder / "held"
        self.hold("")
        os.environ["HELD_FILE"] = str(self._held)
        os.environ["RESULT_BYTES"] = str(RESULT_BYTES)
        self._whole = self._weighed = None
        self._descriptors = Counter()
        self._folders = 0
        self.helper = HelperProgram(self.executable, world)

    def hold(self, what):
        """See instant_processor.mjs; an empty text holds nothing."""
        new = self._held.with_suffix(".new")
        new.write_text(what, encoding="ascii")
        new.rename(self._held)

    def recover(self):
        self._whole = None

    def start(self, variables=None, prepare=None, executable=None):
        """A new helper in place of the run's one."""
        self.helper.stop()
        self.helper = HelperProgram(executable or self.executable, self.world, variables, prepare)
        return self.helper

    def whole_helper(self):
        """The one that the last step has left whole, or a new one. It has done all once, so that what comes with the
        first use is no growth."""
        if self.helper is not self._whole:
            self.hold("")
            self.start().wait_for_status(READY, 45)
            self.use()
            self._weighed = self.helper
            self._descriptors = self._open_descriptors()
        self._whole = None
        return self.helper

    def use(self, name=FILE_NAME):
        """Analyses a link and saves its result."""
        helper = self.helper
        analyze(helper)
        helper.wait_for_status(ANALYZED, 30)
        place = self.new_place(name)
        save_to(helper, place)
        helper.wait_for_status(f"Saved to {place}", 30)
        require_equal(everything_below(place.parent), [str(place)], "the folder")
        require_equal(place.stat().st_size, RESULT_BYTES, "the file's size")

    def new_place(self, name=FILE_NAME):
        """In a folder of its own."""
        self._folders += 1
        return new_folder(self, f"folder-{self._folders}") / name

    def bring_to(self, state):
        """Into the middle of something; answers the place that it would save to."""
        helper, place = self.helper, self.new_place()
        if state == STARTING:
            self.hold("listening")
            helper = self.start()
            wait_until(lambda: helper.status_line() == "Starting ZUNTO Helper…", "the menu showing Starting", 20)
            wait_until(helper.processors, "the processor's start", 20)
        if state == ANALYZING:
            self.hold("analysis")
            analyze(helper)
            helper.wait_for_status(_HELD, 20)
        if state in (PANEL, DOWNLOADING, SAVING):
            analyze(helper)
            helper.wait_for_status(ANALYZED, 30)
        if state == PANEL:
            helper.press("Download…")
            wait_until(helper.has_save_panel, "the save panel being shown", 20)
        if state == DOWNLOADING:
            self.hold("download")
            helper.press("Download…")
            helper.wait_for_status(_HELD, 20)
        if state == SAVING:
            self.hold("result")
            save_to(helper, place)
            wait_until(lambda: written_into(helper.process.pid, place.parent), "bytes being written", 20)
        return place

    def wait_for_end_of(self, state, place):
        """What was begun comes to its end, now that nothing holds it."""
        helper = self.helper
        if state == ANALYZING:
            helper.wait_for_status(ANALYZED, 20)
        if state == DOWNLOADING:
            wait_until(helper.has_save_panel, "the save panel being shown", 20)
            helper.panel_button("Cancel").act("Press")
            helper.wait_for_status("Download finished locally. Saving was cancelled.", 20)
        if state == SAVING:
            helper.wait_for_status(f"Saved to {place}", 20)
            require_equal(place.stat().st_size, RESULT_BYTES, "the file's size")

    def wait_for_line(self, line, seconds):
        wait_until(lambda: self.helper.status_line() == line, f'the menu showing "{line}"', seconds)

    def wait_for_problem(self, sentences):
        """The window tells a failure and can be used again; answers what it says."""
        helper = self.helper
        wait_until(lambda: helper.button("Analyze").is_enabled, "the form being free again", TOLD_SECONDS)
        require(helper.status() in sentences, lambda: f'the window says "{helper.status()}"')
        return helper.status()

    def require_nothing_left(self, place):
        require_equal(everything_below(place.parent), [], "what is left in the folder")
        require_no_temporary_files(self)

    def require_whole(self):
        """The helper lives, says what is the case and can be used; nothing of it is left over or has grown."""
        helper = self.helper
        self.hold("")
        if helper.status_line() == STOPPED_LINE:
            require(not helper.processors(), "it says Stopped, and there is a processor")
            helper.choose_status_item("Start Helper")
        self.wait_for_line(READY_LINE, 30)
        require_equal(len(helper.processors()), 1, "the number of processors")
        helper.choose_status_item("Open Downloader")
        helper.wait_for_status(READY, 30)
        self.use()
        require_no_temporary_files(self)
        wait_until(lambda: len(helper.family()) == 1, "the processor being its only process", 10)
        if helper is self._weighed:
            wait_until(self._has_no_more_descriptors, "as many descriptors being open as before", 10)
            self._whole = helper

    def _has_no_more_descriptors(self):
        now = self._open_descriptors()
        require(now.total() <= self._descriptors.total(), lambda: f"more are {dict(now - self._descriptors)}")
        return True

    def _open_descriptors(self):
        """How many there are of each kind, but for those of the toolkit's pool."""
        kinds = Counter({"anon_inode:[eventfd]": -pooled_threads(self.helper.process.pid)})
        for descriptor in Path(f"/proc/{self.helper.process.pid}/fd").iterdir():
            with contextlib.suppress(OSError):  # closed meanwhile
                kinds[re.sub(r":\[\d+\]$", "", os.readlink(descriptor))] += 1
        return kinds
