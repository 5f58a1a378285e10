"""The helper where the environment says something that it must not be misled by."""

import contextlib
import http.server
import threading
import time
from pathlib import Path

from helper_program import READY, READY_LINE, HelperProgram
from steps import Step, require, require_equal, wait_until

# The helper asks its processor again every 5 seconds.
_SECONDS_WITH_A_TICK = 6


def environment_steps():
    return [
        Step("A proxy in http_proxy and all_proxy does not come between the helper and its processor",
             _proxies_in_lower_case, 60),
        Step("Nor does one in HTTP_PROXY and ALL_PROXY, and the hosts of NO_PROXY stay exempt", _proxies_in_upper_case,
             60),
    ]


def _proxies_in_lower_case(run):
    _start_behind_proxies(run, ("http_proxy", "https_proxy", "all_proxy"), {}, "127.0.0.1")


def _proxies_in_upper_case(run):
    _start_behind_proxies(run, ("HTTP_PROXY", "HTTPS_PROXY", "ALL_PROXY"), {"NO_PROXY": "a.example"},
                          "a.example,127.0.0.1")


def _start_behind_proxies(run, names, exempt, expected):
    run.helper.stop()
    with _proxy() as (address, requests):
        variables = {name: address for name in names} | exempt
        run.helper = helper = HelperProgram(run.executable, run.world, variables)
        helper.wait_for_status(READY, 30)
        wait_until(lambda: helper.status_line() == READY_LINE, "the menu showing Ready", 15)
        time.sleep(_SECONDS_WITH_A_TICK)
        require_equal(helper.status_line(), READY_LINE, "the menu after the next look at the processor")
        require(not requests, lambda: f"the proxy was asked for {requests}")
        seen = _environment(helper.processor_pid())
        for name, value in {**variables, "no_proxy": expected, "NO_PROXY": expected}.items():
            require_equal(seen.get(name), value, f"the processor's {name}")


def _environment(pid):
    entries = Path(f"/proc/{pid}/environ").read_text(encoding="utf-8", errors="replace").split("\0")
    return dict(entry.split("=", 1) for entry in entries if "=" in entry)


class _Refusing(http.server.BaseHTTPRequestHandler):
    """A proxy that knows no way to this machine, and remembers what it was asked for."""

    def handle_one_request(self):
        self.raw_requestline = self.rfile.readline(65537)
        if self.raw_requestline:
            self.server.requests.append(self.raw_requestline.decode(errors="replace").strip())
            self.wfile.write(b"HTTP/1.1 502 Bad Gateway\r\nContent-Length: 0\r\nConnection: close\r\n\r\n")
        self.close_connection = True


@contextlib.contextmanager
def _proxy():
    """(address, list of the request lines it has got)"""
    with http.server.ThreadingHTTPServer(("127.0.0.1", 0), _Refusing) as server:
        server.requests = []
        thread = threading.Thread(target=server.serve_forever, args=(0.1,), daemon=True)
        thread.start()
        try:
            yield f"http://127.0.0.1:{server.server_port}", server.requests
        finally:
            server.shutdown()
            thread.join()
