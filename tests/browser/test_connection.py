"""What the page says when the service or Podman is away, and that it comes back by itself."""

import contextlib
import os
import pathlib
import shutil
import signal
import subprocess

import pytest
from conftest import kx, run_container

CERTIFICATES = pathlib.Path("/mnt/cfdrive/containers/certs")


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


@pytest.fixture
def page_over_tls(page):
    shutil.rmtree(CERTIFICATES, ignore_errors=True)  # what another test has left there
    CERTIFICATES.mkdir(parents=True)
    certificate, key = CERTIFICATES / "server.crt", CERTIFICATES / "server.key"
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days", "200",
                    "-subj", "/CN=target", "-addext", "subjectAltName = IP:127.0.0.1", "-keyout", key, "-out", certificate],
                   check=True, capture_output=True)
    page.device.end()
    page.device.start()
    page.device.service.use_tls(certificate)
    yield page
    page.device.end()
    shutil.rmtree(CERTIFICATES)
    page.device.start()


def test_over_tls(page_over_tls):
    page = page_over_tls
    page.log_in()
    page.wait_text("199 days")
    run_container("spoken", "for i in 1 2 3; do echo line $i; sleep 0.2; done; sleep 1000")
    page.go("containers")
    page.wait_row("spoken", "running")
    page.go("containers/spoken")
    page.wait_text("line 3")
