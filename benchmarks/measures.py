"""The measures, one function for each group of goals; each answers rows of the report."""

import contextlib
import itertools
import json
import os
import random
import shutil
import socket
import statistics
import subprocess
import tempfile
import threading
import time
from pathlib import Path

from processes import cpu_milliseconds, threads_and_descriptors
from program_copy import with_instant_processor
from programs import Painted, libraries, proportional_kib, run_for_cost
from report import Row, ratio

_BARE = "a bare Qt window with the same controls"
_PEERS = ("transmission-qt", "uget-gtk", "youtubedl-gui", "syncthingtray")
_SETTLED_SECONDS = 5
_MIB = 1 << 20


class Subject:
    """What is measured: the helper's executable, the folder of the measuring programs, and the world they run in,
    a desktop with a tray."""

    def __init__(self, root, bin_folder, world, tray, quick):
        self.root = root
        self.bin = bin_folder
        self.world = world
        self.tray = tray
        self.quick = quick
        self.helper = with_instant_processor(bin_folder / "zunto-helper", world.folder / "program")
        self.bare = bin_folder / "bare_window"

    def painted(self, *command, **extra):
        return Painted(self.bin, command, self.world, extra)


def startup(subject):
    """From the start of the process to its first painted window, warm; and against programs that people know."""
    for program in (subject.helper, subject.bare):  # what is read from the disk for the first time does not count
        with subject.painted(program):
            pass
    helper, bare = [], []
    for _ in range(5 if subject.quick else 20):
        for program, times in ((subject.helper, helper), (subject.bare, bare)):
            with subject.painted(program) as shown:
                times.append(shown.milliseconds)
    yield ratio("exec to the first painted window", _BARE, 1.15, helper, bare, "ms")
    yield _against_peers(subject, helper, bare)


def _against_peers(subject, helper, bare):
    times = {}
    for peer in filter(shutil.which, _PEERS):
        with contextlib.suppress(LookupError):
            with subject.painted(peer):
                pass
            times[peer] = []
            for _ in range(2 if subject.quick else 7):
                with subject.painted(peer) as shown:
                    times[peer].append(shown.milliseconds)
    if not times:
        return Row("exec to the first painted window", "the fastest of its peers", 0.5, note="no peer is installed")
    fastest = min(times, key=lambda peer: statistics.median(times[peer]))
    each = ", ".join(f"{peer} {statistics.median(seen):.0f} ms" for peer, seen in times.items())
    value, floor = (statistics.median(own) / statistics.median(times[fastest]) for own in (helper, bare))
    each += f"; {_BARE} would reach {floor:.3g}"
    return Row("exec to the first painted window", f"{fastest}, the fastest peer", 0.5, value, "", helper,
               times[fastest], "ms", each)


def memory(subject):
    helper, bare = [], []
    for _ in range(1 if subject.quick else 5):
        for program, seen in ((subject.helper, helper), (subject.bare, bare)):
            with subject.painted(program) as shown:
                time.sleep(_SETTLED_SECONDS)
                seen.append(proportional_kib(shown.pid) / 1024)
    yield ratio("proportional set size with the window up", _BARE, 1.15, helper, bare, "MiB")


def idling(subject):
    """In turn, since only one window at a time has the keyboard, and the blinking caret with it. The caret's cost varies
    by as much as the goal; where another window has the keyboard, the rest is seen alone."""
    what = "CPU of its own per idle minute"
    bare = [subject.bare]

    def without_keyboard(floor, name):
        return _more_when_idle(subject, f"{what} without the keyboard, more than", floor, name, 1,
                               lambda: subject.painted(subject.bare))

    yield without_keyboard(bare, _BARE)
    if not subject.quick:
        yield without_keyboard([*bare, "--probing"], "a bare Qt window that spawns curl as often")
        yield _more_when_idle(subject, f"{what}, more than", bare, _BARE, 3, contextlib.nullcontext)


def _more_when_idle(subject, what, floor, name, rounds, window_in_front):
    seconds = 10 if subject.quick else 60
    used = [], []
    for _ in range(rounds):
        for command, seen in zip(([subject.helper], floor), used):
            with subject.painted(*command) as shown, window_in_front():
                time.sleep(_SETTLED_SECONDS)
                before = cpu_milliseconds(shown.pid)
                time.sleep(seconds)
                seen.append((cpu_milliseconds(shown.pid) - before) * 60 / seconds)
    return Row(what, name, 5, statistics.median(used[0]) - statistics.median(used[1]), "ms", *used, "ms")


