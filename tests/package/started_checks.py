"""The installed helper as a desktop starts it: by the session bus and by links, cold and warm.

Import only inside a private world (see accessibility.py).
"""

import os
import signal
import subprocess
import time
from urllib.parse import quote

from gi.repository import Gio, GLib

import processes
import screen
import x11_windows
from files_checks import NAME, entry_of
from helper_program import ANALYZED, READY, WINDOW_TITLE, HelperProgram
from network import port_is_free
from steps import Step, require, require_equal, stays, wait_until

_PATH = "/" + NAME.replace(".", "/")
_LINK = "https://example.org/watch?v=a+b&t=1#c"
_OTHER_LINK = "https://example.org/other/ü"
_HOSTILE = ["", "zunto-helper", "ZUNTO-HELPER:?url=https%3A%2F%2Fevil.example", "https://evil.example/",
            "file:///etc/passwd", ":::", "zunto-helper\n:?url=x", "--help", "-platform", "\u202ezunto-helper:?url=x",
            "javascript:alert(1)//zunto-helper:?url=x", " zunto-helper:?url=x", "x" * 1_000_000]


def started_steps():
    return [
        Step("The session bus starts the helper, whose window comes up and gets ready", _cold_by_bus, 90, "by-bus",
             essential=True),
        Step("The window has the desktop entry's class", _window_class),
        Step("What runs is the installed program, with the installed processor and tools", _runs_installed),
        Step("A link is analysed with those tools", _analyse, 90, "analysed"),
        Step("The session bus brings a closed window of the same helper back", _warm_by_bus, 60),
        Step("The desktop's busy pointer ends with the start that was handed over", _startup_notice),
        Step("A link through the bus stands in the field", _warm_link_by_bus, 60),
        Step("xdg-open hands a link to the running helper", _warm_xdg_open, 60),
        Step("So does the desktop's own launcher, which reads the entry", _warm_gio_open, 60),
        Step("The entry's action opens the web page and leaves a closed window closed", _action, 30),
        Step("Links that are none of the helper's leave a closed window closed and its field alone", _hostile, 60),
        Step("A link without an address opens the window and leaves the field alone", _link_without_address, 60),
        Step("The bus starts a helper that has quit, with a link", _cold_link_by_bus, 90, "by-link"),
        Step("xdg-open starts one, too", _cold_xdg_open, 90),
        Step("A start with a link that is none of the helper's opens the window and no more", _cold_hostile, 90),
        Step("Once it has quit, nothing of it runs", _nothing_left, 30),
    ]


class _Started:
    """A process that somebody else has started, with as much of Popen as the driver of the window needs."""

    def __init__(self, pid):
        self.pid = pid

    def poll(self):
        return None if os.path.exists(f"/proc/{self.pid}/exe") else 0


class _StartedHelper(HelperProgram):
    """The instance that has the bus name."""

    def __init__(self, pid):  # pylint: disable=super-init-not-called  # it starts nothing
        self.process = _Started(pid)


def end_helper(run):
    """Ends the one that runs, if one does, and waits until its processor is gone as well."""
    pid = _owner()
    if pid:
        os.kill(pid, signal.SIGTERM)
        wait_until(lambda: not _owner(), "the helper's end", 15)
    wait_until(port_is_free, "the processor's end", 15)
    run.helper = None


def _owner():
    """The process that has the bus name, if any."""
    bus = Gio.bus_get_sync(Gio.BusType.SESSION)
    try:
        (pid,) = bus.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                               "GetConnectionUnixProcessID", GLib.Variant("(s)", (NAME,)), None,
                               Gio.DBusCallFlags.NONE, 5000, None).unpack()
        return pid
    except GLib.Error:
        return None


def _started(run):
    """Drives the helper that somebody has just started."""
    run.helper = _StartedHelper(wait_until(_owner, "the helper having its name on the bus", 30))
    wait_until(lambda: screen.windows_called(WINDOW_TITLE), "the window", 30)
    run.helper.wait_for_status(READY, 45)
    return run.helper


def _call(method, *arguments):
    """Of the running helper, in the desktop's own words."""
    signature = "(asa{sv})" if method == "Open" else "(a{sv})"
    Gio.bus_get_sync(Gio.BusType.SESSION).call_sync(
        NAME, _PATH, "org.freedesktop.Application", method, GLib.Variant(signature, arguments), None,
        Gio.DBusCallFlags.NO_AUTO_START, 15000, None)


def _launch(*links):
    subprocess.run(["gapplication", "launch", NAME, *links], stdin=subprocess.DEVNULL, timeout=60, check=True)


def _scheme_link(address):
    return "zunto-helper:?url=" + quote(address, safe="")


def _close_window():
    for window in screen.windows_called(WINDOW_TITLE):
        screen.close_window(window)
    wait_until(lambda: not screen.windows_called(WINDOW_TITLE), "the window being closed", 10)


def _require_link(run, address, pid):
    wait_until(lambda: screen.windows_called(WINDOW_TITLE), "the window", 15)
    wait_until(lambda: run.helper.link_field.text == address, f"{address} standing in the field", 15)
    run.helper.wait_for_status(READY, 45)
    require_equal(_owner(), pid, "the process")


def _cold_by_bus(run):
    require(not _owner(), "one runs already")
    seconds = time.monotonic()
    _launch()
    helper = _started(run)
    require_equal(helper.link_field.text, "", "the link field")
    return [f"ready after {time.monotonic() - seconds:.1f} s"]


def _window_class(run):
    (window,) = screen.windows_called(WINDOW_TITLE)
    done = subprocess.run(["xprop", "-id", str(window), "-notype", "WM_CLASS"], capture_output=True, text=True,
                          timeout=30, check=True)
    seen = done.stdout.split(" = ", 1)[1].strip()
    require_equal(seen, f'"zunto-helper", "{entry_of(run)["StartupWMClass"]}"', "the class")


