#!/usr/bin/python3
"""Plants faults in the logic, one at a time, and says which of them no test sees: mutate.py [OPTIONS] [FILE ...]

Each fault is built and meets the tests of its folder, then those of the folders above, then the simulation, until one
of them fails; who hangs or crashes has failed. FILE limits the run to faults of that source. All happens in copies of
the tree in build/mutation, on all cores, and yields to whatever else the machine has to do.

A fault that changes nothing which anybody could see stands in equivalent.toml, with the reason. The exit status is 0
when every fault was caught or stands there.
"""

import argparse
import collections
import concurrent.futures
import hashlib
import json
import os
import queue
import resource
import shutil
import signal
import subprocess
import sys
import threading
import time
import tomllib
from pathlib import Path

from faults import enums_in, faults_in

ROOT = Path(__file__).resolve().parents[2]
WORK = ROOT / "build/mutation"
EQUIVALENT = Path(__file__).with_name("equivalent.toml")
REPORT = ROOT / "docs/mutation.md"

# The tests that link each folder, the nearest first.
TESTS = {
    "async": ("async_tests", "protocol_test", "import_test", "app_tests"),
    "platform/model": ("model_tests", "import_test", "app_tests"),
    "platform": ("protocol_test", "import_test", "app_tests"),
    "protocol": ("protocol_test", "import_test", "app_tests"),
    "import": ("import_test", "app_tests"),
    "app": ("app_tests",),
}
PROGRAMS = {"async_tests": "async", "model_tests": "model", "protocol_test": "protocol", "import_test": "import",
            "app_tests": "app", "simulation": "simulation"}
SIMULATION = ("--schedules", "3000")
# Of the processor, not of the clock: a machine that is busy makes nobody hang. Who waits for ever uses none.
CPU_SECONDS, CLOCK_SECONDS, MEMORY = 60, 600, 4 << 30

BY_TESTS, BY_SIMULATION = "caught by tests", "caught by the simulation"
SURVIVED, NOT_COMPILING, EQUIVALENT_AS_LISTED = "survived", "not compiling", "equivalent, as listed"
NOT_PLANTED = "not planted"


def main():
    options = _options()
    os.nice(19)
    texts = sources()
    planned = _chosen(texts, options)
    excuses = Excuses(EQUIVALENT.read_text(encoding="utf-8"))
    for complaint in excuses.unmatched(texts):
        sys.exit(f"mutate: {complaint}")
    verdicts = Verdicts(WORK / "verdicts.json", texts)
    wanted = [(file, fault) for file, fault in planned if not options.again or verdicts.missing(file, fault)]
    print(f"{len(planned)} faults in {len({file for file, _ in planned})} files, {len(wanted)} to plant", flush=True)
    _plant(wanted, texts, options.jobs, verdicts)
    text, status = summary(planned, verdicts, excuses)
    print(text)
    if options.report:
        before = REPORT.read_text(encoding="utf-8").partition("## The last run")[0]
        REPORT.write_text(before + report(planned, verdicts, excuses), encoding="utf-8")
    return status


def _options():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("files", nargs="*", metavar="FILE", type=lambda name: Path(name).resolve())
    parser.add_argument("--some", type=int, metavar="N", help="about N faults, always the same, from all files")
    parser.add_argument("--again", action="store_true",
                        help="only those that survived last time or whose source has changed since; after new tests")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), metavar="N", help="so many trees at once")
    parser.add_argument("--report", action="store_true", help="write the counts to docs/mutation.md")
    return parser.parse_args()


def sources():
    """{file: its text}; what runs the platform's main loop is no logic."""
    return {file: file.read_text(encoding="utf-8") for folder in TESTS for file in sorted((ROOT / folder).iterdir())
            if file.suffix in (".h", ".cpp") and file.name != "main.cpp"}


def all_faults(sources):
    enums = {}
    for text in sources.values():
        enums.update(enums_in(text))
    return [(file, fault) for file, text in sources.items() for fault in faults_in(text, enums)]


def _chosen(sources, options):
    planned = all_faults(sources)
    if options.some:
        share = options.some / len(planned)
        planned = [(file, fault) for file, fault in planned if chance(file, fault) < share]
    if options.files:
        planned = [(file, fault) for file, fault in planned if file in options.files]
    if not planned:
        sys.exit("mutate: there is nothing to plant a fault in")
    return planned


def chance(file, fault):
    """From 0 to 1, by the fault alone: a change elsewhere does not choose others."""
    return int(hashlib.sha256(key(file, fault).encode()).hexdigest()[:8], 16) / 0x100000000


def key(file, fault):
    return json.dumps([str(file.relative_to(ROOT)), fault.line, fault.name, fault.count], ensure_ascii=False)


