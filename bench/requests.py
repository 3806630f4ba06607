"""Requests: what they cost in CPU time, how many a second, and what the way through the service adds."""

import contextlib
import hashlib
import json
import pathlib
import statistics
import time

from bench import http, programs
from bench.programs import kx
from bench.measurement import Growth, Row

SETTINGS = "/settings"
NOT_REPEATED = {"content-type", "content-length", "date", "connection", "server"}  # nginx sends these by itself
CONNECTIONS = 64
TOKEN = "an-identity-s-token-of-43-characters-"  # and a number: as long as what the tool makes


@contextlib.contextmanager
def beside_nginx(directory, tls):
    """The service and nginx on one CPU, both of which answer GET /settings alike."""
    with programs.PodmanDouble(directory), programs.Service(directory, programs.SERVER_CPU, tls) as service:
        _, headers, body = service.get(SETTINGS)
        repeated = {name: value for name, value in headers.items() if name not in NOT_REPEATED}
        with programs.Nginx(directory, programs.SERVER_CPU, tls, body.decode(), repeated) as nginx:
            if tls:
                programs.require_same_cipher(service, nginx)
            yield service, nginx


def settings(effort, directory, tls):
    own, reference = [], []
    with beside_nginx(directory, tls) as (service, nginx):
        for _ in range(effort.rounds(7)):
            reference.append(rate_per_cpu_second(nginx, nginx.url("/fixed"), {}, effort)[0])
            own.append(rate_per_cpu_second(service, service.url(SETTINGS), service.headers(), effort)[0])
    return [Row("settings", "GET /settings, requests per second of CPU time", "1/s", own, "nginx, the same answer", reference,
                0.9 if tls else 0.95, "ratio")]


def identities(effort, directory):
    """What it costs that a token is an identity's, and that there are many of them."""
    path = pathlib.Path("/mnt/cfdrive/containers/identities.json")

    def known(count):
        """Makes so many identities; gives the headers of one in the middle."""
        entries = [{"name": f"user{number}", "role": "viewer", "created": "2026-01-01T00:00:00Z", "expires": None,
                    "tokenSha256": hashlib.sha256(f"{TOKEN}{number}".encode()).hexdigest()} for number in range(count)]
        made = path.with_suffix(".new")
        made.write_text(json.dumps({"identities": entries}))
        made.chmod(0o600)
        made.rename(path)
        time.sleep(1.5)  # it is followed within a second
        return {"Authorization": f"Bearer {TOKEN}{count // 2}"}

    own, administrator, many, few = [], [], [], []
    with programs.PodmanDouble(directory), programs.Service(directory, programs.SERVER_CPU) as service:
        def rate(headers):
            return rate_per_cpu_second(service, service.url(SETTINGS), headers, effort)[0]

        try:
            for _ in range(effort.rounds(7)):
                one_of_few = known(10)
                few.append(rate(one_of_few))
                administrator.append(rate(service.headers()))
                own.append(rate(one_of_few))
                many.append(rate(known(1000)))
        finally:
            path.unlink(missing_ok=True)
    what = "GET /settings with an identity's token, requests per second of CPU time"
    return [Row("settings-identity", what, "1/s", own, "the administrator's token", administrator, 0.97, "ratio"),
            Row("settings-identities", what + ", 1 000 identities", "1/s", many, "10 identities", few, 0.97, "ratio")]


