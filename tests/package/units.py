"""The two units at work: what each has, what they do for each other, and what becomes of one that hangs."""

import contextlib
import ctypes
import os
import pathlib
import signal
import time

from installed import MARKER, NAME, PROGRAM, main_process, request, run, unit_state, wait_until

PODMAN_UNIT = "kx-container-podman.service"
TOOLS_IMAGE = pathlib.Path("/mnt/cfdrive/KXx86_32_ContainerFirmware.bin")
TOOLS = pathlib.Path("/mnt/containers_tools")
COMPOSE = b"version: '3'\nservices:\n  a:\n    image: localhost/test:1\n    command: /bin/sh -c 'while :; do :; done'\n" \
          b"    network_mode: none\n    stop_grace_period: 0s\n"
PTRACE_SEIZE, PTRACE_INTERRUPT, PTRACE_DETACH = 0x4206, 0x4207, 17
WALL = 0x40000000
EPOLL_WAIT = ("232", "281", "441")  # and its forms, in /proc/PID/task/TID/syscall
libc = ctypes.CDLL(None, use_errno=True)


def number_of_cpus(pid):
    return len(os.sched_getaffinity(pid))


def upload(path, name, content, expected=200):
    return request("POST", path, content, expected=expected, headers={
        "Content-Type": "application/octet-stream", "Content-Disposition": f'attachment; filename="{name}"'})


def test_podman_has_the_tools_and_the_cpus_and_the_service_only_asks_for_its_work(_):
    tree = pathlib.Path("/tmp/tools/bin")
    tree.mkdir(parents=True)
    compose = tree / "docker-compose"
    compose.write_text("#!/bin/sh\necho used >>/userstorage1/compose-of-the-tools\nexec /usr/bin/docker-compose \"$@\"\n")
    compose.chmod(0o755)
    with open(TOOLS_IMAGE, "wb") as image:
        image.truncate(4 << 20)
    run("/sbin/mkfs.ext4", "-q", "-d", tree.parent, TOOLS_IMAGE)
    request("PATCH", "/settings", {"cores_num": 1})
    run("systemctl", "restart", NAME)
    podman = main_process(PODMAN_UNIT)
    assert number_of_cpus(podman) == 1
    assert TOOLS.is_mount() and (TOOLS / "bin/docker-compose").exists()

    saved = pathlib.Path("/tmp/saved.tar").read_bytes()
    upload("/images", "saved.tar", saved, expected=204)
    upload("/compose-files", "busy.yml", COMPOSE)
    project = "/compose-files/busy.yml/containers"
    request("POST", project + "/create", expected=201)
    request("POST", project + "/start")
    assert pathlib.Path("/userstorage1/compose-of-the-tools").exists(), "another compose tool was used"
    busy = next(container["Id"] for container in request("GET", "/containers")["containers"]
                if "busy" in container["Names"][0])
    assert number_of_cpus(int(run("podman", "inspect", "--format", "{{.State.Pid}}", busy))) == 1
    request("POST", project + "/stop")
    request("DELETE", project)

    os.kill(podman, signal.SIGKILL)  # systemd brings it back, the service finds it
    wait_until(lambda: main_process(PODMAN_UNIT) not in (0, podman), "Podman is started again")
    wait_until(lambda: "containers" in request("GET", "/containers", expected=(200, 500)), "the service finds it")


def test_a_second_instance_leaves_the_marker_of_the_first(_):
    assert MARKER.stat().st_mode & 0o777 == 0o644
    run("systemctl", "stop", NAME)
    assert not MARKER.exists() and main_process(PODMAN_UNIT) == 0
    first = os.posix_spawn(PROGRAM, [str(PROGRAM)], dict(os.environ))
    wait_until(lambda: MARKER.exists() and request_works(), "an instance of its own runs")
    run("systemctl", "start", NAME, check=False)
    assert MARKER.exists(), "the marker of the instance that runs is gone"
    run("systemctl", "stop", NAME)
    assert MARKER.exists()
    os.kill(first, signal.SIGTERM)
    os.waitpid(first, 0)
    run("systemctl", "reset-failed", NAME, check=False)
    run("systemctl", "start", NAME)


def request_works():
    try:
        return request("GET", "/settings") is not None
    except OSError:
        return False


def threads_of(pid):
    """The threads that answer for themselves, by name and by what they wait in."""
    found = {}
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        name = (task / "comm").read_text().strip()
        in_loop = (task / "syscall").read_text().split()[0] in EPOLL_WAIT
        if name == "kx-web-request":
            found["event loop" if in_loop else "request thread"] = int(task.name)
        elif name == "kx-podman-watch":
            found["Podman watch"] = int(task.name)
    return found


def stop_thread(thread):
    """Holds one thread and lets the others run (a stop signal would hold them all)."""
    for request_number in (PTRACE_SEIZE, PTRACE_INTERRUPT):
        if libc.ptrace(request_number, thread, None, None) != 0:
            raise OSError(ctypes.get_errno(), f"ptrace {request_number} of thread {thread}")
    os.waitpid(thread, WALL)


def is_replaced(process):
    with contextlib.suppress(ChildProcessError):
        os.waitpid(-1, os.WNOHANG | WALL)  # of a thread that we hold we are told the end first
    return main_process() != process


def test_whoever_hangs_is_noticed_and_the_service_started_again(_):
    for what in ("event loop", "request thread", "Podman watch"):
        hanging = main_process()
        request("GET", "/settings")
        wait_until(lambda: what in threads_of(hanging), f"the {what} waits")
        stop_thread(threads_of(hanging)[what])
        begin = time.monotonic()
        wait_until(lambda: is_replaced(hanging), f"a stopped {what} is noticed", 40)
        took = time.monotonic() - begin
        print(f"     stopped {what}: noticed after {took:.1f} s", flush=True)
        wait_until(lambda: unit_state("is-active") == "active" and request_works(), "started again")
    assert "hangs; the service manager will notice" in run("journalctl", "-u", NAME, "--no-pager")


TESTS = (test_podman_has_the_tools_and_the_cpus_and_the_service_only_asks_for_its_work,
         test_a_second_instance_leaves_the_marker_of_the_first,
         test_whoever_hangs_is_noticed_and_the_service_started_again)
