"""The disk, the descriptors, the tools, the log and the clock fail."""

import ctypes
import os
import resource
import shutil
import time
from pathlib import Path

import mounts
from fault_run import SAVING, SEEN_SECONDS, TOLD_SECONDS, pooled_threads
from helper_program import ANALYZED, COULD_NOT_START, READY, READY_LINE, STOPPED_LINE
from lifecycle_checks import missing_component
from program_copy import with_instant_processor
from saving_checks import analyze, everything_below, save_to, status_that_begins
from steps import NotTried, Step, require, require_equal, wait_until

_CURL = "/usr/bin/curl"
_YEAR = 365 * 24 * 3600
_CLONE_NEWTIME = 0x80
_USES = 5


def system_steps():
    return [
        Step("The disk becomes full during the save", _disk_full, 120, "disk-full"),
        Step("The folder is removed during the save", _folder_removed, 120),
        Step("The folder is on a disk that cannot be written", _disk_read_only, 120),
        Step("A folder takes the file's name during the save", _folder_in_the_way, 120, "folder-in-the-way"),
        Step("The log's folder is a file", _log_folder_is_file, 120),
        Step("The log is a pipe that nobody reads", _log_is_pipe, 120),
        Step("The helper has no descriptor left for a while", _no_descriptors, 120),
        Step("curl goes away for a while", _curl_goes, 120),
        Step("There is no curl at the start", _no_curl, 120, "no-curl"),
        Step("There is no node", _no_node, 120),
        Step("Node is a file of text", _node_is_text, 120, "node-is-text"),
        Step("The clock since the machine's start is 50 years ahead", _clock_ahead, 120),
        Step("The clock since the machine's start has only begun", _clock_begins, 120),
        Step("The time of day is set back", _time_of_day),
    ]


def _disk_full(run):
    helper = run.whole_helper()
    place = run.new_place()
    with mounts.memory(place.parent, "1m"):
        free = os.statvfs(place.parent).f_bfree
        analyze(helper)
        helper.wait_for_status(ANALYZED, 30)
        save_to(helper, place)
        wait_until(lambda: "No space left on device" in helper.status(), "the window saying why", 20)
        said = helper.status()
        run.require_nothing_left(place)
        require_equal(os.statvfs(place.parent).f_bfree, free, "the free space")
    run.require_whole()
    return [f'"{said}"']


def _folder_removed(run):
    helper = run.whole_helper()
    place = run.bring_to(SAVING)
    shutil.rmtree(place.parent)
    run.hold("")
    said = wait_until(lambda: status_that_begins(helper, 'The file could not be saved as "film.mp4": '),
                      "the window saying why", 20)
    require(not place.parent.exists(), "the folder is back")
    run.require_whole()
    return [f'"{said}"']


def _folder_in_the_way(run):
    helper = run.whole_helper()
    place = run.bring_to(SAVING)
    place.mkdir()
    run.hold("")
    said = '"film.mp4" could not be removed: Is a directory.'
    helper.wait_for_status(said, 20)
    require_equal(everything_below(place.parent), [str(place)], "the folder")
    run.require_whole()
    return [f'"{said}"']


def _disk_read_only(run):
    helper = run.whole_helper()
    place = run.new_place()
    with mounts.memory(place.parent, "1m", read_only=True):
        analyze(helper)
        helper.wait_for_status(ANALYZED, 30)
        save_to(helper, place)
        said = wait_until(lambda: status_that_begins(helper, "No file could be made in the folder "),
                          "the window saying why", 20)
    run.require_whole()
    return [f'"{said}"']


def _log_folder_is_file(run):
    return _start_with_instead(run, run.world.log.parent, Path.touch)


def _log_is_pipe(run):
    return _start_with_instead(run, run.world.log, os.mkfifo)


def _start_with_instead(run, path, make):
    """`make` has made something else where the log or its folder stood."""
    run.whole_helper()  # it makes both
    run.helper.stop()
    kept = path.with_name("kept")
    path.rename(kept)
    make(path)
    try:
        said = _refusal(run, run.start())
    finally:
        path.unlink()
        kept.rename(path)
    run.require_whole()
    return [f'"{said}"']


def _refusal(run, helper):
    """The reason in the alert of a start, which is answered."""
    title, reason = wait_until(helper.alert_texts, "an alert", 60)
    require_equal(title, "ZUNTO Helper could not start", "the alert's title")
    helper.answer_alert("OK")
    helper.wait_for_status(COULD_NOT_START, TOLD_SECONDS)
    run.wait_for_line(STOPPED_LINE, SEEN_SECONDS)
    wait_until(lambda: not helper.family(), "no process being left", TOLD_SECONDS)
    return reason


