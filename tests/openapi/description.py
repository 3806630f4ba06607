"""Checks answers against the API's own description."""

import json
import re
import urllib.parse

import jsonschema

PLACEHOLDER = re.compile(r"\{[a-z]+\}")
# A request that the server itself refuses is answered the same way everywhere; the document need not repeat it.
EVERYWHERE = {401, 403, 404, 405, 408, 413, 414, 431, 503}


class Description:
    """An OpenAPI document as a judge of answers."""

    def __init__(self, document, base):
        self.document = document
        self.base = base
        self.routes = [(re.compile("/".join("[^/]*" if PLACEHOLDER.fullmatch(part) else re.escape(part)
                                            for part in route.split("/"))), route) for route in document["paths"]]

    def operation(self, method, path):
        """The description of an operation; none for a path that only the escape of a trailing placeholder reaches."""
        path = urllib.parse.urlsplit(path).path.removeprefix(self.base)
        for pattern, route in sorted(self.routes, key=lambda item: item[1].count("{")):
            if pattern.fullmatch(path):
                return self.document["paths"][route].get(method.lower())
        return None

    def resolve(self, node):
        while "$ref" in node:
            target = self.document
            for part in node["$ref"].removeprefix("#/").split("/"):
                target = target[part]
            node = target
        return node

    def check(self, method, path, answer):
        operation = self.operation(method, path)
        if operation is None or "2XX" in operation["responses"]:
            return  # nothing is said about this operation's own answers
        described = operation["responses"].get(str(answer.status))
        if described is None:
            assert answer.status in EVERYWHERE, f"{method} {path} answers {answer.status}, which is not described"
            return
        content = self.resolve(described).get("content")
        if not content:
            assert answer.body == b"", f"{method} {path} answers {answer.status} with a body, which is not described"
            return
        kind = answer.headers["Content-Type"]
        assert kind in content, f"{method} {path} answers {answer.status} as {kind}, which is not described"
        schema = {**content[kind]["schema"], "components": self.document["components"]}
        value = answer.body.decode() if kind.startswith("text/") else json.loads(answer.body)
        jsonschema.Draft202012Validator(schema).validate(value)
