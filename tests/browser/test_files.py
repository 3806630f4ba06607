"""Images, compose files, plugins, certificates, settings and audit: what is uploaded, changed and deleted from the page."""

import pathlib
import subprocess

import pytest
from conftest import ROOT, kx


@pytest.fixture
def archive(tmp_path):
    """An image archive that Podman does not have yet."""
    kx.podman("tag", kx.IMAGE, "localhost/fresh:1")
    kx.podman("save", "-o", str(tmp_path / "fresh.tar"), "localhost/fresh:1")
    kx.podman("untag", kx.IMAGE, "localhost/fresh:1")
    yield tmp_path / "fresh.tar"
    kx.podman("untag", kx.IMAGE, "localhost/fresh:1", check=False)


def test_image_is_uploaded_and_deleted(page, archive):
    page.go("images")
    page.browser.choose_file("input[type=file]", archive)
    page.wait_text("· done")
    page.wait_text("localhost/fresh:1")
    page.wait_text(" free")
    archive.write_text("no archive")
    page.browser.choose_file("input[type=file]", archive)
    page.wait_text("Uploaded file is not a valid tar archive")
    subprocess.run(["tar", "-cf", archive, "-C", ROOT / "docs", "examples"], check=True)
    kx.podman("import", str(archive), "localhost/spare:1")
    page.browser.click("button", "Delete localhost/spare:1")
    page.browser.click("dialog button", "Delete")
    page.wait_text("Image localhost/spare:1 deleted")
    assert "localhost/spare:1" not in kx.podman("images", "--format", "{{.Repository}}:{{.Tag}}")


def drop(page, name, text):
    """A file is dragged onto the page and let go."""
    page.browser.run("""
        const files = new DataTransfer();
        files.items.add(new File([arguments[1]], arguments[0]));
        for (const type of ["dragenter", "dragover", "drop"])
            document.querySelector(".drop").dispatchEvent(
                new DragEvent(type, {dataTransfer: files, bubbles: true, cancelable: true}));
    """, name, text)


def test_compose_file_is_dropped_and_run(page):
    page.go("compose")
    drop(page, "web.yml", (ROOT / "docs/examples/web.yml").read_text())
    page.wait_row("web.yml", "no containers")
    card = "li.card button"
    for button, running in [("Create", 0), ("Start", 2), ("Stop", 0)]:
        page.browser.click(card, button)
        page.wait_row("web.yml", f"{running} of 2 containers running", 60)
        assert page.browser.find("pre.output")
    page.browser.click(card, "Remove containers")
    page.browser.click("dialog button", "Remove")
    page.wait_row("web.yml", "no containers", 60)
    drop(page, "bad.yml", "services: [")
    page.browser.find("h2", "bad.yml")
    page.browser.click(card, "Create")  # of the first card
    page.wait_row("bad.yml", "not a compose file that can be used")
    for name in ["web.yml", "bad.yml"]:
        page.browser.click("button", f"Delete file {name}")
        page.browser.click("dialog button", "Delete")
        page.wait_text(f"Compose file {name} deleted")


def test_plugin_is_uploaded_turned_off_and_deleted(page):
    page.go("plugins")
    drop(page, "gpu_1.0.txt", "x")
    page.wait_text("the name of a plugin ends in .crp")
    drop(page, "gpu_1.0.crp", "x")
    page.wait_row("gpu", "active")
    for button, state in [("Deactivate", "deactivated"), ("Activate", "active")]:
        page.browser.click("button", f"{button} gpu 1.0")
        page.wait_row("gpu", state)
    page.browser.click("button", "Delete gpu_1.0.crp")
    page.browser.click("dialog button", "Delete")
    kx.wait_until(lambda: not page.row("gpu"), 10, "the row is gone")


def test_certificates_are_uploaded_and_deleted(page, tmp_path):
    page.go("certificates")
    labels = {"server certificate": "server.crt", "private key": "server.key", "clients' CA": "ca.crt"}
    for at, (label, name) in enumerate(labels.items()):
        (tmp_path / name).write_text("not read before the next start")
        page.browser.run("document.querySelectorAll('input[type=file]')[arguments[0]].id = 'chosen'", at)
        page.browser.choose_file("#chosen", tmp_path / name)
        page.browser.run("document.getElementById('chosen').id = ''")
        page.browser.find("button", f"Delete {label}")
        assert pathlib.Path(f"/mnt/cfdrive/containers/certs/{name}").exists()
        page.browser.click("button", f"Delete {label}")
        page.browser.click("dialog button", "Delete")
        kx.wait_until(lambda: not pathlib.Path(f"/mnt/cfdrive/containers/certs/{name}").exists(), 10, f"{name} is deleted")


def test_settings_are_changed(page):
    page.go("settings")
    page.browser.wait("return document.querySelector('#port').value")
    page.browser.run("document.querySelector('#port').value = ''")
    page.browser.type("#port", "2400")
    page.browser.click("button", "Save")
    page.wait_text("Settings saved")
    assert page.device.service.request("GET", "/settings").json()["tcp_port"] == 2400
    page.browser.click("#enabled")
    page.browser.click("dialog button", "Cancel")
    assert page.browser.run("return document.querySelector('#enabled').checked")
    page.browser.click("#enabled")
    page.browser.click("dialog button", "Disable")
    for enabled in [False, True]:
        kx.wait_until(lambda: page.device.service.request("GET", "/settings/enable").json() == {"enabled": enabled}, 10, "it counts")
        if not enabled:
            page.browser.click("#enabled")
    page.go("audit")
    page.wait_text("PATCH /settings/enable")
    page.browser.type("input[type=search]", "no such words")
    page.wait_text("No entry fits")
