"""A short clip with a tone, as a site would offer it: three qualities, one sound, an English subtitle track."""

import subprocess
from dataclasses import dataclass

SECONDS = 9
HEIGHTS = {720: 1280, 360: 640, 240: 426}  # height: width, best first
TONE_HZ = 440
TITLE = "clip"

# What is said when, in seconds; the same text in every subtitle file that is saved.
CUES = [
    (0.5, 2.5, "This is a tone of 440 hertz."),
    (3.0, 5.25, "Grüße – it goes on …"),
    (6.0, 8.75, "… and here it ends.\nIn two lines."),
]

_SEGMENT_SECONDS = 1
_FRAMES_PER_SECOND = 25


@dataclass
class SampleMedia:
    """Files in `folder`; `master_list` is what a link leads to."""

    folder: object
    master_list: str = "clip.m3u8"


def make_sample_media(folder):
    """Makes the clip's files in `folder`; raises CalledProcessError with ffmpeg's words when that fails."""
    for name in [*map(_picture_folder, HEIGHTS), "sound", "subtitles"]:
        (folder / name).mkdir(parents=True)
    _encode(folder)
    (folder / "subtitles/english.vtt").write_text(_webvtt(), encoding="utf-8")
    (folder / "subtitles/list.m3u8").write_text(_subtitle_list(), encoding="utf-8")
    (folder / "clip.m3u8").write_text(_master_list(folder), encoding="utf-8")
    return SampleMedia(folder)


def _picture_folder(height):
    return f"{height}p"


def _encode(folder):
    heights = list(HEIGHTS)
    scaled = "".join(f"[in{i}]scale={HEIGHTS[h]}:{h}[out{i}];" for i, h in enumerate(heights))
    split = f"[0:v]split={len(heights)}" + "".join(f"[in{i}]" for i in range(len(heights))) + ";"
    hls = ["-f", "hls", "-hls_time", str(_SEGMENT_SECONDS), "-hls_playlist_type", "vod", "-hls_list_size", "0"]
    command = ["ffmpeg", "-v", "error", "-nostdin", "-y", "-f", "lavfi", "-i",
               f"testsrc2=size=1280x720:rate={_FRAMES_PER_SECOND}:duration={SECONDS}", "-f", "lavfi", "-i",
               f"sine=frequency={TONE_HZ}:sample_rate=44100:duration={SECONDS}", "-filter_complex",
               (split + scaled).rstrip(";")]
    for i, height in enumerate(heights):
        command += ["-map", f"[out{i}]", "-c:v", "libx264", "-preset", "ultrafast", "-pix_fmt", "yuv420p", "-g",
                    str(_FRAMES_PER_SECOND * _SEGMENT_SECONDS), "-sc_threshold", "0", *hls,
                    str(folder / _picture_folder(height) / "list.m3u8")]
    command += ["-map", "1:a", "-c:a", "aac", "-b:a", "96k", "-ac", "2", *hls, str(folder / "sound/list.m3u8")]
    subprocess.run(command, check=True, timeout=120, stdin=subprocess.DEVNULL)


def _master_list(folder):
    lines = [
        "#EXTM3U",
        "#EXT-X-VERSION:4",
        '#EXT-X-MEDIA:TYPE=AUDIO,GROUP-ID="sound",NAME="Tone",DEFAULT=YES,AUTOSELECT=YES,URI="sound/list.m3u8"',
        '#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID="text",NAME="English",LANGUAGE="en",DEFAULT=YES,AUTOSELECT=YES,'
        'URI="subtitles/list.m3u8"',
    ]
    # The worst first, as many sites have it: the order in the window is the helper's own.
    for height, width in reversed(HEIGHTS.items()):
        size = sum(file.stat().st_size for file in (folder / _picture_folder(height)).glob("*.ts"))
        lines += [
            f'#EXT-X-STREAM-INF:BANDWIDTH={round(size * 8 / SECONDS) + 96_000},RESOLUTION={width}x{height},'
            'CODECS="avc1.42c01f,mp4a.40.2",AUDIO="sound",SUBTITLES="text"',
            f"{_picture_folder(height)}/list.m3u8",
        ]
    return "\n".join(lines) + "\n"


def _subtitle_list():
    return (f"#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-TARGETDURATION:{SECONDS}\n#EXT-X-PLAYLIST-TYPE:VOD\n"
            f"#EXTINF:{SECONDS}.0,\nenglish.vtt\n#EXT-X-ENDLIST\n")


def _webvtt():
    cues = [f"{_clock(start)} --> {_clock(end)}\n{text}\n" for start, end, text in CUES]
    return "WEBVTT\n\n" + "\n".join(cues)


def _clock(seconds):
    return f"{int(seconds // 3600):02}:{int(seconds // 60) % 60:02}:{seconds % 60:06.3f}"
