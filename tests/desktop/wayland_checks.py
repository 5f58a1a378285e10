"""What under Wayland the compositor decides: frames, who comes forward, tiles, scales, and what passes between
programs; and the status menu on a bar.

Import only inside a private world (see accessibility.py).
"""

import json
import subprocess
import sys
import time
from pathlib import Path
from urllib.parse import quote

from gi.repository import Gio, GLib

import accessibility
import processes
import screen
import sway_windows
import tray
from helper_program import READY, WINDOW_TITLE
from lifecycle_checks import start_helper
from steps import Step, require, require_equal, wait_until

_NAME = "example.zunto.Helper"
_OTHER_TITLE = "Another Program"
_LINK = "https://example.org/from/another/program"
_CALL_MS = 5000

_BAR = {"position": "top", "height": 30, "modules-right": ["tray"], "tray": {"icon-size": 20}}
_BAR_STYLE = """
* { font: 13px "DejaVu Sans"; }
window#waybar { background: #2b3038; }
decoration, menu { box-shadow: none; border: none; border-radius: 0; margin: 0; padding: 0; }
menu menuitem { min-height: 26px; padding: 0 12px; }
menu separator { min-height: 0; margin: 0; padding: 0; background: none; }
"""

# Of 255 steps of brightness: the heading is black on light gray.
_MOST_BLURRED = 150


def wayland_steps():
    return [
        Step("The window is the compositor's own, in its frame, under the program's name", _native_window),
        Step("A second start brings the window to where the user is", _second_start, 60),
        Step("Activate and Open bring the window forward by the token of another program, and leave it the one it is",
             _activated_by_token, 60),
        Step("A token that the compositor does not know brings it forward all the same", _token_of_no_use, 60),
        Step("What another program has copied is pasted", _paste, 60),
        Step("A link that is dragged out of another program's window replaces the link", _drop, 60),
        Step("In a tile that is smaller than the form every control can be reached", _small_tile, 60),
        Step("A helper that is started at scale 2 draws its window with all pixels", _double_scale, 60),
        Step("A bar shows the icon, and its menu brings the closed window back", _menu_on_bar, 60),
    ]


def last_wayland_steps():
    return [Step("Quit in the menu on a bar ends the helper, and nothing of it is left", _quit_on_bar, 60)]


def _environment(run):
    """Of programs beside the helper. Their news would make the accessibility bus's library here wait for itself."""
    return {**run.world.session_environment(), "NO_AT_BRIDGE": "1"}


def _window():
    """The window as sway describes it."""
    (number,) = screen.windows_called(WINDOW_TITLE)
    return sway_windows.window_of(number)


def _has_keyboard(title):
    return [window["focused"] for window in sway_windows.windows() if window["name"] == title] == [True]


def _native_window(_run):
    window = _window()
    require_equal(window["shell"], "xdg_shell", "the window's protocol")
    require_equal(window["app_id"], _NAME, "the window's program")
    require_equal(window["border"], "normal", "the window's frame")  # "csd" where a program draws its own
    require(window["deco_rect"]["height"] > 0, "there is no title bar")


def _second_start(run):
    earlier = _window()
    sway_windows.command("workspace 2")
    try:
        wait_until(lambda: not screen.windows_called(WINDOW_TITLE), "the window being out of sight", 10)
        require_equal(run.helper.start_again(), 0, "the second start's status")
        wait_until(lambda: _has_keyboard(WINDOW_TITLE), "the window having the keyboard", 15)
        require(_window()["id"] != earlier["id"], "it is the earlier window, which sway leaves where it was")
        run.helper.wait_for_status(READY, 30)
    finally:
        sway_windows.command("workspace 1")
    sway_windows.command(f"[con_id={_window_anywhere()['id']}] move workspace 1, workspace 1, focus")


def _window_anywhere():
    (window,) = [window for window in sway_windows.windows() if window["name"] == WINDOW_TITLE]
    return window


