"""Programs under measure: started until their window is painted, weighed by the operating system's own accounting."""

import os
import subprocess
import sys
import threading
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "tests/desktop"))
import processes  # noqa: E402

_END_SECONDS = 30


class Painted:
    """A program whose main window has been painted. Use as a context; it is ended with all it has started."""

    def __init__(self, bin_folder, command, world, extra=None):
        environment, self._mark = world.helper_environment()
        # As for a user without a screen reader.
        environment.pop("QT_LINUX_ACCESSIBILITY_ALWAYS_ON", None)
        environment.update(extra or {})
        self._starter = subprocess.Popen([bin_folder / "first_paint", *map(str, command)], env=environment, text=True,
                                         stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        line = self._starter.stdout.readline()
        if not line:
            self.__exit__()
            raise LookupError(f"{command[0]} painted no window")
        milliseconds, pid = line.split()
        self.milliseconds = float(milliseconds)
        self.pid = int(pid)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._starter.stdin.close()
        killer = threading.Timer(5, lambda: processes.end_all(self._mark))
        killer.start()
        self._starter.wait(_END_SECONDS)
        killer.cancel()
        processes.end_all(self._mark)


def proportional_kib(pid):
    """The process's share of all memory it uses; its children are not counted."""
    for line in Path(f"/proc/{pid}/smaps_rollup").read_text(encoding="ascii").splitlines():
        if line.startswith("Pss:"):
            return int(line.split()[1])
    raise LookupError("the system does not tell")


def libraries(pid):
    maps = Path(f"/proc/{pid}/maps").read_text(encoding="utf-8").splitlines()
    return {line.split(None, 5)[5] for line in maps if ".so" in line and "/" in line}


def run_for_cost(command, **options):
    """(wall seconds, CPU seconds, peak resident KiB) of a command that must succeed."""
    started = time.monotonic()
    child = subprocess.Popen([str(part) for part in command], stdin=subprocess.DEVNULL, **options)
    _, status, usage = os.wait4(child.pid, 0)
    wall = time.monotonic() - started
    child.returncode = os.waitstatus_to_exitcode(status)
    if child.returncode != 0:
        raise RuntimeError(f"{command[0]} ended with status {child.returncode}")
    return wall, usage.ru_utime + usage.ru_stime, usage.ru_maxrss
