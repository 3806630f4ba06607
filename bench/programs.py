"""The programs that take part: the service, what it is compared to, and the Podmans it talks to.

All of them run inside the sandbox that scripts/bench makes, where the fixed paths are private.
"""

import pathlib
import shutil
import socket
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "scripts/lib"))
import service as kx  # noqa: E402

from bench import http
from bench.usage import Usage

EXECUTABLE = kx.ROOT / "build/release/kx-container-service"
CLIENT = kx.ROOT / "build/bench/bench/kx-bench-client"
API = kx.BASE
SERVER_CPU, CLIENT_CPU = "0", "1"

kx.require_sandbox()


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def pinned(cpu):
    return ["taskset", "-c", cpu] if cpu else []


def certificate(directory):
    """The pair of files that every TLS server of a run shows: server.crt and server.key."""
    pair = directory / "server.crt", directory / "server.key"
    if not all(file.exists() for file in pair):
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
                        "-subj", "/CN=127.0.0.1", "-days", "3650", "-out", pair[0], "-keyout", pair[1]],
                       check=True, capture_output=True)
    return pair


def client(command, address, head, *arguments, cpu=None):
    """Runs bench/client.cpp; gives the figures that it prints."""
    result = subprocess.run([*pinned(cpu), CLIENT, command, address.scheme(), str(address.port), head,
                             *map(str, arguments)], capture_output=True, text=True)
    if result.returncode != 0:
        raise RuntimeError(f"{command} on port {address.port}: {result.stderr}")
    return [float(figure) for figure in result.stdout.split()]


def require_same_cipher(*programs):
    """What TLS costs depends on it."""
    ciphers = set()
    for program in programs:
        with http.Connection(program.address) as connection:
            ciphers.add(connection.socket.cipher())
    if len(ciphers) != 1:
        raise RuntimeError(f"the servers do not agree on a cipher: {ciphers}")


class Service(kx.Service):
    """The shipped program; `options` are keys of its [WebApi] section."""

    def __init__(self, directory, cpu=None, tls=False, prefix=(), **options):
        kx.TLS_FILE.parent.mkdir(parents=True, exist_ok=True)
        for file in certificate(directory):
            installed = kx.TLS_FILE.with_name(file.name)
            shutil.copy(file, installed) if tls else installed.unlink(missing_ok=True)
        self.address = http.Address(free_port(), tls)
        super().__init__(EXECUTABLE, directory / "service.log",
                         {"WebApi.Port": self.address.port,
                          **{f"WebApi.{key}": value for key, value in options.items()}},
                         prefix=[*pinned(cpu), *prefix])
        self.usage = Usage(self.pid)

    def __enter__(self):
        self.wait_ready()
        if b'"started"' not in self.get("/settings")[2]:
            raise RuntimeError(f"the container runtime did not start: {self.log()[-2000:]}")
        return self

    def __exit__(self, *exception):
        try:
            if self.process.poll() is None:
                self.stop()
        finally:
            super().__exit__(*exception)

    def headers(self):
        return {"Authorization": f"Bearer {self.token()}"}

    def get(self, target):
        with http.Connection(self.address) as connection:
            return connection.request("GET", API + target, self.headers())

    def url(self, target):
        return self.address.url(API + target)


class Program:
    """A child process, ended when the scope ends."""

    def __init__(self, name, command, directory, cpu=None):
        self.name = name
        self.log = directory / f"{name}.log"
        with open(self.log, "ab") as log:
            self.child = subprocess.Popen([*pinned(cpu), *map(str, command)], stdin=subprocess.DEVNULL, stdout=log,
                                          stderr=log)
        self.usage = Usage(self.child.pid)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop()

    def stop(self):
        self.child.terminate()
        try:
            self.child.wait(20)
        except subprocess.TimeoutExpired:
            self.child.kill()
            self.child.wait()

    def wait_for(self, answers):
        """`answers` is a call that raises OSError until the program serves."""
        def served():
            if self.child.poll() is not None:
                raise RuntimeError(f"{self.name} ended with {self.child.returncode}: {self.log.read_text()[-2000:]}")
            try:
                answers()
                return True
            except OSError:
                return False
        kx.wait_until(served, 30, f"an answer of {self.name}")


