"""Many starts, many stops, and a desktop whose parts hang or go away under a helper."""

import contextlib
import os
import signal
import subprocess
import time
from functools import partial
from pathlib import Path

import processes
import screen
import tray
from accessibility import find_all
from desktop_checks import BusOfItsOwn, bus_steps, quit_by_key, wait_for_windows
from fault_run import IDLE, SAVING, TOLD_SECONDS, pooled_threads
from helper_program import READY, READY_LINE, STOPPED_LINE, WINDOW_TITLE, HelperProgram
from lifecycle_checks import wait_for_nobody
from private_world import SCREEN
from steps import Step, require, require_equal, wait_until
from tray_host import TrayHost

_ROUNDS = 20
_STARTS = 10
_CYCLES = 200
_FIRST_CYCLES = 20  # after them the memory has reached its size
_GROWTH = 1.05
_DEAF_SECONDS = 6  # more than from one look at the processor to the next


def session_steps():
    return [
        Step(f"Ten starts at once, {_ROUNDS} times", _many_starts, 60 * _ROUNDS),
        Step(f"{_CYCLES} times Stop Helper and Start Helper", _many_cycles, 15 * _CYCLES),
        Step("The tray goes away and comes back, twice", _tray_goes, 120),
        Step("The session bus hangs under a helper, and goes on", _bus_hangs, 180),
        *bus_steps(),
        Step("The session bus goes away under a helper", _bus_goes, 120),
        Step("The display goes away while the helper is ready", partial(_display_goes, state=IDLE), 120),
        Step("The display goes away while the helper saves", partial(_display_goes, state=SAVING), 120),
    ]


def _many_starts(run):
    run.helper.stop()
    for number in range(_ROUNDS):
        starts = [HelperProgram(run.executable, run.world) for _ in range(_STARTS)]
        try:
            wait_until(lambda s=starts: len(_living(s)) == 1, f"all but one having handed over in round {number}", 60)
            (run.helper,) = _living(starts)
            require_equal({start.process.returncode for start in starts if start is not run.helper}, {0},
                          "the statuses of the others")
            run.helper.wait_for_status(READY, 45)
            wait_for_windows(1, TOLD_SECONDS)
            require_equal([len(start.processors()) for start in starts if start.processors()], [1],
                          "the numbers of processors")
            run.helper.process.send_signal(signal.SIGTERM)
            require_equal(run.helper.process.wait(10), 0, "the exit status")
            for start in starts:
                wait_for_nobody(run, start.mark)
        finally:
            for start in starts:
                start.stop()
    return [f"{_ROUNDS * _STARTS} starts, each time one window and one processor"]


def _living(starts):
    return [start for start in starts if start.process.poll() is None]


def _many_cycles(run):
    # A new one: where much has been freed, much can be lost before the memory grows.
    helper = run.start()
    helper.wait_for_status(READY, 45)
    pid = helper.process.pid
    running, _ = _threads_and_descriptors(pid)
    for number in range(_CYCLES):
        tray.choose(pid, "Stop Helper")
        run.wait_for_line(STOPPED_LINE, TOLD_SECONDS)
        # A thread waits for the end and tells it: told after the next start, it makes the next processor forgotten.
        wait_until(lambda: _threads_and_descriptors(pid)[0] < running, "the processor's end being told", TOLD_SECONDS)
        require(not helper.processors(), "the processor has not ended")
        tray.choose(pid, "Start Helper")
        run.wait_for_line(READY_LINE, 30)
        if number + 1 == _FIRST_CYCLES:
            before = _weigh(pid)
    after = _weigh(pid)
    seen = [f"{what} {first} before, {last} after" for what, first, last in
            zip(("heap KiB", "private KiB", "threads", "descriptors"), before, after)]
    for first, last, limit in zip(before, after, (_GROWTH, _GROWTH, 1, 1)):
        require(last <= first * limit, f"it has grown: {'; '.join(seen)}")
    run.require_whole()
    return seen


def _weigh(pid):
    time.sleep(3)
    heap = private = 0
    is_heap = False
    for line in Path(f"/proc/{pid}/smaps").read_text(encoding="utf-8").splitlines():
        name, *values = line.split()
        if not name.endswith(":"):
            is_heap = values[-1] == "[heap]"
        elif name == "Private_Dirty:":
            private += int(values[0])
            heap += int(values[0]) if is_heap else 0
    return heap, private, *_threads_and_descriptors(pid)


