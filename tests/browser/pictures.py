#!/usr/bin/python3
"""pictures.py PROGRAM: makes docs/images/*.png, what the README shows of the page. For the sandbox."""

import pathlib
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "scripts/lib"))
import service as kx  # noqa: E402
from browser import Browser  # noqa: E402

IMAGES = ROOT / "docs/images"
COMPOSE = """version: "3"
services:
  gateway: {image: "localhost/axis-gateway:1.4", command: ["sh", "-c", "%s"]}
  store: {image: "localhost/recipe-store:2.0", command: ["sh", "-c", "while :; do echo recipe loaded; sleep 1; done"]}
"""
BUSY = """i=0; while :; do i=$((i+1)); echo "cycle $i finished in 12.4 ms"; [ $((i % 7)) = 0 ] && echo "queue depth 41, too slow" >&2
          n=0; while [ $n -lt $((i % 40 * 400)) ]; do n=$((n+1)); done; sleep 0.2; done"""
VIEWS = [  # file, theme, width, height, place, what has to be seen first
    ("overview", "light", 1180, 720, "overview", "valve 3"),
    ("overview-dark", "dark", 1180, 720, "overview", "valve 3"),
    ("containers", "light", 1180, 420, "containers", "line4.yml"),
    ("container", "dark", 1180, 720, "containers/historian", "following"),
    ("images", "light", 1180, 560, "images", "recipe-store"),
    ("compose", "light", 1180, 420, "compose", "running"),
    ("plugins", "light", 1180, 420, "plugins", "fieldbus"),
    ("certificates", "light", 1180, 620, "certificates", "not there"),
    ("settings", "light", 1180, 460, "settings", "administrator"),
    ("audit", "light", 1180, 460, "audit", "Took"),
    ("phone-overview", "light", 390, 780, "overview", "valve 3"),
    ("phone-container", "dark", 390, 780, "containers/historian", "following"),
]


def furnish(running):
    for name in ["axis-gateway:1.4", "recipe-store:2.0", "historian:5.2", "vision:2.14"]:
        kx.make_image(f"localhost/{name}")
    upload = {"Content-Type": "application/octet-stream"}
    for path, name, body in [("/compose-files", "line4.yml", COMPOSE % "while :; do echo axis 3 at 118.442; sleep 1; done"),
                             ("/plugins", "gpu_1.0.crp", "x" * 1_200_000), ("/plugins", "fieldbus_2.3.crp", "x" * 340_000)]:
        running.request("POST", path, body.encode(), {**upload, "Content-Disposition": f'attachment; filename="{name}"'})
    for command in ["create", "start"]:
        answer = running.request("POST", f"/compose-files/line4.yml/containers/{command}", timeout=120)
        assert answer.status in (200, 201), answer.body
    kx.podman("run", "-d", "--name", "historian", "localhost/historian:5.2", "/bin/sh", "-c", BUSY)
    kx.podman("run", "-d", "--name", "vision", "localhost/vision:2.14", "/bin/sh", "-c",
              "echo camera found; echo 'calibration failed: valve 3 does not answer (timeout after 500 ms)' >&2; exit 3")
    kx.podman("create", "--name", "backup", "localhost/historian:5.2", "true")


def take(browser, running):
    browser.open(f"http://127.0.0.1:{running.port}/")
    browser.type("#token", running.token())
    browser.click("button", "Log in")
    browser.find("nav")
    for file, theme, width, height, place, awaited in VIEWS:
        browser.theme(theme)
        browser.size(width, height)
        browser.run("location.hash = '#/' + arguments[0]", place)
        browser.wait("return document.body.innerText.includes(arguments[0])", awaited)
        time.sleep(60 if "historian" in place and width > 600 else 8 if "historian" in place else 1.5)  # the plots grow
        browser.run("document.activeElement.blur()")
        browser.point(2, height - 2)
        browser.screenshot(IMAGES / f"{file}.png")


def main():
    kx.require_sandbox()
    kx.clear_device()
    IMAGES.mkdir(exist_ok=True)
    with kx.Service(sys.argv[1], pathlib.Path("/run/service.log"), {"WebApi.Port": 0}) as running, Browser() as browser:
        running.wait_ready()
        furnish(running)
        take(browser, running)
        running.stop()


if __name__ == "__main__":
    main()
