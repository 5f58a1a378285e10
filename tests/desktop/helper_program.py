"""The helper under test: its process, its window and its dialogs, driven as a person with a screen reader would.

Import only inside a private world (see accessibility.py).
"""

import subprocess

import accessibility
import processes
import screen
from accessibility import find, find_all
from steps import Failure, require, require_equal, wait_until

WINDOW_TITLE = "ZUNTO Media Import"
SAVE_TITLE = "Save ZUNTO Download"
READY = "Ready. Processing and browser access stay on this Mac."
ANALYZED = "Analysis complete. Choose an output and save it to your Mac."
COULD_NOT_START = "ZUNTO Helper could not start. Use the menu bar log for details."
READY_LINE = "ZUNTO Helper Ready · 127.0.0.1:43127"
STOPPED_LINE = "ZUNTO Helper Stopped"


class HelperProgram:
    """One running start of the executable, with `variables` in its environment besides those of the world, or without
    one whose value is None. `prepare` is called in the new process before it becomes the program. `stop()` ends it
    however it is; its children end with it."""

    def __init__(self, executable, world, variables=None, prepare=None):
        self._executable = executable
        self._world = world
        environment, self.mark = world.helper_environment()
        environment |= variables or {}
        self._output = (world.folder / f"{self.mark}log").open("wb")
        self.process = subprocess.Popen([executable], env={name: value for name, value in environment.items()
                                                           if value is not None},
                                        stdin=subprocess.DEVNULL, stdout=self._output, stderr=subprocess.STDOUT,
                                        preexec_fn=prepare)

    def stop(self):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()
        self._output.close()
        processes.end_all(self.mark)

    def start_again(self, *arguments):
        """A second start of the executable; answers its exit status."""
        environment, _ = self._world.helper_environment()
        done = subprocess.run([self._executable, *arguments], env=environment, stdin=subprocess.DEVNULL,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=30, check=False)
        return done.returncode

    def family(self):
        """{pid: command line} of its living processes, itself left out."""
        return {pid: line for pid, line in processes.marked(self.mark).items() if pid != self.process.pid}

    def processors(self):
        return [pid for pid, line in self.family().items() if "processor/src/index.mjs" in line]

    def processor_pid(self):
        found = self.processors()
        require(len(found) == 1, lambda: f"there are {len(found)} processors: {self.family()}")
        return found[0]

    # What is on the screen.

    def application(self):
        code = self.process.poll()
        if code is not None:
            raise Failure(f"the helper has ended with status {code}")
        return accessibility.application(self.process.pid)

    def window(self):
        return find(self.application(), "frame", WINDOW_TITLE)

    def control(self, role, name, showing=True):
        return find(self.window(), role, name, showing)

    def button(self, name):
        return self.control("push button", name)

    def is_shown(self, role, name):
        return bool(find_all(self.window(), role, name))

    @property
    def link_field(self):
        return self.control("text", "Media link")

    def pop_up(self, name):
        return self.control("combo box", name, showing=False)

    def chosen(self, pop_up):
        return self.pop_up(pop_up).description

    def items_of(self, pop_up):
        return [item.name for item in find_all(self.pop_up(pop_up), "list item", showing=False)]

    def status(self):
        """The line below the progress bar."""
        return self.control("notification", None).name

    def title_and_detail(self):
        top = self.pop_up("Access").extents[3]
        bottom = self.pop_up("Save as").extents[1]
        return [label.name for label in self._labels_between(top, bottom)]

    def progress_bar(self):
        return self.control("progress bar", "Progress")

    def _labels_between(self, top, bottom):
        labels = [(label.extents, label) for label in find_all(self.window(), "label")]
        inside = [(place[1], place[0], label) for place, label in labels if top <= place[1] and place[3] <= bottom]
        if not inside:
            raise accessibility.Vanished("there is no label where one is expected")
        return [label for _, _, label in sorted(inside, key=lambda entry: entry[:2])]

    def place_of(self, control):
        """(left, top, right, bottom) on the screen, of a control of the window or of what opens from it."""
        left, top, right, bottom = control.extents
        origin_left, origin_top = screen.origin(WINDOW_TITLE)
        return left + origin_left, top + origin_top, right + origin_left, bottom + origin_top

    def middle_of(self, control):
        left, top, right, bottom = self.place_of(control)
        return (left + right) // 2, (top + bottom) // 2

    # What a person does.

    def click(self, control):
        screen.click(*self.middle_of(control))

    def press(self, button):
        control = self.button(button)
        require(control.is_enabled, f'"{button}" is disabled')
        control.act("Press")

    def choose(self, pop_up, item):
        """With the keyboard alone."""
        control = self.pop_up(pop_up)
        wanted = self.items_of(pop_up).index(item)
        self.give_focus(control)
        screen.press("Home", *["Down"] * wanted)
        wait_until(lambda: self.chosen(pop_up) == item, f'"{item}" being chosen in "{pop_up}"', 10)

    def choose_with_mouse(self, pop_up, item):
        self.pop_up(pop_up).act("ShowMenu")
        entry = wait_until(lambda: find(self.application(), "list item", item), f'"{item}" in an open list', 10)
        wait_until(lambda: entry.extents[2] > entry.extents[0] > 0, "the list standing on the screen", 10)
        self.click(entry)
        wait_until(lambda: self.chosen(pop_up) == item, f'"{item}" being chosen in "{pop_up}"', 10)
        screen.move_pointer_away()

    def give_focus(self, control):
        for number in screen.windows_called(WINDOW_TITLE):
            screen.give_keyboard(number)
        control.focus()
        wait_until(lambda: control.is_("FOCUSED"), f"{control} having the keyboard", 10)

    def set_link(self, link):
        self.link_field.set_text(link)
        wait_until(lambda: self.link_field.text == link, "the link standing in the field", 10)

    def wait_for_status(self, text, seconds):
        return wait_until(lambda: self._has_status(text), f'the status "{text}"', seconds)

    def _has_status(self, text):
        seen = self.status()
        if seen != text:
            raise Failure(f'it reads "{seen}"')
        return True

    # The save panel.

    def save_panel(self):
        return find(self.application(), name=SAVE_TITLE)

    def has_save_panel(self):
        return bool(find_all(self.application(), name=SAVE_TITLE))

    def dismiss_panels(self):
        """What a step that failed may have left open, which would bar the next one."""
        if self.process.poll() is None and self.has_save_panel():
            self.panel_button("Cancel").act("Press")

    def panel_button(self, name):
        buttons = find_all(self.save_panel(), "push button")
        for button in buttons:
            if button.name.replace("&", "") == name:
                return button
        raise accessibility.Vanished(f'the panel has no "{name}" among {[str(button) for button in buttons]}')

    def panel_name_field(self):
        fields = [node for node in find_all(self.save_panel(), "text") if node.is_("EDITABLE")]
        require_equal(len(fields), 1, "the number of fields in the save panel")
        return fields[0]

    def answer_save_panel(self, path):
        field = wait_until(self.panel_name_field, "the panel's name field", 10)
        field.set_text(str(path))
        wait_until(lambda: field.text == str(path), "the path standing in the panel", 10)
        self.panel_button("Save").act("Press")

    # The supervisor's alert.

    def alert_texts(self):
        return [label.name for label in find_all(self._alert(), "label") if label.name]

    def alert_buttons(self):
        return [button.name for button in find_all(self._alert(), "push button")]

    def answer_alert(self, button):
        find(self._alert(), "push button", button).act("Press")

    def _alert(self):
        return find(self.application(), "alert")

    # The status menu, which stands in the window where no tray shows it.

    def status_menu_title(self):
        return self._status_menu().name

    def status_items(self):
        """[(title, enabled)] in order, without the separators."""
        return [(item.name, item.is_enabled) for item in self._status_entries()]

    def status_line(self):
        return self.status_items()[0][0]

    def open_status_menu(self):
        menu = self._status_menu()
        # Since Qt 6.8 a menu takes no click where, as far as it knows, the pointer stood when it opened.
        screen.point_at(*self.middle_of(menu))
        menu.act("ShowMenu")
        wait_until(lambda: all(item.is_showing for item in self._status_entries()), "the menu being open", 10)

    def choose_status_item(self, title):
        self.open_status_menu()
        (item,) = [entry for entry in self._status_entries() if entry.name == title] or [None]
        require(item, f'the menu has no "{title}"')
        require(item.is_enabled, f'"{title}" is disabled')
        self.click(item)
        screen.move_pointer_away()
        self.wait_for_closed_menu()

    def wait_for_closed_menu(self):
        wait_until(lambda: not self._status_entries()[0].is_showing, "the menu being closed", 10)

    def _status_menu(self):
        bar = find(self.window(), "menu bar")
        return find(bar, "menu item", showing=False)

    def _status_entries(self):
        return find_all(self._status_menu(), "menu item", showing=False)
