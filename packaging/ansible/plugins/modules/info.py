#!/usr/bin/python
from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
module: info
short_description: What the container service of a target says of itself
description:
  - Gathers settings, health, containers, images, compose files, plugins and TLS files. Changes nothing.
extends_documentation_fragment: korvex.container_service.service
author: Korvex Container Service maintainers (@korvex)
"""

EXAMPLES = r"""
- name: What is there
  korvex.container_service.info:
  register: target

- name: Containers that do not run
  ansible.builtin.debug:
    msg: "{{ target.containers | rejectattr('State', 'eq', 'running') | map(attribute='Names') | list }}"
"""

RETURN = r"""
settings:
  description: As C(GET /settings) answers, with C(enabled).
  returned: success
  type: dict
health:
  description: As C(GET /health) answers.
  returned: success
  type: dict
containers:
  description: All containers, as C(GET /containers) lists them.
  returned: success
  type: list
  elements: dict
images:
  description: As C(GET /images) lists them.
  returned: success
  type: list
  elements: dict
compose_files:
  description: As C(GET /compose-files) lists them.
  returned: success
  type: list
  elements: dict
plugins:
  description: As C(GET /plugins) lists them.
  returned: success
  type: list
  elements: dict
certificates:
  description: As C(GET /certs) lists them.
  returned: success
  type: list
  elements: dict
"""

from ansible_collections.korvex.container_service.plugins.module_utils.service import run


def work(_module, service):
    return {
        "changed": False,
        "settings": dict(service.get("/settings"), **service.get("/settings/enable")),
        "health": service.request("GET", "/health", accepted=(200, 503))[0],
        "containers": service.get("/containers?all=true")["containers"],
        "images": service.get("/images")["images"],
        "compose_files": service.get("/compose-files"),
        "plugins": service.get("/plugins")["plugins"],
        "certificates": service.get("/certs")["certs"],
    }


def main():
    run({}, work)


if __name__ == "__main__":
    main()
