"""Following container logs over the WebSocket, on a real Podman."""

import asyncio
import contextlib
import os
import pathlib
import socket
import struct
import time

import pytest
import websockets
from conftest import PREFIX, end, kx

CLOSE = 8  # opcode
UNTIL_STOPPED = "trap exit TERM; while :; do sleep 0.1; done"
CLOSING = "Container id: {} log stream finished."


def run_container(name, command, *options):
    kx.podman("run", "-d", "--name", name, *options, kx.IMAGE, "/bin/sh", "-c", command)


def follow(service, name, query="", **options):
    """A WebSocket on the container's log."""
    options.setdefault("extra_headers", {"Authorization": f"Bearer {service.token()}"})
    url = f"ws://127.0.0.1:{service.port}{kx.BASE}/containers/{name}/logs/ws{query}"
    return websockets.connect(url, max_size=None, **options)


async def read_all(stream):
    """Everything up to the close: the joined log, the last message, the close code."""
    messages = []
    with contextlib.suppress(websockets.ConnectionClosed):
        while True:
            messages.append(await asyncio.wait_for(stream.recv(), 30))
    return "".join(messages[:-1]), messages[-1] if messages else None, stream.close_code


def log_of(service, name, query=""):
    """The log of a container that has ended."""

    async def read():
        async with follow(service, name, query) as stream:
            return await read_all(stream)

    text, closing, code = asyncio.run(read())
    assert (closing, code) == (CLOSING.format(name), 1000)
    return text


@pytest.fixture
def ended(service):
    """A container that wrote to both streams, and ended."""
    if "ended" in kx.podman("ps", "--all", "--format", "{{.Names}}").split():
        return "ended"
    run_container("ended", "echo out1; sleep 0.3; echo err1 >&2; sleep 0.3; echo out2; sleep 0.3; echo late")
    kx.podman("wait", "ended")
    return "ended"


def test_what_the_query_selects(service, ended):
    for query, expected in [("", "out1\nerr1\nout2\nlate"), ("?stdout=false", "err1"), ("?stderr=false", "out1\nout2\nlate"),
                            ("?stdout=0&stderr=0", ""), ("?tail=1", "late"), ("?tail=0", ""),
                            ("?tail=all", "out1\nerr1\nout2\nlate"), ("?tail=-1", "out1\nerr1\nout2\nlate")]:
        assert log_of(service, ended, query).rstrip("\n") == expected, query
    assert PREFIX + "Ignoring invalid tail value '-1' (expected an integer or 'all')" in service.log()


def test_times_select_and_mark_lines(service, ended):
    marked = log_of(service, ended, "?timestamps=true").splitlines()
    assert [line.split(" ", 1)[1] for line in marked] == ["out1", "err1", "out2", "late"]
    seconds = [int(time.mktime(time.strptime(line[:19], "%Y-%m-%dT%H:%M:%S"))) for line in marked]
    assert abs(seconds[0] - time.mktime(time.gmtime())) < 120
    first = int(kx.podman("inspect", "-f", "{{.State.StartedAt.Unix}}", ended))
    assert "out1" not in log_of(service, ended, f"?since={first + 100}")
    assert "late" not in log_of(service, ended, f"?until={first - 100}")


def test_running_container_is_followed_until_it_stops(service):
    run_container("live", "while :; do echo tick; echo tock >&2; sleep 0.1; done")

    async def scenario():
        async with follow(service, "live", "?tail=0") as stream:
            text = ""
            while text.count("tick") < 5 or text.count("tock") < 5:
                text += await asyncio.wait_for(stream.recv(), 10)
            stopping = asyncio.get_running_loop().run_in_executor(
                None, service.request, "POST", "/containers/live/stop?timeout=0")
            _, closing, code = await read_all(stream)
            assert (await stopping).status == 204
            assert (closing, code) == (CLOSING.format("live"), 1000)

    asyncio.run(scenario())
    for line in ("Opening log stream websocket for container 'live'", "Log stream websocket connected for container 'live'",
                 "Log stream ended for container 'live'", CLOSING.format("live")):
        assert PREFIX + line in service.log()


def test_output_arrives_unharmed(service):
    """A terminal has no stream framing; long lines and characters may be cut anywhere on their way."""

    async def read_whole():
        async with follow(service, "wide") as stream:  # while it runs: of one that has ended, Podman may lose lines
            text = ""
            while text.count("😀") < 20000:
                text += await asyncio.wait_for(stream.recv(), 30)
            return text

    run_container("terminal", "echo from a terminal; printf 'ä€😀'", "-t")
    run_container("wide", f"i=0; while [ $i -lt 20000 ]; do printf 'ä€😀'; i=$((i+1)); done; echo; {UNTIL_STOPPED}")
    run_container("broken-text", "printf 'a\\377b\\n'")
    for name in ("terminal", "broken-text"):
        kx.podman("wait", name)
    assert log_of(service, "terminal").replace("\r\n", "\n").rstrip("\n") == "from a terminal\nä€😀"
    assert asyncio.run(read_whole()).replace("\n", "") == "ä€😀" * 20000
    assert log_of(service, "broken-text") == "a\ufffdb\n"


