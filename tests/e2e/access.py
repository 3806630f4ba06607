"""What tests of access share: the administrator's tool, and the kept record."""

import json
import pathlib
import subprocess

from conftest import kx

IDENTITIES = pathlib.Path("/mnt/cfdrive/containers/identities.json")
RECORD = pathlib.Path("/mnt/cfdrive/containers/audit.log")


def admin(program, *words, status=0):
    """Runs the tool; gives what it printed to standard output, and to standard error where it fails."""
    tool = pathlib.Path(program).parent / "kx-container-admin"
    done = subprocess.run([tool, *words], capture_output=True, text=True, timeout=60)
    assert done.returncode == status, (words, done)
    return done.stdout.strip() if status == 0 else done.stderr


def entries():
    return [json.loads(line) for line in RECORD.read_text().splitlines()]
