"""The .deb itself: what it holds, what it needs, and what Debian's own checker says."""

import gzip
import re
import subprocess
import tarfile
import tempfile

from steps import Step, require, require_equal

NAME = "example.zunto.Helper"
_TOOLS = ("ffmpeg", "ffprobe", "node", "yt-dlp")


def archive_steps():
    return [
        Step("The package holds the program, its resources and what the desktop reads, and nothing else", _contents),
        Step("Every file belongs to root, and only the program can be run", _owners_and_rights),
        Step("The links to the tools lead to where the packages that it needs put them", _links),
        Step("It needs the tools in versions that work, and recommends what a desktop wants", _relations),
        Step("No maintainer script runs, and no file is kept as a setting", _control),
        Step("The changelog begins with the package's version", _changelog),
        Step("Lintian finds no error and no warning", _lintian, 60),
    ]


def _archive(run):
    data = subprocess.run(["dpkg-deb", "--fsys-tarfile", run.package], capture_output=True, check=True).stdout
    file = tempfile.TemporaryFile()
    file.write(data)
    file.seek(0)
    return tarfile.open(fileobj=file)


def _field(run, name):
    return subprocess.run(["dpkg-deb", "--field", run.package, name], capture_output=True, text=True,
                          check=True).stdout.strip()


def _contents(run):
    expected = {
        "bin/zunto-helper",
        f"share/applications/{NAME}.desktop",
        f"share/dbus-1/services/{NAME}.service",
        f"share/metainfo/{NAME}.metainfo.xml",
        f"share/icons/hicolor/scalable/apps/{NAME}.svg",
        *(f"share/icons/hicolor/{side}x{side}/apps/{NAME}.png" for side in (16, 22, 24, 32, 48, 64, 128, 256)),
        "share/man/man1/zunto-helper.1.gz",
        "share/doc/zunto-helper/copyright",
        "share/doc/zunto-helper/changelog.gz",
        *(f"share/zunto-helper/runtime/bin/{tool}" for tool in _TOOLS),
        *(f"share/zunto-helper/processor/src/{name}" for name in run.processor_files),
    }
    held = {entry.name.removeprefix("./usr/") for entry in _archive(run) if not entry.isdir()}
    require_equal(sorted(held - expected), [], "what should not be there")
    require_equal(sorted(expected - held), [], "what is missing")
    return [f"{len(held)} files, {run.package.stat().st_size // 1024} KiB"]


def _owners_and_rights(run):
    for entry in _archive(run):
        require_equal((entry.uid, entry.gid, entry.uname, entry.gname), (0, 0, "root", "root"), f"{entry.name}'s owner")
        can_be_entered = entry.isdir() or entry.name == "./usr/bin/zunto-helper"
        wanted = 0o777 if entry.issym() else 0o755 if can_be_entered else 0o644
        require_equal(oct(entry.mode), oct(wanted), f"{entry.name}'s mode")


def _links(run):
    links = {entry.name: entry.linkname for entry in _archive(run) if entry.issym()}
    require_equal(links, {f"./usr/share/zunto-helper/runtime/bin/{tool}": f"../../../../bin/{tool}" for tool in _TOOLS},
                  "the links")


def _relations(run):
    needs = _field(run, "Depends").split(", ")
    for package in ("curl", "ffmpeg", "nodejs (>= 18.15)", "yt-dlp"):
        require(package in needs, f"it does not need {package}")
    for library in ("libqt6widgets6", "libsystemd0", "libc6"):
        require(any(re.match(rf"{library}(t64)? \(>= ", need) for need in needs), f"it needs no version of {library}")
    wished = _field(run, "Recommends").split(", ")
    for package in ("qt6-wayland", "qt6-gtk-platformtheme", "desktop-file-utils", "xdg-utils"):
        require(package in wished, f"it does not recommend {package}")


def _control(run):
    listed = subprocess.run(["dpkg-deb", "--ctrl-tarfile", run.package], capture_output=True, check=True).stdout
    names = subprocess.run(["tar", "--list"], input=listed, capture_output=True, check=True).stdout.decode().split()
    require_equal(sorted(name.removeprefix("./") for name in names if name != "./"), ["control", "md5sums"],
                  "what the package manager is told")


def _changelog(run):
    packed = _archive(run).extractfile("./usr/share/doc/zunto-helper/changelog.gz").read()
    first = gzip.decompress(packed).decode().split("\n")[0]
    require_equal(first, f"zunto-helper ({_field(run, 'Version')}) unstable; urgency=medium", "its first line")


def _lintian(run):
    done = subprocess.run(["lintian", "--allow-root", "--fail-on", "error,warning", run.package], capture_output=True,
                          text=True, check=False)
    require_equal((done.returncode, done.stdout, done.stderr), (0, "", ""), "what it says")
