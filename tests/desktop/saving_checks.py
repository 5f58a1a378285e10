"""What may go wrong with the result's last way, into the user's folder, and with the log; and who else may be on
the port."""

import contextlib
import os
import shutil
import socket
import tempfile
from pathlib import Path

import network
from hearing import Hearing
from helper_program import ANALYZED, COULD_NOT_START, READY, READY_LINE, STOPPED_LINE
from lifecycle_checks import start_helper
from stand_in_processor import FILE_NAME, NotHttp, StandInProcessor
from steps import Failure, Step, require, require_equal, stays, wait_until
from task_bar import TaskBar

_SAVING = f"Saving {FILE_NAME}…"
_ELSEWHERE = ("192.0.2.1", 443)  # of a network that is kept for examples
# To its folder no system lets anybody add a file, whoever he is.
_CLOSED_FOLDER = Path("/sys")


def saving_steps():
    return [
        *_network_steps(),
        Step("A program on the port that does not speak HTTP is never called ready, and an alert says what to do",
             _not_http, 90),
        Step("An answer that is not HTTP is told in the sentence of the request that it was to answer",
             _answers_not_http, 90),
        Step("A log that is a pipe nobody reads is refused in an alert instead of holding up the helper", _pipe_as_log,
             60),
        Step("Of a download's progress a screen reader hears each ten percent, and the task bar all, until it ends",
             _progress_is_told, 60),
        Step("A place that cannot take the file is refused with the reason, before anything is fetched", _barred_places,
             120, "barred-place"),
        Step("A folder that appears at the chosen place meanwhile is left as it is, and the window says why",
             _folder_meanwhile, 60, "folder-in-the-way"),
        Step("A helper that is killed while it saves leaves nothing in the folder nor among the temporary files",
             _killed_while_saving, 60),
    ]


def _network_steps():
    """Only where the run has a network of its own: in the machine's, others make connections, too."""
    if not network.has_only_loopback():
        return []
    return [
        Step("From its start to a saved file the helper connects to its processor and to nothing else",
             _connects_to_its_processor_alone, 60),
    ]


def _connects_to_its_processor_alone(run):
    run.helper.stop()
    opened_before, others_before = network.attempts()
    with StandInProcessor() as processor:
        helper = _analyzed(run)
        processor.finish()
        place = new_folder(run, "alone") / FILE_NAME
        save_to(helper, place)
        helper.wait_for_status(f"Saved to {place}", 20)
        helper.stop()
        require(processor.connections > 0, "it made no connection")
        wait_until(lambda: network.attempts()[0] - opened_before == processor.connections,
                   "each connection being one to the processor", 5)
        require_equal(network.attempts()[1], others_before, "the number of other attempts")
        made = processor.connections
    # What finds no way would have been noticed.
    with socket.socket() as stray, contextlib.suppress(OSError):
        stray.connect(_ELSEWHERE)
    require(network.attempts()[1] > others_before, "attempts without a way are not counted here")
    return [f"{made} connections, all to 127.0.0.1:{network.HELPER_PORT}"]


def _not_http(run):
    run.helper.stop()
    with NotHttp():
        helper = start_helper(run)
        seen = set()

        def alert():
            seen.update((helper.status(), helper.status_line()))
            return helper.alert_texts()

        texts = wait_until(alert, "an alert", 60)
        require_equal(texts, ["ZUNTO Helper could not start",
                              "Port 43127 may already be in use, or a bundled component could not run. "
                              "Open the local log for details."], "the alert's text")
        run.take_picture("not-http")
        helper.answer_alert("OK")
        helper.wait_for_status(COULD_NOT_START, 20)
        stays(lambda: helper.status_line() == STOPPED_LINE, "the menu showing Stopped", 7)
        require(not {READY, READY_LINE} & seen, "it was called ready")
        require(not helper.family(), lambda: f"a processor is left: {helper.family()}")


def _answers_not_http(run):
    with StandInProcessor() as processor:
        processor.greets_at = "/health"
        helper = start_helper(run)
        helper.wait_for_status("The local processor did not provide a session token.", 30)
        processor.greets_at = "/probe"
        helper.choose_status_item("Open Downloader")
        helper.wait_for_status(READY, 20)
        analyze(helper)
        helper.wait_for_status("The local processor returned an error.", 20)
        processor.greets_at = "/result"
        analyze(helper)
        helper.wait_for_status(ANALYZED, 20)
        save_to(helper, new_folder(run, "not-http") / FILE_NAME)
        helper.wait_for_status("The local result could not be read.", 20)
    require_equal(everything_below(run.saved / "not-http"), [], "what is left in the folder")


def _pipe_as_log(run):
    run.helper.stop()
    log = run.world.log
    kept = log.with_name("kept.log")
    log.parent.mkdir(parents=True, exist_ok=True)
    log.touch()
    log.rename(kept)
    os.mkfifo(log)
    try:
        helper = start_helper(run)
        texts = wait_until(helper.alert_texts, "an alert", 30)
        require_equal(texts, ["ZUNTO Helper could not start",
                              'The file "helper.log" could not be opened: It is not a regular file.'],
                      "the alert's text")
        run.take_picture("pipe-as-log")
        helper.answer_alert("OK")
        helper.wait_for_status(COULD_NOT_START, 20)
    finally:
        log.unlink()
        kept.rename(log)


