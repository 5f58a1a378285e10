#!/usr/bin/python3
"""The package's life on a bare Debian: made, installed, driven, upgraded and removed. Runs as root; see live.sh."""

import os
import shutil
import subprocess
import sys
from pathlib import Path

_ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(_ROOT / "tests/desktop"))

from steps import Results, Step, require, require_equal, run_steps, wait_until  # noqa: E402

_USER = "somebody"
_HOME = Path("/home") / _USER
_TREE = _HOME / "tree"
_LOG = _HOME / "Library/Logs/ZUNTO Helper/helper.log"
_OLD = "0.9.0"


class Life:
    """What the steps leave each other."""

    def __init__(self):
        self.before = None
        self.installed = []

    def take_picture(self, name):
        pass

    def new_pictures(self):
        return []

    def recover(self):
        pass


def main():
    results = Results()
    run_steps([
        Step("./run --install makes the package on a bare system and installs it with what it needs", _install, 1800,
             essential=True),
        Step("It answers a user's shell", _answers),
        Step("This release's checkers accept it, and an ordinary user's desktop starts it, by the bus and by links",
             _drive, 900),
        Step(f"An older version {_OLD} takes its place", _downgrade, 300),
        Step("A newer one takes the place of that, while the older runs", _upgrade, 600),
        Step("Removed, it leaves no file behind but the user's log", _remove, 120),
    ], Life(), results)
    print(f"{results.passed} passed, {results.failed} failed", flush=True)
    return 1 if results.failed else 0


def _install(life):
    life.before = _names_of_ours()
    _sh("./run --install")
    life.installed = [line for line in _output("dpkg-query", "--listfiles", "zunto-helper").splitlines()
                      if os.path.islink(line) or os.path.isfile(line)]
    require(len(life.installed) > 40, f"only {len(life.installed)} files are installed")
    for tool in ("node", "yt-dlp", "ffmpeg", "ffprobe"):
        require(os.access(f"/usr/share/zunto-helper/runtime/bin/{tool}", os.X_OK), f"the link to {tool} leads nowhere")
    return [f"{len(life.installed)} files of version {_version()}"]


def _answers(_life):
    subprocess.run(["useradd", "--create-home", "--shell", "/bin/bash", _USER], check=True)
    require_equal(_output("runuser", "-l", _USER, "-c", "zunto-helper --version"), f"ZUNTO Helper {_version()}\n",
                  "the answer")


def _drive(_life):
    _sh('source scripts/setup.sh; install_packages "${demo_packages[@]}" lintian appstream libglib2.0-bin man-db')
    for part in ("tests", "processor", "CMakeLists.txt"):
        copy = shutil.copytree if (_ROOT / part).is_dir() else shutil.copy
        _TREE.mkdir(exist_ok=True)
        copy(_ROOT / part, _TREE / part)
    (package,) = (_ROOT / "build/release/package").glob("*.deb")
    shutil.copy(package, _TREE)
    subprocess.run(["chown", "-R", _USER, _TREE], check=True)
    check = (f"{_TREE}/tests/package/check_package.py --package {_TREE / package.name} --prefix /usr "
             f"--output {_HOME}/pictures")
    done = subprocess.run(["runuser", "-l", _USER, "-c", check], stdout=subprocess.PIPE, text=True, check=False)
    # Indented, its own count is not the one that this run ends with.
    require(done.returncode == 0, done.stdout.replace("\n", "\n       "))
    return done.stdout.splitlines()


def _downgrade(_life):
    _sh(f"source scripts/setup.sh; root=$PWD; make_package release -D CPACK_PACKAGE_VERSION={_OLD}; "
        "apt-get install -q -y --allow-downgrades $package")
    require_equal(_version(), _OLD, "the version")


def _upgrade(life):
    as_user = ["setpriv", f"--reuid={_USER}", f"--regid={_USER}", "--init-groups", "env", f"HOME={_HOME}"]
    with subprocess.Popen([*as_user, "QT_QPA_PLATFORM=offscreen", "zunto-helper"]) as older:
        try:
            wait_until(lambda: _LOG.exists() and "listening" in _LOG.read_text(encoding="utf-8"), "its processor", 30)
            _sh("./run --install")
            require(older.poll() is None, "the older one has ended")
        finally:
            older.terminate()
        require_equal(older.wait(20), 0, "the status of the older one")
    require(_version() != _OLD, "the version is still the older one")
    for name in life.installed:
        require(os.path.lexists(name), f"{name} is gone")


def _remove(life):
    subprocess.run(["apt-get", "remove", "-q", "-y", "zunto-helper"], check=True)
    left = [name for name in life.installed if os.path.lexists(name)]
    require_equal(left, [], "what is left of the package")
    require_equal(sorted(_names_of_ours() - life.before), [str(_LOG.parent)], "what is left besides")
    require(_LOG.exists(), "the user's log is gone")
    known = subprocess.run(["dpkg-query", "--status", "zunto-helper"], capture_output=True, check=False).returncode == 0
    require(not known, "something is left for a purge")


def _names_of_ours():
    """Every path outside the trees and the packages' cache that has our name or holds it in a desktop's index."""
    passed_over = ["-false"]
    for place in (_ROOT, _TREE, "/proc", "/tmp", "/var/cache/apt"):
        passed_over += ["-o", "-path", str(place)]
    found = set(_output("find", "/", "-xdev", "(", *passed_over, ")", "-prune", "-o", "(", "-iname", "*zunto*helper*",
                        "-o", "-name", "example.zunto.*", ")", "-print").splitlines())
    index = Path("/usr/share/applications/mimeinfo.cache")
    if index.exists() and "zunto" in index.read_text(encoding="utf-8"):
        found.add(str(index))
    return found


def _version():
    return _output("dpkg-query", "--show", "--showformat=${Version}", "zunto-helper")


def _output(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


def _sh(script):
    subprocess.run(["bash", "-euo", "pipefail", "-c", script], cwd=_ROOT, stdin=subprocess.DEVNULL, check=True)


if __name__ == "__main__":
    sys.exit(main())
