"""Roles and identities: who may do what, followed while the service runs."""

import asyncio
import itertools
import json
import subprocess
import threading
import time

import pytest
import websockets
from access import IDENTITIES, RECORD, admin, entries
from conftest import end, kx
from test_certs_tls import install, openssl, pki  # noqa: F401 (a fixture)

ROLES = ["none", "viewer", "operator", "administrator"]
OPERATORS = {"startContainer", "stopContainer", "restartContainer", "composeStart", "composeStop"}
UPGRADE = {"Connection": "Upgrade", "Upgrade": "websocket", "Sec-WebSocket-Version": "13",
           "Sec-WebSocket-Key": "dGhlIHNhbXBsZSBub25jZQ=="}

SOURCES = (f"127.1.{number >> 8}.{number & 255}" for number in itertools.count(1))  # addresses that guessed nothing yet


@pytest.fixture
def program(request):
    return request.config.getoption("--program")


def operations(service):
    """Every operation that the service describes, which it makes from the tables that it routes by."""
    for path, methods in service.request("GET", "/openapi.json").json()["paths"].items():
        for method, operation in methods.items():
            if method in ("get", "post", "put", "patch", "delete"):
                yield operation["operationId"], method.upper(), path.replace("{name}", "ghost"), operation["x-kx-role"]


def expected_role(operation, method):
    """Said anew, apart from the program's table."""
    if operation == "getHealth":
        return "none"
    if operation == "getAudit" or (method != "GET" and operation not in OPERATORS):
        return "administrator"
    return "operator" if method != "GET" else "viewer"


def client_certificate(pki, name):
    directory = pki / "ours"
    openssl("req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-subj", f"/O=Korvex/CN={name}",
            "-keyout", directory / f"{name}.key", "-out", directory / f"{name}.csr")
    openssl("x509", "-req", "-in", directory / f"{name}.csr", "-CA", directory / "ca.crt", "-CAkey", directory / "ca.key",
            "-CAcreateserial", "-days", "5", "-extfile", pki / "client.ext", "-out", directory / f"{name}.crt")


def test_every_route_with_every_role_and_credential(start_service, program, pki):
    install(pki, ca="ours/ca.crt")
    credentials = {"none": (None, None, "none"), "token": (True, None, "administrator")}
    for role in ROLES[1:]:
        credentials[f"{role}'s token"] = (admin(program, "identity", "add", f"{role}-1", "--role", role), None, role)
        client_certificate(pki, role)
        admin(program, "identity", "add", f"{role}-2", "--role", role, "--certificate", f"CN={role},O=Korvex")
        credentials[f"{role}'s certificate"] = (None, role, role)
    client_certificate(pki, "unnamed")
    credentials["certificate that no identity names"] = (None, "unnamed", "administrator")
    client_certificate(pki, "late")
    admin(program, "identity", "add", "late", "--role", "administrator", "--certificate", "CN=late,O=Korvex", "--expires", "0")
    credentials["expired certificate"] = (None, "late", "none")
    credentials["expired token"] = (admin(program, "identity", "add", "old", "--role", "administrator", "--expires", "1"), None, "none")
    document = json.loads(IDENTITIES.read_text())
    document["identities"][-1]["expires"] = "2026-01-01T00:00:00Z"
    IDENTITIES.write_text(json.dumps(document))
    credentials["removed token"] = (admin(program, "identity", "add", "gone", "--role", "administrator"), None, "none")
    admin(program, "identity", "remove", "gone")

    running = start_service()
    running.use_tls(pki / "ours/ca.crt")
    known = list(operations(running))
    assert len(known) >= 32
    for name, (token, certificate, role) in credentials.items():
        running.use_tls(pki / "ours/ca.crt", *[pki / f"ours/{certificate}.{kind}" for kind in ("crt", "key") if certificate])
        for number, (operation, method, path, required) in enumerate(known):
            assert required == expected_role(operation, method), operation
            if number % 9 == 0:  # ten wrong tokens from one address are too many
                connection = running.connect(source=next(SOURCES))
            answer = running.request(method, path, token=token, connection=connection,
                                     headers=UPGRADE if path.endswith("/ws") else None)
            at = (name, operation, answer.status, answer.body[:200])
            if required == "none":
                assert answer.status in ((401,) if token and role == "none" else (200, 503)), at  # a wrong token is told so
            elif role == "none":
                assert answer.status == 401, at
            elif ROLES.index(role) < ROLES.index(required):
                assert answer.status == 403 and answer.detail() == f"The role '{role}' may not do this", at
            else:
                assert answer.status not in (401, 403, 429), at
            if answer.status == 101:
                connection = running.connect(source=next(SOURCES))
    assert admin(program, "audit", "verify").startswith("The chain holds")


