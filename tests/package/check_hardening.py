#!/usr/bin/python3
"""check_hardening.py EXECUTABLE: fails when a protection that Debian's compilers and linkers offer is not in it."""

import re
import subprocess
import sys


def readelf(*arguments):
    return subprocess.run(["readelf", "--wide", *arguments], check=True, text=True, capture_output=True).stdout


def find_missing(executable):
    header, segments, dynamic = readelf("-h", executable), readelf("-l", executable), readelf("-d", executable)
    symbols = readelf("--dyn-syms", executable)
    stack = re.search(r"GNU_STACK.*", segments)
    checks = {
        "position-independent executable": re.search(r"FLAGS_1\).*\bPIE\b", dynamic) and "DYN" in header,
        "relocations read-only after start (RELRO)": "GNU_RELRO" in segments,
        "all symbols bound at start (BIND_NOW)": re.search(r"FLAGS_1\).*\bNOW\b", dynamic),
        "stack not executable": stack and "RWE" not in stack[0],
        "no segment both writable and executable": not re.search(r"LOAD.*RWE", segments),
        "stack protector": "__stack_chk_fail" in symbols,
        "fortified library calls": re.search(r"__\w+_chk\b", symbols.replace("__stack_chk_fail", "")),
        "no relocations in code": "TEXTREL" not in dynamic,
        "no library path of its own": not re.search(r"\((RPATH|RUNPATH)\)", dynamic),
        "stripped": ".symtab" not in readelf("-S", executable),
    }
    return [name for name, holds in checks.items() if not holds]


missing = find_missing(sys.argv[1])
if missing:
    sys.exit(f"{sys.argv[1]} lacks: " + "; ".join(missing))
print(f"{sys.argv[1]} is hardened")
