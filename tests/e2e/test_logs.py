"""Following container logs over the WebSocket, on a real Podman."""

import socket
import struct
import time

import pytest
from cases import CASES, JOURNAL, Stage
from conftest import PREFIX, end, kx
from follower import CLOSING, Follower, Refused, frames, handshake

END_SECONDS = 10  # of a second that is promised: a sanitizer on a busy machine takes its time


def run_container(name, command):
    kx.podman("run", "-d", "--name", name, kx.IMAGE, "/bin/sh", "-c", command)


@pytest.fixture(scope="module")
def stages():
    """The stage of the service that tests share."""
    stages = {}
    yield lambda running: stages.setdefault(running, Stage(running, end_seconds=END_SECONDS))
    for stage in stages.values():
        stage.__exit__()


@pytest.mark.parametrize("case", [case for case in CASES if case.only != JOURNAL], ids=lambda case: case.what)
def test_log_arrives_whole(service, stages, case):
    problem, _ = stages(service).play(case)
    assert problem is None, problem


@pytest.fixture
def ended(service):
    """A container that wrote a line, and ended."""
    if "ended" not in kx.podman("ps", "--all", "--format", "{{.Names}}").split():
        run_container("ended", "echo out1")
        kx.podman("wait", "ended")
    return "ended"


def test_tail_that_is_none_is_left_out(service, ended):
    assert Follower(service, ended, "?tail=-1").result() == "out1\n"
    assert PREFIX + "Ignoring invalid tail value '-1' (expected an integer or 'all')" in service.log()
    for line in ("Opening log stream websocket for container 'ended'", "Log stream websocket connected for container 'ended'",
                 "Log stream ended for container 'ended'", CLOSING.format(ended)):
        assert PREFIX + line in service.log()


def test_refusals_before_the_switch_are_ordinary_answers(service, ended):
    """And a browser, which cannot send the field, sends its token as a subprotocol."""

    def refusal(name, headers=None):
        with pytest.raises(Refused) as refused:
            handshake(service, f"/containers/{name}/logs/ws", headers)
        return refused.value.args[0]

    def offer(token):
        return {"Sec-WebSocket-Protocol": f"kx.logs.v1, bearer.{token}"}

    assert refusal("ghost") == 404
    assert refusal("ghost", {}) == refusal(ended, offer("wrong")) == 401
    connection, answer = handshake(service, f"/containers/{ended}/logs/ws", offer(service.token()))
    with connection:
        assert "Sec-WebSocket-Protocol: kx.logs.v1\r\n" in answer
        assert next(frames(connection)) == (1, b"out1\n")


def test_cut_streams_leave_nothing_behind(service):
    """Ended by the reset that a dead client's machine sends, while the container is silent."""

    def usage():
        return service.threads(), service.descriptors()

    run_container("quiet", "exec sleep 1000")
    for number in range(8):
        if number == 3:  # what is kept ready is made by the first rounds
            service.wait_for_log("Log stream ended for container 'quiet'", count=60)
            before = usage()
        for connection, _ in [handshake(service, "/containers/quiet/logs/ws") for _ in range(20)]:
            connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            connection.close()
    service.wait_for_log("Log stream ended for container 'quiet'", count=160)
    kx.wait_until(lambda: all(now <= then + 16 for now, then in zip(usage(), before)), 15,  # of 100 streams
                  f"threads and descriptors return to {before}")


def test_streams_end_with_the_service(fresh_service):
    run_container("going", "while :; do echo x; sleep 0.1; done")
    followers = [Follower(fresh_service, "going").wait_open() for _ in range(2)]
    kx.wait_until(lambda: all(follower.messages for follower in followers), 10, "lines")
    begin = time.monotonic()
    assert fresh_service.stop() == 0
    assert time.monotonic() - begin < 20
    assert all(set(follower.result().split("\n")) == {"x", ""} for follower in followers)
    end(fresh_service, ended=True)