def wait_until_in(running, token):
    """Waits until a new identity gets in, without asking so often that it would be taken for one that guesses."""
    source, until = next(SOURCES), time.monotonic() + 2
    while running.request("GET", "/settings", token=token, source=source).status != 200:
        assert time.monotonic() < until, "the service follows a change within a second"
        time.sleep(0.25)


def connects(running, path, **options):
    """A WebSocket; gives a function that waits for its end and tells the close code."""
    ended = {}
    opened = threading.Event()

    async def follow():
        async with websockets.connect(f"ws://127.0.0.1:{running.port}{kx.BASE}{path}", **options) as socket:
            opened.set()
            try:
                while True:
                    await socket.recv()
            except websockets.ConnectionClosed as closed:
                ended["code"] = closed.code

    thread = threading.Thread(target=lambda: asyncio.run(follow()), daemon=True)
    thread.start()
    assert opened.wait(20)

    def wait(seconds):
        thread.join(seconds)
        return ended.get("code")

    return wait


def test_what_an_identity_has_open_ends_with_it(start_service, program):
    running = start_service()
    kx.podman("run", "-d", "--name", "talker", kx.IMAGE, "sh", "-c", "while :; do echo x; sleep 0.2; done")

    def open_all(token):
        """Streams, an upload that has begun, a request that waits, a connection that is kept."""
        bearer = {"Authorization": f"Bearer {token}"}
        streams = [connects(running, "/containers/talker/logs/ws", extra_headers=bearer),
                   connects(running, "/containers/talker/logs/ws", subprotocols=["kx.logs.v1", f"bearer.{token}"])]
        upload = running.raw(f"POST {kx.BASE}/compose-files HTTP/1.1\r\nHost: a\r\nAuthorization: Bearer {token}\r\n"
                             "Content-Disposition: attachment; filename=a.yml\r\nContent-Length: 900000\r\n\r\n".encode() + b"x" * 400000)
        return streams, upload

    others = connects(running, "/containers/talker/logs/ws", extra_headers={"Authorization": f"Bearer {running.token()}"})
    token = admin(program, "identity", "add", "anna", "--role", "administrator")
    wait_until_in(running, token)
    for take_away in (("identity", "renew", "anna"), ("identity", "remove", "anna")):
        streams, upload = open_all(token)
        renewed = admin(program, *take_away)
        assert [wait(10) for wait in streams] == [1008, 1008], take_away
        try:
            assert upload.recv(1000) == b"", "the upload is cut"
        except ConnectionResetError:
            pass
        assert running.request("GET", "/settings", token=token, source=next(SOURCES)).status == 401
        token = renewed
    assert others(0) is None, "nobody else's stream ends"

    token = admin(program, "identity", "add", "ben", "--role", "viewer", "--expires", "1")
    document = json.loads(IDENTITIES.read_text())
    expiry = int(time.time()) + 5
    document["identities"][0]["expires"] = time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(expiry))
    IDENTITIES.write_text(json.dumps(document))
    wait_until_in(running, token)
    stream = connects(running, "/containers/talker/logs/ws", extra_headers={"Authorization": f"Bearer {token}"})
    assert stream(15) == 1008 and time.time() >= expiry
    assert running.request("GET", "/settings", token=token, source=next(SOURCES)).status == 401
    kx.wait_until(lambda: entries()[-1]["identity"] == "ben", 5, "the record names who has expired")


def test_a_bad_identities_file_changes_nobody(start_service, program, pki):
    token = admin(program, "identity", "add", "anna", "--role", "viewer")
    install(pki, ca="ours/ca.crt")
    running = start_service()
    good = IDENTITIES.read_text()
    for spoil in (lambda: IDENTITIES.write_text("{"), lambda: (IDENTITIES.write_text(good), IDENTITIES.chmod(0o644))):
        before = running.log().count("the last good one stays")
        spoil()
        running.wait_for_log("the last good one stays", count=before + 1)
        running.use_tls(pki / "ours/ca.crt")
        assert running.request("GET", "/settings", token=token).status == 200
        assert str(IDENTITIES) in admin(program, "identity", "list", status=1)
    end(running)
    running = start_service()
    assert "nobody but the administrator's token gets in" in running.log()
    running.use_tls(pki / "ours/ca.crt")
    assert running.request("GET", "/settings").status == 200
    assert running.request("GET", "/settings", token=token).status == 401
    running.use_tls(pki / "ours/ca.crt", pki / "ours/operator.crt", pki / "ours/operator.key")
    assert running.request("GET", "/settings", token=False).status == 401, "whom would the certificate belong to?"
    IDENTITIES.chmod(0o600)
    kx.wait_until(lambda: running.request("GET", "/settings", token=False).status == 200, 5, "the mended file is followed")


