"""Without eyes and without a mouse: what a screen reader is told of each control, and the main job by keys alone."""

from urllib.parse import quote

import screen
from helper_program import ANALYZED, WINDOW_TITLE
from steps import Step, require, require_equal, wait_until

# Containers hold what is read; they are not read themselves.
_CONTAINERS = ("filler", "panel", "scroll pane", "viewport", "separator", "menu bar")
_INTERACTIVE = ("push button", "check box", "combo box", "text")
_MOST_TABS = 20


def accessibility_steps():
    return [
        Step("Every control tells a screen reader its name, its role and its state", _tree_is_complete),
        Step("The whole main job is done with the keyboard alone", _keyboard_alone, 120, "keyboard-alone"),
    ]


def _tree_is_complete(run):
    window = run.helper.window()
    require_equal(window.name, WINDOW_TITLE, "the window's name")
    seen = {}
    for node in window.walk():
        role = node.role
        if not node.is_showing or role in _CONTAINERS:
            continue
        require(role not in ("unknown", "invalid", ""), f"{node} has no role")
        require(node.name.strip(), f"a {role} has no name")
        if role in _INTERACTIVE:
            require(node.is_("SENSITIVE") == node.is_enabled, f"{node} is both enabled and not")
            require(node.is_("FOCUSABLE") or not node.is_enabled, f"{node} cannot have the keyboard")
        seen.setdefault(role, []).append(node.name)
    for role, least in (("push button", 3), ("check box", 1), ("combo box", 3), ("text", 1), ("progress bar", 1),
                        ("label", 6)):
        require(len(seen.get(role, [])) >= least, f"{len(seen.get(role, []))} times {role}, where {least} are shown")
    require(0 <= run.helper.progress_bar().percent <= 100, "the progress is no percentage")
    return [f"{role}: {', '.join(names)}" for role, names in seen.items() if role in _INTERACTIVE]


def _keyboard_alone(run):
    helper = run.helper
    for number in screen.windows_called(WINDOW_TITLE):
        screen.give_keyboard(number)
    _go_to(helper, "text", lambda: helper.link_field)
    # The keyboard of the virtual display has no capital letters but ASCII's.
    link = quote(run.server.link, safe=":/")
    screen.press("ctrl+a")
    screen.type_text(link)
    wait_until(lambda: _reads(helper.link_field, link), "the link standing in the field", 20)
    screen.press("Return")
    wait_until(lambda: not helper.button("Analyze").is_enabled, "an analysis being under way", 10)
    helper.wait_for_status(ANALYZED, 75)
    _go_to(helper, "Save as", lambda: helper.pop_up("Save as"))
    screen.press("Home", "Down")
    wait_until(lambda: helper.chosen("Save as") == "Audio only", "the mode being chosen", 10)
    _go_to(helper, "Download…", lambda: helper.button("Download…"))
    screen.press("space")
    wait_until(helper.has_save_panel, "the save panel being shown", 90)
    wait_until(lambda: helper.panel_name_field().is_("FOCUSED"), "the panel's name having the keyboard", 10)
    path = run.saved / "keyboard.m4a"
    screen.press("ctrl+a")
    screen.type_text(str(path))
    wait_until(lambda: _reads(helper.panel_name_field(), str(path)), "the path standing in the panel", 20)
    screen.press("Return")
    helper.wait_for_status(f"Saved to {path}", 30)
    size = path.stat().st_size
    require(size > 0, "the file is empty")
    path.unlink()
    return [f"{path.name} with {size} bytes"]


def _reads(field, text):
    require_equal(field.text, text, "the field")
    return True


def _go_to(helper, what, control):
    """As often Tab as it takes."""
    for _ in range(_MOST_TABS):
        if control().is_("FOCUSED"):
            return
        screen.press("Tab")
    require(control().is_("FOCUSED"), f'Tab does not reach "{what}"')
