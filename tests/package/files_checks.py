"""The installed files that others read, by the checkers of those others; and what a shell is told."""

import configparser
import os
import re
import subprocess
from pathlib import Path

from steps import Step, require, require_equal

NAME = "example.zunto.Helper"

# A key of the format's version 1.5, which the checker of Debian 12 does not know.
_KEY_OF_2020 = 'file contains key "SingleMainWindow" in group "Desktop Entry", but keys extending the format should'


def files_steps():
    return [
        Step("The desktop entry is valid, and it and the bus start the installed program", _desktop_entry),
        Step("Each action of the entry is an option of the program", _actions),
        Step("The metainfo is valid and names the entry, the bus name, the scheme and the version", _metainfo),
        Step("The manual page is formatted without a warning", _manual_page),
        Step("--help and --version answer without a display, a bus and a home", _texts),
    ]


def entry_of(run):
    """{key: value}"""
    return _groups(run.share / f"applications/{NAME}.desktop")["Desktop Entry"]


def _groups(path):
    reader = configparser.RawConfigParser(delimiters="=", interpolation=None)
    reader.optionxform = str
    reader.read(path, encoding="utf-8")
    return {name: dict(reader[name]) for name in reader.sections()}


def _desktop_entry(run):
    path = run.share / f"applications/{NAME}.desktop"
    done = subprocess.run(["desktop-file-validate", path], capture_output=True, text=True, check=False)
    complaints = [line for line in (done.stdout + done.stderr).splitlines() if _KEY_OF_2020 not in line]
    require_equal(complaints, [], "what desktop-file-validate says")
    entry = entry_of(run)
    wanted = {"Exec": f"{run.program} %u", "Icon": NAME, "MimeType": "x-scheme-handler/zunto-helper;",
              "DBusActivatable": "true", "StartupNotify": "true", "SingleMainWindow": "true"}
    require_equal({key: entry.get(key) for key in wanted}, wanted, "the entry")
    require_equal(_groups(run.share / f"dbus-1/services/{NAME}.service"),
                  {"D-BUS Service": {"Name": NAME, "Exec": str(run.program)}}, "the service")


def _actions(run):
    groups = _groups(run.share / f"applications/{NAME}.desktop")
    names = groups["Desktop Entry"]["Actions"].strip(";").split(";")
    require_equal([name for name in groups if name != "Desktop Entry"], [f"Desktop Action {name}" for name in names],
                  "the actions' groups")
    help_text = _run([run.program, "--help"])
    for name in names:
        require_equal(groups[f"Desktop Action {name}"]["Exec"], f"{run.program} --{name}", "the action's command")
        require(f"\n  --{name} " in help_text, f"--help does not tell of {name}")


def _metainfo(run):
    path = run.share / f"metainfo/{NAME}.metainfo.xml"
    done = subprocess.run(["appstreamcli", "validate", "--no-net", "--no-color", path], capture_output=True, text=True,
                          check=False)
    require(done.returncode == 0 and "E:" not in done.stdout and "W:" not in done.stdout, f"it says {done.stdout}")
    text = path.read_text(encoding="utf-8")
    version = _run([run.program, "--version"]).split()[-1]
    for part in (f"<id>{NAME}</id>", f'<launchable type="desktop-id">{NAME}.desktop</launchable>',
                 f'<dbus type="session">{NAME}</dbus>', "<mediatype>x-scheme-handler/zunto-helper</mediatype>",
                 f'<release version="{version}" '):
        require(part in text, f"it has no {part}")


def _manual_page(run):
    done = subprocess.run(["man", "--warnings", "--encoding=UTF-8", "--local-file",
                           run.share / "man/man1/zunto-helper.1.gz"], capture_output=True, text=True, check=True,
                          env={**os.environ, "LANG": "C.UTF-8", "MANWIDTH": "100", "MANROFFSEQ": ""})
    require_equal(done.stderr, "", "what it warns of")
    require("zunto-helper:?url=ADDRESS" in done.stdout, "it does not tell of links")
    for option in re.findall(r"^  (--[a-z-]+) ", _run([run.program, "--help"]), re.MULTILINE):
        require(option in done.stdout, f"it does not tell of {option}")


def _run(command):
    done = subprocess.run(command, env={}, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=10,
                          check=True)
    require_equal(done.stderr, "", "the errors")
    return done.stdout


def _texts(run):
    help_text = _run([run.program, "--help"])
    require(help_text.startswith("Usage: zunto-helper [LINK | OPTION]\n"), f"the help is {help_text!r}")
    require_equal(_run([run.program, "zunto-helper:", "--help"]), help_text, "the help beside a link")
    version = _run([run.program, "--version"])
    expected = (Path(__file__).resolve().parents[2] / "CMakeLists.txt").read_text(encoding="utf-8")
    number = expected.split("project(zunto-helper VERSION ")[1].split()[0]
    require_equal(version, f"ZUNTO Helper {number}\n", "the version")
