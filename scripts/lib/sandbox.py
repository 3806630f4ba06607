#!/usr/bin/python3
"""Runs a command where the program's fixed paths, and Podman, are private.

    sandbox.py [--host-network] DIR COMMAND [ARGUMENT...]

DIR/mnt, DIR/userstorage1, DIR/run and DIR/containers stand for /mnt, /userstorage1, /run and /var/lib/containers; they
keep their contents from run to run, except for run, which is emptied as at a boot. Processes, shared memory and, without
--host-network, the network are private too: when the command ends, everything that it left behind ends with it, containers
included. The exit status is the command's. Needs root.
"""

import argparse
import ctypes
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys

CLONE_NEWNS, CLONE_NEWIPC, CLONE_NEWPID, CLONE_NEWNET = 0x00020000, 0x08000000, 0x20000000, 0x40000000
PR_SET_PDEATHSIG = 1
CAP_SYS_RESOURCE = 24
PRIVATE_PATHS = {"mnt": "/mnt", "userstorage1": "/userstorage1", "run": "/run", "containers": "/var/lib/containers"}

libc = ctypes.CDLL(None, use_errno=True)


def call(function, *arguments):
    if function(*arguments) != 0:
        error = ctypes.get_errno()
        raise OSError(error, f"{function.__name__}: {os.strerror(error)}")


def mount(*arguments):
    subprocess.run(["mount", *arguments], check=True)


def write_podman_configuration(path):
    """Settings without which Podman does not work here: a private /run has no systemd and no journal."""
    engine = ['cgroup_manager = "cgroupfs"', 'events_logger = "file"']
    containers = ['log_driver = "k8s-file"']
    if not pathlib.Path("/sys/fs/cgroup/cgroup.controllers").exists():
        engine.append('runtime = "runc"')  # crun refuses a hybrid cgroup hierarchy
    status = pathlib.Path("/proc/self/status").read_text()
    capabilities = int(status.split("CapEff:")[1].split()[0], 16)
    if not capabilities >> CAP_SYS_RESOURCE & 1:  # then the limits that Podman sets by default cannot be reached
        containers.append('default_ulimits = ["nofile=1024:1024", "nproc=1024:1024"]')
    network = ['network_backend = "netavark"',
               'network_config_dir = "/var/lib/containers/networks"']  # not /etc: two sandboxes would share theirs
    sections = {"engine": engine, "containers": containers, "network": network}
    path.write_text("".join(f"[{name}]\n" + "\n".join(lines) + "\n" for name, lines in sections.items()))


def become_sandbox(directory, host_network):
    """Runs in the first process of the new namespaces."""
    mount("--make-rprivate", "/")
    mount("-t", "proc", "proc", "/proc")
    mount("-t", "tmpfs", "tmpfs", "/dev/shm")  # Podman keeps its locks there
    shutil.rmtree(directory / "run", ignore_errors=True)
    for name, target in PRIVATE_PATHS.items():
        (directory / name).mkdir(parents=True, exist_ok=True)
        os.makedirs(target, exist_ok=True)
        mount("--bind", str(directory / name), target)
    for path in ("/run/lock", "/run/podman"):
        os.makedirs(path)
    configuration = pathlib.Path("/run/kx-sandbox-containers.conf")
    write_podman_configuration(configuration)
    os.environ["CONTAINERS_CONF"] = str(configuration)
    os.environ["KX_SANDBOX"] = str(directory)
    if not host_network:
        subprocess.run(["ip", "link", "set", "lo", "up"], check=True)


def run_as_init(command):
    """Runs the command as the first process of a PID namespace must: orphans are its to reap."""
    child = subprocess.Popen(command)
    signal.signal(signal.SIGTERM, lambda *_: child.send_signal(signal.SIGTERM))
    signal.signal(signal.SIGINT, signal.SIG_IGN)  # a terminal sends it to the command as well
    while True:
        pid, status = os.wait()
        if pid == child.pid:
            code = os.waitstatus_to_exitcode(status)
            return code if code >= 0 else 128 - code


def remove_control_groups(directory):
    """The processes are gone with their namespace; what Podman did not get to remove are their empty groups."""
    containers = {path.name for path in (directory / "containers/storage").glob("*-containers/" + "?" * 64)}
    events = directory / "run/libpod/events/events.log"
    if events.exists():
        containers.update(re.findall("[0-9a-f]{64}", events.read_text()))
    for pattern in ("libpod_parent/libpod-*", "*/libpod_parent/libpod-*"):
        for group in pathlib.Path("/sys/fs/cgroup").glob(pattern):
            if group.name.rsplit("-", 1)[1] in containers:
                for path, _, _ in os.walk(group, topdown=False):
                    os.rmdir(path)


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--host-network", action="store_true")
    parser.add_argument("directory", type=pathlib.Path)
    parser.add_argument("command", nargs=argparse.REMAINDER)
    arguments = parser.parse_args()
    if not arguments.command:
        parser.error("no command")
    return arguments


def main():
    arguments = parse_arguments()
    if os.geteuid() != 0:
        sys.exit("This needs root, for mount namespaces and for Podman: run it again with sudo.")
    directory = arguments.directory.resolve()
    call(libc.unshare, CLONE_NEWNS | CLONE_NEWIPC | CLONE_NEWPID | (0 if arguments.host_network else CLONE_NEWNET))
    init = os.fork()
    if init == 0:
        call(libc.prctl, PR_SET_PDEATHSIG, signal.SIGKILL, 0, 0, 0)
        become_sandbox(directory, arguments.host_network)
        sys.exit(run_as_init(arguments.command))
    for number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda *_: os.kill(init, signal.SIGTERM))
    signal.signal(signal.SIGINT, signal.SIG_IGN)
    _, status = os.waitpid(init, 0)
    remove_control_groups(directory)
    sys.exit(os.waitstatus_to_exitcode(status))


if __name__ == "__main__":
    main()
