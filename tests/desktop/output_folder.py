#!/usr/bin/env python3
"""The folder that a demonstration leaves its files in. What no demonstration has made there is never touched.

Called with a folder, makes it if there is none, and says whether a demonstration may use it.
"""

import os
import shutil
import sys
from pathlib import Path

_LIST = ".made-by-the-demonstration"
_PARTS = ("saved", "screenshots", "evidence")


class Unusable(Exception):
    """Says in a line why a folder cannot be used."""


class OutputFolder:
    """Use as a context: `saved`, `screenshots` and `evidence` are empty folders inside it."""

    def __init__(self, folder):
        require_usable(folder)
        self.folder = folder
        self.saved, self.screenshots, self.evidence = (folder / part for part in _PARTS)

    def __enter__(self):
        for part in (self.saved, self.screenshots, self.evidence):
            if part.exists():
                shutil.rmtree(part)
            part.mkdir()
        self._write_list()
        return self

    def __exit__(self, *_):
        self._write_list()

    def _write_list(self):
        (self.folder / _LIST).write_text("".join(f"{name}\n" for name in sorted(_files_in(self.folder))),
                                         encoding="utf-8", errors="surrogateescape")


def require_usable(folder):
    """Only a new or empty folder will do, or one that holds nothing but what its list names."""
    if folder.exists() and not folder.is_dir():
        raise Unusable(f"{folder} is not a folder")
    try:
        folder.mkdir(parents=True, exist_ok=True)
    except OSError as error:
        raise Unusable(f"{folder} cannot be made: {error.strerror}") from error
    if not os.access(folder, os.R_OK | os.W_OK | os.X_OK):
        raise Unusable(f"{folder} cannot be written")
    others = sorted(_files_in(folder) - _listed(folder))
    if others:
        raise Unusable(f"{folder} holds {others[0]}, which no demonstration has made; name a new folder")


def _files_in(folder):
    """All but the folders and the list; a link to a folder is not looked behind."""
    found = set()
    for place, folders, files in os.walk(folder):
        links = [name for name in folders if os.path.islink(os.path.join(place, name))]
        found |= {os.path.relpath(os.path.join(place, name), folder) for name in (*files, *links)}
    return found - {_LIST}


def _listed(folder):
    try:
        return set((folder / _LIST).read_text(encoding="utf-8", errors="surrogateescape").splitlines())
    except FileNotFoundError:
        return set()


if __name__ == "__main__":
    try:
        require_usable(Path(sys.argv[1]))
    except Unusable as reason:
        sys.exit(f"demo: {reason}")
