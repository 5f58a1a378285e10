"""A network of the run's own: the helper's port is one per network, and another helper may be using it."""

import ctypes
import fcntl
import os
import socket
import struct
from collections import Counter

HELPER_PORT = 43127

_CLONE_NEWNET = 0x40000000
_CLONE_NEWUSER = 0x10000000
_SIOCGIFFLAGS = 0x8913
_SIOCSIFFLAGS = 0x8914
_IFF_UP = 0x1

_OTHER_ATTEMPTS = ("Ip OutNoRoutes", "Udp OutDatagrams", "Ip6OutNoRoutes", "Udp6OutDatagrams")


def enter_private_network():
    """Moves this process and its later children into a network that has only loopback.

    Where the system does not allow that, the machine's own network stays in use. Answers whether it is private.
    Must be called while the process has one thread.
    """
    user, group = os.getuid(), os.getgid()
    libc = ctypes.CDLL(None, use_errno=True)
    flags = _CLONE_NEWNET if user == 0 else _CLONE_NEWNET | _CLONE_NEWUSER
    if libc.unshare(flags) != 0:
        return False
    if user != 0:
        _write("/proc/self/setgroups", "deny")
        _write("/proc/self/uid_map", f"{user} {user} 1")
        _write("/proc/self/gid_map", f"{group} {group} 1")
    _bring_loopback_up()
    return True


def port_is_free(port=HELPER_PORT):
    with socket.socket() as probe:
        probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        try:
            probe.bind(("127.0.0.1", port))
        except OSError:
            return False
        return True


def has_only_loopback():
    return [line.split(":")[0].strip() for line in _read("/proc/net/dev").splitlines() if ":" in line] == ["lo"]


def attempts():
    """What has been tried in this network so far: how many TCP connections, and how much else, such as a question for
    the address of a name, or a connection that found no way."""
    counts = _counts()
    return counts["Tcp ActiveOpens"], sum(counts[name] for name in _OTHER_ATTEMPTS)


def _counts():
    counts = {}
    lines = [line.split() for line in _read("/proc/net/snmp").splitlines()]
    for names, values in zip(lines[::2], lines[1::2]):
        kind = names[0].rstrip(":")
        counts |= {f"{kind} {name}": int(value) for name, value in zip(names[1:], values[1:])}
    if os.path.exists("/proc/net/snmp6"):
        counts |= {name: int(value) for name, value in map(str.split, _read("/proc/net/snmp6").splitlines())}
    return Counter(counts)


def _read(path):
    with open(path, encoding="ascii") as file:
        return file.read()


def _bring_loopback_up():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as control:
        request = struct.pack("16sh14x", b"lo", 0)
        (flags,) = struct.unpack("16xh14x", fcntl.ioctl(control, _SIOCGIFFLAGS, request))
        fcntl.ioctl(control, _SIOCSIFFLAGS, struct.pack("16sh14x", b"lo", flags | _IFF_UP))


def _write(path, text):
    with open(path, "w", encoding="ascii") as file:
        file.write(text)