def _activated_by_token(run):
    helper = run.helper
    earlier = _window()["id"]
    with _OtherProgram(run) as other:
        _call_application("Activate", "(a{sv})", {"activation-token": GLib.Variant("s", other.allow())})
        wait_until(lambda: _has_keyboard(WINDOW_TITLE), "the window having the keyboard", 15)
        run.take_picture("activated")
        screen.give_keyboard(other.number)
        _call_application("Open", "(asa{sv})", ["zunto-helper:?url=" + quote(_LINK, safe="")],
                          {"activation-token": GLib.Variant("s", other.allow())})
        wait_until(lambda: _has_keyboard(WINDOW_TITLE), "the window having the keyboard again", 15)
        wait_until(lambda: helper.link_field.text == _LINK, "the link standing in the field", 15)
    require_equal(_window()["id"], earlier, "sway's number of the window")


def _token_of_no_use(run):
    with _OtherProgram(run):
        _call_application("Activate", "(a{sv})", {"activation-token": GLib.Variant("s", "used up")})
        wait_until(lambda: _has_keyboard(WINDOW_TITLE), "the window having the keyboard", 15)


def _call_application(method, signature, *arguments):
    Gio.bus_get_sync(Gio.BusType.SESSION).call_sync(
        _NAME, "/" + _NAME.replace(".", "/"), "org.freedesktop.Application", method,
        GLib.Variant(signature, arguments), None, Gio.DBusCallFlags.NO_AUTO_START, _CALL_MS, None)


def _paste(run):
    run.helper.set_link("")
    with _OtherProgram(run) as other:
        other.allow()  # a click, which copies, too
        # The window that is pasted into must have the keyboard.
        screen.give_keyboard(_window()["id"])
        run.helper.press("Paste")
        wait_until(lambda: run.helper.link_field.text == _LINK, "the link standing in the field", 10)


def _drop(run):
    helper = run.helper
    helper.set_link("https://example.org/before")
    with _OtherProgram(run) as other:
        left, top, right, bottom = screen.place_of(other.number)
        from_x, from_y = (left + right) // 2, (top + bottom) // 2
        to_x, to_y = helper.middle_of(helper.button("Download…"))
        require(to_y > bottom, "the other window stands over the place of the drop")
        screen.drag(from_x, from_y, to_x, to_y)
        wait_until(lambda: helper.link_field.text == _LINK, "the link standing in the field", 10)
        run.take_picture("dropped")


