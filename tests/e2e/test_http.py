"""The server's own rules over the wire: routing, bodies, limits."""

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


def test_routing(service):
    for method, path, status, headers in [
            ("GET", "/nothing", 404, {}),
            ("GET", "/api/cre/v2.0/settings", 404, {}),
            ("POST", "/settings", 405, {"Allow": "GET, HEAD, PATCH, OPTIONS"}),
            ("HEAD", "/settings", 200, {}),
            ("OPTIONS", "/settings", 204, {"Allow": "GET, HEAD, PATCH, OPTIONS"}),
            ("GET", "/containers?all=yes", 400, {}),
            ("POST", "/containers/a%0ab/stop", 400, {}),
            ("POST", "/containers/../stop", 400, {}),
            ("DELETE", "/compose-files/%2e%2e%2fx", 400, {}),
            ("GET", "/containers/x/logs/ws", 426, {"Upgrade": "websocket"})]:
        answer = service.request(method, path)
        assert answer.status == status, (path, answer.body)
        for name, value in {**headers, "X-Content-Type-Options": "nosniff", "Cache-Control": "no-store"}.items():
            assert answer.headers[name] == value, (path, name)
        if method == "HEAD" or status == 204:
            assert answer.body == b""
        else:
            problem = answer.json()
            assert list(problem) == ["type", "title", "status", "detail"] and problem["status"] == status
            assert answer.headers["Content-Type"] == "application/problem+json"
        assert "Server" not in answer.headers


@pytest.mark.parametrize("chunked", [False, True])
def test_json_bodies(service, chunked):
    whole = b'{"tcp_port": 2376}'
    for body, status, words in [(whole, 200, ""), (b'{"tcp_port":\n 1,,}', 400, "line 2"), (whole + b" x", 400, "line 1"),
                                (b'{"a": "\xff", "tcp_port": 2376}', 400, ""),
                                (b'{"tcp_port": 2376, "a": ' + b"[" * 63 + b"]" * 63 + b"}", 200, ""),
                                (whole + b" " * (1024 * 1024 - len(whole)), 200, ""),
                                (whole + b" " * (1024 * 1024 - len(whole) + 1), 413, "")]:
        parts = (body[i:i + 65536] for i in range(0, len(body), 65536))
        try:
            answer = service.request("PATCH", "/settings", parts if chunked else body, {"Content-Type": "application/json"})
        except (BrokenPipeError, ConnectionResetError):
            assert status == 413  # refused while the body was still on its way
            continue
        assert answer.status == status and words in answer.body.decode(), (body[:50], answer.body)


def test_requests_out_of_bounds_are_refused_and_closed(service):
    for data, status in [(head(service, "/" + "x" * 9000), 414),
                         (head(service, "/settings", "GET", "X-Long: " + "x" * 17000), 431),
                         (head(service, "/settings", "GET", *[f"X{i}: y" for i in range(3000)]), 431),
                         (head(service, "/settings", "GET", "Bad Header"), 400),
                         (head(service, "/settings", "PATCH", "Content-Type: application/json", "Content-Length: x"), 400),
                         (head(service, "/settings", "PATCH", "Content-Length: 5", "Transfer-Encoding: chunked"), 400),
                         (b"GARBAGE\r\n\r\n", 400)]:
        answer = exchange(service, data)
        assert answer.startswith(b"HTTP/1.1 %d " % status), answer[:200]


def test_idle_connections_cost_no_threads(service):
    service.request("GET", "/settings")
    before = service.threads()
    idle = [service.connect() for _ in range(500)]
    for connection in idle:
        assert service.request("GET", "/settings", connection=connection).status == 200
    assert service.threads() <= before + 16  # as many as are kept when requests come slowly
    for connection in idle:
        connection.close()
    kx.wait_until(lambda: service.descriptors() < 100, 10, "closed connections give their descriptors back")
