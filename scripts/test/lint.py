#!/usr/bin/env python3
"""Runs clang-tidy on the C++ sources of folders: lint.py [--all] [--clang-tidy PROGRAM] BUILD FOLDER ...

A source is looked at when it, or a header of the project that it uses, has changed since it was last found clean;
with --all, always. BUILD is a folder in which everything was built: it knows the commands and the headers. Prints a
line for each source, and at the end how many passed and failed.
"""

import argparse
import hashlib
import json
import os
import shlex
import subprocess
import sys
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path


def main():
    options = _options()
    build = options.build.resolve()
    commands = _commands(build, options.folders)
    if not commands:
        sys.exit(f"lint: {build} has built no source of {' '.join(options.folders)}")
    clean = build / "lint"
    clean.mkdir(exist_ok=True)
    markers = _markers(build, commands, clean, options.clang_tidy)
    wanted = [source for source in commands if options.all or not markers[source].exists()]
    # The long ones first, so that no core is idle at the end.
    wanted.sort(key=lambda source: source.stat().st_size, reverse=True)
    if len(wanted) < len(commands):
        print(f"{len(commands) - len(wanted)} sources were found clean as they are", flush=True)
    check = _checker(build, options.clang_tidy)
    failed = 0
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        try:
            for number, (source, ok, output, seconds) in enumerate(pool.map(check, wanted), 1):
                word = "ok  " if ok else "FAIL"
                print(f"[{number}/{len(wanted)}] {word} {os.path.relpath(source)}  [{seconds:.0f} s]\n{output}",
                      end="", flush=True)
                if ok:
                    markers[source].touch()
                failed += not ok
        except KeyboardInterrupt:
            pool.shutdown(cancel_futures=True)
            sys.exit(130)
    print(f"{len(commands) - failed} passed, {failed} failed")
    return 1 if failed else 0


def _options():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--all", action="store_true", help="look at unchanged sources, too")
    parser.add_argument("--clang-tidy", default="clang-tidy", metavar="PROGRAM", help="another than clang-tidy")
    parser.add_argument("build", type=Path)
    parser.add_argument("folders", nargs="+")
    return parser.parse_args()


def _commands(build, folders):
    """{source: its entry in the compilation database}"""
    within = tuple(f"{Path(folder).resolve()}/" for folder in folders)
    entries = json.loads((build / "compile_commands.json").read_text(encoding="utf-8"))
    return {Path(entry["file"]): entry for entry in entries
            if entry["file"].startswith(within) and entry["file"].endswith(".cpp")}


def _markers(build, commands, folder, clang_tidy):
    """{source: the file that exists once it was found clean just as it is}"""
    common = _text(clang_tidy, "--version") + Path(".clang-tidy").read_text(encoding="utf-8")
    headers = _headers(build)
    known = {}

    def content(file):
        if file not in known:
            known[file] = hashlib.sha256((build / file).read_bytes()).hexdigest()
        return known[file]

    def marker(source, entry):
        arguments = shlex.split(entry["command"])
        used = headers.get(arguments[arguments.index("-o") + 1])
        if used is None:
            sys.exit(f"lint: {source} has not been built in {build}")
        parts = [common, entry["command"], content(source), *map(content, used)]
        return folder / hashlib.sha256("\n".join(parts).encode()).hexdigest()

    return {source: marker(source, entry) for source, entry in commands.items()}


def _headers(build):
    """{object file: the headers it was built with}, without the system's."""
    headers = {}
    for line in _text("ninja", "-C", build, "-t", "deps").splitlines():
        if line.startswith(" "):
            if not line.startswith("    /usr/"):
                headers[name].append(line.strip())
        elif ": #deps " in line:
            name = line.partition(": #deps ")[0]
            headers[name] = []
    return headers


def _checker(build, clang_tidy):
    def check(source):
        began = time.monotonic()
        done = subprocess.run([clang_tidy, "--quiet", "-p", build, source], stdin=subprocess.DEVNULL, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=False)
        return source, done.returncode == 0, done.stdout, time.monotonic() - began

    return check


def _text(*command):
    return subprocess.run(command, stdout=subprocess.PIPE, check=True, text=True).stdout


if __name__ == "__main__":
    sys.exit(main())