class _OtherProgram:
    """A window in front of the helper's, at its top, with the keyboard; `number` is sway's."""

    def __init__(self, run):
        self._process = subprocess.Popen([sys.executable, Path(__file__).with_name("other_program.py"), _OTHER_TITLE,
                                          _LINK], env=_environment(run), stdin=subprocess.DEVNULL,
                                         stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.number = None

    def __enter__(self):
        try:
            wait_until(lambda: _has_keyboard(_OTHER_TITLE), "the other program's window having the keyboard", 20)
            (self.number,) = screen.windows_called(_OTHER_TITLE)
            left, top, _, _ = screen.place_of(_window()["id"])
            sway_windows.command(f"[con_id={self.number}] move absolute position {left + 200} px {top} px")
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        self._process.terminate()
        self._process.wait()
        self._process.stdout.close()

    def allow(self):
        """A token from a click in the window."""
        left, top, right, bottom = screen.place_of(self.number)
        screen.click((left + right) // 2, (top + bottom) // 2)
        return self._process.stdout.readline().strip()


def _small_tile(run):
    helper = run.helper
    number = _window()["id"]
    sway_windows.command(f"gaps horizontal current set 290, gaps vertical current set 240; "
                         f"[con_id={number}] floating disable")
    try:
        wait_until(lambda: _fits(helper, number), "the window being as large as its tile", 10)
        width, height = _size(screen.place_of(number))
        require(width < 450 and height < 300, f"the tile has {width} x {height} pixels")
        helper.give_focus(helper.link_field)
        for name in ("Paste", "Analyze", "Download…"):
            button = helper.button(name)
            wait_until(lambda b=button: _tab_reaches(b), f'Tab reaching "{name}"', 10)
            wait_until(lambda b=button: _is_in_sight(helper, b), f'"{name}" being in sight', 10)
            run.take_picture("small-tile")
    finally:
        sway_windows.command("gaps horizontal current set 0, gaps vertical current set 0; "
                             f"[con_id={number}] floating enable, move position center")
    return [f"tile of {width} x {height} pixels"]


def _fits(helper, number):
    require_equal(_size(helper.window().extents), _size(screen.place_of(number)), "the window's size")
    return True


def _size(place):
    left, top, right, bottom = place
    return right - left, bottom - top


def _tab_reaches(control):
    screen.press("Tab")
    return control.is_("FOCUSED")


def _is_in_sight(helper, control):
    left, top, right, bottom = control.extents
    _, _, width, height = helper.window().extents
    return left >= 0 and top >= 0 and right <= width and bottom <= height


def _double_scale(run):
    sway_windows.command("output * scale 2")
    try:
        start_helper(run).wait_for_status(READY, 30)
        sway_windows.command(f"[con_id={_window()['id']}] move absolute position 0 0")
        wait_until(lambda: _is_sharp(run), "the heading being sharp", 10, interval=0.5)
        run.take_picture("double-scale")
    finally:
        sway_windows.command("output * scale 1")
        start_helper(run).wait_for_status(READY, 30)


def _is_sharp(run):
    """Where a smaller picture is blown up, the two pixels of a unit are alike, or nearly so."""
    left, top, right, bottom = (2 * edge for edge in run.helper.place_of(run.helper.control("label", "Media Import")))
    gray = screen.brightness(left, top, right, bottom)
    steps = [abs(row[i] - row[i + 1]) for row in gray for i in range(0, len(row) - 1, 2)]
    require(max(steps) > _MOST_BLURRED, f"the pixels of a unit differ by {max(steps)} at most")
    return True


def _menu_on_bar(run):
    helper = run.helper
    with _Bar(run) as bar:
        bar.choose("Open Downloader", "bar-menu")
        wait_until(lambda: _has_keyboard(WINDOW_TITLE), "the window being back", 15)
        helper.wait_for_status(READY, 30)
    wait_until(lambda: accessibility.find_all(helper.window(), "menu bar"), "the menu standing in the window again", 15)


def _quit_on_bar(run):
    helper = start_helper(run)
    helper.wait_for_status(READY, 45)
    with _Bar(run) as bar:
        bar.choose("Quit ZUNTO Helper", "bar-quit")
        wait_until(lambda: helper.process.poll() is not None, "the helper's end", 10)
    require_equal(helper.process.returncode, 0, "the exit status")
    wait_until(lambda: not processes.marked(helper.mark), "the end of every process of the run", 10)


class _Bar:
    """waybar with a tray, whose icons it shows at the right end. It tells a screen reader nothing, and its menus take
    no keys."""

    def __init__(self, run):
        self._run = run
        settings, style = run.world.folder / "bar.json", run.world.folder / "bar.css"
        settings.write_text(json.dumps(_BAR), encoding="utf-8")
        style.write_text(_BAR_STYLE, encoding="utf-8")
        self._process = subprocess.Popen(["waybar", "--config", settings, "--style", style],
                                         env=_environment(run), stdin=subprocess.DEVNULL,
                                         stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._process.terminate()
        self._process.wait()

    def choose(self, title, picture):
        """With the pointer alone, and with the window closed: on the icon, and on the item of that title, since all
        have the same height."""
        window = self._run.helper.window()
        wait_until(lambda: not accessibility.find_all(window, "menu bar"), "the menu leaving the window", 15)
        screen.close_window(_window()["id"])
        wait_until(lambda: not screen.windows_called(WINDOW_TITLE), "the window being closed", 10)
        width, _ = screen.size()
        screen.point_at(width - _BAR["tray"]["icon-size"] // 2, _BAR["height"] // 2)
        left, top, right, bottom = wait_until(self._open_menu, "the menu opening at the icon", 20)
        self._run.take_picture(picture)
        titles = tray.titles(self._run.helper.process.pid)
        screen.click((left + right) // 2, top + (bottom - top) * (2 * titles.index(title) + 1) // (2 * len(titles)))

    def _open_menu(self):
        """Its place; none where a click changes nothing."""
        folder = self._run.world.folder
        before, after = folder / "before.png", folder / "after.png"
        screen.take_picture(before)
        screen.press_button()
        time.sleep(0.5)  # it fades in
        screen.take_picture(after)
        return screen.changed_place(before, after)
