"""A processor of the run's own making, for what the real one cannot be made to do when a check needs it."""

import http.server
import json
import socketserver
import threading

from network import HELPER_PORT

TITLE = "A film in pieces"
FILE_NAME = "film.mp4"

_GREETING = b"SSH-2.0-OpenSSH_9.2p1 Debian-2\r\n"
_HALF = b"x" * 2_000_000  # more than a program may keep before it writes


class StandInProcessor:
    """Use as a context. It analyses every link at once and has every download ready at once; of a result it sends
    the first half, and the rest only after `finish()`. Before a download is ready it is under way for as many looks at
    it as `percents` has numbers, and stands at each of them once. Requests whose path ends in `greets_at` are answered by the
    greeting of another protocol, but for the health probe, which keeps finding a processor."""

    def __init__(self):
        self.greets_at = None
        self.percents = []
        self.results_asked_for = 0
        self.connections = 0
        self.half_is_sent = threading.Event()
        self._may_finish = threading.Event()

    def __enter__(self):
        self._server = _Server(("127.0.0.1", HELPER_PORT), _Handler)
        self._server.stand_in = self
        self._thread = threading.Thread(target=self._server.serve_forever, args=(0.1,), daemon=True)
        self._thread.start()
        return self

    def __exit__(self, *_):
        self.finish()
        self._server.shutdown()
        self._server.server_close()
        self._thread.join()

    def finish(self):
        self._may_finish.set()

    def wait_to_finish(self):
        self._may_finish.wait(60)


class _Server(http.server.ThreadingHTTPServer):
    def get_request(self):
        self.stand_in.connections += 1
        return super().get_request()

    def handle_error(self, *_):
        pass  # a helper that was killed hangs up in the middle


class _Handler(http.server.BaseHTTPRequestHandler):
    def do_GET(self):
        if self._greets():
            self.wfile.write(_GREETING)
        elif self.path == "/health":
            self._answer({"status": "ok"}, {"X-ZUNTO-Session-Token": "of-the-stand-in"})
        elif self.path.endswith("/result"):
            self._send_result()
        elif self.path.endswith("/download") and self.server.stand_in.percents:
            self._answer({"jobId": "download", "status": "downloading", "progress": self.server.stand_in.percents.pop(0)})
        else:
            self._answer({"jobId": self.path.rpartition("/")[2], "status": "completed", "progress": 100,
                          "title": TITLE, "formats": [{"quality": "720p"}],
                          "result": {"kind": "file", "filename": FILE_NAME}})

    def do_POST(self):
        self.rfile.read(int(self.headers.get("Content-Length", 0)))
        if self._greets():
            self.wfile.write(_GREETING)
            return
        self._answer({"jobId": "analysis" if self.path == "/probe" else "download", "status": "queued"})

    def _greets(self):
        ending = self.server.stand_in.greets_at
        return ending and self.path.endswith(ending) and "curl" not in self.headers.get("User-Agent", "")

    def _answer(self, body, headers=None):
        content = json.dumps(body).encode()
        self.send_response(200)
        for name, value in (headers or {}).items():
            self.send_header(name, value)
        self.send_header("Content-Length", str(len(content)))
        self.end_headers()
        self.wfile.write(content)

    def _send_result(self):
        stand_in = self.server.stand_in
        stand_in.results_asked_for += 1
        self.send_response(200)
        self.send_header("Content-Length", str(2 * len(_HALF)))
        self.end_headers()
        self.wfile.write(_HALF)
        stand_in.half_is_sent.set()
        stand_in.wait_to_finish()
        self.wfile.write(_HALF)

    def log_message(self, *_):
        pass


class NotHttp:
    """Use as a context: a program of another protocol on the processor's port, which greets everybody."""

    def __enter__(self):
        self._server = _GreetingServer(("127.0.0.1", HELPER_PORT), _Greeting)
        self._thread = threading.Thread(target=self._server.serve_forever, args=(0.1,), daemon=True)
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._server.shutdown()
        self._server.server_close()
        self._thread.join()


class _GreetingServer(socketserver.ThreadingTCPServer):
    allow_reuse_address = True
    daemon_threads = True

    def handle_error(self, *_):
        pass


class _Greeting(socketserver.BaseRequestHandler):
    def handle(self):
        self.request.sendall(_GREETING)
        self.request.settimeout(5)
        self.request.recv(4096)  # the request, so that closing is no reset
