"""The main job: a link is analysed, and its video, sound and subtitle are saved; and what may go wrong on the way."""

import os
import signal

import saved_files
import screen
from accessibility import find_all
from form_checks import check_layout
from hearing import Hearing
from helper_program import ANALYZED
from sample_media import CUES, HEIGHTS, SECONDS, TITLE
from steps import Failure, Step, require, require_equal, stays, wait_until

_ANALYZING = "Analyzing available formats…"
_STARTING = "Starting local download…"
_NOT_SAVED = "Download finished locally. Saving was cancelled."
_CANCELLED = "Download cancelled."
_CHOSEN_HEIGHT = sorted(HEIGHTS)[1]
_TRACK = "English — Manual"


def analysis_steps():
    return [
        Step("A screen reader hears each status of an analysis once, and of no control that got the keyboard instead",
             _analysis_is_heard, 90),
        Step("A link typed into the field is analysed on the Return key", _analyze_with_return, 90, "analyzed",
             essential=True),
        Step("The window shows the media's title, its length, the qualities best first and the track", _shows_media),
        Step("The filled form keeps its order and spacing in every mode", _every_mode, 60, "subtitle-mode"),
    ]


def save_steps():
    return [
        Step(f"A video of {_CHOSEN_HEIGHT}p is downloaded and saved, with progress that never goes back", _save_video,
             120, "video-saved"),
        Step(f"The saved video has H.264 of {_CHOSEN_HEIGHT} lines, AAC and the clip's length", _video_is_right),
        Step("The sound alone is downloaded and saved over an older file, after asking", _save_audio, 120,
             "audio-saved"),
        Step("The saved audio file has one stream of sound, no picture and the clip's length", _audio_is_right),
        Step("The English track is downloaded and saved as SRT", _save_subtitle, 90, "subtitle-saved"),
        Step("The saved subtitle has every cue with its text and time", _subtitle_is_right),
        Step("Nothing but the three files was left in the folder", _nothing_else_saved),
    ]


def trouble_steps():
    return [
        Step("Cancelling the save panel saves nothing and says so", _cancel_panel, 90, "panel-cancelled"),
        Step("A link that leads nowhere ends in the tool's own sentence, and the form can be used again",
             _missing_link, 90, "missing-link"),
        Step("A link cut and pasted with blanks around it is taken without them and analysed", _paste_and_analyze, 90,
             "pasted"),
        Step("A download that is cancelled says so, frees the form and leaves no partial file", _cancel_download, 120,
             "download-cancelled"),
    ]


def _analyze_with_return(run):
    helper = run.helper
    helper.set_link(run.server.link)
    helper.give_focus(helper.link_field)
    screen.press("Return")
    wait_until(lambda: not helper.link_field.is_enabled, "the link field being disabled meanwhile", 10)
    helper.wait_for_status(ANALYZED, 75)
    return [f"link: {run.server.link}"]


def _analysis_is_heard(run):
    helper = run.helper
    helper.set_link(run.server.link)
    helper.give_focus(helper.link_field)
    processor = helper.processor_pid()
    with Hearing(helper.process.pid) as hearing:
        os.kill(processor, signal.SIGSTOP)  # else the first status is gone before it can be asked for
        try:
            screen.press("Return")
            wait_until(hearing.announcements, "the beginning of the analysis being spoken", 10)
            stays(lambda: hearing.announcements() == [_ANALYZING], "what was spoken", 1)
            require_equal(hearing.renamed(), [("notification", _ANALYZING)], "the list of new names")
        finally:
            os.kill(processor, signal.SIGCONT)
        wait_until(lambda: hearing.announcements()[-1:] == [ANALYZED], "the end of the analysis being spoken", 75)
        stays(lambda: hearing.announcements().count(ANALYZED) == 1, "how often the end was spoken", 1)
        require_equal(hearing.focused(), [], "the list of controls that got the keyboard meanwhile")
        lists = [name for role, name in hearing.renamed() if role == "combo box"]
        require_equal(sorted(lists), sorted(set(lists)), "the list of pop-ups that told a new name")
    require(helper.link_field.is_("FOCUSED"), "the link field has lost the keyboard")
    return [f"pop-ups that told a new name: {lists}"]


