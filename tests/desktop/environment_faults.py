"""An environment that programs stumble over."""

import os
import pwd
import subprocess
from functools import partial

import mounts
from environment_checks import environment_steps
from fault_run import SEEN_SECONDS
from helper_program import COULD_NOT_START, READY, STOPPED_LINE
from private_world import LOG
from steps import NotTried, Step, require, require_equal, wait_until

_LONGEST_PATH = 4095
_LONGEST_NAME = 255
_FILE_NAME = "Grüße – ışık.mp4"


def environment_fault_steps():
    return [
        *environment_steps(),
        Step("The locale is one that nobody has", partial(_works_with, variables={"LANG": "xx_YY.UTF-8"}), 120),
        Step("The locale is C", partial(_works_with, variables={"LANG": "C"}), 120),
        Step("The locale is Turkish, whose capital i has a dot", _turkish, 120),
        Step("There is no HOME", _no_home, 120),
        Step("The log has the longest path that there can be", _longest_home, 120),
        Step("The log's path would be too long", _home_too_long, 120),
    ]


def _works_with(run, variables):
    run.start(variables).wait_for_status(READY, 45)
    run.use(_FILE_NAME)
    run.require_whole()
    return [f"saved {_FILE_NAME}"]


def _turkish(run):
    places = run.world.folder / "locales"
    places.mkdir()
    name = "tr_TR.UTF-8"
    done = subprocess.run(["localedef", "-i", "tr_TR", "-f", "UTF-8", places / name], capture_output=True, text=True,
                          stdin=subprocess.DEVNULL, check=False)
    if not (places / name).is_dir():
        raise NotTried(f"there is no such locale here ({done.stderr.strip()})")
    return _works_with(run, {"LANG": name, "LC_ALL": name, "LOCPATH": str(places)})


def _no_home(run):
    home = run.world.folder / "account"
    home.mkdir()
    account = pwd.getpwuid(os.getuid())
    accounts = run.world.folder / "passwd"
    accounts.write_text(f"{account.pw_name}:x:{account.pw_uid}:{account.pw_gid}::{home}:/bin/sh\n", encoding="utf-8")
    with mounts.in_place_of("/etc/passwd", accounts):
        _works_with(run, {"HOME": None})
    require((home / LOG).stat().st_size > 0, "the log is not in the account's folder")
    return ["the account's folder serves"]


def _longest_home(run):
    home = _deep_folder(run, "deep", _LONGEST_PATH - len(LOG) - 1)
    _works_with(run, {"HOME": str(home)})
    require((home / LOG).stat().st_size > 0, "there is nothing in the log")
    return [f"a home of {len(str(home))} characters, a log of {len(str(home / LOG))}"]


def _home_too_long(run):
    home = _deep_folder(run, "deeper", _LONGEST_PATH - len(LOG))
    helper = run.start({"HOME": str(home)})
    title, reason = wait_until(helper.alert_texts, "an alert", 30)
    require_equal(title, "ZUNTO Helper could not start", "the alert's title")
    helper.answer_alert("OK")
    helper.wait_for_status(COULD_NOT_START, SEEN_SECONDS)
    run.wait_for_line(STOPPED_LINE, SEEN_SECONDS)
    require(not helper.family(), "a processor was started")
    return [f'"{reason}"']


def _deep_folder(run, name, length):
    """One whose path has so many characters."""
    folder = run.world.folder / name
    while (left := length - len(str(folder)) - 1) > 0:
        # What is left after a part must not be a single separator.
        folder /= "d" * min(left if left != _LONGEST_NAME + 1 else left - 2, _LONGEST_NAME)
    folder.mkdir(parents=True)
    require_equal(len(str(folder)), length, "the length of the path")
    return folder
