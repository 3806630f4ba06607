"""The server's own rules over the wire: routing, bodies, limits."""

import time

import pytest
from conftest import kx


def exchange(service, data, timeout=20):
    """Sends bytes, and gives all that comes back until the server closes."""
    with service.raw(data, timeout) as connection:
        received = b""
        while chunk := connection.recv(65536):
            received += chunk
        return received


def head(service, target="/settings", method="GET", *lines):
    return "\r\n".join([f"{method} {kx.BASE}{target} HTTP/1.1", "Host: localhost", "Connection: close",
                        f"Authorization: Bearer {service.token()}", *lines, "", ""]).encode()


@pytest.mark.parametrize("method, path, status, headers", [
    ("GET", "/nothing", 404, {}),
    ("GET", "/", 404, {}),
    ("GET", "/api/cre/v2.0/settings", 404, {}),
    ("GET", "/api/cre/v1.0settings", 404, {}),
    ("GET", "/settings/enable/x", 404, {}),
    ("POST", "/settings", 405, {"Allow": {"GET", "HEAD", "PATCH", "OPTIONS"}}),
    ("DELETE", "/containers/x/start", 405, {"Allow": {"POST", "OPTIONS"}}),
    ("POST", "/containers/x/y/z", 404, {}),
    ("HEAD", "/settings", 200, {}),
    ("HEAD", "/compose-files/x", 405, {"Allow": {"DELETE", "OPTIONS"}}),
    ("OPTIONS", "/settings", 204, {"Allow": {"GET", "HEAD", "PATCH", "OPTIONS"}}),
    ("GET", "/settings?unknown=%20&unknown=2", 200, {}),
    ("GET", "/containers?all=true&all=nonsense", 200, {}),
    ("GET", "/containers?all=yes", 400, {}),
    ("GET", "/containers?all=", 400, {}),
    ("POST", "/containers/x/stop?timeout=1.5", 400, {}),
    ("POST", "/containers/x/stop?timeout=9223372036854775808", 400, {}),
    ("POST", "/containers/x/stop?timeout=2147483647", 404, {}),
    ("POST", "/containers/%zz/stop", 400, {}),
    ("POST", "/containers/%/stop", 400, {}),
    ("POST", "/containers/a%0ab/stop", 400, {}),
    ("POST", "/containers/a%3fb/stop", 400, {}),
    ("POST", "/containers/a%23b/stop", 400, {}),
    ("POST", "/containers/../stop", 400, {}),
    ("DELETE", "/compose-files/%2e%2e%2fx", 400, {}),
    ("DELETE", "/compose-files/a/./b", 400, {}),
    ("DELETE", "/compose-files/", 400, {}),
    ("GET", "/containers/x/logs/ws", 426, {"Upgrade": {"websocket"}}),
])
def test_routing(service, method, path, status, headers):
    answer = service.request(method, path)
    assert answer.status == status, answer.body
    for name, values in headers.items():
        assert set(answer.headers[name].replace(" ", "").split(",")) == values
    if method == "HEAD" or status == 204:
        assert answer.body == b""
    elif status >= 400:
        problem = answer.json()
        assert list(problem) == ["type", "title", "status", "detail"] and problem["status"] == status
        assert answer.headers["Content-Type"] == "application/problem+json"
    assert answer.headers["X-Content-Type-Options"] == "nosniff"
    assert answer.headers["Cache-Control"] == "no-store"
    assert "Server" not in answer.headers


def test_names_reach_the_operation_as_written(service):
    for path, kind, name in [("/images/localhost/web:1", "Image", "localhost/web:1"),
                             ("/images/localhost%2Fweb:1", "Image", "localhost/web:1"),
                             ("/containers/a%20b+c", "Container", "a b+c"), ("/containers/%C3%A4", "Container", "ä")]:
        answer = service.request("DELETE", path)
        assert (answer.status, answer.detail()) == (404, f"{kind} '{name}' does not exist"), path


