#!/usr/bin/python3
"""Replays each fuzzer's committed inputs (its corpus, and what once failed) in the build of the preset coverage, and prints how many
lines and branches they reach of the parsers that it is for, by the table below. Fails when that is less than 90 % of a parser's lines,
or when a fuzzer has no row. Arguments: the fuzzers, all when there are none; --markdown FILE keeps the table."""

import argparse
import json
import os
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = ROOT / "build/coverage"
LEAST = 90

LOGS, STORES, WEB = "platform/container_runtime/logs", "platform/container_runtime/stores", "platform/web_api"
# The sources that take bytes from outside: from a client, from Podman or from a file that others may write.
PARSERS = {
    "fuzz_access_headers": [f"{WEB}/access/authorization.cpp", f"{WEB}/access/loopback.cpp", f"{WEB}/audit/audit_chain.cpp",
                            f"{WEB}/audit/audit_record.cpp"],
    "fuzz_archive_format": ["handler/archive_format.cpp"],
    "fuzz_compose_output": ["platform/container_runtime/compose/compose_output.cpp"],
    "fuzz_container_log": [f"{LOGS}/log_frames.cpp", "platform/common/utf8_text.cpp"],
    "fuzz_content_disposition": [f"{WEB}/http/content_disposition.cpp", f"{WEB}/http/header_parameters.cpp"],
    "fuzz_identities": [f"{WEB}/identities/identity.cpp"],
    "fuzz_json_list": ["platform/json/json_text.cpp", "platform/json/list_selection.cpp"],
    "fuzz_log_cursor": [f"{LOGS}/log_cursor.cpp", f"{LOGS}/file/file_cursor.cpp"],
    "fuzz_log_file": [f"{LOGS}/file/entry_parser.cpp", f"{LOGS}/entry_text.cpp"],
    "fuzz_multipart": [f"{WEB}/http/multipart_reader.cpp"],
    "fuzz_plugin_config": [f"{STORES}/plugin_config.cpp"],
    "fuzz_podman_request": ["platform/container_runtime/podman/podman_api.cpp"],
    "fuzz_request_target": [f"{WEB}/http/request_target.cpp", f"{WEB}/routing/router.cpp"],
    "fuzz_server_socket": [f"{WEB}/http/request_buffer.cpp", f"{WEB}/http/request_head.cpp", f"{WEB}/websocket/handshake.cpp"],
    "fuzz_settings": [f"{STORES}/settings_store.cpp", f"{STORES}/json_file.cpp"],
    "fuzz_web_socket_frames": [f"{WEB}/websocket/frames.cpp"],
}


def replay(fuzzer):
    """The coverage of one fuzzer: {source: summary}."""
    program = BUILD / "fuzz" / fuzzer
    raw, merged = BUILD / f"{fuzzer}.profraw", BUILD / f"{fuzzer}.profdata"
    folders = [folder for folder in (ROOT / "fuzz/corpus" / fuzzer, ROOT / "fuzz/regressions" / fuzzer) if folder.is_dir()]
    ran = subprocess.run([program, "-runs=0", *folders], check=False, capture_output=True, text=True, errors="replace",
                         env={**os.environ, "LLVM_PROFILE_FILE": str(raw)})
    if ran.returncode != 0:
        sys.exit(f"{fuzzer} fails:\n{ran.stderr[-2000:]}")
    subprocess.run(["llvm-profdata-14", "merge", "-sparse", raw, "-o", merged], check=True)
    exported = subprocess.run(["llvm-cov-14", "export", "-summary-only", f"-instr-profile={merged}", program], check=True, text=True,
                              capture_output=True).stdout
    return {os.path.relpath(file["filename"], ROOT): file["summary"] for file in json.loads(exported)["data"][0]["files"]}


def main():
    arguments = argparse.ArgumentParser(description=__doc__)
    arguments.add_argument("fuzzers", nargs="*", metavar="FUZZER", help=f"of {', '.join(PARSERS)}")
    arguments.add_argument("--markdown", type=pathlib.Path)
    given = arguments.parse_args()
    built = {path.stem for path in (ROOT / "fuzz").glob("fuzz_*.cpp")}
    if built != set(PARSERS) or not set(given.fuzzers) <= built:
        sys.exit(f"no fuzzer, or one without a row in this script: {', '.join(sorted((built | set(given.fuzzers)) ^ set(PARSERS)))}")
    rows, poor = ["| Parser | Fuzzer | Lines | Branches |", "|---|---|---|---|"], []
    for fuzzer in given.fuzzers or PARSERS:
        summaries = replay(fuzzer)
        for source in PARSERS[fuzzer]:
            lines, branches = (summaries[source][kind]["percent"] for kind in ("lines", "branches"))
            rows.append(f"| `{source}` | {fuzzer} | {lines:.0f} % | {branches:.0f} % |")
            poor += [f"{source} by {fuzzer}: {lines:.1f} % of its lines"] * (lines < LEAST)
    print("\n".join(rows))
    if given.markdown:
        given.markdown.write_text("\n".join(rows) + "\n")
    if poor:
        sys.exit(f"less than {LEAST} %: " + "; ".join(poor))


if __name__ == "__main__":
    main()
