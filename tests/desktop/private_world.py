"""A desktop of the run's own: home, temporary folder, display and session bus, all gone at its end."""

import os
import secrets
import shutil
import subprocess
import tempfile
import time
from pathlib import Path

import processes

SCREEN = "1000x760x24"
LOG = "Library/Logs/ZUNTO Helper/helper.log"  # below the home

# What of the machine's environment would lead out of the private world, or change what is seen in it.
_FOREIGN = ("XDG_", "QT_", "DBUS_", "AT_SPI_", "GTK_", "GNOME_", "KDE_", "WAYLAND_", "SWAY", "WLR_", "LC_", "LANGUAGE",
            "SSL_", "http_proxy", "https_proxy", "HTTP_PROXY", "HTTPS_PROXY", "ALL_PROXY", "all_proxy", "no_proxy",
            "NO_PROXY")

# The compositor's one window fills the virtual display, so that keys, clicks and pictures are the same as there.
# Windows float, as on most desktops; whoever may bring one forward is obeyed, and the pointer takes nothing back.
_COMPOSITOR_SETTINGS = """\
xwayland disable
output X11-1 resolution {resolution} background #465060 solid_color
for_window [app_id=".*"] floating enable
focus_on_window_activation focus
focus_follows_mouse no
"""
_NOBODY = 65534


class PrivateWorld:
    """Use as a context; inside it this process lives in the world as well, so that it can read the helper's
    accessibility tree. `helper_environment()` is what a helper is started with. `variables` are set in it besides,
    also for what the session bus starts. With `wayland` the desktop is the compositor sway's, nested in the virtual
    display, which no program of the session is told of."""

    def __init__(self, screen=SCREEN, variables=None, wayland=False):
        self._screen = screen
        self._wayland = wayland
        self._variables = variables or {}
        self._children = []
        self._mark = f"run-{os.getpid()}-{secrets.token_hex(6)}"
        self._starts = 0
        self._earlier_environment = dict(os.environ)
        self.folder = None

    def __enter__(self):
        self.folder = Path(tempfile.mkdtemp(prefix="zunto-desktop-"))
        try:
            self.home = self._make("home")
            self.log = self.home / LOG
            self.temporary = self._make("tmp")
            self.media = self._make("media")
            environment = self._environment()
            os.environ.clear()
            os.environ.update(environment)
            os.environ["DISPLAY"] = f":{self._start_display()}"
            if self._wayland:
                os.environ.update(self._start_compositor())
            else:
                # Frames tell a dialog from the window behind it, for the eye and in the pictures.
                self._start(["openbox", "--sm-disable"], "windows.log")
            os.environ["DBUS_SESSION_BUS_ADDRESS"] = self._start_session_bus()
            if not self._wayland:
                self._await_window_manager()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        processes.end_all(f"{self._mark}-helper")
        for child in reversed(self._children):
            child.terminate()
        for child in self._children:
            try:
                child.wait(5)
            except subprocess.TimeoutExpired:
                child.kill()
                child.wait()
        processes.end_all(self._mark)
        os.environ.clear()
        os.environ.update(self._earlier_environment)
        shutil.rmtree(self.folder, ignore_errors=True)

    def helper_environment(self):
        """(environment, mark) of one start of the helper; the mark finds its processes, whatever becomes of it."""
        self._starts += 1
        mark = f"{self._mark}-helper-{self._starts}."
        return {**self.session_environment(), processes.MARK: mark}, mark

    def session_environment(self):
        """What the desktop starts its programs with."""
        hidden = ("DISPLAY",) if self._wayland else ()
        return {name: value for name, value in os.environ.items() if name not in hidden}

    def helper_processes(self):
        return processes.marked(f"{self._mark}-helper")

    def processes(self):
        """{pid: command line} of all that runs in the world, whoever has started it."""
        return processes.marked(self._mark)

    def write_home_file(self, relative, text):
        path = self.home / relative
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")

    def _make(self, name):
        folder = self.folder / name
        folder.mkdir(mode=0o700)
        return folder

    def _environment(self):
        kept = {name: value for name, value in os.environ.items() if not name.startswith(_FOREIGN)}
        return {
            **kept,
            "HOME": str(self.home),
            "TMPDIR": str(self.temporary),
            "XDG_RUNTIME_DIR": str(self._make("runtime")),
            "LANG": "C.UTF-8",
            **({"XDG_SESSION_TYPE": "wayland"} if self._wayland else {"QT_QPA_PLATFORM": "xcb"}),
            "QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1",
            "NO_AT_BRIDGE": "0",
            processes.MARK: f"{self._mark}-world",
            **self._variables,
        }

    def _start_display(self):
        read_end, write_end = os.pipe()
        with open(read_end, encoding="ascii") as numbers:
            self._start(["Xvfb", "-displayfd", str(write_end), "-screen", "0", self._screen, "-nolisten", "tcp",
                         "-noreset"], "display.log", pass_fds=[write_end])
            os.close(write_end)
            number = numbers.readline().strip()
        if not number:
            raise RuntimeError("Xvfb did not start: " + self._log("display.log"))
        return number

    def _start_compositor(self):
        """The variables by which its clients find it."""
        folder = self._make("compositor")
        settings = folder / "settings"
        resolution = self._screen.rpartition("x")[0]
        settings.write_text(_COMPOSITOR_SETTINGS.format(resolution=resolution), encoding="utf-8")
        user = {}
        if os.getuid() == 0:
            # It refuses to run as root.
            user = {"user": _NOBODY, "group": _NOBODY, "extra_groups": []}
            os.chown(folder, _NOBODY, _NOBODY)
            self.folder.chmod(0o711)
        self._start(["sway", "--config", str(settings)], "compositor.log", cwd=folder, **user,
                    env={**os.environ, "XDG_RUNTIME_DIR": str(folder), "HOME": str(folder), "WLR_BACKENDS": "x11",
                         "WLR_RENDERER": "pixman"})
        for _ in range(500):
            sockets = [*folder.glob("wayland-*[0-9]"), *folder.glob("sway-ipc.*")]
            if len(sockets) == 2:
                return dict(zip(("WAYLAND_DISPLAY", "SWAYSOCK"), map(str, sockets)))
            time.sleep(0.02)
        raise RuntimeError("sway did not start: " + self._log("compositor.log"))

    def _start_session_bus(self):
        read_end, write_end = os.pipe()
        with open(read_end, encoding="utf-8") as addresses:
            self._start(["dbus-daemon", "--session", "--nofork", "--nopidfile", f"--print-address={write_end}",
                         f"--address=unix:dir={self.folder / 'runtime'}"],
                        "bus.log", pass_fds=[write_end])
            os.close(write_end)
            address = addresses.readline().strip()
        if not address:
            raise RuntimeError("dbus-daemon did not start: " + self._log("bus.log"))
        return address

    def _await_window_manager(self):
        """A window that comes before it has no frame."""
        for _ in range(500):
            root = subprocess.run(["xprop", "-root", "_NET_SUPPORTING_WM_CHECK"], capture_output=True, text=True)
            if "window id" in root.stdout:
                return
            time.sleep(0.02)
        raise RuntimeError("openbox did not start: " + self._log("windows.log"))

    def _start(self, command, log, **options):
        with open(self.folder / log, "wb") as output:
            self._children.append(subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=output,
                                                   stderr=output, **options))

    def _log(self, name):
        return (self.folder / name).read_text(encoding="utf-8", errors="replace")[-500:]
