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
    return [Row("list-added", "GET /containers?all=true, 10 containers, median", "ms", own,
                "the same list asked of Podman directly", direct, 0.2, "difference", at_most=True),
            *short_lists(effort, directory), *long_lists(effort, directory)]


def short_lists(effort, directory):
    """What the service adds to the answers of a Podman that answers at once, beside what nginx adds that passes them on."""
    rows = []
    with programs.PodmanDouble(directory) as double, programs.Service(directory) as service, programs.Nginx(directory) as nginx:
        for containers in (10, 100):
            double.set_containers(containers)
            own, reference = [], []
            for _ in range(effort.rounds(7)):
                medians = [statistics.median(times) for times in alternate_lists(service, kx.PODMAN_SOCKET, effort.count(1000), nginx)]
                own.append(medians[0] - medians[1])
                reference.append(medians[2] - medians[1])
            rows.append(Row(f"list-{containers}", f"GET /containers, {containers} containers from a Podman double, added time", "ms", own,
                            "what nginx proxy_pass adds to the double's answer", reference, 1.5, "ratio", at_most=True))
    return rows


def long_lists(effort, directory):
    """Lists that are many times what else the service holds: their time, and the memory that they need and leave."""
    rows = []
    for containers, added in ((1000, 1.2), (10000, 12)):
        with programs.PodmanDouble(directory, containers), programs.Service(directory) as service:
            time.sleep(3)
            idle = service.usage.resident_kib()
            service.usage.reset_peak()
            own, direct = alternate_lists(service, kx.PODMAN_SOCKET, effort.count(500_000 // containers))
            peak = service.usage.peak_kib()
            time.sleep(3)
            what = f"GET /containers, {containers} containers from the double"
            rows += [Row(f"list-{containers}", what, "ms", own, "the double directly", direct, added, "difference", at_most=True),
                     Row(f"list-{containers}-memory", f"{what}: resident memory over idle, 3 s later", "MiB",
                         [(service.usage.resident_kib() - idle) / 1024], target=4, at_most=True),
                     Row(f"list-{containers}-peak", f"{what}: the same at its peak", "MiB", [(peak - idle) / 1024],
                         target=4, at_most=True)]
    return rows


def alternate_lists(service, podman_address, count, proxy=None):
    """Milliseconds of each of `count` requests of both sides; and, where there is one, through the proxy."""
    requests = [(service.address, http.head("GET", programs.API + "/containers?all=true", service.headers())),
                (podman_address, http.head("GET", "/v1.41/containers/json?all=true", {"Accept": "application/json"}))]
    if proxy:
        requests.append((proxy.address, http.head("GET", "/podman/v1.41/containers/json?all=true")))
    with contextlib.ExitStack() as opened:
        sides = [(opened.enter_context(http.Connection(address)), request, []) for address, request in requests]
        for number in range(count + 10):
            lengths = set()
            for connection, request, times in sides:
                taken, (status, _, body) = timed(connection, request)
                if status != 200:
                    raise RuntimeError(f"a list was answered {status}")
                if number >= 10:  # the first ones warm up
                    times.append(taken)
                elif number == 0:
                    listed = json.loads(body)
                    lengths.add(len(listed["containers"] if isinstance(listed, dict) else listed))
            if number == 0 and len(lengths) != 1:
                raise RuntimeError(f"the lists differ in length: {lengths}")
    return [times for _, _, times in sides]


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
