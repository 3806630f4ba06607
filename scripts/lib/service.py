"""Starts the program and talks to it, inside the sandbox. For scripts/run, the tests and the measurements."""

import contextlib
import http.client
import itertools
import json
import os
import pathlib
import re
import shutil
import signal
import socket
import ssl
import subprocess
import time
from dataclasses import dataclass

ROOT = pathlib.Path(__file__).resolve().parents[2]
BASE = "/api/cre/v1.0"
TLS_FILE = pathlib.Path("/mnt/cfdrive/containers/certs/server.crt")
TOKEN_FILE = pathlib.Path("/mnt/cfdrive/containers/api-token")
PODMAN_SOCKET = "/run/podman/podman.sock"
IMAGE = "localhost/hello:1"
LISTENING = "0A"  # in /proc/net/tcp


def require_sandbox():
    if "KX_SANDBOX" not in os.environ:
        raise SystemExit("This uses fixed paths and Podman: run it through scripts/lib/sandbox.py.")


def wait_until(condition, seconds, what):
    """The condition's first true value; an error that says what did not happen after that many seconds."""
    deadline = time.monotonic() + seconds
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > deadline:
            raise TimeoutError(f"not within {seconds} s: {what}")
        time.sleep(0.01)


def podman(*arguments, check=True, **options):
    """Runs the Podman command line tool; gives what it printed."""
    result = subprocess.run(["podman", *arguments], text=True, capture_output=True, **{"timeout": 120, **options})
    if check and result.returncode != 0:
        raise RuntimeError(f"podman {' '.join(arguments)}: {result.stderr.strip()}")
    return result.stdout.strip()


def make_image(name=IMAGE):
    """Gives Podman an image that holds busybox and nothing else; there is no registry to take one from."""
    if subprocess.run(["podman", "image", "exists", name]).returncode == 0:
        return
    root = pathlib.Path("/run/kx-image-root")
    (root / "bin").mkdir(parents=True)
    (root / "tmp").mkdir()
    shutil.copy("/bin/busybox", root / "bin/busybox")
    for applet in subprocess.run(["/bin/busybox", "--list"], text=True, stdout=subprocess.PIPE, check=True).stdout.split():
        if applet != "busybox":
            (root / "bin" / applet).symlink_to("busybox")
    archive = root.with_suffix(".tar")
    subprocess.run(["tar", "-C", root, "-cf", archive, "."], check=True)
    podman("import", "-c", 'CMD ["/bin/sh"]', str(archive), name)
    shutil.rmtree(root)
    archive.unlink()


def podman_service_pid():
    """The process of `podman system service`, if there is one."""
    for path in pathlib.Path("/proc").glob("[0-9]*/cmdline"):
        try:
            words = path.read_bytes().split(b"\0")
        except OSError:
            continue  # ended meanwhile
        if words[0].endswith(b"podman") and b"service" in words:
            return int(path.parent.name)
    return None


def is_stopped(pid):
    """Whether a stop signal has come to all threads of a process: they run on until one of them has taken it."""
    tasks = pathlib.Path(f"/proc/{pid}/task").glob("*/stat")
    return all(task.read_text().rsplit(")", 1)[1].split()[0] == "T" for task in tasks)


@contextlib.contextmanager
def frozen_podman():
    """Keeps `podman system service` from running; gives its process."""
    podman = podman_service_pid()
    os.kill(podman, signal.SIGSTOP)
    try:
        wait_until(lambda: is_stopped(podman), 20, "Podman is frozen")
        yield podman
    finally:
        with contextlib.suppress(ProcessLookupError):
            os.kill(podman, signal.SIGCONT)


def listening_ports(pid):
    """The TCP ports that a process listens on."""
    sockets = set()
    for descriptor in pathlib.Path(f"/proc/{pid}/fd").iterdir():
        try:
            sockets.add(os.readlink(descriptor))
        except FileNotFoundError:
            pass  # closed meanwhile
    ports = []
    for table in ("/proc/net/tcp", "/proc/net/tcp6"):
        for line in pathlib.Path(table).read_text().splitlines()[1:]:
            fields = line.split()
            if fields[3] == LISTENING and f"socket:[{fields[9]}]" in sockets:
                ports.append(int(fields[1].rsplit(":", 1)[1], 16))
    return ports


def clear_device():
    """Leaves what a device has on its first start: no files, no containers, no Podman."""
    while podman_pid := podman_service_pid():
        os.kill(podman_pid, signal.SIGKILL)
        wait_until(lambda: podman_service_pid() != podman_pid, 10, "Podman ends")
    pathlib.Path(PODMAN_SOCKET).unlink(missing_ok=True)
    # A container that ends just now may be busy for a moment.
    wait_until(lambda: subprocess.run(["podman", "rm", "--all", "--force", "--time", "0"],
                                      stdout=subprocess.DEVNULL).returncode == 0, 60, "no container is left")
    for directory in ("/mnt", "/userstorage1"):
        for path in pathlib.Path(directory).iterdir():
            shutil.rmtree(path) if path.is_dir() and not path.is_symlink() else path.unlink()
    for path in pathlib.Path("/run").glob("Kx*"):
        path.unlink()


