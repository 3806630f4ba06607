"""Certificates through the API, and what the server makes of them."""

import os
import pathlib
import shutil
import ssl
import subprocess

import pytest
from conftest import end, kx

CERTS = pathlib.Path("/mnt/cfdrive/containers/certs")


def openssl(*arguments):
    subprocess.run(["openssl", *arguments], check=True, capture_output=True)


@pytest.fixture(scope="session")
def pki(tmp_path_factory):
    """Two authorities, `ours` and `theirs`, each with server certificates "one" and "two" and a client certificate."""
    directory = tmp_path_factory.mktemp("pki")
    (directory / "server.ext").write_text("subjectAltName = IP:127.0.0.1\nextendedKeyUsage = serverAuth\n")
    (directory / "client.ext").write_text("extendedKeyUsage = clientAuth\n")
    new_key = ("-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes")
    (directory / "ca.ext").write_text("basicConstraints = critical, CA:TRUE\n")
    for authority in ("ours", "theirs", "below"):
        ca = directory / authority
        ca.mkdir()
        openssl("req", "-x509", *new_key, "-days", "40", "-subj", f"/CN={authority}", "-keyout", ca / "ca.key", "-out", ca / "ca.crt")
        if authority == "below":  # an intermediate: what it has signed is known, who has signed it is not
            openssl("x509", "-in", ca / "ca.crt", "-x509toreq", "-signkey", ca / "ca.key", "-out", ca / "ca.csr")
            openssl("x509", "-req", "-in", ca / "ca.csr", "-CA", directory / "ours/ca.crt", "-CAkey", directory / "ours/ca.key",
                    "-CAcreateserial", "-days", "40", "-extfile", directory / "ca.ext", "-out", ca / "ca.crt")
        for name, purpose in (("one", "server"), ("two", "server"), ("operator", "client")):
            openssl("req", *new_key, "-subj", f"/CN={name}", "-keyout", ca / f"{name}.key", "-out", ca / f"{name}.csr")
            openssl("x509", "-req", "-in", ca / f"{name}.csr", "-CA", ca / "ca.crt", "-CAkey", ca / "ca.key",
                    "-CAcreateserial", "-days", "31" if name == "two" else "5", "-extfile", directory / f"{purpose}.ext", "-out", ca / f"{name}.crt")
    openssl("ec", "-in", directory / "ours/one.key", "-aes128", "-passout", "pass:secret", "-out", directory / "locked.key")
    return directory


def upload(service, kind, path):
    headers = {"Content-Type": "application/x-pem-file", "Content-Disposition": f"attachment; filename={path.name}"}
    assert service.request("POST", f"/certs/{kind}", path.read_bytes(), headers).status == 200


def install(pki, certificate="ours/one.crt", key="ours/one.key", ca=None):
    shutil.rmtree(CERTS, ignore_errors=True)
    CERTS.mkdir(parents=True)
    for source, name in ((certificate, "server.crt"), (key, "server.key"), (ca, "ca.crt")):
        if isinstance(source, pathlib.Path):
            (CERTS / name).symlink_to(source)
        elif source:
            (CERTS / name).write_bytes((pki / source).read_bytes() if isinstance(source, str) else source)


def served_name(service):
    """The common name in the certificate that a new connection is shown."""
    connection = service.connect()
    connection.connect()
    subject = dict(entry[0] for entry in connection.sock.getpeercert()["subject"])
    connection.close()
    return subject["commonName"]


def test_uploaded_pair_serves_https_from_the_next_start(fresh_service, start_service, pki):
    upload(fresh_service, "certificate", pki / "ours/one.crt")
    upload(fresh_service, "private-key", pki / "ours/one.key")
    assert fresh_service.request("GET", "/settings").status == 200
    end(fresh_service)

    running = start_service()
    with running.raw(b"GET /api/cre/v1.0/settings HTTP/1.1\r\nHost: a\r\n\r\n") as plain:
        assert b"200 OK" not in plain.recv(4096)
    running.use_tls(pki / "ours/ca.crt")
    assert running.request("GET", "/settings").status == 200
    assert running.request("GET", "/settings", token=False).status == 401
    for version, answers in (("-tls1_1", False), ("-tls1_2", True)):
        handshake = subprocess.run(["openssl", "s_client", "-connect", f"127.0.0.1:{running.port}", version, "-cipher",
                                    "ALL:@SECLEVEL=0"], stdin=subprocess.DEVNULL, capture_output=True, timeout=20)
        assert (handshake.returncode == 0) == answers, version
    for kind in ("certificate", "private-key"):
        assert running.request("DELETE", f"/certs/{kind}").status == 204
    assert running.request("GET", "/settings").status == 200, "deleted files count at the next start"