def _no_descriptors(run):
    helper = run.whole_helper()
    pid = helper.process.pid
    # GLib ends the program when a thread that the toolkit's pool starts gets no descriptor, so it must have all.
    cores = len(os.sched_getaffinity(0))
    for _ in range(_USES):
        if pooled_threads(pid) < cores:
            run.use()
    if pooled_threads(pid) < cores:
        raise NotTried(f"the toolkit's pool has only {pooled_threads(pid)} of {cores} threads, and GLib ends a program "
                       "whose new thread gets no descriptor")
    processor = helper.processor_pid()
    opened = {int(name) for name in os.listdir(f"/proc/{pid}/fd")}
    lowest_free = min(set(range(len(opened) + 1)) - opened)
    before = resource.prlimit(pid, resource.RLIMIT_NOFILE, (lowest_free, resource.getrlimit(resource.RLIMIT_NOFILE)[1]))
    try:
        # The processor is there, but nobody can ask it.
        run.wait_for_line(STOPPED_LINE, SEEN_SECONDS)
        analyze(helper)
        said = "The network could not be set up: Too many open files."
        helper.wait_for_status(said, TOLD_SECONDS)
        require_equal(helper.processors(), [processor], "the processor")
        # No window is opened meanwhile: the X server hands a descriptor over with its memory, and XCB waits for ever
        # for an answer whose descriptor found no place.
    finally:
        resource.prlimit(pid, resource.RLIMIT_NOFILE, before)
    run.wait_for_line(READY_LINE, SEEN_SECONDS)
    run.require_whole()
    return [f"{lowest_free} descriptors in use", f'"{said}"']


def _curl_goes(run):
    helper = run.whole_helper()
    with mounts.hidden(_CURL):
        started = time.monotonic()
        run.wait_for_line(STOPPED_LINE, SEEN_SECONDS)
        seen = [f"Stopped after {time.monotonic() - started:.1f} s"]
        # The window does not need it.
        analyze(helper)
        helper.wait_for_status(ANALYZED, 20)
    started = time.monotonic()
    run.wait_for_line(READY_LINE, SEEN_SECONDS)
    run.require_whole()
    return [*seen, f"Ready {time.monotonic() - started:.1f} s after it was back"]


def _no_curl(run):
    with mounts.hidden(_CURL):
        said = _refusal(run, run.start())
        require("a bundled component could not run" in said, f'it says "{said}"')
    run.require_whole()
    return [f'"{said}"']


def _no_node(run):
    missing_component(run, "node")
    run.wait_for_line(STOPPED_LINE, SEEN_SECONDS)
    _put_node_back(run, run.world.folder / "without-node")
    return ['"A required bundled component is missing: node."']


def _node_is_text(run):
    folder = run.world.folder / "text-as-node"
    executable = with_instant_processor(run.executable, folder)
    node = folder / "resources/runtime/bin/node"
    node.unlink()
    node.write_text("Not a program.\n", encoding="ascii")
    node.chmod(0o755)
    said = _refusal(run, run.start(executable=executable))
    _put_node_back(run, folder)
    return [f'"{said}"']


def _put_node_back(run, folder):
    node = folder / "resources/runtime/bin/node"
    node.unlink(missing_ok=True)
    node.symlink_to(shutil.which("node"))
    run.require_whole()


def _clock_ahead(run):
    return _with_clock(run, 50 * _YEAR)


def _clock_begins(run):
    return _with_clock(run, 1 - int(time.clock_gettime(time.CLOCK_MONOTONIC)))


def _with_clock(run, seconds):
    libc = ctypes.CDLL(None, use_errno=True)

    def enter():
        if libc.unshare(_CLONE_NEWTIME) != 0:
            raise OSError(ctypes.get_errno(), "unshare")
        Path("/proc/self/timens_offsets").write_text(f"monotonic {seconds} 0\nboottime {seconds} 0\n", encoding="ascii")

    try:
        helper = run.start(prepare=enter)
    except Exception as refusal:
        raise NotTried(f"no other clock is allowed here ({refusal})") from refusal
    if os.readlink(f"/proc/{helper.process.pid}/ns/time") == os.readlink("/proc/self/ns/time"):
        raise NotTried("a program keeps the clock of the one that started it here")
    helper.wait_for_status(READY, 45)
    run.require_whole()
    helper.choose_status_item("Stop Helper")
    run.wait_for_line(STOPPED_LINE, TOLD_SECONDS)
    run.require_whole()
    now = time.clock_gettime(time.CLOCK_MONOTONIC) + seconds
    return [f"at {now:,.0f} s"]


def _time_of_day(_run):
    raise NotTried("it is one for the whole machine, which others use")
