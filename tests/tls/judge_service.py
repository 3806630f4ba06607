#!/usr/bin/python3
"""judge_service.py PROGRAM FILE: starts the program with a certificate, has testssl look at it, keeps what that found in
FILE, and fails when something is worse than it should be. For the sandbox."""

import json
import pathlib
import re
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts/lib"))
import service as kx  # noqa: E402

CERTIFICATES = pathlib.Path("/mnt/cfdrive/containers/certs")
EXPECTED = {
    "cert_chain_of_trust",  # the certificate is signed by itself,
    "cert_revocation",      # and nobody would revoke it
    "BREACH",               # the page is compressed: it holds no secret and nothing of the request; no other answer is
}
# Authenticated encryption and forward secrecy.
MODERN = re.compile("TLS_(AES|CHACHA20)_.*|ECDHE-(RSA|ECDSA)-(AES(128|256)-GCM-.*|CHACHA20-POLY1305)")


def serve(program, file):
    CERTIFICATES.mkdir(parents=True, exist_ok=True)
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days", "90",
                    "-subj", "/CN=localhost", "-addext", "subjectAltName=DNS:localhost,IP:127.0.0.1",
                    "-addext", "extendedKeyUsage=serverAuth", "-keyout", CERTIFICATES / "server.key",
                    "-out", CERTIFICATES / "server.crt"], check=True, capture_output=True)
    with kx.Service(program, "/run/service.log", {"WebApi.Port": 0}) as running:
        running.wait_ready()
        file.unlink(missing_ok=True)
        shown = subprocess.run(["testssl", "--quiet", "--warnings", "off", "--color", "0", "--nodns", "min", "--ip", "127.0.0.1",
                                "--jsonfile", file, "--protocols", "--standard", "--server-preference", "--server-defaults", "--pfs",
                                "--vulnerable", f"localhost:{running.port}"], capture_output=True, text=True, timeout=900)
    return shown.stdout + shown.stderr


def main():
    kx.require_sandbox()
    program, file = sys.argv[1], pathlib.Path(sys.argv[2])
    shown = serve(program, file)
    findings = json.loads(file.read_text())
    bad = [f"{finding['severity']}: {finding['id']}: {finding['finding']}" for finding in findings
           if finding["severity"] in ("LOW", "MEDIUM", "HIGH", "CRITICAL") and finding["id"] not in EXPECTED]
    offered = [cipher for finding in findings if finding["id"].startswith("cipherorder_") for cipher in finding["finding"].split()]
    bad += [f"offered: {cipher}" for cipher in offered if not MODERN.fullmatch(cipher)]
    if bad or not offered:
        sys.exit("\n".join([shown, "", *bad, f"{len(offered)} ciphers were seen"]))
    print(f"testssl found nothing against the TLS of the service; it offers {len(offered)} ciphers")


if __name__ == "__main__":
    main()