def _shows_media(run):
    helper = run.helper
    require_equal(helper.title_and_detail(), [TITLE, f"Duration: 0:{SECONDS:02}"], "the media's lines")
    require_equal(helper.items_of("Quality"), [f"{height}p" for height in HEIGHTS], "the quality list")
    require_equal(helper.items_of("Subtitle track"), [_TRACK], "the list of tracks")
    require_equal(helper.progress_bar().percent, 100.0, "the progress")
    require(helper.button("Download…").is_enabled, "Download is disabled")
    require(helper.button("Analyze").is_enabled, "Analyze is disabled")
    return [f"title {TITLE}, qualities {', '.join(helper.items_of('Quality'))}, track {_TRACK}"]


def _every_mode(run):
    shown = {"Audio only": [], "Video": ["Quality"], "Source subtitle": ["Subtitle track", "Subtitle format"]}
    for mode, lists in shown.items():
        run.helper.choose("Save as", mode)
        for name in ("Quality", "Subtitle track", "Subtitle format"):
            wait_until(lambda n=name: run.helper.is_shown("combo box", n) == (n in lists),
                       f'"{name}" being shown only where {mode} needs it', 10)
        require(run.helper.button("Download…").is_enabled, f"Download is disabled for {mode}")
        check_layout(run)


def _save_video(run):
    run.helper.choose("Save as", "Video")
    run.helper.choose_with_mouse("Quality", f"{_CHOSEN_HEIGHT}p")
    seen = _download(run)
    run.take_picture("save-panel")
    suggested = run.helper.panel_name_field().text
    require_equal(suggested, f"{TITLE}.mp4", "the suggested name")
    return [f"progress {_spoken(seen)}", *_save_as(run, run.saved / "video.mp4")]


def _save_audio(run):
    target = run.saved / "audio.m4a"
    target.write_text("an older file", encoding="utf-8")
    run.helper.choose("Save as", "Audio only")
    seen = _download(run)
    return [f"progress {_spoken(seen)}", *_save_as(run, target, replaces=True)]


def _save_subtitle(run):
    run.helper.choose("Save as", "Source subtitle")
    run.helper.choose("Subtitle format", "SRT")
    seen = _download(run)
    return [f"progress {_spoken(seen)}", *_save_as(run, run.saved / "subtitle.srt")]


def _download(run):
    """Starts the download and follows it to the save panel; answers the progress that was seen."""
    helper = run.helper
    before = helper.status()
    helper.press("Download…")
    seen = []

    def look():
        status = helper.status()
        value = helper.progress_bar().percent
        # The bar still holds the analysis until the job's first word.
        if status not in (before, _STARTING):
            if seen and value < seen[-1]:
                raise _WentBack(f"the progress went back from {seen[-1]:g} to {value:g}")
            seen.append(value)
        return helper.has_save_panel()

    wait_until(look, "the save panel being shown", 90)
    require(seen, "no progress was seen")
    require_equal(seen[-1], 100.0, "the last progress")
    return seen


class _WentBack(Exception):
    """Not a Failure, so that waiting does not go on over it."""


def _save_as(run, path, replaces=False):
    helper = run.helper
    helper.answer_save_panel(path)
    if replaces:
        _confirm_replacing(helper, run)
    helper.wait_for_status(f"Saved to {path}", 30)
    require(helper.is_shown("push button", "Show Downloaded File"), '"Show Downloaded File" is not shown')
    require(not helper.is_shown("push button", "Cancel"), '"Cancel" is still shown')
    require(helper.button("Analyze").is_enabled and helper.button("Download…").is_enabled, "a button stays disabled")
    check_layout(run)
    return [f"saved {path} ({path.stat().st_size:,} bytes)"]


