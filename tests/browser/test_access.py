"""Who gets in, what each role is offered, and where the token is not."""

import pytest
from conftest import COMPOSE_FILES, kx, run_container


def test_wrong_token_is_told(page):
    page.browser.click("button", "Log out")
    page.browser.type("#token", "wrong")
    page.browser.click("button", "Log in")
    page.wait_text("This token does not open")


def test_token_stays_in_the_tab(page):
    token = page.device.token()
    for view in ["overview", "containers", "audit"]:
        page.go(view)
    page.wait_text("Read again")
    where = page.browser.run("""
        return [location.href, document.cookie, JSON.stringify(localStorage), JSON.stringify(history.state),
            document.documentElement.outerHTML, ...performance.getEntriesByType("resource").map(entry => entry.name)].join("\\n")
    """)
    assert token not in where
    assert page.browser.run("return JSON.stringify(sessionStorage)").count(token) == 1
    asked = page.browser.run("return performance.getEntriesByType('resource').map(entry => new URL(entry.name).origin)")
    assert {*asked} == {page.address.rstrip("/")}
    page.browser.click("button", "Log out")
    page.browser.find("#token")
    assert page.browser.run("return sessionStorage.length + document.body.innerText.includes('Overview')") == 0


OFFERS = {  # view: what each role is offered beyond looking; [] is nothing
    "images": {"administrator": ["Upload an image archive"]},
    "compose": {"operator": ["Start", "Stop"], "administrator": ["Create", "Delete file shown.yml", "Remove containers", "Start",
                                                              "Stop", "Upload a compose file"]},
    "plugins": {"administrator": ["Deactivate shown 1.0", "Delete shown_1.0.crp", "Upload a plugin"]},
    "certificates": {"administrator": ["Delete clients' CA", "Upload the clients' CA", "Upload the private key",
                                       "Upload the server certificate"]},
    "settings": {"viewer": [""], "operator": [""], "administrator": ["", "Save"]},
    "containers": {"operator": ["Restart shown", "Stop shown"],
                   "administrator": ["Delete shown", "Restart shown", "Stop shown"]},
}


@pytest.mark.parametrize("role", ["viewer", "operator", "administrator"])
def test_role_is_offered_what_it_may_do(page, role):
    run_container("shown", "while :; do sleep 1; done", "--label", "com.docker.compose.service=shown", "--label",
                  f"com.docker.compose.project.config_files={COMPOSE_FILES}/shown.yml")
    for path, name in [("/compose-files", "shown.yml"), ("/plugins", "shown_1.0.crp"), ("/certs/ca-certificate", "ca.crt")]:
        page.store(path, name)
    page.log_in(page.device.identity(f"{role}.1", role))
    assert page.browser.exists("nav a", "Audit") == (role == "administrator")
    for view, offers in OFFERS.items():
        page.go(view)
        try:
            kx.wait_until(lambda: sorted(page.buttons()) == offers.get(role, []), 10, view)
        except TimeoutError:
            assert sorted(page.buttons()) == offers.get(role, []), view


def test_removed_identity_is_out_at_once(page):
    page.log_in(page.device.identity("leaver", "viewer"))
    page.device.write_identities([])
    page.wait_text("Your access has ended")
    assert page.browser.run("return sessionStorage.length") == 0