def _threads_and_descriptors(pid):
    """But for those of the toolkit's pool."""
    pooled = pooled_threads(pid)
    return [number - pooled for number in processes.threads_and_descriptors(pid)]


def _tray_goes(run):
    helper = run.whole_helper()
    pid = helper.process.pid
    for _ in range(2):
        with TrayHost() as host:
            host.wait_for_item(TOLD_SECONDS)
            wait_until(lambda: not find_all(helper.window(), "menu bar"), "the menu leaving the window", TOLD_SECONDS)
            tray.choose(pid, "Stop Helper")
            host.wait_for_title("Z/UNTO", TOLD_SECONDS)
            tray.choose(pid, "Start Helper")
            host.wait_for_title("Z/UNTO ●", 30)
        wait_until(lambda: find_all(helper.window(), "menu bar"), "the menu being back in the window", TOLD_SECONDS)
        run.wait_for_line(READY_LINE, TOLD_SECONDS)
    run.require_whole()
    return ["each tray was told of the item and its titles; between them the menu stood in the window"]


def _bus_hangs(run):
    helper = run.whole_helper()
    (bus,) = [pid for pid, line in run.world.processes().items() if f"unix:dir={run.world.folder}" in line]
    os.kill(bus, signal.SIGSTOP)
    try:
        run.use()
        os.kill(helper.processor_pid(), signal.SIGKILL)
        run.wait_for_line(STOPPED_LINE, TOLD_SECONDS)
        helper.choose_status_item("Start Helper")
        run.wait_for_line(READY_LINE, 30)
        run.use()
    finally:
        os.kill(bus, signal.SIGCONT)
    require_equal(helper.start_again(), 0, "the status of a start afterwards")
    require_equal(len(screen.windows_called(WINDOW_TITLE)), 1, "the number of windows")
    run.require_whole()
    return ["two files saved and a processor started meanwhile"]


def _bus_goes(run):
    bus = BusOfItsOwn(run)
    try:
        # Nobody reads its controls, which are told over its bus.
        helper = run.start(bus.environment)
        wait_for_windows(1, 45)
        wait_until(helper.processors, "the processor's start", 30)
        log = run.world.log
        bus.daemon.kill()
        used = processes.cpu_milliseconds(helper.process.pid)
        time.sleep(_DEAF_SECONDS)
        used = processes.cpu_milliseconds(helper.process.pid) - used
        require(used < 1000, f"it has used {used:.0f} ms of the processor while it waited")
        require_equal(len(helper.processors()), 1, "the number of processors")
        asked = log.read_text(encoding="utf-8").count("POST /probe")
        (window,) = screen.windows_called(WINDOW_TITLE)
        screen.give_keyboard(window)
        screen.type_text("https://example.org/film")
        screen.press("Return")
        wait_until(lambda: log.read_text(encoding="utf-8").count("POST /probe") > asked, "a link being analysed", 20)
        seconds = quit_by_key(helper)
        wait_for_nobody(run, helper.mark)
    finally:
        bus.end()
    return [f"{used:.0f} ms of the processor in {_DEAF_SECONDS} s", f"quit within {seconds:.1f} s"]


def _display_goes(run, state):
    with _display() as (server, name):
        helper = run.start({"DISPLAY": name})
        helper.wait_for_status(READY, 45)
        place = run.bring_to(state)
        require_equal(len(helper.processors()), 1, "the number of processors")
        server.kill()
        started = time.monotonic()
        wait_until(lambda: helper.process.poll() is not None, "the helper's end", TOLD_SECONDS)
        wait_for_nobody(run, helper.mark)
        seconds = time.monotonic() - started
        run.require_nothing_left(place)
    return [f"ended with status {helper.process.returncode}, nobody left after {seconds:.1f} s"]


@contextlib.contextmanager
def _display():
    """(process, name) of a display without a window manager."""
    server = subprocess.Popen(["Xvfb", "-displayfd", "1", "-screen", "0", SCREEN, "-nolisten", "tcp", "-noreset"],
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    try:
        yield server, f":{server.stdout.readline().strip()}"
    finally:
        server.kill()
        server.wait()
        server.stdout.close()
