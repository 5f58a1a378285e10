"""The processor, or the helper, ends or stops in the middle of something."""

import contextlib
import os
import signal
import time
from functools import partial

from fault_run import ANALYZING, DOWNLOADING, IDLE, PANEL, SAVING, SEEN_SECONDS, STARTING, TOLD_SECONDS
from helper_program import READY_LINE, STOPPED_LINE
from lifecycle_checks import wait_for_nobody
from steps import Step, require

# Between two looks at a job the processor is not there; in the middle of an answer it hangs up.
_POLL_FAILED = ("Could not connect to the local processor.", "The connection to the local processor was lost.",
                "The local processor returned an error.")
_RESULT_FAILED = ("The answer of the local processor was cut short.", "The connection to the local processor was lost.")


def processor_steps():
    return [
        Step("The processor is killed while it is ready", partial(_processor_killed, state=IDLE), 120),
        Step("The processor is killed while an analysis is followed", partial(_processor_killed, state=ANALYZING), 120),
        Step("The processor is killed while a download is followed",
             partial(_processor_killed, state=DOWNLOADING), 120),
        Step("The processor is killed while its result is fetched", partial(_processor_killed, state=SAVING), 120),
        Step("The processor stops while it is ready, and goes on", partial(_processor_stopped, state=IDLE), 120),
        Step("The processor stops while an analysis is followed, and goes on",
             partial(_processor_stopped, state=ANALYZING), 120),
        Step("The processor stops while a download is followed, and goes on",
             partial(_processor_stopped, state=DOWNLOADING), 120),
        Step("The processor stops while its result is fetched, and goes on",
             partial(_processor_stopped, state=SAVING), 120),
    ]


def killed_helper_steps():
    return [
        Step("The helper is killed while its processor starts", partial(_helper_killed, state=STARTING), 120),
        Step("The helper is killed while it is ready", partial(_helper_killed, state=IDLE), 120),
        Step("The helper is killed during an analysis", partial(_helper_killed, state=ANALYZING), 120),
        Step("The helper is killed while its save panel is open", partial(_helper_killed, state=PANEL), 120),
        Step("The helper is killed during a download", partial(_helper_killed, state=DOWNLOADING), 120),
        Step("The helper is killed while it saves", partial(_helper_killed, state=SAVING), 120),
    ]


def _processor_killed(run, state):
    helper = run.whole_helper()
    place = run.bring_to(state)
    os.kill(helper.processor_pid(), signal.SIGKILL)
    started = time.monotonic()
    run.wait_for_line(STOPPED_LINE, TOLD_SECONDS)
    seen = [f"Stopped after {time.monotonic() - started:.1f} s"]
    if state != IDLE:
        said = run.wait_for_problem(_RESULT_FAILED if state == SAVING else _POLL_FAILED)
        seen.append(f'"{said}"')
    run.require_nothing_left(place)
    run.require_whole()
    return seen


def _processor_stopped(run, state):
    helper = run.whole_helper()
    place = run.bring_to(state)
    before = helper.status()
    with _stopped(helper.processor_pid()):
        started = time.monotonic()
        run.wait_for_line(STOPPED_LINE, SEEN_SECONDS)
        seen = [f"Stopped after {time.monotonic() - started:.1f} s"]
        require(helper.status() == before, lambda: f'the window says "{helper.status()}"')
    started = time.monotonic()
    run.wait_for_line(READY_LINE, SEEN_SECONDS)
    seen.append(f"Ready {time.monotonic() - started:.1f} s after it went on")
    run.hold("")
    run.wait_for_end_of(state, place)
    run.require_whole()
    return seen


@contextlib.contextmanager
def _stopped(pid):
    os.kill(pid, signal.SIGSTOP)
    try:
        yield
    finally:
        os.kill(pid, signal.SIGCONT)


def _helper_killed(run, state):
    if state != STARTING:
        run.whole_helper()
    place = run.bring_to(state)
    helper = run.helper
    require(helper.processor_pid(), "there was no processor before")
    helper.process.kill()
    helper.process.wait()
    started = time.monotonic()
    wait_for_nobody(run, helper.mark)
    seen = f"nobody left after {time.monotonic() - started:.1f} s"
    run.require_nothing_left(place)
    return [seen]