@pytest.mark.parametrize("content_type, body, status", [
    ("application/json", b'{"tcp_port": 2376}', 200),
    ("application/json; charset=utf-8", b'{"tcp_port": 2376}', 200),
    ("text/plain", b'{"tcp_port": 2376}', 415),
    ("application/json", b'{"tcp_port": ', 400),
    ("application/json", b'{"tcp_port": 2376} x', 400),
    ("application/json", b'{"a": "\xff", "tcp_port": 2376}', 400),
    ("application/json", b'{"tcp_port": 2376, "a": ' + b"[" * 63 + b"]" * 63 + b"}", 200),
    ("application/json", b'{"tcp_port": 2376, "a": ' + b"[" * 64 + b"]" * 64 + b"}", 400),
    ("application/json", b'{"tcp_port": 2376}' + b" " * (1024 * 1024 - 18), 200),
    ("application/json", b'{"tcp_port": 2376}' + b" " * (1024 * 1024 - 17), 413),
], ids=range(10))
def test_json_bodies(service, content_type, body, status):
    for chunked in (False, True):
        try:
            answer = service.request("PATCH", "/settings", (body[i:i + 65536] for i in range(0, len(body), 65536))
                                     if chunked else body, {"Content-Type": content_type})
        except (BrokenPipeError, ConnectionResetError):
            assert status == 413  # refused while the body was still on its way
            continue
        assert answer.status == status, answer.body
    assert service.request("GET", "/settings").status == 200


def test_position_of_a_parse_error_is_told(service):
    answer = service.request("PATCH", "/settings", b'{"tcp_port":\n 1,,}', {"Content-Type": "application/json"})
    assert answer.status == 400 and "line 2" in answer.detail()


@pytest.mark.parametrize("data, status", [
    (lambda s: head(s, "/" + "x" * 9000), 414),
    (lambda s: head(s, "/settings", "GET", "X-Long: " + "x" * 17000), 431),
    (lambda s: head(s, "/settings", "GET", *[f"X{i}: y" for i in range(3000)]), 431),
    (lambda s: b"GARBAGE\r\n\r\n", 400),
    (lambda s: b"GET " + kx.BASE.encode() + b"/settings HTTP/1.1\r\nHost: a\r\nBad Header\r\n\r\n", 400),
    (lambda s: head(s, "/settings", "PATCH", "Content-Type: application/json", "Content-Length: x"), 400),
    (lambda s: head(s, "/settings", "PATCH", "Content-Length: 5", "Transfer-Encoding: chunked"), 400),
])
def test_requests_out_of_bounds_are_refused_and_closed(service, data, status):
    answer = exchange(service, data(service))
    assert answer.startswith(b"HTTP/1.1 %d " % status), answer[:200]


def test_many_requests_share_a_connection(service):
    connection = service.connect()
    for _ in range(50):
        assert service.request("GET", "/settings", connection=connection).status == 200
        assert service.request("GET", "/nothing", connection=connection).status == 404
    connection.close()
    pipelined = (head(service).replace(b"Connection: close\r\n", b"") * 20 + head(service))
    assert exchange(service, pipelined).count(b"HTTP/1.1 200 OK") == 21


def test_idle_connections_cost_no_threads(service):
    service.request("GET", "/settings")
    before = service.threads()
    idle = [service.connect() for _ in range(500)]
    for connection in idle:
        assert service.request("GET", "/settings", connection=connection).status == 200
    assert service.threads() <= before + 2
    for connection in idle:
        connection.close()
    kx.wait_until(lambda: service.descriptors() < 100, 10, "closed connections give their descriptors back")


def test_half_a_header_is_given_up_in_time(service):
    begin = time.monotonic()
    answer = exchange(service, b"GET /api HTTP/1.1\r\nHost:", timeout=30)
    assert 8 < time.monotonic() - begin < 25
    assert answer.startswith(b"HTTP/1.1 408 ") or answer == b""