def test_addresses_that_guess_are_slowed_and_right_tokens_never(start_service):
    running = start_service()
    wrong = [running.request("GET", "/settings", token=f"wrong{number}", source="127.0.2.1") for number in range(50)]
    assert [answer.status for answer in wrong] == [401] * 10 + [429] * 40
    assert wrong[-1].json()["title"] == "TooManyRequests" and 0 < int(wrong[-1].headers["Retry-After"]) <= 60
    assert running.request("GET", "/settings", token=False, source="127.0.2.1").status == 429
    assert running.request("GET", "/settings", source="127.0.2.1").status == 200
    assert running.request("GET", "/settings", token=False, source="127.0.2.2").status == 401
    kx.wait_until(lambda: [entry for entry in entries() if entry.get("refusals")], 5, "the refusals are summed up")
    told = [entry for entry in entries() if entry["peer"] == "127.0.2.1"]
    assert len(told) <= 40 and sum(entry.get("refusals", 1) for entry in told) <= 51
    assert running.log().count("peer=127.0.2.1") <= 40 and "wrong1" not in RECORD.read_text()


def test_the_record_is_kept_before_a_change_is_answered(start_service, program):
    token = admin(program, "identity", "add", "olga", "--role", "operator")
    running = start_service()
    for method, path, body, used, status, told in [
            ("PATCH", "/settings", {"tcp_port": 4711}, True, 200, ("token", "administrator", "/settings", "")),
            ("POST", "/containers/ghost/stop", None, token, 404, ("olga", "operator", "/containers/{name}/stop", "ghost")),
            ("DELETE", "/containers/ghost", None, token, 403, ("olga", "operator", "/containers/{name}", "ghost"))]:
        before = len(entries()) if RECORD.exists() else 0
        assert running.request(method, path, body, token=used).status == status
        if status == 403:
            kx.wait_until(lambda: len(entries()) > before, 5, "a refusal is kept soon after")
        (entry,) = entries()[before:]
        assert (entry["identity"], entry["role"], entry["route"], entry["name"]) == told
        assert (entry["method"], entry["status"], entry["peer"]) == (method, status, "127.0.0.1")
    assert token not in running.log() + RECORD.read_text() + IDENTITIES.read_text()
    assert admin(program, "audit", "verify") == "The chain holds: 3 entries, from 1 to 3."
    text = RECORD.read_text()
    RECORD.write_text(text.replace("4711", "4712").replace('"status":404', '"status":200'))
    assert f"{RECORD}:3: " in subprocess.run([admin_path(program), "audit", "verify"], capture_output=True, text=True).stdout


def admin_path(program):
    return program.rsplit("/", 1)[0] + "/kx-container-admin"


def test_the_tool_keeps_the_file(start_service, program):
    for words, status, told in [
            (("identity", "add", "anna"), 2, "--role is missing"),
            (("identity", "add", "an na", "--role", "viewer"), 2, "1 to 64 letters"),
            (("identity", "add", "anna", "--role", "boss"), 2, "viewer, operator or administrator"),
            (("identity", "add", "anna", "--role", "viewer", "--expires", "soon"), 2, "a number of days"),
            (("identity", "add", "anna", "--role", "viewer", "--certificat", "CN=x"), 2, "no option '--certificat'"),
            (("identity", "remove", "ghost"), 1, "identity list"),
            (("identity", "renew", "ghost"), 1, "identity list"),
            (("identity",), 2, "not complete"), (("fly", "away"), 2, "no command 'fly away'")]:
        assert told in admin(program, *words, status=status), words
    assert not IDENTITIES.exists()
    many = [threading.Thread(target=admin, args=(program, "identity", "add", f"user{number}", "--role", "viewer")) for number in range(20)]
    for thread in many:
        thread.start()
    for thread in many:
        thread.join()
    admin(program, "identity", "add", "anna", "--role", "operator", "--expires", "30")
    assert "already" in admin(program, "identity", "add", "anna", "--role", "viewer", status=1)
    listed = {one["name"]: one for one in json.loads(admin(program, "identity", "list", "--json"))["identities"]}
    assert len(listed) == 21 and listed["anna"]["role"] == "operator" and listed["anna"]["expires"]
    assert IDENTITIES.stat().st_mode & 0o777 == 0o600
    document = json.loads(IDENTITIES.read_text())
    document["note"] = "kept"
    document["identities"][0]["phone"] = "kept"
    IDENTITIES.write_text(json.dumps(document))
    admin(program, "identity", "renew", "anna")
    document = json.loads(IDENTITIES.read_text())
    assert document["note"] == document["identities"][0]["phone"] == "kept"
    table = admin(program, "identity", "list").splitlines()
    assert table[0].split() == ["NAME", "ROLE", "CREATED", "EXPIRES", "SHOWS"] and len(table) == 22