def test_refusals_before_the_switch_are_ordinary_answers(service, ended):
    """And a browser, which cannot send the field, sends its token as a subprotocol."""

    async def scenario(name, **options):
        try:
            async with follow(service, name, **options) as stream:
                return stream.subprotocol, await read_all(stream)
        except websockets.InvalidStatusCode as refused:
            return refused.status_code

    def offer(token):
        return {"extra_headers": {}, "subprotocols": ["kx.logs.v1", f"bearer.{token}"]}

    assert asyncio.run(scenario("ghost")) == 404
    assert asyncio.run(scenario("ghost", extra_headers={})) == asyncio.run(scenario(ended, **offer("wrong"))) == 401
    subprotocol, (text, _, _) = asyncio.run(scenario(ended, **offer(service.token())))
    assert subprotocol == "kx.logs.v1" and "out1" in text


def handshake(service, name, query=""):
    """A raw connection that has switched to the WebSocket."""
    connection = service.raw((f"GET {kx.BASE}/containers/{name}/logs/ws{query} HTTP/1.1\r\nHost: localhost\r\n"
                              f"Authorization: Bearer {service.token()}\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                              "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n").encode())
    answer = b""
    while b"\r\n\r\n" not in answer:
        byte = connection.recv(1)
        assert byte, answer
        answer += byte
    assert answer.startswith(b"HTTP/1.1 101 "), answer
    return connection


def test_cut_streams_leave_nothing_behind(service):
    """Ended by the reset that a dead client's machine sends, while the container is silent."""

    def usage():
        return service.threads(), service.descriptors()

    run_container("quiet", "exec sleep 1000")
    for number in range(8):
        if number == 3:  # what is kept ready is made by the first rounds
            service.wait_for_log("Log stream ended for container 'quiet'", count=60)
            before = usage()
        for connection in [handshake(service, "quiet") for _ in range(20)]:
            connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            connection.close()
    service.wait_for_log("Log stream ended for container 'quiet'", count=160)
    kx.wait_until(lambda: all(now <= then + 16 for now, then in zip(usage(), before)), 15,  # of 100 streams
                  f"threads and descriptors return to {before}")


def test_deleted_container_ends_its_stream(service):
    run_container("doomed", "trap exit TERM; while :; do echo x; sleep 0.1; done")

    async def scenario():
        async with follow(service, "doomed") as stream:
            for _ in range(5):  # Podman does not see an end at the very beginning of following
                await asyncio.wait_for(stream.recv(), 10)
            deletion = asyncio.get_running_loop().run_in_executor(
                None, service.request, "DELETE", "/containers/doomed?force=true")
            _, closing, code = await read_all(stream)
            assert (await deletion).status == 204
            assert (closing, code) == (CLOSING.format("doomed"), 1000)

    asyncio.run(scenario())


def last_bytes(path, count):
    with open(path, "rb") as file:
        file.seek(max(0, file.seek(0, os.SEEK_END) - count))
        return file.read()


def test_client_that_stops_reading_costs_no_memory_and_loses_nothing(service):
    lines, width = 40000, 1000
    run_container("fast", f"sleep 0.5; awk 'BEGIN {{ for (i = 1; i <= {lines}; i++) printf \"%0{width}d\\n\", i }}'; "
                          f"{UNTIL_STOPPED}")
    log_file = pathlib.Path(kx.podman("inspect", "-f", "{{.HostConfig.LogConfig.Path}}", "fast"))
    before = service.resident_kib()
    with handshake(service, "fast") as connection:
        # Not with `podman logs --tail`: meeting a line that is half written, it fails.
        kx.wait_until(lambda: last_bytes(log_file, 10) == b"%09d\n" % lines, 60, "all is written")
        assert service.resident_kib() < before + 16 * 1024  # of 40 MiB; a sanitizer keeps its own notes of each byte
        text = bytearray()
        for opcode, payload in frames(connection):
            if opcode == CLOSE:
                assert struct.unpack(">H", payload[:2]) == (1000,)
                break
            text += payload
            if len(text) == lines * (width + 1):
                service.request("POST", "/containers/fast/stop")
    expected = "".join(f"{number:0{width}}\n" for number in range(1, lines + 1)) + CLOSING.format("fast")
    assert bytes(text) == expected.encode()


def frames(connection):
    """The server's frames: opcode and payload."""
    file = connection.makefile("rb")
    while True:
        first, second = file.read(2)
        size = second & 0x7F
        if size >= 126:
            size = int.from_bytes(file.read(2 if size == 126 else 8), "big")
        yield first & 0x0F, file.read(size)


def test_streams_end_with_the_service(fresh_service):
    running = fresh_service
    run_container("going", "while :; do echo x; sleep 0.1; done")

    async def scenario():
        async with follow(running, "going") as first, follow(running, "going") as second:
            await asyncio.wait_for(first.recv(), 10)
            begin = time.monotonic()
            stopping = asyncio.get_running_loop().run_in_executor(None, running.stop)
            endings = [await read_all(stream) for stream in (first, second)]
            assert await stopping == 0
            assert time.monotonic() - begin < 20
            return endings

    for _, closing, code in asyncio.run(scenario()):
        assert (closing, code) == (CLOSING.format("going"), 1000)
    end(running, ended=True)
