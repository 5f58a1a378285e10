#!/usr/bin/python3
"""Another program on the desktop, with a text: a click copies it and prints a token, by which the user allows some
program to come forward; and it can be dragged elsewhere.

Called with the title of its window and the text.
"""

import sys

import gi

gi.require_version("Gdk", "3.0")
gi.require_version("Gtk", "3.0")
from gi.repository import Gdk, Gio, Gtk  # noqa: E402

def main():
    title, text = sys.argv[1:]
    window = Gtk.Window(title=title)
    window.set_default_size(300, 200)
    area = Gtk.EventBox()
    area.add(Gtk.Label(label=text))
    area.connect("button-press-event", lambda *_: _clicked(text))
    area.drag_source_set(Gdk.ModifierType.BUTTON1_MASK, [], Gdk.DragAction.COPY)
    area.drag_source_add_text_targets()
    area.connect("drag-data-get", lambda _area, _context, data, *_: data.set_text(text, -1))
    window.add(area)
    window.connect("destroy", Gtk.main_quit)
    window.show_all()
    Gtk.main()


def _clicked(text):
    Gtk.Clipboard.get(Gdk.SELECTION_CLIPBOARD).set_text(text, -1)
    program = Gio.AppInfo.create_from_commandline("true", "some program",
                                                  Gio.AppInfoCreateFlags.SUPPORTS_STARTUP_NOTIFICATION)
    context = Gdk.Display.get_default().get_app_launch_context()
    print(context.get_startup_notify_id(program, []), flush=True)


if __name__ == "__main__":
    main()
