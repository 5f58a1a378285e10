"""The form as it stands on the screen: rows, order, names and what can be used."""

import accessibility
import screen
from helper_program import READY, WINDOW_TITLE
from steps import Step, require, require_equal, wait_until

_HEADING = "Media Import"
_INTRODUCTION = ("Paste a YouTube or Bilibili link. Analyze available formats, then save video, audio, or a source "
                 "subtitle directly to your Mac.")
_PERMISSION = "I own this media or have permission to download and use it."
_NOT_HTTPS = "Enter a valid HTTPS YouTube or Bilibili link."
_NO_PERMISSION = "Confirm that you own this media or have permission to use it."

_MARGIN = 28
_ROW_SPACING = 16
_CONTROL_SPACING = 10
_STYLE_SLACK = 3  # pixels by which a style's own margins move a control's edge


def form_steps():
    return [
        Step("The helper starts its processor and says that it is ready", _becomes_ready, 60, "ready",
             essential=True),
        Step("The form has its rows in order, evenly spaced, without overlap, all inside the window",
             _rows_in_order),
        Step("The form's controls are called, enabled and hidden as a fresh form should have them", _fresh_form),
        Step("The Tab key visits every control that can be used, in the order of the form", _tab_order),
        Step("A link that is not HTTPS is refused with a sentence, and nothing is sent", _refuses_http, 30,
             "http-refused"),
        Step("Without the permission ticked nothing is analysed", _needs_permission),
    ]


def _becomes_ready(run):
    run.helper.wait_for_status(READY, 45)
    screen.move_pointer_away()
    (window,) = screen.windows_called(WINDOW_TITLE)
    title = screen.title_shown(window)
    require_equal(title, WINDOW_TITLE, "the title of the window")
    return [f"processor: process {run.helper.processor_pid()}"]


def _expected_rows(run):
    title, detail = run.helper.title_and_detail()
    return [
        [("label", _HEADING)],
        [("label", _INTRODUCTION)],
        [("text", "Media link"), ("push button", "Paste"), ("push button", "Analyze")],
        [("check box", _PERMISSION)],
        [("label", "Access:"), ("combo box", "Access"), ("label", "Browser cookies never leave this Mac.")],
        [("filler", "")],  # the line between the halves
        [("label", title)],
        [("label", detail)],
        [("label", "Save as:"), ("combo box", "Save as"), ("combo box", "Quality"),
         ("combo box", "Subtitle track"), ("combo box", "Subtitle format")],
        [("progress bar", "Progress")],
        [("notification", run.helper.status())],
        [("push button", "Download…"), ("push button", "Cancel"), ("push button", "Show Downloaded File")],
    ]


def check_layout(run):
    """The layout rules that hold at any time; used again after the form has been filled."""
    window = run.helper.window()
    content = _content(window)
    shown = {(node.role, node.name): node.extents for node in content.children if node.is_showing}
    rows = [[shown.pop(key) for key in row if key in shown] for row in _expected_rows(run)]
    require(not shown, lambda: f"something stands in the window that no row has: {sorted(shown)}")
    require(all(rows), "a row of the form is missing")
    for row in rows:
        _check_row(row)
    _check_inside(rows, content.extents, window.extents)
    _check_spacing(rows)


def _rows_in_order(run):
    check_layout(run)


def _content(window):
    """What holds the controls, inside of what scrolls it."""
    fillers = accessibility.find_all(window, "filler")
    return next(filler for filler in fillers if any(child.name == _HEADING for child in filler.children))


def _check_row(row):
    for (_, top, right, bottom), (left, next_top, _, next_bottom) in zip(row, row[1:]):
        gap = left - right
        require(abs(gap - _CONTROL_SPACING) <= _STYLE_SLACK, f"two controls of a row are {gap} pixels apart")
        off = abs((top + bottom) - (next_top + next_bottom)) / 2
        require(off <= 2, f"two controls of a row are {off} pixels off centre")


def _check_spacing(rows):
    edges = [(min(top for _, top, _, _ in row), max(bottom for _, _, _, bottom in row)) for row in rows]
    gaps = [top - bottom for (_, bottom), (top, _) in zip(edges, edges[1:])]
    uneven = [gap for gap in gaps if abs(gap - _ROW_SPACING) > _STYLE_SLACK]
    require(not uneven, f"the rows are {gaps} pixels apart, not {_ROW_SPACING}")