def _progress_is_told(run):
    run.helper.stop()
    with StandInProcessor() as processor:
        processor.percents = [3, 12, 15, 18, 21.5, 47]
        helper = _analyzed(run)
        with Hearing(helper.process.pid) as hearing, TaskBar() as bar:
            helper.press("Download…")
            spoken = wait_until(lambda: hearing.percents()[-1:] == [100] and hearing.percents(), "100 being spoken", 30)
            require_equal(spoken, [3, 12, 21.5, 47, 100], "the percents that were spoken")
            wait_until(lambda: bar.seen()[-1:] == [None], "the task bar taking the progress away", 10)
            require_equal(bar.seen(), [3, 12, 15, 18, 21.5, 47, 100, None], "what the task bar was told")
            wait_until(helper.has_save_panel, "the save panel being shown", 10)
            helper.dismiss_panels()
    return [f"spoken: {spoken}"]


def _barred_places(run):
    folder = new_folder(run, "barred")
    dangling = folder / "link.mp4"
    dangling.symlink_to("nothing")
    too_long = "ä" * 200 + ".mp4"
    expected = {
        dangling: 'The file could not be saved as "link.mp4": A link that leads nowhere has that name.',
        folder / too_long: f'The file could not be saved as "{too_long}": File name too long.',
        _CLOSED_FOLDER / FILE_NAME: 'No file could be made in the folder "sys": ',
    }
    with StandInProcessor() as processor:
        helper = _analyzed(run)
        said = []
        for place, reason in expected.items():
            save_to(helper, place)
            said.append(wait_until(lambda r=reason: status_that_begins(helper, r), f'the status "{reason}"', 20))
            require(helper.button("Download…").is_enabled, "Download is disabled afterwards")
            require(not helper.is_shown("push button", "Show Downloaded File"), "a file is said to be there")
        require_equal(processor.results_asked_for, 0, "the number of results asked for")
    require_equal(os.listdir(folder), [dangling.name], "the folder")
    return [f"said: {reason}" for reason in said]


def _folder_meanwhile(run):
    folder = new_folder(run, "meanwhile")
    place = folder / FILE_NAME
    with StandInProcessor() as processor:
        helper = _analyzed(run)
        save_to(helper, place)
        _wait_for_half(helper, processor)
        place.mkdir()
        processor.finish()
        helper.wait_for_status(f'"{FILE_NAME}" could not be removed: Is a directory.', 20)
    require(place.is_dir(), "the folder is gone")
    require_equal(everything_below(folder), [str(place)], "the folder")


def _killed_while_saving(run):
    folder = _folder_for_nameless_files(run)
    try:
        with StandInProcessor() as processor:
            helper = _analyzed(run)
            before = everything_below(run.world.temporary)
            save_to(helper, folder / FILE_NAME)
            _wait_for_half(helper, processor)
            written = wait_until(lambda: written_into(helper.process.pid, folder), "bytes being written", 10)
            run.take_picture("killed-while-saving")
            helper.process.kill()
            helper.process.wait()
            require_equal(everything_below(folder), [], "what is left in the folder")
            require_equal(everything_below(run.world.temporary), before, "the set of temporary files")
    finally:
        shutil.rmtree(folder)
    return [f"killed after {written:,} bytes in {folder}"]


def _analyzed(run):
    helper = start_helper(run)
    helper.wait_for_status(READY, 30)
    analyze(helper)
    helper.wait_for_status(ANALYZED, 20)
    return helper


def analyze(helper):
    helper.set_link("https://example.org/film")
    helper.press("Analyze")


def save_to(helper, place):
    helper.press("Download…")
    wait_until(helper.has_save_panel, "the save panel being shown", 20)
    helper.answer_save_panel(place)


def _wait_for_half(helper, processor):
    helper.wait_for_status(_SAVING, 20)
    require(processor.half_is_sent.wait(10), "the result was not asked for")


def status_that_begins(helper, text):
    status = helper.status()
    if not status.startswith(text):
        raise Failure(f'it reads "{status}"')
    return status


def written_into(pid, folder):
    """How many bytes the files have that a process has open in a folder, with a name or without."""
    size = 0
    for descriptor in Path(f"/proc/{pid}/fd").iterdir():
        try:
            if os.readlink(descriptor).startswith(f"{folder}/"):
                size = max(size, descriptor.stat().st_size)
        except OSError:
            continue  # closed meanwhile
    return size


def new_folder(run, name):
    folder = run.saved / name
    folder.mkdir()
    return folder


def _folder_for_nameless_files(run):
    """Below the saved files or in memory: not every file system has files without a name."""
    for parent in (run.saved, Path("/dev/shm")):
        try:
            os.close(os.open(parent, os.O_TMPFILE | os.O_WRONLY))
        except OSError:
            continue
        return Path(tempfile.mkdtemp(prefix="killed-", dir=parent))
    raise Failure("no file system here can have a file without a name")


def everything_below(folder):
    return sorted(str(path) for path in folder.rglob("*"))
