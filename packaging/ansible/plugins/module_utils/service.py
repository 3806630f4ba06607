"""Talks to the Korvex Container Service on the target that a module runs on."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

import http.client
import json
import os
import ssl
from urllib.parse import quote, urlsplit

from ansible.module_utils.basic import AnsibleModule

BASE = "/api/cre/v1.0"
ARGUMENTS = {
    "url": {"type": "str", "default": "http://127.0.0.1:8460"},
    "token_file": {"type": "path", "default": "/mnt/cfdrive/containers/api-token"},
    "token": {"type": "str", "no_log": True},
    "ca_path": {"type": "path"},
    "validate_certs": {"type": "bool", "default": True},
    "timeout": {"type": "int", "default": 660},
}


class Failure(Exception):
    """Something that the operator is told."""


class Service:
    def __init__(self, parameters):
        self.url = urlsplit(parameters["url"])
        self.timeout = parameters["timeout"]
        self.token = parameters["token"]
        if not self.token:
            try:
                with open(parameters["token_file"]) as file:
                    self.token = file.read().strip()
            except OSError as error:
                raise Failure("Cannot read the token: %s. Does the service run on this target?" % error)
        self.context = None
        if self.url.scheme == "https":
            self.context = ssl.create_default_context(cafile=parameters["ca_path"])
            if not parameters["validate_certs"]:
                self.context.check_hostname = False
                self.context.verify_mode = ssl.CERT_NONE

    def request(self, method, path, body=None, headers=None, accepted=(200, 201, 204, 304)):
        """The answer's JSON value (None without one) and its status. Any other status than those accepted is a Failure."""
        headers = dict(headers or {}, Authorization="Bearer " + self.token)
        if isinstance(body, dict):
            body = json.dumps(body)
            headers["Content-Type"] = "application/json"
        try:
            if self.context:
                connection = http.client.HTTPSConnection(self.url.netloc, timeout=self.timeout, context=self.context)
            else:
                connection = http.client.HTTPConnection(self.url.netloc, timeout=self.timeout)
            try:
                connection.request(method, BASE + path, body, headers)
                answer = connection.getresponse()
                text = answer.read()
            finally:
                connection.close()
        except (OSError, http.client.HTTPException) as error:
            raise Failure("The service at %s cannot be reached: %s" % (self.url.geturl(), error))
        value = json.loads(text) if "json" in answer.headers.get("Content-Type", "") else None
        if answer.status not in accepted:
            raise Failure("%s %s: %d %s" % (method, path, answer.status, (value or {}).get("detail", "")))
        return value, answer.status

    def get(self, path):
        return self.request("GET", path)[0]

    def upload(self, path, name, body, size):
        """Sends `body`, text or an open file of `size` bytes, as the file `name`."""
        return self.request("POST", path, body, {
            "Content-Type": "application/octet-stream",
            "Content-Length": str(size),
            "Content-Disposition": "attachment; filename*=UTF-8''" + quote(name, safe=""),
        })[0]


def read_text(path):
    """The text of a file on the target; empty when there is none."""
    try:
        with open(path, encoding="utf-8", errors="surrogateescape") as file:
            return file.read()
    except FileNotFoundError:
        return ""


def same_contents(path, other):
    """Whether two files hold the same bytes. False when one is not there."""
    try:
        if os.path.getsize(path) != os.path.getsize(other):
            return False
        with open(path, "rb") as one, open(other, "rb") as two:
            while True:
                piece = one.read(1 << 20)
                if piece != two.read(1 << 20):
                    return False
                if not piece:
                    return True
    except FileNotFoundError:
        return False


def segment(name):
    """`name` as one segment of a path."""
    return quote(name, safe="")


def run(arguments, work, connects=True, **options):
    """Runs a module: `work(module, service)` gives its results. `arguments` are its own; with `connects` also those of the service."""
    module = AnsibleModule(argument_spec=dict(ARGUMENTS if connects else {}, **arguments), supports_check_mode=True, **options)
    try:
        module.exit_json(**work(module, Service(module.params) if connects else None))
    except (Failure, OSError, ValueError) as error:
        module.fail_json(msg=str(error))
