"""The commands of the README's tour, run as they stand there."""

import os
import re
import subprocess

from conftest import ROOT, kx

CONTAINER = ["sh", "-c", "while :; do date; sleep 1; done"]


def test_every_command_of_the_tour_works(start_service, tmp_path):
    start_service({"WebApi.Port": 8460})
    kx.podman("run", "-d", "--name", "hello", kx.IMAGE, *CONTAINER)
    run = tmp_path / "build/run"
    run.mkdir(parents=True)
    (run / "mnt").symlink_to("/mnt")
    (tmp_path / "docs").symlink_to(ROOT / "docs")
    kx.podman("save", "-o", str(run / "hello.tar"), kx.IMAGE)

    tour = (ROOT / "README.md").read_text().split("## A tour", 1)[1].split("\n## ", 1)[0]
    commands = re.findall(r"^```sh\n(.*?)^```", tour, re.S | re.M)
    assert len(commands) >= 5
    result = subprocess.run(["bash", "-eu"], input="\n".join(commands), cwd=tmp_path, text=True, capture_output=True,
                            timeout=600, env=os.environ)
    assert result.returncode == 0, result.stdout + result.stderr
    assert '"containers":[{"Id"' in result.stdout
