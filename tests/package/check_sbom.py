#!/usr/bin/python3
"""check_sbom.py ROOT: checks the bill of materials of the package that was unpacked at ROOT: that it is CycloneDX by the format's own
schema, that it is of these programs, and that it names the package of each library that they load."""

import hashlib
import json
import pathlib
import re
import subprocess
import sys
import tarfile
import tempfile

import jsonschema

SCHEMAS = "@cyclonedx/cyclonedx-library@6.13.1"
FOLDER = "package/res/schema/"


def schemas():
    """{address: schema} of the format's publisher, from its npm package."""
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run(["npm", "pack", SCHEMAS, "--silent", "--pack-destination", folder], check=True, stdout=subprocess.DEVNULL)
        with tarfile.open(next(pathlib.Path(folder).iterdir())) as archive:
            texts = [json.load(archive.extractfile(FOLDER + name + ".SNAPSHOT.schema.json")) for name in ("bom-1.5", "spdx", "jsf-0.82")]
    return texts[0], {text["$id"]: text for text in texts}


def main():
    root = pathlib.Path(sys.argv[1])
    bom = json.loads((root / "usr/share/doc/kx-container-service/sbom.cdx.json").read_text())
    schema, known = schemas()
    jsonschema.Draft7Validator(schema, resolver=jsonschema.RefResolver(schema["$id"], schema, known)).validate(bom)
    versions = {component["name"]: component["version"] for component in bom["components"]}
    for file in bom["metadata"]["component"]["components"]:
        program = next(path for path in (root / "usr/sbin" / file["name"], root / "usr/lib/kx-container-service" / file["name"]) if path.exists())
        assert file["hashes"][0]["content"] == hashlib.sha256(program.read_bytes()).hexdigest(), f"it is of another {program}"
        dynamic = subprocess.run(["readelf", "-d", program], check=True, text=True, capture_output=True).stdout
        for library in re.findall(r"NEEDED.*\[(.*)\]", dynamic):
            owners = subprocess.run(["dpkg-query", "--search", f"*/{library}"], check=True, text=True, capture_output=True).stdout
            assert any(line.split(":")[0] in versions for line in owners.splitlines()), f"{library} is not in it"
    assert {"libboost1.81-dev", "nlohmann-json3-dev"} <= set(versions)
    print(f"The bill of materials names {len(versions)} packages")


if __name__ == "__main__":
    main()
