"""The helper among its desktop's parts: dialogs over its window, the session bus, signals, its place."""

import signal
import subprocess
import time
from urllib.parse import quote

import processes
import screen
import tray
import x11_windows
from helper_program import ANALYZED, COULD_NOT_START, READY, SAVE_TITLE, WINDOW_TITLE, HelperProgram
from program_copy import without_component
from steps import Step, require, require_equal, stays, wait_until

_PERMISSION = "I own this media or have permission to download and use it."
_CLASS = "ZUNTO Helper"
_LINK = "https://example.org/under/an/alert"

# How long a start looks for another one on a bus that does not answer, and what a busy machine adds to it.
_ALONE_SECONDS = 2 + 8


def desktop_steps():
    return [
        Step("The window stands in the middle of the screen, and does not move when it is presented again",
             _stands_still, 60),
        Step("A closed window comes back from the icon on a bar that knows only the older tray, and the icon to the next "
             "bar", _back_from_older_tray, 60, x11_alone="Wayland has no older tray"),
        Step("A save panel that comes while the window is minimised bars the window until it is answered",
             _panel_over_minimised_window, 120, x11_alone="sway, as most tiling desktops, has no minimised windows"),
        Step("An alert that comes while the window is closed bars the window until it is answered, and no more than "
             "that", _alert_over_closed_window, 90),
        *bus_steps(),
        Step("A helper that was started with the ending signals blocked obeys them", _blocked_signals, 60),
    ]


def bus_steps():
    return [
        Step("A second start on a bus that hangs stands alone soon, and quitting there takes no time", _bus_hangs, 90),
        Step("A second start whose bus goes away stands alone, and the first one lives on", _bus_goes_away, 90),
    ]


def _stands_still(run):
    helper = _start(run)
    helper.wait_for_status(READY, 45)
    (window,) = screen.windows_called(WINDOW_TITLE)
    place = screen.place_of(window)
    left, top, right, bottom = place
    width, height = screen.size()
    off = abs((left + right) - width) / 2, abs((top + bottom) - height) / 2
    require(max(off) <= 1, f"the window is {off} pixels off the middle")
    tray.choose(helper.process.pid, "Open Downloader")
    stays(lambda: screen.place_of(window) == place, f"the window's place {place}", 2)


def _back_from_older_tray(run):
    helper = run.helper
    (window,) = screen.windows_called(WINDOW_TITLE)
    bar = _start_bar()
    try:
        screen.close_window(window)
        wait_until(lambda: not screen.windows_called(WINDOW_TITLE), "the window being closed", 10)
        (icon,) = _wait_for_shown(1, "the icon on the bar")
        screen.click(*_middle(screen.place_of(icon)))
        _wait_for_shown(2, "the open menu beside the icon")
        run.take_picture("older-tray")
        screen.press("Down", "Down", "Return")  # from the first item that can be chosen to the second
        wait_until(lambda: screen.windows_called(WINDOW_TITLE), "the window being back", 15)
        _end(bar)
        _wait_for_shown(1, "the icon being gone with the bar")
        bar = _start_bar()
        _wait_for_shown(2, "the icon on the next bar, beside the window")
    finally:
        _end(bar)


def _wait_for_shown(count, what):
    """Windows of the helper, its menus and its icon included."""
    return wait_until(lambda: len(shown := x11_windows.windows_of_class(_CLASS)) == count and shown, what, 15)


