"""Each view as it is seen and read: rules of accessibility, light and dark, on a screen and on a phone."""

import pytest
from conftest import kx, run_container

SEEN = {"overview": "Exit code 7", "containers": "running", "containers/running": "following", "images": "localhost/hello",
        "compose": "web.yml", "plugins": "gpu", "certificates": "Private key", "settings": "Your role", "audit": "Took"}
RULES = """
    const done = arguments[0];
    axe.run(document, {resultTypes: ["violations"]}).then(({violations}) => done(violations.map(({id, nodes}) =>
        [id, ...nodes.slice(0, 3).map(node => node.html.slice(0, 200))])));
"""


@pytest.fixture
def populated(page):
    """Something to see in each view."""
    run_container("running", "while :; do echo out; echo err >&2; sleep 0.2; done")
    run_container("broken", "echo why >&2; exit 7")
    page.store("/compose-files", "web.yml")
    page.store("/plugins", "gpu_1.0.crp")
    return page


@pytest.mark.parametrize("width, height", [(1280, 860), (390, 844)])
@pytest.mark.parametrize("theme", ["light", "dark"])
def test_no_rule_is_broken_and_nothing_scrolls_sideways(populated, request, theme, width, height):
    page = populated
    page.browser.theme(theme)
    page.browser.size(width, height)
    axe = request.config.getoption("--axe").read_text()
    page.browser.run(axe)
    for view in ["containers/running", "dialog", *SEEN, "login"]:
        if view == "login":
            page.browser.click("button", "Log out")
            page.browser.find("#token")
        elif view == "dialog":
            page.browser.click("main button", "Delete")
            page.browser.find("dialog")
        else:
            page.go(view)
            page.wait_text(SEEN[view])
        assert page.browser.run_async(RULES) == [], f"{view}, {theme}, {width} wide"
        beyond = page.browser.run("return document.documentElement.scrollWidth - innerWidth")
        assert beyond <= 0, f"{view} scrolls sideways at {width}"
        if view == "dialog":
            page.browser.click("dialog button", "Cancel")


def test_keyboard_alone(populated):
    """From the login to a stopped container without a pointer."""
    page = populated
    page.browser.click("button", "Log out")
    page.browser.type("#token", page.device.token() + "\ue007")
    page.browser.find("nav")
    assert page.browser.run("return document.activeElement.tagName") == "H1"
    page.go("containers/running")
    page.browser.find("button", "Stop")
    for _ in range(12):
        page.browser.press("\ue004")
        if page.browser.run("return document.activeElement.innerText") == "Stop":
            break
    assert page.browser.run("return getComputedStyle(document.activeElement).outlineStyle") == "solid"
    page.browser.press("\ue007")
    kx.wait_until(lambda: kx.podman("inspect", "-f", "{{.State.Status}}", "running") == "exited", 20, "it is stopped")
