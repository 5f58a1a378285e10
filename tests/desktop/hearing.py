"""What the accessibility bus tells screen readers while something happens.

Import only inside a private world (see accessibility.py).
"""

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402

_SHOWN = "object:state-changed:showing"
_FOCUSED = "object:state-changed:focused"
_RENAMED = "object:property-change:accessible-name"
_VALUE = "object:property-change:accessible-value"
_KINDS = (_SHOWN, _FOCUSED, _RENAMED, _VALUE)


class Hearing:
    """Use as a context. What it has heard of the program with this process number can be asked for at any time.

    The bus says which control has changed, and nothing of the text: as a screen reader does, this asks for it when
    the news come in, so that of two changes in quick succession the last text may be heard twice.
    """

    def __init__(self, pid):
        self._pid = pid
        self._heard = []

    def __enter__(self):
        self._listener = Atspi.EventListener.new(self._hear)
        for kind in _KINDS:
            self._listener.register(kind)
        return self

    def __exit__(self, *_):
        for kind in _KINDS:
            self._listener.deregister(kind)

    def announcements(self):
        """The texts of the notifications that were shown: they are spoken without being asked for."""
        return [name for kind, role, name, _ in self._news() if kind == _SHOWN and role == "notification"]

    def focused(self):
        """The names of the controls that have got the keyboard."""
        return [name for kind, _, name, _ in self._news() if kind == _FOCUSED]

    def renamed(self):
        """[(role, name)] for each new name."""
        return [(role, name) for kind, role, name, _ in self._news() if kind == _RENAMED]

    def percents(self):
        """The values of progress bars that were told."""
        return [value for kind, role, _, value in self._news() if kind == _VALUE and role == "progress bar"]

    def _news(self):
        while GLib.MainContext.default().iteration(False):
            pass
        return self._heard

    def _hear(self, event):
        try:
            source = event.source
            if source.get_process_id() == self._pid and (event.type in (_RENAMED, _VALUE) or event.detail1):
                value = Atspi.Value.get_current_value(source) if event.type == _VALUE else None
                self._heard.append((event.type, source.get_role_name(), source.get_name(), value))
        except GLib.Error:
            pass  # gone meanwhile
