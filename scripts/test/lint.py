#!/usr/bin/env python3
"""Runs clang-tidy on the C++ sources of folders: lint.py [--all] [--clang-tidy PROGRAM] BUILD FOLDER ...

A source is looked at when it, or a header of the project that it uses, has changed since it was last found clean;
with --all, always. BUILD is a folder in which everything was built: it knows the commands and the headers. Prints a
line for each source, and at the end how many passed and failed.

Most of clang-tidy's time goes into the headers that sources of one folder share. So several of them are looked at as
one file, one behind the other, and only where it is not content with that, each alone: sources that define the same name
for themselves do not compile together.
"""

import argparse
import hashlib
import itertools
import json
import os
import shlex
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

_MOST_AT_ONCE = 8


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
    if len(wanted) < len(commands):
        print(f"{len(commands) - len(wanted)} sources were found clean as they are", flush=True)
    number = failed = 0
    with ThreadPoolExecutor(os.cpu_count()) as pool, tempfile.TemporaryDirectory(dir=clean) as folder:
        check = _Checker(build, commands, Path(folder), options.clang_tidy)
        try:
            for source, ok, output in itertools.chain.from_iterable(pool.map(check, _groups(wanted, commands))):
                number += 1
                word = "ok  " if ok else "FAIL"
                print(f"[{number}/{len(wanted)}] {word} {os.path.relpath(source)}\n{output}", end="", flush=True)
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


def _options_of(entry):
    """Its command without the names of the files."""
    arguments = shlex.split(entry["command"])
    for option in ("-o", "-c"):
        at = arguments.index(option)
        del arguments[at:at + 2]
    return tuple(arguments)


def _groups(wanted, commands):
    """Sources of one folder with the same options, so many at a time that every core has work to the end. The ones that
    take long come first."""
    alike = {}
    for source in wanted:
        alike.setdefault((source.parent, _options_of(commands[source])), []).append(source)
    groups = []
    for sources in alike.values():
        count = -(-len(sources) // _MOST_AT_ONCE)
        groups += [sources[first::count] for first in range(count)]
    return sorted(groups, key=lambda group: sum(source.stat().st_size for source in group), reverse=True)


class _Checker:
    """Looks at a group of sources; answers (source, is it clean, what clang-tidy says) for each."""

    def __init__(self, build, commands, folder, clang_tidy):
        self._build = build
        self._commands = commands
        self._folder = folder
        self._clang_tidy = clang_tidy

    def __call__(self, sources):
        if len(sources) > 1 and self._is_clean_together(sources):
            return [(source, True, "") for source in sources]
        return [(source, *self._look(self._build, source)) for source in sources]

    def _is_clean_together(self, sources):
        folder = Path(tempfile.mkdtemp(dir=self._folder))
        together = folder / "together.cpp"
        # A macro's end lets the next source include the same headers again.
        together.write_text("\n#undef SOURCE\n".join(source.read_text(encoding="utf-8") for source in sources),
                            encoding="utf-8")
        entry = {"directory": self._commands[sources[0]]["directory"], "file": str(together),
                 "arguments": [*_options_of(self._commands[sources[0]]), "-c", str(together)]}
        (folder / "compile_commands.json").write_text(json.dumps([entry]), encoding="utf-8")
        return self._look(folder, together)[0]

    def _look(self, database, source):
        done = subprocess.run([self._clang_tidy, "--quiet", "-p", database, source], stdin=subprocess.DEVNULL, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=False)
        return done.returncode == 0, done.stdout


def _text(*command):
    return subprocess.run(command, stdout=subprocess.PIPE, check=True, text=True).stdout


if __name__ == "__main__":
    sys.exit(main())
