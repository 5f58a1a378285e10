"""The accessibility tree as a screen reader sees it: controls found by what they are and how they are called.

Import only inside a private world: the tree is that of the session bus in the environment at the time of import.
"""

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402

_CALL_MS = 15_000  # a busy machine answers late, and the helper's health probe may hold it up for a second


class Vanished(LookupError):
    """The control is no longer there."""


def _asked(call, *arguments):
    try:
        return call(*arguments)
    except GLib.Error as error:
        raise Vanished(f"it does not answer: {error.message}") from error


class Node:
    """One accessible object; every answer is asked for anew."""

    def __init__(self, native):
        self._native = native

    @property
    def role(self):
        role = _asked(self._native.get_role_name)
        return "push button" if role == "button" else role  # as AT-SPI has it since 2.56

    @property
    def name(self):
        return _asked(self._native.get_name) or ""

    @property
    def description(self):
        return _asked(self._native.get_description) or ""

    @property
    def pid(self):
        return _asked(self._native.get_process_id)

    def is_(self, state):
        return _asked(self._native.get_state_set).contains(getattr(Atspi.StateType, state))

    @property
    def is_showing(self):
        return self.is_("SHOWING") and self.is_("VISIBLE")

    @property
    def is_enabled(self):
        return self.is_("ENABLED")

    @property
    def children(self):
        count = _asked(self._native.get_child_count)
        found = (_asked(self._native.get_child_at_index, i) for i in range(count))
        return [Node(native) for native in found if native is not None]

    def walk(self):
        """Everything below, in the order of the tree."""
        for child in self.children:
            yield child
            yield from child.walk()

    @property
    def extents(self):
        """(left, top, right, bottom) as the program knows it: on the screen, or under Wayland in its window."""
        rect = _asked(Atspi.Component.get_extents, self._native, Atspi.CoordType.SCREEN)
        return rect.x, rect.y, rect.x + rect.width, rect.y + rect.height

    @property
    def text(self):
        """What a text field holds."""
        count = _asked(Atspi.Text.get_character_count, self._native)
        return _asked(Atspi.Text.get_text, self._native, 0, count)

    def set_text(self, text):
        _asked(Atspi.EditableText.set_text_contents, self._native, text)

    @property
    def percent(self):
        """Where a value stands between its ends, from 0 to 100."""
        low = _asked(Atspi.Value.get_minimum_value, self._native)
        high = _asked(Atspi.Value.get_maximum_value, self._native)
        return 100 * (_asked(Atspi.Value.get_current_value, self._native) - low) / (high - low)

    @property
    def actions(self):
        count = _asked(Atspi.Action.get_n_actions, self._native)
        return [_asked(Atspi.Action.get_action_name, self._native, i) for i in range(count)]

    def act(self, *names):
        """Does the first of the named actions that it has, or its first one."""
        actions = self.actions
        if not actions:
            raise Vanished(f"{self} offers no action")
        wanted = [actions.index(name) for name in names if name in actions]
        _asked(Atspi.Action.do_action, self._native, wanted[0] if wanted else 0)

    def focus(self):
        _asked(Atspi.Component.grab_focus, self._native)

    def __str__(self):
        try:
            return f'{self.role} "{self.name}"'
        except Vanished:
            return "a control that is gone"


def application(pid):
    """The accessible application of a process."""
    _connect()
    for child in Node(Atspi.get_desktop(0)).children:
        try:
            if child.pid == pid:
                child._native.set_cache_mask(Atspi.Cache.NONE)
                return child
        except Vanished:
            continue
    raise Vanished("the program is not in the accessibility tree")


def find_all(root, role=None, name=None, showing=True):
    """What stands below `root`, in the order of the tree; what is not shown only with `showing` False."""
    return [node for node in root.walk() if _is_wanted(node, role, name, showing)]


def find(root, role=None, name=None, showing=True):
    for node in root.walk():
        if _is_wanted(node, role, name, showing):
            return node
    raise Vanished(f'there is no {role or "control"} "{name or ""}"')


def _is_wanted(node, role, name, showing):
    try:
        return ((role is None or node.role == role) and (name is None or node.name == name)
                and (not showing or node.is_showing))
    except Vanished:
        return False


def describe(root, depth=0):
    """The tree as indented lines, for a person who looks for a fault."""
    lines = []
    for node in root.children:
        shown = "" if node.is_showing else " (not shown)"
        lines.append(f"{'  ' * depth}{node}{shown} {node.extents}")
        lines += describe(node, depth + 1)
    return lines


def _connect():
    if Atspi.init() > 1:
        raise RuntimeError("the accessibility bus cannot be reached")
    Atspi.set_timeout(_CALL_MS, _CALL_MS)
    Atspi.get_desktop(0).set_cache_mask(Atspi.Cache.NONE)
    # Nobody runs a main loop here, so the bus's news are taken in before each look.
    while GLib.MainContext.default().iteration(False):
        pass
