"""The live log: what is told apart, found, held back and gone on with."""

import re

import pytest
from conftest import kx, run_container

COUNTING = "i=0; while :; do i=$((i+1)); echo line $i; [ $((i % 10)) = 0 ] && echo error $i >&2; sleep 0.02; done"


@pytest.fixture
def counting(page):
    """A container that counts, with its log open."""
    run_container("counting", COUNTING)
    page.go("containers/counting")
    page.wait_text("following")
    return page


def last_number(page):
    """Of the last counted line on the screen."""
    numbers = [int(text.split()[1]) for kind, text in page.log_lines() if text.startswith("line ")]
    return numbers[-1] if numbers else 0


def all_held(page):
    """All lines that the page holds, as it would save them."""
    return page.browser.run_async("""
        const done = arguments[0], make = URL.createObjectURL;
        URL.createObjectURL = blob => {
            blob.text().then(done);
            URL.createObjectURL = make;
            return make(blob);
        };
        document.querySelector("button[aria-label='Save what is held']").click();
    """).splitlines()


def assert_nothing_is_missing(page, beyond):
    kx.wait_until(lambda: last_number(page) > beyond, 30, f"it goes on beyond {beyond}: {page.log_lines()[-3:]}")
    lines = all_held(page)
    numbers = [int(match[1]) for match in map(re.compile(r".*Z line (\d+)$").match, lines) if match]
    assert numbers == list(range(numbers[0], numbers[0] + len(numbers))) and numbers[-1] > beyond
    assert not any("missing here" in line for line in lines)


def test_streams_are_told_apart_and_searched(counting):
    page = counting
    kx.wait_until(lambda: {"out", "err"} <= {kind for kind, _ in page.log_lines()}, 20, "both outputs are shown")
    assert all((kind == "err") == text.startswith("error") for kind, text in page.log_lines() if kind in ("out", "err"))
    page.browser.click("label", "Only stderr")
    kx.wait_until(lambda: {kind for kind, _ in page.log_lines()} == {"err", "state"}, 10, "only errors are shown")
    page.browser.click("label", "Only stderr")
    kx.wait_until(lambda: last_number(page) > 150, 30, "there is something to search")
    page.browser.type(".toolbar input[type=search]", "line 11")
    page.browser.click("label", "Only matches")
    kx.wait_until(lambda: all("line 11" in text for _, text in page.log_lines()), 10, "only matches are shown")
    assert ["out", "line 119"] in page.log_lines()
    assert page.browser.run("return document.querySelector('.line:not([hidden]) mark').textContent") == "line 11"
    page.browser.click("label", "Only matches")
    page.browser.click("button", "Previous match")
    page.browser.find(".line-detail")
    detail = "return document.querySelector('.line-detail').innerText"
    first = page.browser.run(detail)
    page.browser.click("button", "Previous match")
    second = page.browser.run(detail)
    assert second != first
    page.browser.run("document.querySelector('.log-pane').focus()")
    for key in ["\ue013", "\ue015"]:  # arrow up, arrow down: read line by line
        page.browser.press(key)
        kx.wait_until(lambda: (page.browser.run(detail) == second) == (key == "\ue015"), 5, "the line is read")


def test_pause_loses_nothing(counting):
    page = counting
    page.browser.click("button", "Pause")
    page.wait_text("paused")
    shown = last_number(page)
    kx.wait_until(lambda: "line %d" % (shown + 100) in kx.podman("logs", "--tail", "20", "counting"), 30, "the container goes on")
    assert last_number(page) == shown
    page.browser.click("button", "Go on")
    assert_nothing_is_missing(page, shown + 100)


def test_goes_on_over_a_restart_of_the_service(counting):
    page = counting
    kx.wait_until(lambda: last_number(page) > 20, 20, "lines come")
    shown = last_number(page)
    page.device.end()
    page.wait_text("No connection to the service since")
    page.device.start()
    page.wait_text("following", 40)
    page.browser.wait("return !document.body.innerText.includes('No connection')", seconds=10)
    assert_nothing_is_missing(page, shown + 50)


def test_goes_on_when_the_container_is_started_again(counting):
    page = counting
    kx.wait_until(lambda: last_number(page) > 5, 20, "lines come")
    kx.podman("stop", "--time", "0", "counting")
    kx.wait_until(lambda: any("has exited with code 137" in text for _, text in page.log_lines()), 20, "the end is told")
    kx.podman("start", "counting")
    page.wait_text("The container runs")
    kx.wait_until(lambda: page.log_lines()[-1][1].startswith(("line", "error")), 20, "it goes on")


def test_plain_log_stream_opens_to_a_browser(page):
    """The older stream, by a script that knows nothing of this page: a browser can set no header."""
    run_container("plain", "for i in 1 2 3; do echo line $i ä; sleep 0.3; done")
    result = page.browser.run_async("""
        const [token, done] = arguments, messages = [];
        const address = location.origin.replace("http", "ws") + "/api/cre/v1.0/containers/plain/logs/ws";
        const socket = new WebSocket(address, ["kx.logs.v1", `bearer.${token}`]);
        socket.onmessage = event => messages.push(event.data);
        socket.onclose = event => done([socket.protocol, messages.slice(0, -1).join(""), messages.at(-1), event.code]);
    """, page.device.token())
    assert result == ["kx.logs.v1", "line 1 ä\nline 2 ä\nline 3 ä\n", "Container id: plain log stream finished.", 1000]
