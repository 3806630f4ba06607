#!/usr/bin/python3
"""embed_page.py OUTPUT DIRECTORY: writes the C++ source that holds the files of the page, compressed.

index.html is served at "/", every other file under its own path. More than the page's budget ends the build.
"""

import gzip
import hashlib
import pathlib
import sys

BUDGET = 60 * 1024
MEDIA_TYPES = {
    ".html": "text/html; charset=utf-8",
    ".js": "text/javascript; charset=utf-8",
    ".css": "text/css; charset=utf-8",
    ".svg": "image/svg+xml",
    ".webmanifest": "application/manifest+json",
}

HEADER = """// Made by platform/console/embed_page.py.
#include "platform/console/page_files.h"

namespace KxNConsole {

namespace {

"""


def main():
    output, directory = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    text, records, total = HEADER, "", 0
    for index, file in enumerate(sorted(path for path in directory.rglob("*") if path.is_file())):
        content = file.read_bytes()
        compressed = gzip.compress(content, compresslevel=9, mtime=0)
        total += len(compressed)
        path = "/" + ("" if file.name == "index.html" else file.relative_to(directory).as_posix())
        tag = hashlib.sha256(content).hexdigest()[:24]
        numbers = ",".join(str(byte) for byte in compressed)
        text += f"constexpr unsigned char FILE_{index}[] = {{{numbers}}};\n"
        records += f'    {{"{path}", "{MEDIA_TYPES[file.suffix]}", asText(FILE_{index}), "\\"{tag}\\""}},\n'
    if total > BUDGET:
        sys.exit(f"{directory} takes {total} bytes compressed, more than {BUDGET}")
    text += f"""
template <std::size_t size>
std::string_view asText(const unsigned char (&bytes)[size]) {{
    return {{reinterpret_cast<const char*>(bytes), size}};
}}

}}  // namespace

std::span<const KxNTamberWebApi::StaticFile> pageFiles() {{
    static const KxNTamberWebApi::StaticFile files[] = {{
{records}    }};
    return files;
}}

}}  // namespace KxNConsole
"""
    output.write_text(text)
    print(f"{directory}: {total} bytes compressed")


if __name__ == "__main__":
    main()
