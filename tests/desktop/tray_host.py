"""A tray that watches status items and their titles, with the moment of every change."""

import threading
import time

import gi

gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib  # noqa: E402

_WATCHER = "org.kde.StatusNotifierWatcher"
_DESCRIPTION = """
<node><interface name="org.kde.StatusNotifierWatcher">
  <method name="RegisterStatusNotifierItem"><arg type="s" direction="in"/></method>
  <property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
</interface></node>"""


class TrayHost:
    """Use as a context, inside the world whose session bus is meant. Its main loop runs on a thread of its own."""

    def __enter__(self):
        self._news = threading.Condition()
        self._titles = []
        self._items = 0
        self._context = GLib.MainContext()
        self._loop = GLib.MainLoop(context=self._context)
        self._ready = threading.Event()
        self._thread = threading.Thread(target=self._run, daemon=True)
        self._thread.start()
        self._ready.wait(10)
        return self

    def __exit__(self, *_):
        self._context.invoke_full(GLib.PRIORITY_DEFAULT, self._loop.quit)
        self._thread.join()

    def forget(self):
        with self._news:
            self._titles.clear()

    def wait_for_item(self, seconds):
        with self._news:
            if not self._news.wait_for(lambda: self._items > 0, seconds):
                raise LookupError("no item was registered")

    def wait_for_title(self, title, seconds):
        """The moment (nanoseconds of the steady clock) at which an item was first told to have the title."""
        end = time.monotonic() + seconds
        with self._news:
            while True:
                for seen, moment in self._titles:
                    if seen == title:
                        return moment
                if not self._news.wait(end - time.monotonic()):
                    raise LookupError(f'no item was called "{title}"')

    def _run(self):
        self._context.push_thread_default()
        address = Gio.dbus_address_get_for_bus_sync(Gio.BusType.SESSION, None)
        flags = (Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION)
        bus = Gio.DBusConnection.new_for_address_sync(address, flags, None, None)
        interface = Gio.DBusNodeInfo.new_for_xml(_DESCRIPTION).interfaces[0]
        bus.register_object("/StatusNotifierWatcher", interface, self._register, lambda *_: GLib.Variant("b", True),
                            None)
        Gio.bus_own_name_on_connection(bus, _WATCHER, Gio.BusNameOwnerFlags.NONE, None, None)
        bus.signal_subscribe(None, "org.kde.StatusNotifierItem", "NewTitle", None, None, Gio.DBusSignalFlags.NONE,
                             self._new_title)
        self._ready.set()
        self._loop.run()
        bus.close_sync(None)

    def _register(self, *call):
        with self._news:
            self._items += 1
            self._news.notify_all()
        call[-1].return_value(None)

    def _new_title(self, bus, sender, path, *_):
        moment = time.monotonic_ns()
        bus.call(sender, path, "org.freedesktop.DBus.Properties", "Get",
                 GLib.Variant("(ss)", ("org.kde.StatusNotifierItem", "Title")), None, Gio.DBusCallFlags.NONE, 5000, None,
                 lambda source, result: self._keep(source, result, moment))

    def _keep(self, bus, result, moment):
        try:
            title = bus.call_finish(result).unpack()[0]
        except GLib.Error:
            return  # the item has gone again
        with self._news:
            self._titles.append((title, moment))
            self._news.notify_all()
