"""Windows as the compositor sway sees them, and what it asks of them."""

import json
import subprocess

from steps import require


def windows_called(title):
    """sway's numbers of the visible windows with this title."""
    return [window["id"] for window in windows() if window["name"] == title and window["visible"]]


def title_shown(number):
    return window_of(number)["name"]


def place_of(number):
    """(left, top, right, bottom) of a window without its frame, in the compositor's units."""
    window = window_of(number)
    frame, inner = window["rect"], window["window_rect"]
    left, top = frame["x"] + inner["x"], frame["y"] + inner["y"]
    return left, top, left + inner["width"], top + inner["height"]


def give_keyboard(number):
    command(f"[con_id={number}] focus")


def close_window(number):
    command(f"[con_id={number}] kill")


def origin(title):
    """Programs do not know where their windows stand, and tell places within them."""
    (number,) = windows_called(title)
    return place_of(number)[:2]


def windows():
    """All of them, as sway describes them."""
    found, waiting = [], [_ask("-t", "get_tree")]
    while waiting:
        node = waiting.pop()
        if node.get("app_id"):
            found.append(node)
        waiting += node["nodes"] + node["floating_nodes"]
    return found


def window_of(number):
    (window,) = [window for window in windows() if window["id"] == number]
    return window


def command(text):
    """Has sway do what a line of its configuration would."""
    for answer in _ask(text):
        require(answer["success"], f'sway refuses "{text}": {answer.get("error")}')


def _ask(*arguments):
    done = subprocess.run(["swaymsg", "--raw", *arguments], capture_output=True, text=True, timeout=30, check=False,
                          stdin=subprocess.DEVNULL)
    require(done.stdout.strip(), f"sway does not answer: {done.stderr.strip()}")
    return json.loads(done.stdout)
