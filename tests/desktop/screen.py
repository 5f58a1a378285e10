"""Keys, the pointer and pictures of the run's display, and its windows as whoever manages them sees them."""

import os
import re
import subprocess
import time

import sway_windows
import x11_windows
from steps import require
from x11_windows import xdotool

_DRAG_STEPS = 12


def press(*keys):
    """Presses keys by their X names, such as "Return" or "ctrl+a", wherever the keyboard focus is."""
    xdotool("key", "--clearmodifiers", *keys)


def type_text(text):
    xdotool("type", "--clearmodifiers", "--delay", "20", text)


def point_at(x, y):
    xdotool("mousemove", str(x), str(y))


def click(x, y):
    xdotool("mousemove", str(x), str(y), "click", "1")


def press_button():
    xdotool("click", "1")


def drag(from_x, from_y, to_x, to_y):
    """In small steps, as a hand would: a program takes a jump for no drag."""
    xdotool("mousemove", str(from_x), str(from_y), "mousedown", "1")
    for i in range(1, _DRAG_STEPS + 1):
        point_at(from_x + (to_x - from_x) * i // _DRAG_STEPS, from_y + (to_y - from_y) * i // _DRAG_STEPS)
        time.sleep(0.03)
    time.sleep(0.3)  # whether the drop would be taken is still being asked
    xdotool("mouseup", "1")


def move_pointer_away():
    xdotool("mousemove", "0", "0")


def size():
    """(width, height) of the screen."""
    return tuple(int(number) for number in xdotool("getdisplaygeometry").stdout.split())


def take_picture(path):
    """Writes the whole screen to `path` as PNG; false when that fails."""
    time.sleep(0.2)  # the last paint may still be on its way to the screen
    done = subprocess.run(["import", "-window", "root", f"PNG24:{path}"], capture_output=True, timeout=30,
                          check=False, stdin=subprocess.DEVNULL)
    return done.returncode == 0


def brightness(left, top, right, bottom):
    """Rows of pixels, from 0 to 255 each."""
    width, height = right - left, bottom - top
    done = subprocess.run(["import", "-window", "root", "-crop", f"{width}x{height}+{left}+{top}", "-depth", "8",
                           "gray:-"], capture_output=True, timeout=30, check=True, stdin=subprocess.DEVNULL)
    require(len(done.stdout) == width * height, "that place is not on the screen")
    return [done.stdout[row * width:(row + 1) * width] for row in range(height)]


def changed_place(before, after):
    """(left, top, right, bottom) of what differs between two pictures, but for thin lines, such as a blinking cursor;
    None where nothing does."""
    done = subprocess.run(["convert", before, after, "-compose", "difference", "-composite", "-threshold", "5%",
                           "-morphology", "Open", "Square:2", "-format", "%@ %[fx:maxima]", "info:"],
                          capture_output=True, text=True, timeout=30, check=True, stdin=subprocess.DEVNULL)
    place, maximum = done.stdout.split()
    if float(maximum) == 0:
        return None
    width, height, left, top = map(int, re.fullmatch(r"(\d+)x(\d+)\+(\d+)\+(\d+)", place).groups())
    return left, top, left + width, top + height


def windows_called(title):
    """The numbers of the visible windows with this title."""
    return _manager().windows_called(title)


def title_shown(number):
    """The title that stands in a window's frame."""
    return _manager().title_shown(number)


def place_of(number):
    """(left, top, right, bottom) of a window without its frame, on the screen."""
    return _manager().place_of(number)


def give_keyboard(number):
    """What happens when a window comes to the front, or the one before it goes away."""
    _manager().give_keyboard(number)


def close_window(number):
    """What follows a click on a window's close button; the program decides what to do."""
    _manager().close_window(number)


def origin(title):
    """Where on the screen the places begin that the accessibility tree tells of the controls in a window."""
    return _manager().origin(title)


def is_wayland():
    return "SWAYSOCK" in os.environ


def _manager():
    return sway_windows if is_wayland() else x11_windows
