"""Who runs on this machine on behalf of this run: found by a variable that only its processes inherit."""

import os
import signal
import time

MARK = "ZUNTO_DESKTOP_RUN"


def marked(mark, exclude=()):
    """{pid: command line} of the living processes whose mark begins with `mark`, but for this process."""
    wanted = f"{MARK}={mark}".encode()
    found = {}
    for name in os.listdir("/proc"):
        if not name.isdigit() or int(name) == os.getpid() or int(name) in exclude:
            continue
        try:
            with open(f"/proc/{name}/environ", "rb") as file:
                if not any(entry.startswith(wanted) for entry in file.read().split(b"\0")):
                    continue
            with open(f"/proc/{name}/cmdline", "rb") as file:
                command = file.read().replace(b"\0", b" ").decode(errors="replace").strip()
        except OSError:
            continue  # ended meanwhile, or another user's
        if command:
            found[int(name)] = command
    return found


def children_of(pid, mark):
    """{pid: command line} of the run's processes below `pid`, at any depth."""
    parents = {child: parent_of(child) for child in marked(mark)}
    found = set()
    wave = {pid}
    while wave:
        wave = {child for child, parent in parents.items() if parent in wave} - found
        found |= wave
    commands = marked(mark)
    return {child: commands[child] for child in found if child in commands}


def parent_of(pid):
    try:
        with open(f"/proc/{pid}/stat", encoding="utf-8", errors="replace") as file:
            return int(file.read().rpartition(")")[2].split()[1])
    except (OSError, IndexError, ValueError):
        return None


def threads_and_descriptors(pid):
    return len(os.listdir(f"/proc/{pid}/task")), len(os.listdir(f"/proc/{pid}/fd"))


def cpu_milliseconds(pid):
    """Of all the process's threads; its children are not counted."""
    used = 0
    for thread in os.listdir(f"/proc/{pid}/task"):
        try:
            with open(f"/proc/{pid}/task/{thread}/schedstat", encoding="ascii") as file:
                used += int(file.read().split()[0])
        except OSError:
            continue  # the thread has ended
    return used / 1e6


def end_all(mark, exclude=()):
    """Ends every process with the mark, first politely."""
    for number in (signal.SIGTERM, signal.SIGKILL):
        for pid in marked(mark, exclude):
            _signal(pid, number)
        end = time.monotonic() + 3
        while time.monotonic() < end and marked(mark, exclude):
            time.sleep(0.05)


def _signal(pid, number):
    try:
        os.kill(pid, number)
    except OSError:
        pass
