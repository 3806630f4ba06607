#!/usr/bin/python3
"""api_document.py OPENAPI-FILE [--check]: writes docs/api.md, and the table of roles in docs/security.md, from the
description that the program serves.

With --check nothing is written: it fails when one of them would change. The texts of the answers come from
docs/api-texts.json, whose words must stand in the source of the operations.
"""

import json
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
DOCUMENT = ROOT / "docs/api.md"
SECURITY = ROOT / "docs/security.md"
TEXTS = ROOT / "docs/api-texts.json"
SOURCES = ("handler", "api", "platform/container_runtime", "platform/console")  # what words an answer

INTRODUCTION = """# The API for people

Made by `scripts/lib/api_document.py` from the description that the service serves at `GET {base}/openapi.json`; edit
`api/schemas.cpp`, `platform/console/schemas.cpp` and `docs/api-texts.json` instead of this page.

All paths lie below `{base}`. Every request carries `Authorization: Bearer TOKEN`, or comes with a client certificate; each
operation names the role that it asks for ([security.md](security.md)), where "none" asks for nothing. An
error answers `application/problem+json` (RFC 9457): `{{"type", "title", "status", "detail"}}`; the tables give the
detail's text, with `{{name}}` and the like for what varies. Besides what stands below, any request may be answered by the
server itself:

| Status | Title | When |
|---|---|---|
| 400 | BadRequest | the request, a path parameter, a query parameter or the JSON text is malformed |
| 401 | Unauthorized | no token and no client certificate, or a wrong one |
| 403 | Forbidden | the role does not suffice ("The role 'viewer' may not do this"); or the Origin is foreign and there is no token; with `Auth = none` a foreign Host, too |
| 404, 405 | NotFound, MethodNotAllowed | no such path, or not with this method (`Allow` says which) |
| 408, 414, 431 | RequestTimeout, UriTooLong, RequestHeaderFieldsTooLarge | the header block is late, or too large; 408 also a body without a byte for 30 s, or an upload slower than 1 KiB/s over a minute |
| 429 | TooManyRequests | too many wrong tokens came from the client's address; `Retry-After` says for how long |
| 413, 415 | ContentTooLarge, UnsupportedMediaType | the body is too large, or of another type |
| 426 | UpgradeRequired | the log route without a WebSocket upgrade |
| 500 | InternalServerError | `Internal error`, or `Upload failed` when a part of an upload could not be stored |
| 503 | ServiceUnavailable | the service is ending, or all its threads are held up |
| 507 | InsufficientStorage | an upload needs more bytes than are free where it is stored; the detail has both numbers |

Operations marked with a G answer 500 `Container service is disabled` or `Container service is not started` while they
cannot work.
"""


def operations(description):
    for path, methods in description["paths"].items():
        for method, operation in methods.items():
            if method in ("get", "post", "put", "patch", "delete"):
                yield path, method.upper(), operation


def schema_name(content):
    for media_type, body in (content or {}).items():
        schema = body.get("schema", {})
        kind = schema.get("$ref", "").rsplit("/", 1)[-1] or schema.get("type", "")
        return f"`{media_type}`" + (f" {kind}" if kind else "")
    return ""


def describe(path, method, operation, texts):
    own = texts.get(operation["operationId"], {})
    lines = [f"\n### {method} {path}\n", f"{operation.get('summary', '')} (`{operation['operationId']}`"
             + (", G" if own.get("guarded") else "") + f"). Role: {operation['x-kx-role']}.\n"]
    for parameter in operation.get("parameters", []):
        lines.append(f"- `{parameter['name']}` ({parameter['in']}, {parameter['schema']['type']}): "
                     f"{parameter.get('description', '')}")
    if "requestBody" in operation:
        lines.append(f"- body: {' or '.join(f'`{kind}`' for kind in operation['requestBody']['content'])}")
    lines += ["", "| Status | What |", "|---|---|"]
    for status, answer in operation["responses"].items():
        if "$ref" in answer:
            continue  # the server's own: in the table above
        details = "".join(f"<br>`{text}`" for text in own.get(status, []))
        content = schema_name(answer.get("content")) if status.startswith("2") else ""
        lines.append(f"| {status} | {answer['description']}{': ' + content if content else ''}{details} |")
    return "\n".join(lines) + "\n"


def role_table(description):
    """Which operations ask for which role, as a table."""
    by_role = {}
    for _, _, operation in operations(description):
        by_role.setdefault(operation["x-kx-role"], []).append(operation["operationId"])
    rows = [f"| {role} | {', '.join(by_role.get(role, [])) or '-'} |" for role in ("viewer", "operator", "administrator", "none")]
    return "\n".join(["| Role | Operations |", "|---|---|", *rows])


def with_role_table(text, table):
    """The text with the table between its marks."""
    begin, end = "<!-- roles: made by scripts/lib/api_document.py -->\n", "<!-- end of roles -->"
    before, rest = text.split(begin)
    return before + begin + "\n" + table + "\n\n" + end + rest.split(end)[1]


def is_said(words, literals, runs=3):
    """Whether the words stand in the literals, in a few runs at most: families of operations put texts together."""
    if not words:
        return True
    end = next((end for end in range(len(words), 0, -1) if " ".join(words[:end]) in literals), 0)
    return end > 0 and runs > 0 and is_said(words[end:], literals, runs - 1)


def check_texts(description, texts):
    """Every operation that is described is there, and what the texts say stands in the source."""
    known = {operation["operationId"]: operation for _, _, operation in operations(description)}
    code = "".join(path.read_text() for folder in SOURCES for path in (ROOT / folder).rglob("*.[ch]*"))
    code = re.sub(r'"\s*\n\s*"', "", code)  # as the compiler joins them
    literals = "\n".join(re.findall(r'"((?:[^"\\\n]|\\.)*)"', code))
    for name, own in texts.items():
        for status, details in own.items():
            if status == "guarded":
                continue
            assert status in known[name]["responses"], f"{name} does not answer {status}"
            for piece in [piece for text in details for piece in re.split(r"\{[^}]*\}|'", text)]:
                assert is_said(piece.split(), literals), f"no operation says {piece!r}"


def main():
    description = json.loads(pathlib.Path(sys.argv[1]).read_text())
    texts = json.loads(TEXTS.read_text())
    check_texts(description, texts)
    sections = {}
    for path, method, operation in operations(description):
        sections.setdefault(operation["tags"][0], []).append(describe(path, method, operation, texts))
    text = INTRODUCTION.format(base=description["servers"][0]["url"])
    for tag, parts in sections.items():
        text += f"\n## {tag.replace('-', ' ').capitalize()}\n" + "".join(parts)
    security = with_role_table(SECURITY.read_text(), role_table(description))
    for path, made in ((DOCUMENT, text), (SECURITY, security)):
        if "--check" not in sys.argv:
            path.write_text(made)
        elif path.read_text() != made:
            sys.exit(f"{path} is out of date: run {sys.argv[0]} {sys.argv[1]}")


if __name__ == "__main__":
    main()
