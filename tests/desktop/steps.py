"""Steps of a run: each is one sentence that holds or does not, within its own time limit."""

import contextlib
import signal
import time
import traceback
from dataclasses import dataclass, field
from typing import Callable, Optional


class Failure(Exception):
    """What was seen is not what the sentence says."""


class NotTried(Exception):
    """This system does not let it be tried; neither held nor failed."""


class StepTookTooLong(BaseException):
    """Raised in the middle of a step; not an Exception, so that no step's own handling swallows it."""


@dataclass
class Step:
    """`body` is called with the run's subject and answers lines to print below the sentence, or None."""

    sentence: str
    body: Callable
    seconds: float = 30
    picture: Optional[str] = None  # name of the screenshot taken at the end of the step
    essential: bool = False  # nothing after it makes sense when it fails
    x11_alone: Optional[str] = None  # why it cannot be tried under Wayland


@dataclass
class Results:
    passed: int = 0
    failed: int = 0
    not_applicable: int = 0
    broken_by: Optional[str] = None
    outcomes: list = field(default_factory=list)  # (sentence, "held", "FAILED" or "not tried", what was seen)


def require(condition, why):
    if not condition:
        raise Failure(why() if callable(why) else why)


def require_equal(seen, expected, what):
    if seen != expected:
        raise Failure(f"{what} is {seen!r}, not {expected!r}")


def wait_until(look, what, seconds=20.0, interval=0.1):
    """The first true answer of `look`, which is asked again and again; a Failure of its tells why not yet.

    `look` may also raise LookupError for something that is not there yet.
    """
    end = time.monotonic() + seconds
    while True:
        why = ""
        try:
            answer = look()
            if answer:
                return answer
        except (Failure, LookupError) as reason:
            why = f" ({reason})"
        if time.monotonic() > end:
            raise Failure(f"{what} did not happen within {seconds:g} s{why}")
        time.sleep(interval)


def stays(look, what, seconds):
    """Fails as soon as `look` is no longer true."""
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        require(look(), f"{what} did not stay so")
        time.sleep(0.1)


@contextlib.contextmanager
def _limited(seconds):
    def expire(_signal, _frame):
        raise StepTookTooLong(f"it took more than {seconds:g} s")

    earlier = signal.signal(signal.SIGALRM, expire)
    signal.setitimer(signal.ITIMER_REAL, seconds)
    try:
        yield
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
        signal.signal(signal.SIGALRM, earlier)


def run_steps(steps, subject, results):
    """Runs the steps in order and prints one line for each.

    `subject.take_picture(name)` may also be called by the steps; `subject.new_pictures()` answers what came of it
    since the last call. `subject.recover()` follows a step that failed. `subject.is_wayland` tells which steps do not
    apply.
    """
    for step in steps:
        if step.x11_alone and subject.is_wayland:
            results.not_applicable += 1
            _say(f"n/a  {step.sentence}: {step.x11_alone}")
            continue
        if results.broken_by:
            results.failed += 1
            results.outcomes.append((step.sentence, "FAILED", "an earlier step failed"))
            _say(f"FAIL {step.sentence}: not tried, since an earlier step failed: {results.broken_by}")
            continue
        started = time.monotonic()
        try:
            why, lines = _outcome(step, subject)
        except NotTried as reason:
            results.outcomes.append((step.sentence, "not tried", str(reason)))
            _say(f"--   {step.sentence}: not tried, {reason}")
            continue
        seconds = time.monotonic() - started
        results.outcomes.append((step.sentence, "FAILED" if why else "held", why or "; ".join(lines or [])))
        if why is None:
            results.passed += 1
            _say(f"ok   {step.sentence}  [{seconds:.1f} s]")
        else:
            results.failed += 1
            if step.essential:
                results.broken_by = step.sentence
            _say(f"FAIL {step.sentence}: {why}  [{seconds:.1f} s]")
        for line in lines or []:
            _say(f"       {line}")
        if step.picture:
            subject.take_picture(step.picture)
        for path in subject.new_pictures():
            _say(f"       screenshot {path}")
        if why is not None:
            subject.recover()


def _outcome(step, subject):
    try:
        with _limited(step.seconds):
            return None, step.body(subject)
    except (Failure, LookupError, StepTookTooLong) as reason:
        return str(reason), None
    except NotTried:
        raise
    except Exception as error:  # a step that breaks is a step that failed, and the run goes on
        place = traceback.extract_tb(error.__traceback__)[-1]
        return f"{type(error).__name__} at {place.filename}:{place.lineno}: {error}", None


def _say(line):
    print(line, flush=True)
