"""Uploads that stall, trickle, or wait for a Podman that does not answer, and what they leave to others."""

import concurrent.futures
import contextlib
import ssl
import subprocess
import threading
import time

from clients import head
from device import ARCHIVE, COMPOSE_FILES, CONFIG_DIR, kx, measure_recovery, upload_image, upload_text

STALLED, LOADS, OTHERS = 64, 8, 100
HALF_OF_THE_THREADS = 32
BEGINNING = 256 * 1024  # what has to come of a file before it gets a thread
CERTS = CONFIG_DIR / "certs"


def install_certificates():
    """A server certificate that signs itself, an authority, and another identity than the token's; gives its files."""
    CERTS.mkdir(parents=True)
    key = ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days", "2", "-x509"]
    other = ARCHIVE.parent / "other.crt", ARCHIVE.parent / "other.key"
    for name, certificate, private in (("127.0.0.1", CERTS / "server.crt", CERTS / "server.key"), ("other", *other)):
        subprocess.run(["openssl", "req", *key, "-subj", f"/CN={name}", "-addext", "subjectAltName = IP:127.0.0.1",
                        "-keyout", private, "-out", certificate], check=True, capture_output=True)
    (CERTS / "ca.crt").write_bytes(other[0].read_bytes())
    return other


def begin_upload(running, number):
    """Half of them send nothing of their file, or little; the others enough to get a thread."""
    sent = [0, 5000, BEGINNING, BEGINNING][number % 4]
    opening = head(running, "POST", "/compose-files", "Content-Type: application/x", "Content-Length: 10000000",
                   f"Content-Disposition: attachment; filename=stalled{number}.yml") + b"x" * sent
    connection = running.tls.wrap_socket(running.raw(), server_hostname="127.0.0.1")
    connection.settimeout(20)
    connection.sendall(opening)
    return connection


@contextlib.contextmanager
def trickling(connections):
    """A byte a second on each."""
    over = threading.Event()

    def trickle():
        while not over.wait(1):
            for connection in connections:
                with contextlib.suppress(OSError):
                    connection.sendall(b"x")

    thread = threading.Thread(target=trickle)
    thread.start()
    try:
        yield
    finally:
        over.set()
        thread.join()


def ask_as_another(fault, running, other):
    anonymous = ssl.create_default_context(cafile=CERTS / "server.crt")
    anonymous.load_cert_chain(*other)
    connection = kx.http.client.HTTPSConnection("127.0.0.1", running.port, timeout=60, context=anonymous)
    disposition = {"Content-Type": "application/x", "Content-Disposition": "attachment; filename=other.yml"}
    slowest = 0
    for _ in range(OTHERS):
        begin = time.monotonic()
        status = running.request("POST", "/compose-files", b"services:\n", disposition, token=False, connection=connection).status
        slowest = max(slowest, time.monotonic() - begin)
        fault.expect(status == 200, f"another identity's upload: {status}")
    connection.close()
    fault.expect(slowest < 1, f"another identity's upload took {slowest:.2f} s")
    fault.notes.append(f"another identity's took {slowest * 1000:.0f} ms at most")


def hold_up_uploads(fault, device):
    kx.clear_device()
    other = install_certificates()
    with device.service(fresh=False) as running, concurrent.futures.ThreadPoolExecutor(LOADS) as pool:
        running.use_tls(CERTS / "server.crt")
        threads = running.threads()
        with kx.frozen_podman():
            loads = [pool.submit(upload_image, running, f"load{number}.tar", timeout=60) for number in range(LOADS)]
            kx.wait_until(lambda: running.threads() >= threads + LOADS, 20, "the loads have their threads")
            stalled = [begin_upload(running, number) for number in range(STALLED)]
            kx.wait_until(lambda: running.threads() >= threads + HALF_OF_THE_THREADS, 20, "the stalled have theirs")
            with trickling(stalled[::2]):
                ask_as_another(fault, running, other)
        begin = time.monotonic()
        statuses = [load.result().status for load in loads]
        fault.expect(set(statuses) == {204}, f"the loads, once Podman went on: {statuses}")
        for connection in stalled:
            connection.close()
        measure_recovery(fault, running, begin)
        status = upload_text(running, "compose-files", "mine.yml", "services:\n").status
        fault.expect(status == 200 and (COMPOSE_FILES / "mine.yml").exists(), f"an upload of the same identity then: {status}")
        fault.expect(running.stop() == 0, "ended with an error\n" + running.log()[-2000:])


def run(device, report, plan):
    with report.fault(f"{STALLED} uploads that stall or trickle, {LOADS} loads on a frozen Podman") as fault:
        for _ in range(1 if plan.quick else 5):
            with fault.guarded():
                hold_up_uploads(fault, device)