def size(subject):
    with tempfile.TemporaryDirectory() as folder:
        stripped = Path(folder) / "stripped"
        subprocess.run(["strip", "-o", stripped, subject.helper], check=True)
        mib = stripped.stat().st_size / _MIB
    yield Row("executable, stripped", "", 2, mib, "MiB", [mib], [], "MiB")
    with subject.painted(subject.helper) as helper, subject.painted(subject.bare) as bare:
        time.sleep(1)
        helper_libraries, bare_libraries = libraries(helper.pid), libraries(bare.pid)
    more = sorted(Path(path).name for path in helper_libraries - bare_libraries)
    yield Row("shared libraries, more than", _BARE, 8, len(helper_libraries) - len(bare_libraries), "",
              [len(helper_libraries)], [len(bare_libraries)], "", "besides: " + ", ".join(more))


def probe(subject):
    """The main thread is blocked while a health probe runs; what the helper adds to the program's own time."""
    done = subprocess.run([subject.bin / "spawn_benchmark", "--benchmark_repetitions=9",
                           "--benchmark_enable_random_interleaving=true", "--benchmark_format=json"],
                          check=True, capture_output=True, text=True)
    runs = [run for run in json.loads(done.stdout)["benchmarks"] if run["run_type"] == "iteration"]
    helper, bare = ([run["real_time"] for run in runs if run["name"].startswith(name)]
                    for name in ("BM_HelperCommand", "BM_BareSpawn"))
    yield ratio("one command run to its end", "posix_spawn in a bare loop", 1.2, helper, bare, "µs")


def many_titles(subject):
    frames = 1000 / 60 * 2
    for count, goal in ((5000, frames), (100_000, 1000.0)):
        done = subprocess.run([subject.bin / "analysis_benchmark", str(count)], check=True, capture_output=True, text=True)
        milliseconds = float(done.stdout)
        against = "two frames" if count == 5000 else "a second"
        yield Row(f"{count:,} qualities and tracks, main thread", against, 1, milliseconds / goal, "", [milliseconds],
                  [goal], "ms")


class _FileServer:
    """Sends one file to whoever asks on loopback, as fast as the system can."""

    def __init__(self, path):
        self._path = path
        self._listener = socket.create_server(("127.0.0.1", 0))
        self.url = f"http://127.0.0.1:{self._listener.getsockname()[1]}/result"
        # A process of its own: its CPU time is not the client's, and it does not wait for this one's lock.
        self._child = os.fork()
        if self._child == 0:
            self._serve()

    def _serve(self):
        size = self._path.stat().st_size
        head = f"HTTP/1.1 200 OK\r\nContent-Length: {size}\r\nConnection: close\r\n\r\n".encode()
        with open(self._path, "rb") as file:
            while True:
                connection, _ = self._listener.accept()
                with connection, contextlib.suppress(OSError):
                    connection.recv(65536)
                    connection.sendall(head)
                    sent = 0
                    while sent < size:
                        sent += os.sendfile(connection.fileno(), file.fileno(), sent, size - sent)

    def close(self):
        os.kill(self._child, 9)
        os.waitpid(self._child, 0)
        self._listener.close()


def saving(subject):
    """A large result from loopback to the disk, as the helper fetches it and as the curl program does."""
    mib = 256 if subject.quick else 2048
    folder = subject.root / "build/bench-files"
    folder.mkdir(parents=True, exist_ok=True)
    source, target = folder / "source", folder / "target"
    with open(source, "wb") as file:
        block = os.urandom(_MIB)
        for _ in range(mib):
            file.write(block)
    server = _FileServer(source)
    ours = [subject.bin / "fetch_result", server.url, target]
    curl = ["curl", "--silent", "--output", target, server.url]
    costs, growth = {"ours": [], "curl": []}, []
    try:
        for _ in range(3 if subject.quick else 7):
            for name, command in (("ours", ours), ("curl", curl)):
                target.unlink(missing_ok=True)
                with tempfile.TemporaryFile() as output:
                    costs[name].append(run_for_cost(command, stdout=output))
                    output.seek(0)
                    if name == "ours":
                        growth.append(int(output.read()) / 1024)
                if target.stat().st_size != mib * _MIB:
                    raise RuntimeError(f"{name} did not fetch the whole file")
    finally:
        server.close()
        shutil.rmtree(folder)
    for column, label in ((0, "wall time"), (1, "CPU time")):
        yield ratio(f"a result of {mib:,} MiB to the disk, {label}", "curl -o", 0.5,
                    [cost[column] for cost in costs["ours"]], [cost[column] for cost in costs["curl"]], "s")
    yield Row(f"memory growth over {mib:,} MiB", "", 8, statistics.median(growth), "MiB", growth, [], "MiB")