class Excuses:
    """The faults that change nothing, as listed."""

    def __init__(self, text):
        self._reasons = {}
        for entry in tomllib.loads(text).get("equivalent", []):
            key = json.dumps([entry["file"], entry["line"], entry["fault"], entry.get("count", 1)], ensure_ascii=False)
            self._reasons[key] = entry["reason"]

    def of(self, file, fault):
        return self._reasons.get(key(file, fault))

    def unmatched(self, sources):
        known = {key(file, fault) for file, fault in all_faults(sources)}
        return [f"{EQUIVALENT.name} lists what cannot be planted: {key}" for key in self._reasons if key not in known]


class Verdicts:
    """What became of each fault, kept from run to run; forgotten when its source has changed."""

    def __init__(self, path, sources):
        self._path = path
        self._hashes = {file: hashlib.sha256(text.encode()).hexdigest() for file, text in sources.items()}
        self._known = json.loads(path.read_text(encoding="utf-8")) if path.exists() else {}
        self._lock = threading.Lock()

    def of(self, file, fault):
        source, verdict = self._known.get(key(file, fault), (None, None))
        return verdict if source == self._hashes[file] else None

    def missing(self, file, fault):
        return self.of(file, fault) in (None, SURVIVED)

    def note(self, file, fault, verdict):
        with self._lock:
            self._known[key(file, fault)] = (self._hashes[file], verdict)
            self._path.write_text(json.dumps(self._known, ensure_ascii=False, indent=0), encoding="utf-8")


def _plant(faults, sources, jobs, verdicts):
    """Some of one file at a time: to go back to another file costs two compilations."""
    if not faults:
        return
    portions = queue.SimpleQueue()
    portion = []
    # Headers come last: each of their faults costs many compilations.
    for file, fault in sorted(faults, key=lambda planted: planted[0].suffix):
        if portion and (portion[0][0] != file or len(portion) == 25):
            portions.put(portion)
            portion = []
        portion.append((file, fault))
    portions.put(portion)
    total, done, began = len(faults), 0, time.monotonic()
    lock = threading.Lock()

    def work(number):
        nonlocal done
        tree = Tree(WORK / str(number))
        while True:
            try:
                portion = portions.get_nowait()
            except queue.Empty:
                return
            for file, fault in portion:
                verdict = tree.verdict(file, fault.planted_in(sources[file]))
                verdicts.note(file, fault, verdict)
                with lock:
                    done += 1
                    if verdict == SURVIVED or done % 50 == 0:
                        place = f"{file.relative_to(ROOT)}:{fault.number}: {fault.name}"
                        print(f"[{done}/{total}, {time.monotonic() - began:.0f} s] {verdict}: {place}", flush=True)
            tree.restore(portion[0][0], sources[portion[0][0]])

    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        for worker in [pool.submit(work, number) for number in range(jobs)]:
            worker.result()


class Tree:
    """A copy of the tree, and the tests built in it."""

    def __init__(self, folder):
        self._tree, self._build = folder / "tree", folder / "build"
        self._copy()
        self._precompile()
        folders = ";".join(PROGRAMS.values())
        self._require(["cmake", "-G", "Ninja", "-S", self._tree, "-B", self._build, "-DCMAKE_CXX_COMPILER=clang++",
                       "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS_DEBUG=-O0 -w", "-DZUNTO_QT=OFF",
                       f"-DZUNTO_TEST_FOLDERS={folders}", f"-DCMAKE_PROJECT_INCLUDE={self._build}/precompiled.cmake",
                       "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST",
                       "-DCMAKE_EXE_LINKER_FLAGS=" + ("-fuse-ld=lld" if shutil.which("ld.lld") else "")])  # quicker
        self._require(["ninja", "-C", self._build, *PROGRAMS])
        for program in PROGRAMS:
            if not self._passes(program):
                sys.exit(f"mutate: {program} fails without any fault")

    def verdict(self, file, text):
        (self._tree / file.relative_to(ROOT)).write_text(text, encoding="utf-8")
        for program in TESTS[str(file.relative_to(ROOT).parent)]:
            if not self._builds(program):
                return NOT_COMPILING
            if not self._passes(program):
                return BY_TESTS
        if not self._builds("simulation"):
            return NOT_COMPILING
        return SURVIVED if self._passes("simulation") else BY_SIMULATION

    def restore(self, file, text):
        (self._tree / file.relative_to(ROOT)).write_text(text, encoding="utf-8")

    def _copy(self):
        """Only what differs, so that what was built before stays."""
        wanted = set()
        for name in ("CMakeLists.txt", "async", "platform", "protocol", "import", "app", "cmake", "packaging", "tests"):
            for file in [ROOT / name, *(ROOT / name).rglob("*")]:
                if file.is_file() and "__pycache__" not in file.parts:
                    copy = self._tree / file.relative_to(ROOT)
                    wanted.add(copy)
                    if not copy.exists() or copy.read_bytes() != file.read_bytes():
                        copy.parent.mkdir(parents=True, exist_ok=True)
                        shutil.copy(file, copy)
        for copy in self._tree.rglob("*"):
            if copy.is_file() and copy not in wanted:
                copy.unlink()

    def _precompile(self):
        """The system's headers, which take most of the time, are read once."""
        header = self._build / "system.h"
        lines = {line for text in sources().values() for line in text.splitlines() if line.startswith("#include <")}
        text = "\n".join([*sorted(lines), ""])
        if header.exists() and header.read_text(encoding="utf-8") == text:
            return
        self._build.mkdir(parents=True, exist_ok=True)
        header.write_text(text, encoding="utf-8")
        self._require(["clang++", "-O0", "-w", "-std=c++20", "-x", "c++-header", header, "-o", f"{header}.pch"])
        header.with_name("precompiled.cmake").write_text(f'add_compile_options(-include-pch "{header}.pch")\n',
                                                         encoding="utf-8")

    def _require(self, command):
        done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              text=True, check=False)
        if done.returncode != 0:
            sys.exit(f"mutate: without any fault, {command[0]} fails:\n{done.stdout}")

    def _builds(self, program):
        return subprocess.run(["ninja", "-j2", "-C", self._build, program], stdin=subprocess.DEVNULL,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False).returncode == 0

    def _passes(self, program):
        arguments = SIMULATION if program == "simulation" else ("--gtest_fail_fast", "--gtest_brief=1")
        return passes([self._build / "tests" / PROGRAMS[program] / program, *arguments])


