"""Containers: what is broken, what an operator does about it, and that the page follows what others do."""

from conftest import kx, run_container


def test_first_view_says_what_is_broken_and_why(page):
    run_container("failed", "echo cannot open the recipe >&2; exit 3")
    page.wait_row("failed", "Exit code 3", 10)
    page.wait_row("failed", "cannot open the recipe")
    assert "since " in page.row("failed")
    page.browser.click(".problem button", "Start")
    page.wait_text("Container failed started")
    page.wait_row("failed", "Exit code 3")
    page.browser.click(".problem button", "Dismiss: failed")
    kx.wait_until(lambda: not page.row("failed"), 10, "the problem is gone")


def test_every_action(page):
    run_container("worker", "trap 'exit 0' TERM; while :; do sleep 0.1; done")
    page.go("containers")
    page.wait_row("worker", "running")
    for button, state in [("Stop", "exited"), ("Start", "running"), ("Restart", "running"), ("Stop", "exited")]:
        before = kx.podman("inspect", "-f", "{{.State.StartedAt}}", "worker")
        page.browser.click("button", f"{button} worker")
        page.wait_text({"Stop": "worker stopped", "Start": "worker started", "Restart": "worker restarted"}[button])
        page.wait_row("worker", state)
        assert (kx.podman("inspect", "-f", "{{.State.StartedAt}}", "worker") != before) == (button != "Stop")
    page.browser.click("button", "Delete worker")
    page.browser.click("dialog button", "Cancel")
    assert page.row("worker")
    page.browser.click("button", "Delete worker")
    page.browser.click("dialog button", "Delete")
    kx.wait_until(lambda: not page.row("worker"), 20, "the row is gone")
    assert kx.podman("ps", "--all", "--filter", "name=worker", "--format", "{{.Names}}") == ""


def test_follows_what_others_do_without_asking(page):
    page.go("containers")
    page.wait_text("Containers")
    lists = "return performance.getEntriesByType('resource').filter(({name}) => name.includes('/containers?')).length"
    asked = page.browser.run(lists)
    run_container("worker", "sleep 1000")
    page.wait_row("worker", "running", 10)
    kx.podman("kill", "worker")
    page.wait_row("worker", "exited", 10)
    kx.podman("rm", "worker")
    kx.wait_until(lambda: not page.row("worker"), 10, "the row is gone")
    assert page.browser.run(lists) == asked


def test_details_and_plots(page):
    run_container("worker", "while :; do :; done", "-p", "127.0.0.1:7001:80", "-v", "/tmp:/outside:ro")
    page.go("containers/worker")
    values = "return [...document.querySelectorAll('.plot-value')].slice(0, 2).every(one => /[1-9]/.test(one.innerText))"
    page.browser.wait(values)
    page.browser.click("summary", "Details")
    for text in ["127.0.0.1:7001 → 80/tcp", "/tmp → /outside (read only)", "localhost/hello:1"]:
        page.wait_text(text)


MARKUP = '<img src=x onerror="window.hacked=1"><b>bold'


def test_nothing_from_outside_is_markup(page):
    """Log lines, labels, names of files; a container's name cannot hold markup in Podman."""
    assert kx.podman("create", "--name", MARKUP, kx.IMAGE, check=False) == ""
    sequences = r"\033]0;title\007\033[2Jcleared\033[31m red\033[0m\001\n\342\200\256turned\n"
    run_container("hostile", f"printf '%s\\n' '{MARKUP}'; printf '{sequences}'; exit 1", "--label",
                   f"com.docker.compose.service={MARKUP}", "--label",
                  "com.docker.compose.project.config_files=/x/<u>.yml")
    page.store("/compose-files", MARKUP + ".yml")
    page.store("/plugins", MARKUP + "_1.crp")
    page.wait_row("hostile", MARKUP)
    page.go("containers/hostile")
    page.wait_text("exited")
    kx.wait_until(lambda: ["out", MARKUP] in page.log_lines(), 20, f"the markup is shown as it is: {page.log_lines()}")
    lines = [text for kind, text in page.log_lines() if kind == "out"]
    assert lines[1:] == ["cleared red\u2401", "<202E>turned"]
    for view in ["compose", "plugins", "containers", "audit", "overview"]:
        page.go(view)
        page.wait_text("hostile" if view in ("containers", "overview") else "<img")
    assert page.browser.run("return [window.hacked ?? 0, document.querySelectorAll('img, b, u').length]") == [0, 0]