def readiness(subject):
    """From the moment the processor listens to the helper showing it, beyond the pause of 150 ms and one probe."""
    curl = ["/usr/bin/curl", "--fail", "--silent", "--max-time", "1"]
    waits, probes = [], []
    listening = subject.world.folder / "listening"
    for round_number in range(4 if subject.quick else 20):
        listening.unlink(missing_ok=True)
        subject.tray.forget()
        delay = random.Random(round_number).randrange(150)
        with subject.painted(subject.helper, BENCH_LISTENING_FILE=str(listening), BENCH_LISTEN_DELAY_MS=str(delay)):
            shown = subject.tray.wait_for_title("Z/UNTO ●", 20)
            waits.append((shown - int(listening.read_text(encoding="ascii"))) / 1e6)
            health = [*curl, "http://127.0.0.1:43127/health"]
            probes.append(run_for_cost(health, stdout=subprocess.DEVNULL)[0] * 1e3)
    floor = 150 + statistics.median(probes)
    beyond = max(waits) - floor
    yield Row("processor listening to Ready, at worst beyond", "the pause and one probe", 20, beyond, "ms", waits,
              [floor], "ms")


def endurance(subject):
    """A day's work through the real window, by its controls: the helper must weigh afterwards what it did before."""
    from helper_program import READY, HelperProgram
    from steps import wait_until

    analyses, downloads, warm = (60, 8, 4) if subject.quick else (1000, 200, 10)
    helper = HelperProgram(subject.helper, subject.world)
    saved = subject.world.home / "saved"
    saved.mkdir()

    numbers = itertools.count(1)

    def analyze():
        title = f"Film {next(numbers)}"
        helper.press("Analyze")
        wait_until(lambda: helper.title_and_detail()[0] == title and helper.button("Analyze").is_enabled, title, 20,
                   0.01)

    def download(number):
        path = saved / f"film-{number}.mp4"
        helper.press("Download…")
        wait_until(helper.has_save_panel, "the save panel", 20, 0.02)
        helper.panel_name_field().set_text(str(path))
        helper.panel_button("Save").act("Press")
        wait_until(lambda: helper.status() == f"Saved to {path}", "the file", 20, 0.02)
        path.unlink()

    def weigh():
        time.sleep(_SETTLED_SECONDS)
        return proportional_kib(helper.process.pid) / 1024, *threads_and_descriptors(helper.process.pid)

    try:
        helper.wait_for_status(READY, 45)
        helper.set_link("https://example.org/watch?v=1")
        for number in range(warm):
            analyze()
            download(number)
        before = weigh()
        for _ in range(analyses - warm):
            analyze()
        for number in range(downloads - warm):
            download(number)
        after = weigh()
    finally:
        helper.stop()
    yield Row(f"memory after {analyses:,} analyses and {downloads} downloads", f"its own after the first {warm}", 1.05,
              after[0] / before[0], "", [after[0]], [before[0]], "MiB")
    yield Row("threads more", "", 0, after[1] - before[1], "", [after[1]], [before[1]])
    yield Row("descriptors more", "", 0, after[2] - before[2], "", [after[2]], [before[2]])


def building(subject):
    """What a change costs who works on it."""
    with tempfile.TemporaryDirectory() as folder:
        configure = ["cmake", "-S", subject.root, "--preset", "release", "-B", folder]
        environment = {name: value for name, value in os.environ.items() if "COMPILER_LAUNCHER" not in name}
        options = {"stdout": subprocess.DEVNULL, "env": environment}
        subprocess.run(configure, check=True, **options)
        build = ["cmake", "--build", folder, "--target", "zunto-helper"]
        clean = run_for_cost(build, **options)[0]
        incremental = []
        for source in ("app/launcher.cpp", "import/download_flow.cpp", "protocol/decoding.cpp"):
            os.utime(subject.root / source)
            incremental.append(run_for_cost(build, **options)[0])
    yield Row("clean release build", "", 90, clean, "s", [clean], [], "s")
    yield Row("build after a change of one logic source", "", 6, statistics.median(incremental), "s", incremental, [],
              "s")


QUICK = (startup, memory, idling, size, probe, many_titles, saving, readiness)
ALL = (*QUICK, endurance, building)