def _start_bar():
    return subprocess.Popen(["trayer", "--edge", "bottom", "--align", "right", "--SetDockType", "false"],
                            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def _end(process):
    process.terminate()
    process.wait()


def _middle(place):
    left, top, right, bottom = place
    return (left + right) // 2, (top + bottom) // 2


def _panel_over_minimised_window(run):
    helper = run.helper
    helper.set_link(run.server.link)
    helper.press("Analyze")
    helper.wait_for_status(ANALYZED, 45)
    (window,) = screen.windows_called(WINDOW_TITLE)
    helper.press("Download…")
    x11_windows.minimise(window)
    wait_until(helper.has_save_panel, "the save panel", 45)
    require(not screen.windows_called(WINDOW_TITLE), "the window was not minimised")
    require_equal(helper.start_again(), 0, "the second start's status")
    wait_until(lambda: screen.windows_called(WINDOW_TITLE), "the window being back", 15)
    (panel,) = screen.windows_called(SAVE_TITLE)
    x11_windows.move(panel, 520, 60)
    _require_barred(run, "panel-over-window")
    helper.panel_button("Cancel").act("Press")
    helper.wait_for_status("Download finished locally. Saving was cancelled.", 15)
    _require_usable(helper)


def _alert_over_closed_window(run):
    run.helper.stop()
    run.helper = helper = HelperProgram(without_component(run, "ffmpeg"), run.world)
    wait_until(helper.alert_texts, "the alert of the start", 30)
    helper.answer_alert("OK")
    helper.wait_for_status(COULD_NOT_START, 20)
    (window,) = screen.windows_called(WINDOW_TITLE)
    screen.close_window(window)
    wait_until(lambda: not screen.windows_called(WINDOW_TITLE), "the window being closed", 10)
    tray.choose(helper.process.pid, "Start Helper")
    wait_until(helper.alert_texts, "the alert of Start Helper", 20)
    tray.choose(helper.process.pid, "Open Downloader")
    wait_until(lambda: screen.windows_called(WINDOW_TITLE), "the window being back", 15)
    # The rest of the program goes on.
    require_equal(helper.start_again("zunto-helper:?url=" + quote(_LINK, safe="")), 0, "the second start's status")
    wait_until(lambda: helper.link_field.text == _LINK, "the link standing in the field", 15)
    helper.wait_for_status(COULD_NOT_START, 20)
    _require_barred(run, "alert-over-window")
    helper.answer_alert("OK")
    _require_usable(helper)


def _permission(helper):
    return helper.control("check box", _PERMISSION)


def _click_permission(helper):
    left, top, _, bottom = helper.place_of(_permission(helper))
    screen.click(left + 8, (top + bottom) // 2)


def _require_barred(run, picture):
    helper = run.helper
    _click_permission(helper)
    stays(lambda: _permission(helper).is_("CHECKED"), "the box under the dialog", 1.5)
    run.take_picture(picture)


def _require_usable(helper):
    wait_until(lambda: not _is_barred_still(helper), "the window being usable again", 15, interval=1)


def _is_barred_still(helper):
    _click_permission(helper)
    return _permission(helper).is_("CHECKED")


def _bus_hangs(run):
    bus = BusOfItsOwn(run)
    try:
        first = _start(run, bus)
        wait_for_windows(1, 45)
        bus.daemon.send_signal(signal.SIGSTOP)
        started = time.monotonic()
        alone = HelperProgram(run.executable, run.world, bus.environment)
        try:
            wait_for_windows(2, _ALONE_SECONDS)
            lines = [f"stood alone after {time.monotonic() - started:.1f} s"]
            _require_end(alone, signal.SIGTERM, 0)
        finally:
            alone.stop()
        waiting = HelperProgram(run.executable, run.world, bus.environment)
        try:
            time.sleep(0.5)
            _require_end(waiting, signal.SIGTERM, -signal.SIGTERM)
        finally:
            waiting.stop()
        return lines + [f"quit within {quit_by_key(first):.1f} s"]
    finally:
        bus.end()


def _bus_goes_away(run):
    bus = BusOfItsOwn(run)
    try:
        first = _start(run, bus)
        wait_for_windows(1, 45)
        # The first one must not answer before the bus is gone.
        first.process.send_signal(signal.SIGSTOP)
        alone = HelperProgram(run.executable, run.world, bus.environment)
        try:
            time.sleep(0.7)
            bus.daemon.kill()
            wait_for_windows(2, _ALONE_SECONDS)
            _require_end(alone, signal.SIGTERM, 0)
        finally:
            alone.stop()
        first.process.send_signal(signal.SIGCONT)
        return [f"quit within {quit_by_key(first):.1f} s"]
    finally:
        bus.end()


def _blocked_signals(run):
    endings = {signal.SIGTERM, signal.SIGINT, signal.SIGHUP}
    for ending in sorted(endings):
        run.helper.stop()
        # A run in the background ignores SIGINT and would hand that on, and the helper goes on ignoring it.
        handlers = {number: signal.signal(number, signal.SIG_DFL) for number in endings}
        earlier = signal.pthread_sigmask(signal.SIG_BLOCK, endings)
        try:
            run.helper = HelperProgram(run.executable, run.world)
        finally:
            signal.pthread_sigmask(signal.SIG_SETMASK, earlier)
            for number, handler in handlers.items():
                signal.signal(number, handler)
        wait_for_windows(1, 30)
        run.helper.wait_for_status(READY, 45)
        _require_end(run.helper, ending, 0)


class BusOfItsOwn:
    """A session bus for some helpers alone, which a step may do anything to."""

    def __init__(self, run):
        address = f"unix:path={run.world.folder / 'runtime'}/own-bus-{time.monotonic_ns()}"
        self.daemon = subprocess.Popen(["dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address=1",
                                        f"--address={address}"], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                       stderr=subprocess.DEVNULL, text=True)
        self.environment = {"DBUS_SESSION_BUS_ADDRESS": self.daemon.stdout.readline().strip()}
        require(self.environment["DBUS_SESSION_BUS_ADDRESS"], "there is no bus")

    def end(self):
        self.daemon.kill()
        self.daemon.wait()
        self.daemon.stdout.close()


def _start(run, bus=None):
    run.helper.stop()
    run.helper = HelperProgram(run.executable, run.world, bus.environment if bus else None)
    return run.helper


def wait_for_windows(count, seconds):
    wait_until(lambda: len(screen.windows_called(WINDOW_TITLE)) == count, f"{count} windows standing there", seconds)


def _require_end(helper, ending, status):
    helper.process.send_signal(ending)
    wait_until(lambda: helper.process.poll() is not None, "the helper's end", 5)
    require_equal(helper.process.returncode, status, "the exit status")
    wait_until(lambda: not processes.marked(helper.mark), "the end of all its processes", 10)


def quit_by_key(helper):
    """Answers how many seconds it took."""
    (window,) = screen.windows_called(WINDOW_TITLE)
    screen.give_keyboard(window)
    started = time.monotonic()
    screen.press("ctrl+q")
    wait_until(lambda: helper.process.poll() is not None, "the helper's end", 5)
    require_equal(helper.process.returncode, 0, "the exit status")
    return time.monotonic() - started
