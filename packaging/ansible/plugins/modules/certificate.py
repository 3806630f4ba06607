#!/usr/bin/python
from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
module: certificate
short_description: TLS files of the container service
description:
  - Puts a TLS file in its place, or takes it away. A running service uses a renewed pair for new connections at once; the
    first pair, and the end of TLS, count from its next start on.
options:
  kind:
    description: Which of the files.
    type: str
    required: true
    choices: [certificate, private-key, ca-certificate]
  content:
    description: The file's text in PEM. Required when it is to be present.
    type: str
  state:
    description: Whether the file is there.
    type: str
    default: present
    choices: [present, absent]
extends_documentation_fragment: korvex.container_service.service
author: Korvex Container Service maintainers (@korvex)
"""

EXAMPLES = r"""
- name: The target's certificate
  korvex.container_service.certificate:
    kind: certificate
    content: "{{ lookup('file', 'tls/' + inventory_hostname + '.crt') }}"
"""

RETURN = r""" # """

from ansible_collections.korvex.container_service.plugins.module_utils.service import read_text, run

DIRECTORY = "/mnt/cfdrive/containers/certs/"
FILES = {"certificate": "server.crt", "private-key": "server.key", "ca-certificate": "ca.crt"}


def work(module, service):
    kind = module.params["kind"]
    name = FILES[kind]
    before = read_text(DIRECTORY + name)
    after = module.params["content"].rstrip("\n") + "\n" if module.params["state"] == "present" else ""
    changed = after != before
    if changed and not module.check_mode:
        if after:
            service.upload("/certs/" + kind, name, after.encode(), len(after.encode()))
        else:
            service.request("DELETE", "/certs/" + kind)
    shown = {"before": before, "after": after} if kind != "private-key" else {"before": "a key\n", "after": "another key\n" if changed else "a key\n"}
    return {"changed": changed, "diff": dict(shown, before_header=name, after_header=name)}


def main():
    run({
        "kind": {"type": "str", "required": True, "choices": sorted(FILES)},
        "content": {"type": "str", "no_log": True},
        "state": {"type": "str", "default": "present", "choices": ["present", "absent"]},
    }, work, required_if=[("state", "present", ["content"])])


if __name__ == "__main__":
    main()
