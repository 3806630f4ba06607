"""What the page says when the service or Podman is away, and that it comes back by itself."""

import contextlib
import os
import signal
import subprocess

from conftest import kx, run_container


@contextlib.contextmanager
def cut_network(port):
    """Packets to and from the service vanish, as with a cable that is pulled."""
    rules = [["INPUT", "-p", "tcp", f"--{side}", str(port), "-j", "DROP"] for side in ("dport", "sport")]
    for rule in rules:
        subprocess.run(["iptables", "-I", *rule], check=True)
    try:
        yield
    finally:
        for rule in rules:
            subprocess.run(["iptables", "-D", *rule], check=True)


def test_network_cut_is_told_and_mended(page):
    page.go("containers")
    with cut_network(page.device.port):
        page.wait_text("No connection to the service since", 40)
        run_container("meanwhile", "sleep 1000")
    page.wait_row("meanwhile", "running", 60)
    assert "No connection" not in page.browser.text()
    kx.podman("kill", "meanwhile")
    page.wait_row("meanwhile", "exited", 20)


def test_service_restarted_under_it(page):
    page.go("containers")
    page.device.end()
    page.wait_text("No connection to the service since")
    page.device.start()
    page.browser.wait("return !document.body.innerText.includes('No connection')", seconds=40)
    run_container("after", "sleep 1000")
    page.wait_row("after", "running")


def test_podman_away_is_told(page):
    with kx.frozen_podman():
        page.wait_text("Podman is away", 60)
    page.browser.wait("return !document.body.innerText.includes('Podman is away')", seconds=60)
    os.kill(kx.podman_service_pid(), signal.SIGKILL)
    run_container("meanwhile", "exit 4")
    page.wait_row("meanwhile", "Exit code 4", 60)


def test_page_that_came_in_half_is_loaded_again(page):
    """As when a network changes while the modules are on their way."""
    page.browser.command("Network.enable")
    page.browser.command("Network.setBlockedURLs", urls=["*/core/store.js"])
    page.browser.command("Network.setCacheDisabled", cacheDisabled=True)
    page.browser.open(page.address)
    page.wait_text("could not be loaded completely")
    page.browser.command("Network.setBlockedURLs", urls=[])
    page.browser.command("Network.setCacheDisabled", cacheDisabled=False)
    page.wait_text("Nothing is broken")