def _runs_installed(run):
    require_equal(os.readlink(f"/proc/{run.helper.process.pid}/exe"), str(run.program), "the program")
    (processor,) = [pid for pid, line in run.world.processes().items()
                    if "processor/src/index.mjs" in line and processes.parent_of(pid) == run.helper.process.pid]
    with open(f"/proc/{processor}/environ", encoding="utf-8") as file:
        variables = dict(entry.split("=", 1) for entry in file.read().split("\0") if "=" in entry)
    tools = run.share / "zunto-helper/runtime/bin"
    require_equal([variables[name] for name in ("YT_DLP_PATH", "FFMPEG_PATH", "FFPROBE_PATH")],
                  [str(tools / name) for name in ("yt-dlp", "ffmpeg", "ffprobe")], "the tools")
    with open(f"/proc/{processor}/cmdline", encoding="utf-8") as file:
        command = file.read().split("\0")
    require_equal(command[:2], [str(tools / "node"), str(run.share / "zunto-helper/processor/src/index.mjs")],
                  "the processor's command")


def _analyse(run):
    run.helper.set_link(run.server.link)
    run.helper.press("Analyze")
    run.helper.wait_for_status(ANALYZED, 75)


def _warm_by_bus(run):
    pid, before = _owner(), run.helper.link_field.text
    _close_window()
    _launch()
    _require_link(run, before, pid)


def _startup_notice(_run):
    name = 'launcher/helper "1"-of-a-desktop_TIME4711'
    with x11_windows.StartupMessages() as messages:
        for method, arguments in (("Activate", ()), ("Open", (["zunto-helper:"],)), ("Open", ([""],))):
            before = len(messages.texts())
            _call(method, *arguments, {"desktop-startup-id": GLib.Variant("s", name)})
            wait_until(lambda: len(messages.texts()) > before, f"a word after {method}", 10)  # noqa: B023
            quoted = name.replace('"', '\\"')
            require_equal(messages.texts()[-1], f'remove: ID="{quoted}"', "the word")
        _call("Activate", {})
        stays(lambda: len(messages.texts()) == 3, "the silence where nothing was announced", 0.5)


def _warm_link_by_bus(run):
    pid = _owner()
    _launch(_scheme_link(_LINK))
    _require_link(run, _LINK, pid)


def _warm_xdg_open(run):
    pid = _owner()
    _close_window()
    subprocess.run(["xdg-open", _scheme_link(_OTHER_LINK)], stdin=subprocess.DEVNULL, timeout=30, check=True)
    _require_link(run, quote(_OTHER_LINK, safe=":/"), pid)


def _warm_gio_open(run):
    pid = _owner()
    _close_window()
    subprocess.run(["gio", "open", _scheme_link(_LINK)], stdin=subprocess.DEVNULL, timeout=30, check=True)
    _require_link(run, _LINK, pid)


def _action(run):
    pid = _owner()
    _close_window()
    for command in (["gapplication", "action", NAME, "open-video-import"], [run.program, "--open-video-import"]):
        run.opened.unlink(missing_ok=True)
        subprocess.run(command, stdin=subprocess.DEVNULL, timeout=30, check=True)
        wait_until(run.opened.exists, "the browser being called", 15)
        (address,) = wait_until(lambda: run.opened.read_text(encoding="utf-8").splitlines(), "the address", 5)
        require(address.startswith("https://") and address.endswith("/tools/video-import/"), f"it opens {address}")
    require(not screen.windows_called(WINDOW_TITLE), "the window came up")
    require_equal(_owner(), pid, "the process")
    _launch()
    wait_until(lambda: screen.windows_called(WINDOW_TITLE), "the window", 15)


def _hostile(run):
    pid = _owner()
    _close_window()
    for link in _HOSTILE:
        _call("Open", [link], {})
    stays(lambda: not screen.windows_called(WINDOW_TITLE), "the window being closed", 1.5)
    require_equal(_owner(), pid, "the process")
    _launch()
    _require_link(run, _LINK, pid)


def _link_without_address(run):
    pid = _owner()
    for link in ("zunto-helper:", "zunto-helper:?url=", "zunto-helper://open/now?link=x"):
        _close_window()
        _launch(link)
        _require_link(run, _LINK, pid)


def _cold_link_by_bus(run):
    end_helper(run)
    _launch(_scheme_link(_LINK))
    _require_started_with(run, _LINK)


def _require_started_with(run, address):
    helper = _started(run)
    wait_until(lambda: helper.link_field.text == address, f"{address} standing in the field", 15)


def _cold_xdg_open(run):
    end_helper(run)
    # It may last as long as what it starts.
    with subprocess.Popen(["xdg-open", _scheme_link(_OTHER_LINK)], stdin=subprocess.DEVNULL) as opener:
        _require_started_with(run, quote(_OTHER_LINK, safe=":/"))
        end_helper(run)
        require_equal(opener.wait(15), 0, "the status of xdg-open")


def _cold_hostile(run):
    end_helper(run)
    _launch("https://evil.example/")
    require_equal(_started(run).link_field.text, "", "the link field")


def _nothing_left(run):
    end_helper(run)
    wait_until(lambda: not [line for line in run.world.processes().values() if str(run.program) in line
                            or "processor/src/index.mjs" in line],
               "the end of all that was installed", 10)
    left = [path for path in run.world.temporary.rglob("*") if path.is_file()]
    require(not left, lambda: f"temporary files are left: {[str(path) for path in left]}")
    made = {str(path.relative_to(run.world.home)) for path in run.world.home.rglob("*") if path.is_file()}
    return [f"in the home: {', '.join(sorted(made))}"]