def test_client_certificate_stands_for_the_token(start_service, pki):
    install(pki, ca="ours/ca.crt")
    running = start_service()
    running.use_tls(pki / "ours/ca.crt", pki / "ours/operator.crt", pki / "ours/operator.key")
    before = len(running.log())
    assert running.request("PATCH", "/settings", {"tcp_port": 1}, token=False).status == 200
    kx.wait_until(lambda: "CN" in running.log()[before:] and "operator" in running.log()[before:], 5, "the subject in the audit")
    running.use_tls(pki / "ours/ca.crt")
    assert running.request("GET", "/settings", token=False).status == 401
    assert running.request("GET", "/settings").status == 200
    running.use_tls(pki / "ours/ca.crt", pki / "theirs/operator.crt", pki / "theirs/operator.key")
    try:
        assert running.request("GET", "/settings", token=False).status == 401
    except (ssl.SSLError, OSError):
        pass  # refused in the handshake


@pytest.mark.parametrize("auth", ["none", "required"])
def test_a_page_cannot_use_the_certificate_that_a_browser_shows_by_itself(start_service, pki, auth):
    install(pki, ca="ours/ca.crt")
    running = start_service({"WebApi.Auth": auth})
    running.use_tls(pki / "ours/ca.crt", pki / "ours/operator.crt", pki / "ours/operator.key")
    own, foreign = {"Origin": f"https://127.0.0.1:{running.port}"}, {"Origin": "https://evil.example"}
    for headers, status in (({}, 200), (own, 200), (foreign, 403), ({"Host": "evil.example"}, 403 if auth == "none" else 200)):
        assert running.request("GET", "/settings", headers=headers, token=False).status == status, headers
    if auth == "required":
        assert running.request("GET", "/settings", headers=foreign).status == 200, "a page that has the token may ask"


def test_renewed_pair_is_used_and_a_broken_one_is_not(start_service, pki):
    install(pki)
    running = start_service()
    running.use_tls(pki / "ours/ca.crt")
    kept = running.connect()
    assert running.request("GET", "/settings", connection=kept).status == 200
    assert served_name(running) == "one"

    lines = running.log().count("server.")
    upload(running, "certificate", pki / "ours/two.crt")  # does not fit the key that is there
    kx.wait_until(lambda: served_name(running) == "one" and running.log().count("server.") > lines, 15,
                  "a line about the pair that does not load")
    upload(running, "private-key", pki / "ours/two.key")
    kx.wait_until(lambda: served_name(running) == "two", 15, "the renewed certificate is shown")
    assert running.request("GET", "/settings", connection=kept).status == 200, "open connections go on"

    def spoil_certificate():
        (CERTS / "server.crt").write_text("rubbish")

    def put_pipe():
        (CERTS / "server.key").unlink()
        os.mkfifo(CERTS / "server.key")  # whoever opens it waits for the other end

    for spoil in (lambda: upload(running, "private-key", pki / "locked.key"), put_pipe, spoil_certificate):
        lines = running.log().count("keeps its former TLS files")
        spoil()
        kx.wait_until(lambda: served_name(running) == "two" and running.log().count("keeps its former TLS files") > lines, 15,
                      "a line about what does not load")
    assert "ends in 4 days" in running.log() and "ends in 30 days" not in running.log()


def test_an_intermediate_authority_is_one_and_a_renewed_one_counts_without_the_pair(start_service, pki):
    install(pki, ca="below/ca.crt")
    running = start_service()

    def status_of(authority):
        running.use_tls(pki / "ours/ca.crt", pki / authority / "operator.crt", pki / authority / "operator.key")
        try:
            return running.request("GET", "/settings", token=False).status
        except (ssl.SSLError, OSError):
            return 401  # refused in the handshake

    assert (status_of("below"), status_of("ours"), status_of("theirs")) == (200, 401, 401)
    for name in ("server.crt", "server.key"):
        (CERTS / name).unlink()
    (CERTS / "ca.crt").write_bytes((pki / "theirs/ca.crt").read_bytes())
    kx.wait_until(lambda: status_of("theirs") == 200, 15, "the renewed authority counts")
    assert status_of("below") == 401


def test_files_that_do_not_load_keep_the_server_from_starting(start_service, pki):
    gone = pathlib.Path("/gone/server.crt")
    for files, named in [({"key": None}, "server.key"), ({"certificate": None}, "server.crt"), ({"key": b""}, "server.key"),
                         ({"certificate": b"rubbish"}, "server.crt"), ({"key": "ours/two.key"}, "server.key"),
                         ({"ca": b"rubbish"}, "ca.crt"), ({"key": "locked.key"}, "server.key"), ({"certificate": gone, "key": gone}, "server.crt"), ({"ca": gone}, "ca.crt")]:
        install(pki, **files)
        running = start_service()
        assert running.port is None, files
        assert f"{CERTS}/{named}" in running.log(), files
        end(running, 1)
    install(pki, certificate=None, key=None, ca="ours/ca.crt")  # an authority alone is a warning
    running = start_service()
    assert f"{CERTS}/ca.crt" in running.log()
    assert running.request("GET", "/settings").status == 200
