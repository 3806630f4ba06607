#!/usr/bin/python3
"""sbom.py BUILD PROGRAM... : prints the bill of materials of the programs in the build folder BUILD as CycloneDX 1.5 (ECMA-424).

What it names was found in what was built: libraries in the programs' own dynamic sections, libraries of headers in what the
compiler says that it read. Packages that are only used when they are there are read from the package's control file. The same
build gives the same bytes; SOURCE_DATE_EPOCH is the time it bears.
"""

import datetime
import hashlib
import json
import os
import pathlib
import re
import subprocess
import sys
import uuid

ROOT = pathlib.Path(__file__).resolve().parents[2]
LOADED_WHEN_NEEDED = ["libsystemd0"]  # by dlopen(3), for logs in the journal


def output(*command, **options):
    return subprocess.run([str(word) for word in command], check=True, text=True, capture_output=True, **options).stdout


def packages_of(paths):
    """The names of the packages that the files came in."""
    names = set()
    paths = sorted(paths)
    for start in range(0, len(paths), 500):
        found = subprocess.run(["dpkg-query", "--search", *paths[start:start + 500]], text=True, capture_output=True).stdout
        names.update(re.findall(r"^([^\s:,]+)(?::\w+)?: ", found, re.MULTILINE))
    return names


def linked(build, programs):
    libraries = set()
    for program in programs:
        for line in output("env", "--unset=LD_PRELOAD", "ldd", build / program).splitlines():
            if found := re.search(r"=> (/\S+)", line):
                libraries.update({found[1], os.path.realpath(found[1]), found[1].removeprefix("/usr"), "/usr" + found[1]})
    return packages_of(libraries)


def compiled_in(build):
    read = {line.strip() for line in output("ninja", "-C", build, "-t", "deps").splitlines() if line.startswith("    /usr/")}
    return packages_of(read)


def started():
    """The programs that the package depends on."""
    depends = re.search(r"^Depends: (.*)$", (ROOT / "packaging/debian/control.in").read_text(), re.MULTILINE)[1]
    return {name.split()[0] for name in depends.split(", ") if not name.startswith(("@", "init-system-helpers"))}


def licence(package):
    """What a machine-readable copyright file says of the package's files; nothing for other files."""
    path = pathlib.Path("/usr/share/doc", package, "copyright")
    text = path.read_text(errors="replace") if path.exists() else ""
    found = re.search(r"^Files: \*\n(?:.*\n)*?License: (.+)$", text, re.MULTILINE)
    return [{"license": {"name": found[1]}}] if found else None


def component(package, how, scope):
    version, source = output("dpkg-query", "-W", "-f=${Version}\t${source:Package}", package).split("\t")
    entry = {"type": "library", "bom-ref": f"{how}/{package}", "name": package, "version": version, "scope": scope,
             "purl": f"pkg:deb/debian/{package}@{version}?arch=amd64&distro=bookworm".replace("+", "%2B").replace("~", "%7E"),
             "properties": [{"name": "kx:use", "value": how}, {"name": "kx:source", "value": source}]}
    if licences := licence(package):
        entry["licenses"] = licences
    return entry


def main():
    build, programs = pathlib.Path(sys.argv[1]), sys.argv[2:]
    name = programs[0]
    version = re.search(r"^project\(.* VERSION ([0-9.]+)", (ROOT / "CMakeLists.txt").read_text(), re.MULTILINE)[1]
    groups = [("linked", linked(build, programs), "required"), ("compiled in", compiled_in(build), "required"),
              ("started", started(), "required"), ("loaded when needed", LOADED_WHEN_NEEDED, "optional")]
    components = [component(package, how, scope) for how, packages, scope in groups for package in sorted(packages)]
    moment = datetime.datetime.fromtimestamp(int(os.environ.get("SOURCE_DATE_EPOCH", "0")), datetime.timezone.utc)
    files = [{"type": "file", "bom-ref": program, "name": program,
              "hashes": [{"alg": "SHA-256", "content": hashlib.sha256((build / program).read_bytes()).hexdigest()}]} for program in programs]
    bom = {
        "bomFormat": "CycloneDX", "specVersion": "1.5", "version": 1,
        "metadata": {
            "timestamp": moment.strftime("%Y-%m-%dT%H:%M:%SZ"),
            "tools": {"components": [{"type": "application", "name": "g++", "version": output("g++", "-dumpfullversion").strip()}]},
            "component": {"type": "application", "bom-ref": "package", "name": name, "version": version, "components": files},
        },
        "components": components,
        "dependencies": [{"ref": "package", "dependsOn": [entry["bom-ref"] for entry in components]}],
    }
    bom["serialNumber"] = uuid.uuid5(uuid.NAMESPACE_URL, json.dumps(bom)).urn  # the same materials, the same number
    print(json.dumps(bom, indent=1))


if __name__ == "__main__":
    main()
