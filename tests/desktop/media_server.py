"""A site on this machine: serves the sample over HTTPS with a certificate that nobody has signed."""

import http.server
import socket
import ssl
import subprocess
import threading
import time
import urllib.parse
from pathlib import PurePosixPath

# Not ASCII, as in links that people copy from an address bar.
FOLDER = "Überraschung"
SLOW_FOLDER = "Langsam"

_SLOW_FROM_SEGMENT = 2
_SLOW_BYTES_PER_SECOND = 4_000
_TYPES = {".m3u8": "application/vnd.apple.mpegurl", ".ts": "video/mp2t", ".vtt": "text/vtt; charset=utf-8"}


class MediaServer:
    """Use as a context. `link` leads to the sample; `slow_link` to the same, whose later parts only trickle."""

    def __init__(self, media, private_folder):
        self._media = media
        self._certificate = private_folder / "certificate.pem"
        self.requests = []  # (method, decoded path), in the order they came

    def __enter__(self):
        key = self._certificate.with_name("key.pem")
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj",
                        "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", key, "-out",
                        self._certificate], check=True, timeout=60, stdin=subprocess.DEVNULL,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(self._certificate, key)
        self._server = _Server(("127.0.0.1", 0), _Handler)
        self._server.media = self._media
        self._server.requests = self.requests
        self._server.closing = threading.Event()
        # Each connection shakes hands on its own thread, so that a stalled one stops no other.
        self._server.socket = context.wrap_socket(self._server.socket, server_side=True,
                                                  do_handshake_on_connect=False)
        self.address = f"https://127.0.0.1:{self._server.server_address[1]}"
        self._thread = threading.Thread(target=self._server.serve_forever, args=(0.1,), daemon=True)
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._server.closing.set()
        self._server.shutdown()
        self._server.server_close()
        self._thread.join()

    @property
    def link(self):
        return f"{self.address}/{FOLDER}/{self._media.master_list}"

    @property
    def slow_link(self):
        return f"{self.address}/{SLOW_FOLDER}/{self._media.master_list}"

    @property
    def missing_link(self):
        return f"{self.address}/{FOLDER}/missing.m3u8"


class _Server(http.server.ThreadingHTTPServer):
    daemon_threads = True
    block_on_close = False

    def handle_error(self, request, client_address):
        pass  # a client that goes away in the middle is what cancelling looks like from here


class _Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    timeout = 60

    def setup(self):
        self.request.settimeout(self.timeout)
        self.request.do_handshake()
        self.request.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        super().setup()

    def do_GET(self):
        self._answer(with_body=True)

    def do_HEAD(self):
        self._answer(with_body=False)

    def log_message(self, *_):
        pass

    def _answer(self, with_body):
        path = PurePosixPath(urllib.parse.unquote(urllib.parse.urlsplit(self.path).path))
        self.server.requests.append((self.command, str(path)))
        file = self._file(path)
        if file is None:
            self.send_error(404)
            return
        body = file.read_bytes()
        self.send_response(200)
        self.send_header("Content-Type", _TYPES.get(file.suffix, "application/octet-stream"))
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        if with_body:
            self._send(body, slow=path.parts[1] == SLOW_FOLDER and self._is_late(file))

    def _file(self, path):
        if len(path.parts) < 3 or path.parts[1] not in (FOLDER, SLOW_FOLDER) or ".." in path.parts:
            return None
        file = self.server.media.folder.joinpath(*path.parts[2:])
        return file if file.is_file() else None

    @staticmethod
    def _is_late(file):
        digits = "".join(filter(str.isdigit, file.stem))
        return file.suffix == ".ts" and int(digits or 0) >= _SLOW_FROM_SEGMENT

    def _send(self, body, slow):
        if not slow:
            self.wfile.write(body)
            return
        for start in range(0, len(body), _SLOW_BYTES_PER_SECOND // 4):
            if self.server.closing.is_set():
                return
            self.wfile.write(body[start:start + _SLOW_BYTES_PER_SECOND // 4])
            time.sleep(0.25)