def wrong_tokens(effort, directory):
    """How long others wait beside clients that guess tokens as fast as they are answered."""
    beside, alone = [], []
    with programs.PodmanDouble(directory), programs.Service(directory, programs.SERVER_CPU) as service:
        request = http.head("GET", programs.API + SETTINGS, service.headers())

        def worst_percent():
            with http.Connection(service.address) as connection:
                times = sorted(timed(connection, request)[0] for _ in range(effort.count(20_000)))
            return times[len(times) * 99 // 100]

        for _ in range(effort.rounds(7)):
            alone.append(worst_percent())
            with http.wrong_tokens(service.url(SETTINGS), CONNECTIONS, programs.CLIENT_CPU):
                time.sleep(1)
                beside.append(worst_percent())
    return [Row("wrong-tokens", "GET /settings beside 64 clients that guess tokens, 99th percentile", "ms", beside,
                "the same without them", alone, 1.0, "difference", at_most=True)]


def rate_per_cpu_second(program, url, headers, effort, connections=CONNECTIONS):
    """Returns requests per second of the server's CPU time, and per second of the clock."""
    before = program.usage.cpu_seconds()
    count, rate = http.wrk(url, headers, connections, effort.seconds(4), programs.CLIENT_CPU)
    return count / (program.usage.cpu_seconds() - before), rate


def handshake(effort, directory):
    """A connection with a full handshake for each request."""
    own, reference = [], []
    with beside_nginx(directory, tls=True) as (service, nginx):
        for _ in range(effort.rounds(7)):
            rate, nginx_tickets = connections_per_cpu_second(nginx, "/fixed", {}, effort)
            reference.append(rate)
            rate, tickets = connections_per_cpu_second(service, programs.API + SETTINGS, service.headers(), effort)
            own.append(rate)
    return [Row("handshake", "TLS handshake and one request, per second of CPU time", "1/s", own, "nginx, the same answer",
                reference, 1.0, "ratio", note=f"{tickets:.3g} session tickets a connection, nginx's {nginx_tickets:.3g}")]


def connections_per_cpu_second(program, target, headers, effort):
    """Returns connections per second of the server's CPU time, and the session tickets of each."""
    head = http.head("GET", target, {**headers, "Connection": "close"})
    before = program.usage.cpu_seconds()
    count, _, resumed, tickets = programs.client("handshakes", program.address, head, effort.seconds(4), 16,
                                                 cpu=programs.CLIENT_CPU)
    if resumed:
        raise RuntimeError("a session was resumed")
    return count / (program.usage.cpu_seconds() - before), tickets / count


def container_list(effort, directory):
    """The list through the service and straight from Podman, one request after the other on kept connections."""
    with programs.Podman(directory), programs.Service(directory) as service:
        kx.make_image()
        for number in range(10):
            kx.podman("create", "--replace", "--name", f"listed-{number}", kx.IMAGE, "/bin/sleep", "1000")
        own, direct = alternate_lists(service, kx.PODMAN_SOCKET, effort.count(1000))
    with programs.PodmanDouble(directory, 10), programs.Service(directory) as service:
        own_double, direct_double = alternate_lists(service, kx.PODMAN_SOCKET, effort.count(3000))
    return [
        Row("list-added", "GET /containers?all=true, 10 containers, median", "ms", own,
            "the same list asked of Podman directly", direct, 0.2, "difference", at_most=True),
        Row("list-added-double", "the same from a Podman double, which answers at once", "ms", own_double,
            "the double directly", direct_double, 0.2, "difference", at_most=True),
    ]


def alternate_lists(service, podman_address, count):
    """Milliseconds of each of `count` requests of both sides."""
    own_request = http.head("GET", programs.API + "/containers?all=true", service.headers())
    direct_request = http.head("GET", "/v1.41/containers/json?all=true", {"Accept": "application/json"})
    own, direct = [], []
    with http.Connection(service.address) as to_service, http.Connection(podman_address) as to_podman:
        for number in range(count + 10):
            direct_time, (status, _, listed) = timed(to_podman, direct_request)
            own_time, (own_status, _, answer) = timed(to_service, own_request)
            if status != 200 or own_status != 200:
                raise RuntimeError(f"lists were answered {status} and {own_status}")
            if number == 0 and len(json.loads(answer)["containers"]) != len(json.loads(listed)):
                raise RuntimeError("the lists differ")
            if number >= 10:  # the first ones warm up
                direct.append(direct_time)
                own.append(own_time)
    return own, direct


def timed(connection, request):
    started = time.perf_counter()
    answer = connection.exchange(request)
    return 1000 * (time.perf_counter() - started), answer


def list_growth(effort, directory):
    counts = [10, 100, 1000, 10000]
    lines = {"through the service": [], "straight from the double": [], "added": []}
    with programs.PodmanDouble(directory) as double, programs.Service(directory) as service:
        for count in counts:
            double.set_containers(count)
            own, direct = alternate_lists(service, kx.PODMAN_SOCKET,
                                          max(10, min(1000, effort.count(20000 // count * 10))))
            own_median, direct_median = statistics.median(own), statistics.median(direct)
            for line, value in zip(lines.values(), (own_median, direct_median, own_median - direct_median)):
                line.append(value)
    return [Growth("growth-list", "GET /containers, median", "containers", "ms", counts, lines)]


def client_growth(effort, directory):
    clients = [1, 4, 16, 64, 256]
    lines = {"the service": [], "nginx": []}
    with beside_nginx(directory, tls=False) as (service, nginx):
        for count in clients:
            lines["nginx"].append(rate_per_cpu_second(nginx, nginx.url("/fixed"), {}, effort, count)[1])
            lines["the service"].append(rate_per_cpu_second(service, service.url(SETTINGS), service.headers(), effort,
                                                            count)[1])
    return [Growth("growth-clients", "GET /settings, requests per second", "clients at once", "1/s", clients, lines)]
