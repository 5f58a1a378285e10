"""The helper beyond its form: a second start, its status menu, its processor's life, its end and its log."""

import http.server
import os
import signal
import threading
import time
import urllib.request
from urllib.parse import quote

import processes
import screen
from helper_program import COULD_NOT_START, READY, READY_LINE, STOPPED_LINE, WINDOW_TITLE, HelperProgram
from network import HELPER_PORT
from program_copy import without_component
from steps import Step, require, require_equal, wait_until

# How long the processor has to notice that its helper is gone.
_ORPHAN_SECONDS = 5
_LINK = "https://example.org/watch?v=a+b&t=1#c"


def lifecycle_steps():
    return [
        Step("A second start with a link puts it into the window and ends with status 0", _second_start_with_link, 60,
             "second-start"),
        Step("Closing the window does not quit, and a second start brings it back with what it held", _close_and_return,
             60),
        Step("The status menu stands in the window and says that the helper is ready", _status_menu),
        Step("Stop Helper ends the processor, Start Helper starts another", _stop_and_start, 60),
        Step("A processor that is killed is shown as stopped, and Start Helper brings it back", _killed_processor, 60),
        Step("Open Downloader makes the window ready again", _open_downloader, 60),
        Step("The log names what the processor did and never the session token", _log),
        Step("SIGTERM ends the helper with status 0, and nothing of it is left soon after", _sigterm, 30),
        Step("A helper that is killed leaves no processor behind", _killed_helper, 90),
        Step("An analysis that runs while the helper is killed leaves nothing behind either", _killed_at_work, 120),
    ]


def fault_steps():
    return [
        Step("A missing component is named in an alert, and the window says that the helper could not start",
             missing_component, 60),
        Step("A processor of another program on the port is used, shown as such and left alone", _foreign_processor,
             60),
    ]


def missing_component(run, name="ffprobe"):
    run.helper.stop()
    run.helper = helper = HelperProgram(without_component(run, name), run.world)
    texts = wait_until(helper.alert_texts, "an alert", 30)
    require_equal(texts, ["ZUNTO Helper is incomplete",
                          f"A required bundled component is missing: {name}. Download a fresh copy of the app."],
                  "the alert's text")
    run.take_picture("missing-component")
    require_equal(helper.alert_buttons(), ["OK", "Show Log"], "the alert's buttons")
    helper.answer_alert("OK")
    helper.wait_for_status(COULD_NOT_START, 20)
    require(not helper.family(), "a processor was started")


class _Stranger(http.server.BaseHTTPRequestHandler):
    """Answers as a processor that somebody else has started."""

    def do_GET(self):
        body = b'{"status":"ok"}'
        self.send_response(200)
        self.send_header("X-ZUNTO-Session-Token", "of-another-program")
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def log_message(self, *_):
        pass


def _foreign_processor(run):
    run.helper.stop()
    with http.server.ThreadingHTTPServer(("127.0.0.1", HELPER_PORT), _Stranger) as server:
        thread = threading.Thread(target=server.serve_forever, args=(0.1,), daemon=True)
        thread.start()
        try:
            helper = start_helper(run)
            helper.wait_for_status(READY, 30)
            wait_until(lambda: _shows(helper, READY_LINE, "Helper managed by another process", "Z/UNTO ●"),
                       "the menu showing whose processor it is", 15)
            require(("Helper managed by another process", False) in helper.status_items(), "it could be stopped")
            require(not helper.family(), "a second processor was started")
            _take_picture_of_menu(run, "foreign-processor")
        finally:
            server.shutdown()
            thread.join()
    wait_until(lambda: _shows(helper, STOPPED_LINE, "Start Helper", "Z/UNTO"), "the menu showing its end", 20)


def _second_start_with_link(run):
    helper = run.helper
    before = helper.processor_pid()
    require_equal(helper.start_again("zunto-helper:?url=" + quote(_LINK, safe="")), 0, "the second start's status")
    wait_until(lambda: helper.link_field.text == _LINK, "the link standing in the field", 15)
    helper.wait_for_status(READY, 30)
    require_equal(helper.processor_pid(), before, "the processor")


def _close_and_return(run):
    helper = run.helper
    (window,) = screen.windows_called(WINDOW_TITLE)
    screen.close_window(window)
    wait_until(lambda: not screen.windows_called(WINDOW_TITLE), "the window being closed", 10)
    time.sleep(2)
    require(helper.process.poll() is None, "the helper has ended with its window")
    require(helper.processor_pid(), "the processor has ended with the window")
    require_equal(helper.start_again(), 0, "the second start's status")
    wait_until(lambda: screen.windows_called(WINDOW_TITLE), "the window being back", 15)
    helper.wait_for_status(READY, 30)
    require_equal(helper.link_field.text, _LINK, "the link field")


