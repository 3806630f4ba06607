"""What the console's figures cost the service: a scrape of the metrics beside many containers, the counters of one."""

from bench import http, programs
from bench.measurement import Row

CONTAINERS = 100


def console(effort, directory):
    kx = programs.kx
    with programs.Podman(directory), programs.Service(directory) as service:
        kx.make_image()
        kx.podman("rm", "--all", "--force", "--time", "0")
        for number in range(CONTAINERS - 1):
            kx.podman("create", "--name", f"idle-{number}", "--network", "none", kx.IMAGE, "true")
        kx.podman("run", "-d", "--name", "counted", kx.IMAGE, "sleep", "10000")
        kx.wait_until(lambda: f'kx_containers{{state="created"}} {CONTAINERS - 1}' in metrics(service), 20, "all are known")
        rows = [
            Row("scrape", f"GET /metrics beside {CONTAINERS} containers, CPU time", "ms",
                cpu_milliseconds(service, "/metrics", effort), target=5, at_most=True),
            Row("stats", "GET /containers/NAME/stats, CPU time", "ms",
                cpu_milliseconds(service, "/containers/counted/stats", effort), target=1, at_most=True),
        ]
        kx.podman("rm", "--all", "--force", "--time", "0")
    return rows


def metrics(service):
    return service.get("/metrics")[2].decode()


def cpu_milliseconds(service, target, effort):
    """CPU time of one request on a kept connection, in rounds of many."""
    request = http.head("GET", programs.API + target, service.headers())
    rounds, count = [], effort.count(200)
    with http.Connection(service.address) as connection:
        for _ in range(effort.rounds(9)):
            before = service.usage.cpu_seconds()
            for _ in range(count):
                if connection.exchange(request)[0] != 200:
                    raise RuntimeError(f"{target} was refused")
            rounds.append(1000 * (service.usage.cpu_seconds() - before) / count)
    return rounds
