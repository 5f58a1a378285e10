"""The desktop's task bar, which shows the progress that programs tell of themselves on the session bus.

Import only inside a private world (see accessibility.py).
"""

from gi.repository import Gio, GLib

_INTERFACE = "com.canonical.Unity.LauncherEntry"
_ENTRY = "application://example.zunto.Helper.desktop"


class TaskBar:
    """Use as a context. What it was told of the helper meanwhile can be asked for at any time."""

    def __enter__(self):
        self._seen = []
        self._bus = Gio.bus_get_sync(Gio.BusType.SESSION)
        self._subscription = self._bus.signal_subscribe(None, _INTERFACE, "Update", None, None,
                                                        Gio.DBusSignalFlags.NONE, self._update)
        return self

    def __exit__(self, *_):
        self._bus.signal_unsubscribe(self._subscription)

    def seen(self):
        """The percents, oldest first; None where the progress was taken away."""
        while GLib.MainContext.default().iteration(False):
            pass
        return self._seen

    def _update(self, _bus, _sender, _path, _interface, _signal, arguments):
        entry, properties = arguments.unpack()
        if entry == _ENTRY:
            self._seen.append(100 * properties["progress"] if properties["progress-visible"] else None)
