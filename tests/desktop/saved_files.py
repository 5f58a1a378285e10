"""What a saved file really is: ffprobe's view of media, and a small reader of subtitles."""

import json
import re
import subprocess
from dataclasses import dataclass

from steps import Failure, require, require_equal

_TIME = r"(\d{2,}):([0-5]\d):([0-5]\d),(\d{3})"
_TIMES = re.compile(f"{_TIME} --> {_TIME}")


@dataclass(frozen=True)
class Cue:
    start: float  # seconds
    end: float
    text: str


def probe(path):
    """ffprobe's {"format": ..., "streams": ...}; every packet is read, so a broken file fails."""
    done = subprocess.run(["ffprobe", "-v", "error", "-count_packets", "-show_format", "-show_streams", "-of",
                           "json", str(path)], capture_output=True, text=True, timeout=60, check=False,
                          stdin=subprocess.DEVNULL)
    if done.returncode != 0 or done.stderr.strip():
        raise Failure(f"ffprobe does not accept {path.name}: {done.stderr.strip()[-300:]}")
    return json.loads(done.stdout)


def codecs(answer, kind):
    return [stream["codec_name"] for stream in answer["streams"] if stream["codec_type"] == kind]


def require_video(path, height, seconds):
    answer = probe(path)
    require_equal(codecs(answer, "video"), ["h264"], "the list of video streams")
    require_equal(codecs(answer, "audio"), ["aac"], "the list of audio streams")
    (picture,) = [stream for stream in answer["streams"] if stream["codec_type"] == "video"]
    require_equal(picture["height"], height, "the height")
    require_duration(answer, seconds)
    return answer


def require_audio(path, seconds):
    answer = probe(path)
    require_equal(codecs(answer, "video"), [], "the list of video streams")
    require_equal(len(codecs(answer, "audio")), 1, "the number of audio streams")
    require_duration(answer, seconds)
    return answer


def require_duration(answer, seconds, tolerance=0.6):
    duration = float(answer["format"]["duration"])
    require(abs(duration - seconds) <= tolerance, f"it lasts {duration:.2f} s, not about {seconds} s")


def read_srt(text):
    """The cues of a SubRip file; a Failure where it is none. Strict: players differ in what they forgive."""
    cues = []
    text = text.removeprefix("\ufeff").replace("\r\n", "\n")
    for number, block in enumerate(re.split(r"\n{2,}", text.strip("\n")), start=1):
        lines = block.split("\n")
        require(len(lines) >= 3, f"block {number} has no number, times and text: {block!r}")
        require_equal(lines[0].strip(), str(number), f"the number of block {number}")
        times = _TIMES.fullmatch(lines[1].strip())
        require(times, f"block {number} has no times: {lines[1]!r}")
        values = [int(value) for value in times.groups()]
        cue = Cue(_seconds(values[:4]), _seconds(values[4:]), "\n".join(lines[2:]))
        require(cue.start < cue.end, f"block {number} ends before it starts")
        require(not cues or cues[-1].start <= cue.start, f"block {number} is out of order")
        cues.append(cue)
    return cues


def require_cues(cues, expected, tolerance=0.05):
    """`expected`: (start, end, text) of each cue."""
    require_equal([cue.text for cue in cues], [text for _, _, text in expected], "the text")
    for cue, (start, end, text) in zip(cues, expected):
        close = abs(cue.start - start) <= tolerance and abs(cue.end - end) <= tolerance
        require(close, f"{text!r} stands at {cue.start} to {cue.end} s, not at {start} to {end} s")


def _seconds(parts):
    hours, minutes, seconds, thousandths = parts
    return hours * 3600 + minutes * 60 + seconds + thousandths / 1000