class Nginx(Program):
    """One nginx worker that answers `body` with `headers` at /fixed and stores what is PUT below /store/."""

    def __init__(self, directory, cpu=None, tls=False, body="{}", headers=None):
        self.address = http.Address(free_port(), tls)
        self.store = directory / "nginx/store"
        for path in (self.store, directory / "nginx/partial"):
            path.mkdir(parents=True, exist_ok=True)
        listen, secure = f"listen 127.0.0.1:{self.address.port} backlog=4096", ""
        if tls:
            listen += " ssl"
            secure = "ssl_certificate {}; ssl_certificate_key {}; ssl_protocols TLSv1.2 TLSv1.3;".format(
                *certificate(directory))
        extra = "".join(f'add_header {name} "{value}"; ' for name, value in (headers or {}).items())
        configuration = directory / "nginx/nginx.conf"
        configuration.write_text(f"""
user root;
worker_processes 1;
worker_rlimit_nofile 16384;
daemon off;
pid {directory}/nginx/nginx.pid;
error_log {directory}/nginx/error.log warn;
events {{ worker_connections 12288; }}
http {{
    access_log off;
    server_tokens off;
    keepalive_requests 1000000000;
    keepalive_timeout 600s;
    tcp_nodelay on;
    client_max_body_size 0;
    client_body_buffer_size 1m;
    client_body_temp_path {directory}/nginx/partial;
    upstream podman {{ server unix:{kx.PODMAN_SOCKET}; keepalive 8; }}
    server {{
        {listen};
        {secure}
        location = /fixed {{ default_type application/json; {extra} return 200 '{body}'; }}
        location /store/ {{ root {directory}/nginx; dav_methods PUT; create_full_put_path on; }}
        location /podman/ {{ proxy_pass http://podman/; proxy_buffering off; proxy_http_version 1.1; proxy_set_header Connection ""; }}
    }}
}}
""")
        nginx = shutil.which("nginx", path="/usr/sbin:/usr/bin:/sbin:/bin")
        super().__init__("nginx", [nginx, "-p", directory / "nginx", "-e", directory / "nginx/error.log",
                                   "-c", configuration], directory, cpu)

    def __enter__(self):
        self.wait_for(lambda: http.Connection(self.address).close())
        return self

    def url(self, target):
        return self.address.url(target)


class Podman(Program):
    """The real Podman, on its usual socket."""

    def __init__(self, directory, cpu=None):
        super().__init__("podman", ["podman", "system", "service", "--time=0", f"unix://{kx.PODMAN_SOCKET}"], directory, cpu)

    def __enter__(self):
        self.wait_for(self._ping)
        return self

    def _ping(self):
        with http.Connection(kx.PODMAN_SOCKET) as connection:
            connection.request("GET", "/_ping")


class PodmanDouble(Program):
    """Our own quick stand-in for Podman (see podman_double), on Podman's usual socket."""

    def __init__(self, directory, containers=10):
        pathlib.Path(kx.PODMAN_SOCKET).unlink(missing_ok=True)
        super().__init__("podman-double", [sys.executable, "-m", "bench.podman_double", kx.PODMAN_SOCKET, containers],
                         directory)

    def __enter__(self):
        self.wait_for(lambda: self._request("GET", "/_ping"))
        return self

    def _request(self, method, target):
        with http.Connection(kx.PODMAN_SOCKET) as connection:
            return connection.request(method, target)

    def set_containers(self, count):
        self._request("PUT", f"/double/containers/{count}")

    def open_streams(self):
        """How many log streams its clients hold open."""
        return int(self._request("GET", "/double/streams")[2])
