#!/usr/bin/python3
"""call_service.py PROGRAM FILE: starts the program, keeps the description of its API in FILE, has call_everything.js call
it, and judges the answers by the description. For the sandbox."""

import json
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "scripts/lib"))
import service as kx  # noqa: E402
from description import Description  # noqa: E402


def make_things_to_call():
    kx.make_image()
    kx.podman("rm", "--all", "--force", "--time", "0")
    kx.podman("create", "--name", "worker", kx.IMAGE, "sleep", "1000")
    archive = pathlib.Path("/run/unused.tar")
    kx.podman("tag", kx.IMAGE, "localhost/unused:1")
    kx.podman("save", "-o", str(archive), "localhost/unused:1")
    kx.podman("untag", kx.IMAGE, "localhost/unused:1")
    return archive


def judge(document, answers):
    """What is wrong with the answers."""
    description = Description(document, kx.BASE)
    for answer in answers:
        headers = {"Content-Type": answer.get("type")}
        if answer["status"] != answer["expected"]:
            yield f"{answer['operation']} does not answer {answer['expected']}: {answer}"
        if str(answer["status"]) not in description.operation(answer["method"], answer["path"])["responses"]:
            yield f"{answer['operation']} answers {answer['status']}, which is not described"
        try:
            description.check(answer["method"], answer["path"], kx.Answer(answer["status"], headers, answer["body"].encode()))
        except Exception as error:  # of jsonschema, too
            yield f"{answer['operation']}: {error}"
    called = {answer["operation"] for answer in answers}
    for operation in (operation for item in document["paths"].values() for operation in item.values()):
        if isinstance(operation, dict) and operation["operationId"] not in called:
            yield f"{operation['operationId']} is not called: add it to call_everything.js"


def main():
    kx.require_sandbox()
    program, file = sys.argv[1:]
    archive = make_things_to_call()
    log = pathlib.Path("/run/service.log")
    with kx.Service(program, log, {"WebApi.Port": 0}) as running:
        running.wait_ready()
        document = running.request("GET", "/openapi.json")
        pathlib.Path(file).write_bytes(document.body)
        calls = subprocess.run(["node", ROOT / "tests/openapi/call_everything.js", file, f"http://127.0.0.1:{running.port}{kx.BASE}",
                                running.token(), archive, ROOT / "docs/examples/web.yml"], stdout=subprocess.PIPE, timeout=600)
        status = running.stop()
    problems = list(judge(document.json(), json.loads(calls.stdout))) if calls.returncode == 0 else ["the client failed"]
    if problems or status:
        sys.exit("\n".join([log.read_text(), *problems, f"The service ended with {status}."]))


if __name__ == "__main__":
    main()
