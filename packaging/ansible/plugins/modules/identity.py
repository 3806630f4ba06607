#!/usr/bin/python
from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
module: identity
short_description: Who may use the container service of a target, and as what
description:
  - Keeps the identities of a target by its tool C(kx-container-admin). The service follows within a second.
options:
  name:
    description: Letters, digits and C(._-@), 64 at most.
    type: str
    required: true
  role:
    description: What the identity may do. Required when it is to be present. One that has another role is made anew, with another token.
    type: str
    choices: [viewer, operator, administrator]
  expires:
    description: Days until it ends. Only for an identity that is made.
    type: int
  certificate:
    description: Subject of the client certificate that it comes with, instead of a token.
    type: str
  state:
    description: Whether the identity is there.
    type: str
    default: present
    choices: [present, absent]
author: Korvex Container Service maintainers (@korvex)
"""

EXAMPLES = r"""
- name: The monitoring screen may look
  korvex.container_service.identity:
    name: screen
    role: viewer
  register: screen
  no_log: true
"""

RETURN = r"""
token:
  description: The token of an identity that was made. It is told this once.
  returned: when one was made without a certificate
  type: str
"""

import json

from ansible_collections.korvex.container_service.plugins.module_utils.service import Failure, run

TOOL = "kx-container-admin"


def call(module, *words):
    code, output, errors = module.run_command([module.get_bin_path(TOOL, required=True, opt_dirs=["/usr/sbin"]), "identity"] + list(words))
    if code != 0:
        raise Failure(errors.strip() or output.strip())
    return output


def make(module):
    words = ["add", module.params["name"], "--role", module.params["role"]]
    if module.params["expires"] is not None:
        words += ["--expires", str(module.params["expires"])]
    if module.params["certificate"]:
        words += ["--certificate", module.params["certificate"]]
    output = call(module, *words)
    return {} if module.params["certificate"] else {"token": output.split()[-1]}


def work(module, _service):
    name, certificate = module.params["name"], module.params["certificate"]
    found = [one for one in json.loads(call(module, "list", "--json"))["identities"] if one["name"] == name]
    fits = bool(found) and found[0]["role"] == module.params["role"] and found[0].get("certificateSubject") == certificate
    wanted = module.params["state"] == "present"
    results = {"changed": not fits if wanted else bool(found)}
    if results["changed"] and not module.check_mode:
        if found:
            call(module, "remove", name)
        if wanted:
            results.update(make(module))
    before = {"role": found[0]["role"]} if found else {}
    return dict(results, diff={"before": before, "after": {"role": module.params["role"]} if wanted else {}})


def main():
    run({
        "name": {"type": "str", "required": True},
        "role": {"type": "str", "choices": ["viewer", "operator", "administrator"]},
        "expires": {"type": "int"},
        "certificate": {"type": "str"},
        "state": {"type": "str", "default": "present", "choices": ["present", "absent"]},
    }, work, connects=False, required_if=[("state", "present", ["role"])])


if __name__ == "__main__":
    main()
