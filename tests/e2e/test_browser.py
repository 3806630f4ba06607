"""A page in a real browser follows a log. Runs where Chromium is installed; .ci/run installs it."""

import http.server
import json
import queue
import shutil
import subprocess
import threading
import time

import pytest
from conftest import kx
from test_logs import run_container

PAGE = """<!doctype html><script>
const socket = new WebSocket("ws://127.0.0.1:PORT/api/cre/v1.0/containers/page/logs/ws", ["kx.logs.v1", "bearer.TOKEN"]);
const messages = [];
socket.onmessage = event => {
    messages.push(event.data);
    if (event.data.includes("line 3")) fetch("/line3", {method: "POST", body: "null"});
};
socket.onclose = event => fetch("/result", {method: "POST", body: JSON.stringify(
    {protocol: socket.protocol, log: messages.slice(0, -1).join(""), closing: messages.at(-1), code: event.code})});
</script>"""


class PageServer(http.server.ThreadingHTTPServer):
    """Serves the page, and takes what it reports."""

    def __init__(self, page):
        super().__init__(("127.0.0.1", 0), self.Handler)
        self.page, self.reports = page.encode(), queue.Queue()
        threading.Thread(target=self.serve_forever, daemon=True).start()

    class Handler(http.server.BaseHTTPRequestHandler):
        def do_GET(self):
            self.send_response(200)
            self.send_header("Content-Type", "text/html")
            self.end_headers()
            self.wfile.write(self.server.page)

        def do_POST(self):
            report = json.loads(self.rfile.read(int(self.headers["Content-Length"])))
            self.send_response(204)
            self.end_headers()
            self.server.reports.put(report)

        def log_message(self, *_):
            pass


@pytest.mark.skipif(shutil.which("chromium") is None, reason="Chromium is not installed")
def test_page_follows_a_log(service, tmp_path):
    run_container("page", f"for i in 1 2 3; do echo line $i ä; sleep 0.3; done; trap exit TERM; while :; do sleep 0.1; done")
    with PageServer(PAGE.replace("PORT", str(service.port)).replace("TOKEN", service.token())) as server:
        browser = subprocess.Popen(
            ["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
             "--disable-background-networking", "--disable-component-update", "--disable-sync",
             f"--user-data-dir={tmp_path}", f"http://127.0.0.1:{server.server_address[1]}/"],
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            server.reports.get(timeout=60)  # the page has line 3
            time.sleep(1)  # Podman does not see an end at the very beginning of following
            assert service.request("POST", "/containers/page/stop").status == 204
            kx.wait_until(lambda: "Log stream ended for container 'page'" in service.log(), 60, "the stream has ended")
            result = server.reports.get(timeout=60)
        finally:
            browser.kill()
            browser.wait()
            server.shutdown()
    assert result == {"protocol": "kx.logs.v1", "log": "line 1 ä\nline 2 ä\nline 3 ä\n",
                      "closing": "Container id: page log stream finished.", "code": 1000}
