#!/usr/bin/python
from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
module: settings
short_description: Settings of the container service
description:
  - Changes what the service keeps in its settings. What is not named stays.
options:
  tcp_port:
    description: TCP port of Podman where it is reached by TCP.
    type: int
  cores_num:
    description: CPUs that containers may use; 0 for all.
    type: int
  enabled:
    description: Whether the container service is enabled.
    type: bool
extends_documentation_fragment: korvex.container_service.service
author: Korvex Container Service maintainers (@korvex)
"""

EXAMPLES = r"""
- name: Containers get two cores
  korvex.container_service.settings:
    cores_num: 2
"""

RETURN = r"""
settings:
  description: The settings as they are now, or would be.
  returned: success
  type: dict
"""

from ansible_collections.korvex.container_service.plugins.module_utils.service import run


def work(module, service):
    now = service.get("/settings")
    before = {"tcp_port": now["tcp_port"], "cores_num": now["cores_num"], "enabled": service.get("/settings/enable")["enabled"]}
    wanted = {key: module.params[key] for key in before if module.params[key] is not None}
    changes = {key: value for key, value in wanted.items() if value != before[key]}
    after = dict(before, **changes)
    if not module.check_mode:
        enabled = changes.pop("enabled", None)
        if changes:
            service.request("PATCH", "/settings", changes)
        if enabled is not None:
            service.request("PATCH", "/settings/enable", {"enabled": enabled})
    return {"changed": after != before, "settings": after, "diff": {"before": before, "after": after}}


def main():
    run({"tcp_port": {"type": "int"}, "cores_num": {"type": "int"}, "enabled": {"type": "bool"}}, work)


if __name__ == "__main__":
    main()