@dataclass
class Answer:
    status: int
    headers: http.client.HTTPMessage
    body: bytes

    def json(self):
        return json.loads(self.body)

    def detail(self):
        """The message of an error answer."""
        return self.json()["detail"]


class Service:
    """One run of the program. As a context manager it is ended on the way out."""

    numbers = itertools.count()

    def __init__(self, binary, log_file, options=None, environment=None, own_session=True, prefix=()):
        """`options` are lines of the configuration as {"Section.Key": value}; without them KX_CUSTOM_CONFIG holds.
        Without `log_file` the log goes where the caller's standard error goes. `prefix` is a command that runs it."""
        self.log_file = pathlib.Path(log_file) if log_file else None
        self.tls = None
        self.port = None
        self.judge = lambda method, path, answer: None  # told of every answer
        self.notifications = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        notify_path = f"/run/kx-notify-{os.getpid()}-{next(Service.numbers)}"
        self.notifications.bind(notify_path)
        self.environment = {**os.environ, "NOTIFY_SOCKET": notify_path, **(environment or {})}
        if options is not None:
            configuration = pathlib.Path(notify_path + ".conf")
            write_configuration(configuration, options)
            self.environment["KX_CUSTOM_CONFIG"] = str(configuration)
        log = open(self.log_file, "wb") if self.log_file else None
        self.process = subprocess.Popen([*prefix, binary], stdin=subprocess.DEVNULL, stderr=log, env=self.environment,
                                        start_new_session=own_session)
        if log:
            log.close()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.kill()
        self.notifications.close()
        pathlib.Path(self.environment["NOTIFY_SOCKET"]).unlink(missing_ok=True)

    @property
    def pid(self):
        return self.process.pid

    def wait_ready(self, seconds=60):
        """Waits for the service-initialised report and for a port; the error of a start that failed holds the log."""
        self.notifications.settimeout(0.05)

        def reported():
            if self.process.poll() is not None:
                raise RuntimeError(f"ended with {self.process.returncode} before it was ready\n{self.log()}")
            try:
                return b"READY=1" in self.notifications.recv(4096)
            except socket.timeout:
                return False

        wait_until(reported, seconds, f"ready\n{self.log()}")
        ports = listening_ports(self.pid)
        self.port = ports[0] if ports else None
        return self

    def request(self, method, path, body=None, headers=None, token=True, timeout=60, connection=None, source=None):
        """One request below the API's base path; `body` is an object for JSON, or what http.client takes. `source` is the
        address that it comes from."""
        headers = dict(headers or {})
        if isinstance(body, (dict, list)):
            body = json.dumps(body).encode()
            headers.setdefault("Content-Type", "application/json")
        if token:
            headers["Authorization"] = f"Bearer {self.token() if token is True else token}"
        used = connection or self.connect(timeout, source)
        try:
            used.request(method, path if path.startswith("/api") else BASE + path, body, headers)
            response = used.getresponse()
            answer = Answer(response.status, response.headers, response.read())
            self.judge(method, path, answer)
            return answer
        finally:
            if connection is None:
                used.close()

    def connect(self, timeout=60, source=None):
        options = {"timeout": timeout, "source_address": (source, 0) if source else None}
        if self.tls:
            return http.client.HTTPSConnection("127.0.0.1", self.port, context=self.tls, **options)
        return http.client.HTTPConnection("127.0.0.1", self.port, **options)

    def use_tls(self, ca_file, certificate=None, key=None):
        self.tls = ssl.create_default_context(cafile=ca_file)
        if certificate:
            self.tls.load_cert_chain(certificate, key)

    def raw(self, data=b"", timeout=20):
        """A plain socket to the service on which `data` was sent."""
        connection = socket.create_connection(("127.0.0.1", self.port), timeout)
        connection.sendall(data)
        return connection

    def token(self):
        return TOKEN_FILE.read_text().strip()

    def log(self):
        return self.log_file.read_text(errors="replace") if self.log_file else ""

    def wait_for_log(self, text, seconds=15, count=1):
        wait_until(lambda: self.log().count(text) >= count, seconds, f"{text!r} in the log\n{self.log()[-3000:]}")

    def threads(self):
        return len(os.listdir(f"/proc/{self.pid}/task"))

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.pid}/fd"))

    def resident_kib(self, what="VmRSS"):
        return int(pathlib.Path(f"/proc/{self.pid}/status").read_text().split(f"{what}:")[1].split()[0])

    def own_kib(self):
        """Without the pages of files that it has mapped: the journal's, which the kernel takes back when it wants to."""
        return self.resident_kib("RssAnon")

    def is_sanitized(self):
        """A sanitizer keeps its own notes of each byte, so that memory says nothing."""
        return re.search("lib[at]san", pathlib.Path(f"/proc/{self.pid}/maps").read_text()) is not None

    def stop(self, number=signal.SIGTERM, seconds=60):
        """Ends the service in order; gives its exit status."""
        self.process.send_signal(number)
        return self.process.wait(seconds)

    def kill(self):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()


def write_configuration(path, options):
    sections = {}
    for name, value in options.items():
        section, key = name.split(".")
        sections.setdefault(section, []).append(f"{key} = {value}\n")
    path.write_text("".join(f"[{section}]\n" + "".join(lines) for section, lines in sections.items()))
