"""Windows as an X11 window manager sees them, and what it asks of them."""

import ctypes
import subprocess

from steps import require


def windows_called(title):
    """X's numbers of the visible windows with this title."""
    done = xdotool("search", "--onlyvisible", "--name", f"^{title}$", check=False)
    return [int(line) for line in done.stdout.split()]


def windows_of_class(name):
    """X's numbers of all visible windows of a program, its menus and its icon on a bar included."""
    done = xdotool("search", "--onlyvisible", "--class", f"^{name}$", check=False)
    return [int(line) for line in done.stdout.split()]


def title_shown(number):
    """The title that a window manager draws for a window."""
    done = subprocess.run(["xprop", "-id", str(number), "-notype", "_NET_WM_NAME"], capture_output=True, text=True,
                          timeout=30, check=True, stdin=subprocess.DEVNULL)
    return done.stdout.split(" = ", 1)[1].strip().strip('"')


def place_of(number):
    """(left, top, right, bottom) of a window without its frame, on the screen."""
    done = subprocess.run(["xwininfo", "-id", str(number)], capture_output=True, text=True, timeout=30, check=True,
                          stdin=subprocess.DEVNULL)
    values = dict(line.strip().split(":", 1) for line in done.stdout.splitlines() if ":" in line)
    left, top = int(values["Absolute upper-left X"]), int(values["Absolute upper-left Y"])
    return left, top, left + int(values["Width"]), top + int(values["Height"])


def move(number, left, top):
    xdotool("windowmove", "--sync", str(number), str(left), str(top))


def minimise(number):
    xdotool("windowminimize", "--sync", str(number))


def give_keyboard(number):
    """What a window manager does when a window comes to the front, or the one before it goes away."""
    xdotool("windowfocus", "--sync", str(number))


def close_window(number):
    """What a window manager sends for a click on a window's close button; the program decides what to do."""
    x11 = ctypes.CDLL("libX11.so.6")
    x11.XOpenDisplay.restype = ctypes.c_void_p
    x11.XInternAtom.restype = ctypes.c_ulong
    x11.XInternAtom.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_int]
    x11.XSendEvent.argtypes = [ctypes.c_void_p, ctypes.c_ulong, ctypes.c_int, ctypes.c_long, ctypes.c_void_p]
    x11.XSync.argtypes = [ctypes.c_void_p, ctypes.c_int]
    x11.XCloseDisplay.argtypes = [ctypes.c_void_p]
    display = x11.XOpenDisplay(None)
    require(display, "the display cannot be opened")
    try:
        event = _ClientMessage(type=_CLIENT_MESSAGE, window=number, format=32,
                               message_type=x11.XInternAtom(display, b"WM_PROTOCOLS", 0))
        event.data[0] = x11.XInternAtom(display, b"WM_DELETE_WINDOW", 0)
        x11.XSendEvent(display, number, 0, 0, ctypes.byref(event))
        x11.XSync(display, 0)
    finally:
        x11.XCloseDisplay(display)


def origin(_title):
    """Programs know where on the screen their windows stand."""
    return 0, 0


class StartupMessages:
    """What programs tell the desktop about starts under way, from when the context is entered."""

    def __enter__(self):
        self._x11 = x11 = ctypes.CDLL("libX11.so.6")
        x11.XOpenDisplay.restype = ctypes.c_void_p
        x11.XDefaultRootWindow.restype = ctypes.c_ulong
        x11.XInternAtom.restype = ctypes.c_ulong
        for function in (x11.XDefaultRootWindow, x11.XPending, x11.XCloseDisplay):
            function.argtypes = [ctypes.c_void_p]
        x11.XInternAtom.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_int]
        x11.XSelectInput.argtypes = [ctypes.c_void_p, ctypes.c_ulong, ctypes.c_long]
        x11.XNextEvent.argtypes = [ctypes.c_void_p, ctypes.c_void_p]
        self._display = x11.XOpenDisplay(None)
        require(self._display, "the display cannot be opened")
        x11.XSelectInput(self._display, x11.XDefaultRootWindow(self._display), _PROPERTY_CHANGES)
        self._first = x11.XInternAtom(self._display, b"_NET_STARTUP_INFO_BEGIN", 0)
        x11.XPending(self._display)
        self._texts = []
        return self

    def __exit__(self, *_):
        self._x11.XCloseDisplay(self._display)

    def texts(self):
        while self._x11.XPending(self._display):
            event = _ClientMessage()
            self._x11.XNextEvent(self._display, ctypes.byref(event))
            if event.type == _CLIENT_MESSAGE and event.format == 8:
                if event.message_type == self._first:
                    self._texts.append(b"")
                self._texts[-1] += bytes(event.data)[:20]
        return [text.split(b"\0", 1)[0].decode() for text in self._texts if b"\0" in text]


_PROPERTY_CHANGES = 1 << 22
_CLIENT_MESSAGE = 33


class _ClientMessage(ctypes.Structure):
    _fields_ = [("type", ctypes.c_int), ("serial", ctypes.c_ulong), ("send_event", ctypes.c_int),
                ("display", ctypes.c_void_p), ("window", ctypes.c_ulong), ("message_type", ctypes.c_ulong),
                ("format", ctypes.c_int), ("data", ctypes.c_long * 5), ("padding", ctypes.c_long * 12)]


def xdotool(*arguments, check=True):
    done = subprocess.run(["xdotool", *arguments], capture_output=True, text=True, timeout=30, check=False,
                          stdin=subprocess.DEVNULL)
    require(done.returncode == 0 or not check, f"xdotool {arguments[0]} failed: {done.stderr.strip()}")
    return done
