"""Mounts that nobody but this run sees."""

import contextlib
import ctypes
import os

from steps import NotTried

_CLONE_NEWNS = 0x00020000
_MS_RDONLY = 0x1
_MS_BIND = 0x1000
_MS_REC = 0x4000
_MS_PRIVATE = 0x40000

_libc = ctypes.CDLL(None, use_errno=True)


def enter_private_mounts():
    """For this process and what it starts from now on. Where the system does not allow that, nothing can be mounted
    either: nobody may mount in the machine's own tree."""
    global _are_private
    _are_private = _libc.unshare(_CLONE_NEWNS) == 0 and _mount("none", "/", None, _MS_REC | _MS_PRIVATE, None) == 0


_are_private = False


@contextlib.contextmanager
def memory(folder, size, read_only=False):
    """A file system of `size` in memory stands at a folder. That it can be taken away again shows that nobody has a
    file of it open."""
    with _mounted("tmpfs", folder, "tmpfs", _MS_RDONLY if read_only else 0, f"size={size}"):
        yield


def in_place_of(path, other):
    """The file or folder `other` stands at `path`, which must be there."""
    return _mounted(other, path, None, _MS_BIND, None)


def hidden(path):
    """What stands at a file's path can be neither read nor run."""
    return in_place_of(path, "/dev/null")


@contextlib.contextmanager
def _mounted(source, target, kind, flags, data):
    if not _are_private or _mount(source, target, kind, flags, data) != 0:
        raise NotTried(f"nothing can be mounted here ({os.strerror(ctypes.get_errno())})")
    try:
        yield
    finally:
        if _libc.umount(os.fsencode(target)) != 0:
            error = ctypes.get_errno()
            raise OSError(error, os.strerror(error), os.fspath(target))


def _mount(source, target, kind, flags, data):
    texts = [os.fsencode(text) if text is not None else None for text in (source, target, kind, data)]
    return _libc.mount(texts[0], texts[1], texts[2], ctypes.c_ulong(flags), texts[3])
