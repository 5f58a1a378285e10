"""The status menu as a tray shows it: read and chosen over the session bus, whether or not a tray is there.

Import only inside a private world (see accessibility.py).
"""

from gi.repository import Gio, GLib

from steps import require, wait_until

_CALL_MS = 5000


def choose(pid, title):
    """Chooses an item of the menu that the program with this process number offers."""
    wait_until(lambda: title in _items(pid), f'the menu offering "{title}"', 10)
    require(_items(pid)[title][1], f'"{title}" is disabled')
    _call(pid, "Event", GLib.Variant("(isvu)", (_items(pid)[title][0], "clicked", GLib.Variant("i", 0), 0)))


def titles(pid):
    """Of the menu's items in their order, without the separators."""
    return list(_items(pid))


def _items(pid):
    """{title: (number, whether it can be chosen)}"""
    _, (_, _, children) = _call(pid, "GetLayout", GLib.Variant("(iias)", (0, -1, []))).unpack()
    return {properties["label"]: (number, properties["enabled"]) for number, properties, _ in children
            if "label" in properties}


def _call(pid, method, arguments):
    bus = Gio.bus_get_sync(Gio.BusType.SESSION)
    return bus.call_sync(f"org.kde.StatusNotifierItem-{pid}-1", "/MenuBar", "com.canonical.dbusmenu", method,
                         arguments, None, Gio.DBusCallFlags.NO_AUTO_START, _CALL_MS, None)