def _confirm_replacing(helper, run):
    def yes():
        application = helper.application()
        found = [node for node in find_all(application, "push button") if node.name.replace("&", "") == "Yes"]
        return found[0] if found else None

    button = wait_until(yes, "a question about the older file", 10)
    run.take_picture("replace-question")
    button.act("Press")


def _video_is_right(run):
    saved_files.require_video(run.saved / "video.mp4", _CHOSEN_HEIGHT, SECONDS)


def _audio_is_right(run):
    saved_files.require_audio(run.saved / "audio.m4a", SECONDS)


def _subtitle_is_right(run):
    cues = saved_files.read_srt((run.saved / "subtitle.srt").read_text(encoding="utf-8"))
    saved_files.require_cues(cues, CUES)


def _nothing_else_saved(run):
    require_equal(sorted(os.listdir(run.saved)), ["audio.m4a", "subtitle.srt", "video.mp4"], "the folder")


def _cancel_panel(run):
    helper = run.helper
    before = sorted(os.listdir(run.saved))
    _download(run)
    helper.panel_button("Cancel").act("Press")
    helper.wait_for_status(_NOT_SAVED, 15)
    require_equal(sorted(os.listdir(run.saved)), before, "the folder")
    require(helper.is_shown("push button", "Show Downloaded File"), "the earlier file can no longer be shown")
    require(helper.button("Download…").is_enabled, "Download is disabled afterwards")


def _missing_link(run):
    helper = run.helper
    helper.set_link(run.server.missing_link)
    helper.press("Analyze")

    def failed():
        status = helper.status()
        require("404" in status and helper.button("Analyze").is_enabled, f'the status reads "{status}"')
        return status

    status = wait_until(failed, "a sentence about the missing media", 60)
    require(not helper.button("Download…").is_enabled, "Download is enabled without an analysis")
    require(not helper.is_shown("push button", "Show Downloaded File"), '"Show Downloaded File" is still shown')
    return [f"said: {status}"]


def _paste_and_analyze(run):
    helper = run.helper
    helper.set_link(f"  {run.server.slow_link} ")
    helper.give_focus(helper.link_field)
    screen.press("ctrl+a", "ctrl+x")
    wait_until(lambda: helper.link_field.text == "", "the link being cut", 10)
    helper.press("Paste")
    wait_until(lambda: helper.link_field.text == run.server.slow_link, "the bare link standing in the field", 10)
    helper.press("Analyze")
    helper.wait_for_status(ANALYZED, 75)


def _cancel_download(run):
    helper = run.helper
    before = _files_below(run.world.temporary), _files_below(run.saved)
    helper.choose("Save as", "Video")
    helper.choose("Quality", f"{_CHOSEN_HEIGHT}p")
    helper.press("Download…")
    wait_until(lambda: _is_under_way(run), "the download being under way", 60)
    run.take_picture("downloading")
    helper.press("Cancel")
    helper.wait_for_status(_CANCELLED, 20)
    require(not helper.is_shown("push button", "Cancel"), '"Cancel" is still shown')
    for name in ("Paste", "Analyze", "Download…"):
        require(helper.button(name).is_enabled, f'"{name}" is disabled afterwards')
    require(helper.link_field.is_enabled, "the link field is disabled afterwards")
    require_equal((_files_below(run.world.temporary), _files_below(run.saved)), before, "the set of files")
    tools = {pid: line for pid, line in helper.family().items() if "yt-dlp" in line or "ffmpeg" in line}
    require(not any("--output" in line or "/job-" in line for line in tools.values()), f"tools still run: {tools}")


def _is_under_way(run):
    """The trickling part is being fetched and something of it lies on the disk."""
    if run.helper.has_save_panel():
        raise Failure("the download was over before it could be cancelled")
    return run.helper.status().startswith("Downloading") and any(
        ".part" in name or ".ytdl" in name for name in _files_below(run.world.temporary))


def _files_below(folder):
    return {os.path.join(path, name) for path, _, names in os.walk(folder) for name in names}


def _spoken(values):
    shown = [f"{value:g}" for i, value in enumerate(values) if i == 0 or value != values[i - 1]]
    return " → ".join(shown)
