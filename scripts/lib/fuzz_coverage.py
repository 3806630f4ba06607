#!/usr/bin/python3
"""Replays each fuzzer's inputs (its corpus, what once failed, and what build/fuzz has learned) in the build of the preset coverage, and
prints how many lines and branches they reach of the parser: of the sources whose headers the fuzzer includes. Fails when that is less
than 90 % of a parser's lines; --markdown FILE keeps the table."""

import argparse
import json
import os
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = ROOT / "build/coverage"
LEAST = 90


def parsers(fuzzer):
    """The sources that a fuzzer is for."""
    headers = re.findall(r'^#include "((?:platform|handler)/\S+)\.h"', (ROOT / f"fuzz/{fuzzer}.cpp").read_text(), re.MULTILINE)
    return [f"{header}.cpp" for header in headers if (ROOT / f"{header}.cpp").exists()]


def replay(fuzzer):
    """The coverage of one fuzzer: {source: summary}."""
    program = BUILD / "fuzz" / fuzzer
    raw, merged = BUILD / f"{fuzzer}.profraw", BUILD / f"{fuzzer}.profdata"
    folders = [folder for folder in (ROOT / "fuzz/corpus" / fuzzer, ROOT / "fuzz/regressions" / fuzzer, ROOT / "build/fuzz/corpus" / fuzzer)
               if folder.is_dir()]
    subprocess.run([program, "-runs=0", *folders], check=True, capture_output=True, env={**os.environ, "LLVM_PROFILE_FILE": str(raw)})
    subprocess.run(["llvm-profdata-14", "merge", "-sparse", raw, "-o", merged], check=True)
    exported = subprocess.run(["llvm-cov-14", "export", "-summary-only", f"-instr-profile={merged}", program], check=True, text=True,
                              capture_output=True).stdout
    summaries = {os.path.relpath(file["filename"], ROOT): file["summary"] for file in json.loads(exported)["data"][0]["files"]}
    return {source: summaries[source] for source in parsers(fuzzer) if source in summaries}


def main():
    arguments = argparse.ArgumentParser(description=__doc__)
    arguments.add_argument("--markdown", type=pathlib.Path)
    markdown = arguments.parse_args().markdown
    rows, poor = ["| Parser | Fuzzer | Lines | Branches |", "|---|---|---|---|"], []
    for fuzzer in sorted(path.stem for path in (ROOT / "fuzz").glob("fuzz_*.cpp")):
        for source, summary in replay(fuzzer).items():
            lines, branches = summary["lines"]["percent"], summary["branches"]["percent"]
            rows.append(f"| `{source}` | {fuzzer} | {lines:.1f} % | {branches:.1f} % |")
            poor += [f"{source} by {fuzzer}: {lines:.1f} % of its lines"] * (lines < LEAST)
    print("\n".join(rows))
    if markdown:
        markdown.write_text("\n".join(rows) + "\n")
    if poor:
        sys.exit(f"less than {LEAST} %: " + "; ".join(poor))


if __name__ == "__main__":
    main()