def _check_inside(rows, content, window):
    left, top, right, bottom = content
    require(window[0] <= left and right <= window[2] and bottom <= window[3], "the content leaves the window")
    require(rows[0][0][1] - top >= 24, "the heading is too close to the top")
    require(bottom - rows[-1][0][3] >= 24, "the last row is too close to the bottom")
    for row in rows:
        start, end = row[0][0], row[-1][2]
        require(abs(start - left - _MARGIN) <= _STYLE_SLACK, f"a row starts {start - left} pixels from the left")
        require(end <= right - _MARGIN + _STYLE_SLACK, f"a row ends {right - end} pixels from the right")
    for row in (rows[2], rows[5], rows[9]):
        end = right - row[-1][2]
        require(abs(end - _MARGIN) <= _STYLE_SLACK, f"a full row ends {end} pixels from the right")


def _fresh_form(run):
    helper = run.helper
    usable = [helper.link_field, helper.button("Paste"), helper.button("Analyze"), helper.pop_up("Access"),
              helper.pop_up("Save as"), helper.pop_up("Quality"), helper.control("check box", _PERMISSION)]
    for control in usable:
        require(control.is_enabled, f"{control} is disabled")
    require(helper.control("check box", _PERMISSION).is_("CHECKED"), "the permission is not ticked")
    require(not helper.button("Download…").is_enabled, "Download is enabled before an analysis")
    for role, name in (("combo box", "Subtitle track"), ("combo box", "Subtitle format"), ("push button", "Cancel"),
                       ("push button", "Show Downloaded File")):
        require(not helper.is_shown(role, name), f'"{name}" is shown')
    require_equal(helper.items_of("Access"), ["Anonymous", "Chrome login", "Safari login"], "the access list")
    require_equal(helper.items_of("Save as"), ["Video", "Audio only", "Source subtitle"], "the output list")
    require_equal(helper.items_of("Quality"), ["Analyze first"], "the quality list")
    require_equal(helper.items_of("Subtitle format"), ["VTT", "SRT"], "the list of subtitle formats")
    require_equal([helper.chosen(name) for name in ("Access", "Save as", "Subtitle format")],
                  ["Anonymous", "Video", "VTT"], "the first choice")
    require_equal(helper.title_and_detail(),
                  ["Paste a YouTube or Bilibili link to begin.", "Processing stays on this Mac."], "the media's lines")
    require_equal(helper.progress_bar().percent, 0.0, "the progress")
    require_equal(helper.link_field.text, "", "the link field")


def _tab_order(run):
    helper = run.helper
    helper.give_focus(helper.link_field)
    expected = ["Paste", "Analyze", _PERMISSION, "Access", "Save as", "Quality", "Media link"]
    seen = []
    for _ in expected:
        before = seen[-1] if seen else "Media link"
        screen.press("Tab")
        seen.append(wait_until(lambda: _focused_name(helper, before), f'the keyboard leaving "{before}"', 5))
    require_equal(seen, expected, "the tab order")


def _focused_name(helper, before):
    # Since Qt 6.8 a closed list's current item has the focus, too.
    names = [node.name for node in accessibility.find_all(helper.window())
             if node.is_("FOCUSED") and node.role != "list item"]
    return next((name for name in names if name and name != before), None)


def _refuses_http(run):
    before = len(run.server.requests)
    run.helper.set_link(run.server.link.replace("https:", "http:"))
    run.helper.press("Analyze")
    run.helper.wait_for_status(_NOT_HTTPS, 10)
    require(run.helper.button("Analyze").is_enabled, "Analyze is disabled afterwards")
    require_equal(len(run.server.requests), before, "the number of requests that the site saw")


def _needs_permission(run):
    helper = run.helper
    box = helper.control("check box", _PERMISSION)
    helper.give_focus(box)
    screen.press("space")
    wait_until(lambda: not box.is_("CHECKED"), "the permission being unticked", 10)
    helper.press("Analyze")
    helper.wait_for_status(_NO_PERMISSION, 10)
    run.take_picture("permission")
    box.act("Toggle")
    wait_until(lambda: box.is_("CHECKED"), "the permission being ticked again", 10)