def _status_menu(run):
    helper = run.helper
    wait_until(lambda: helper.status_menu_title() == "Z/UNTO ●", "the menu's title showing health", 15)
    require_equal(helper.status_items(), [
        (READY_LINE, False), ("Open Video Import", True), ("Open Downloader", True), ("Stop Helper", True),
        ("Show Local Log", True), ("Quit ZUNTO Helper", True)], "the menu")
    _take_picture_of_menu(run, "status-menu")


def _take_picture_of_menu(run, name):
    run.helper.open_status_menu()
    run.take_picture(name)
    screen.press("Escape", "Escape")
    run.helper.wait_for_closed_menu()


def _shows(helper, line, toggle, title):
    items = [name for name, _ in helper.status_items()]
    return items[0] == line and items[3] == toggle and helper.status_menu_title() == title


def _wait_stopped(helper, seconds):
    wait_until(lambda: _shows(helper, STOPPED_LINE, "Start Helper", "Z/UNTO"), "the menu showing Stopped", seconds)


def _wait_running(helper, seconds=30):
    wait_until(lambda: _shows(helper, READY_LINE, "Stop Helper", "Z/UNTO ●"), "the menu showing Ready", seconds)


def _stop_and_start(run):
    helper = run.helper
    first = helper.processor_pid()
    helper.choose_status_item("Stop Helper")
    _wait_stopped(helper, 10)
    wait_until(lambda: first not in helper.family(), "the processor's end", 10)
    _take_picture_of_menu(run, "stopped")
    helper.choose_status_item("Start Helper")
    _wait_running(helper)
    require(helper.processor_pid() != first, "the processor is the old one")


def _killed_processor(run):
    helper = run.helper
    os.kill(helper.processor_pid(), signal.SIGKILL)
    _wait_stopped(helper, 10)
    _take_picture_of_menu(run, "processor-killed")
    helper.choose_status_item("Start Helper")
    _wait_running(helper)
    require(helper.processor_pid(), "there is no processor")


def _open_downloader(run):
    helper = run.helper
    before = helper.link_field.text
    helper.set_link(run.server.link)
    helper.choose_status_item("Open Downloader")
    helper.wait_for_status(READY, 30)
    require_equal(helper.link_field.text, run.server.link, "the link field")
    require(before != run.server.link, "the field was not changed before")


def _log(run):
    path = run.world.log
    text = path.read_text(encoding="utf-8")
    token = _session_token()
    require(len(token) >= 16, f"the session token is only {len(token)} characters long")
    require(token not in text, "the log holds the session token")
    for word in (f"listening on 127.0.0.1:{HELPER_PORT}", "completed", "cancelled", "failed", "404"):
        require(word in text, f'the log does not say "{word}"')
    require("--cookies" not in text and "Bearer" not in text, "the log holds what a request carries")
    return [f"log {path.name}: {len(text.splitlines())} lines"]


def _session_token():
    # No proxy of the environment comes between.
    opener = urllib.request.build_opener(urllib.request.ProxyHandler({}))
    with opener.open(f"http://127.0.0.1:{HELPER_PORT}/health", timeout=10) as answer:
        return answer.headers["X-ZUNTO-Session-Token"]


def _sigterm(run):
    helper = run.helper
    require(helper.family(), "there was no processor before")
    helper.process.send_signal(signal.SIGTERM)
    wait_until(lambda: helper.process.poll() is not None, "the helper's end", 10)
    require_equal(helper.process.returncode, 0, "the exit status")
    wait_for_nobody(run, helper.mark)
    require_no_temporary_files(run)


def _killed_helper(run):
    helper = start_helper(run)
    helper.wait_for_status(READY, 45)
    _kill(run, helper)


def _killed_at_work(run):
    helper = start_helper(run)
    helper.wait_for_status(READY, 45)
    helper.set_link(run.server.slow_link)
    helper.press("Analyze")
    wait_until(lambda: [line for line in helper.family().values() if "--dump-single-json" in line],
               "yt-dlp being at work", 30)
    run.take_picture("killed-at-work")
    _kill(run, helper)


def start_helper(run):
    """A new start of the helper in place of the run's one."""
    run.helper.stop()
    run.helper = HelperProgram(run.executable, run.world)
    return run.helper


def _kill(run, helper):
    require(helper.processor_pid(), "there was no processor before")
    helper.process.kill()
    helper.process.wait()
    wait_for_nobody(run, helper.mark)
    require_no_temporary_files(run)


def wait_for_nobody(run, mark):
    wait_until(lambda: not processes.marked(mark), "the end of every process of the run", _ORPHAN_SECONDS)


def require_no_temporary_files(run):
    left = [path for path in run.world.temporary.rglob("*") if path.is_file()]
    require(not left, lambda: f"temporary files are left: {[str(path) for path in left]}")