def passes(command, clock_seconds=CLOCK_SECONDS, cpu_seconds=CPU_SECONDS):
    """Whether it succeeds, within bounds of time and memory. Nothing that it has started stays."""
    def limit():
        resource.setrlimit(resource.RLIMIT_CPU, (cpu_seconds, cpu_seconds))
        resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))

    with subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                          preexec_fn=limit, start_new_session=True) as process:
        try:
            return process.wait(clock_seconds) == 0
        except subprocess.TimeoutExpired:
            return False
        finally:
            try:
                os.killpg(process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass


def _counts(planned, verdicts, excuses):
    """({file: {verdict: how many}}, what must not be so)"""
    counts = collections.defaultdict(collections.Counter)
    complaints = []
    for file, fault in planned:
        verdict, reason = verdicts.of(file, fault), excuses.of(file, fault)
        complaint = None
        if verdict is None:
            complaint = verdict = NOT_PLANTED
        elif reason is not None:
            complaint = f"{verdict}, although listed as equivalent" if verdict != SURVIVED else None
            verdict = EQUIVALENT_AS_LISTED if verdict == SURVIVED else verdict
        elif verdict == SURVIVED:
            complaint = SURVIVED
        if complaint is not None:
            complaints.append(f"{complaint}: {file.relative_to(ROOT)}:{fault.number}: {fault.name}\n    {fault.line}")
        counts[file][verdict] += 1
    return counts, complaints


def summary(planned, verdicts, excuses):
    """What to print at the end, and the exit status."""
    counts, complaints = _counts(planned, verdicts, excuses)
    total = sum(counts.values(), collections.Counter())
    judged = (BY_TESTS, BY_SIMULATION, EQUIVALENT_AS_LISTED, SURVIVED)
    last = (f"{sum(total[verdict] for verdict in judged)} faults: "
            f"{', '.join(f'{total[verdict]} {verdict}' for verdict in judged)}; "
            f"{total[NOT_COMPILING]} more did not compile, {total[NOT_PLANTED]} were not planted")
    return "\n".join([*complaints, last]), 1 if complaints else 0


def report(planned, verdicts, excuses):
    counts, _ = _counts(planned, verdicts, excuses)
    lines = ["## The last run", "",
             "| file | faults | caught by tests | by the simulation | equivalent | survived |",
             "|---|---|---|---|---|---|"]
    total = collections.Counter()
    for file, count in counts.items():
        lines.append(_row(f"`{file.relative_to(ROOT)}`", count))
        total += count
    lines += [_row("all", total), "",
              f"{total[NOT_COMPILING]} more did not compile, {total[NOT_PLANTED]} were not planted.",
              "", "## Equivalent faults", ""]
    by_reason = collections.defaultdict(list)
    for file, fault in planned:
        if excuses.of(file, fault) is not None:
            by_reason[excuses.of(file, fault)].append(f"`{file.relative_to(ROOT)}`: {fault.name} in `{fault.line}`")
    for reason, places in by_reason.items():
        lines += [f"- {reason}", *(f"  - {place}" for place in places)]
    return "\n".join(lines) + "\n"


def _row(name, count):
    judged = [count[verdict] for verdict in (BY_TESTS, BY_SIMULATION, EQUIVALENT_AS_LISTED, SURVIVED)]
    return "| " + " | ".join([name, *map(str, [sum(judged), *judged])]) + " |"


if __name__ == "__main__":
    sys.exit(main())
