#!/usr/bin/python
from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
module: plugin
short_description: Container runtime plugins of the container service
description:
  - Installs, activates, deactivates or deletes a plugin. All of that counts from the target's next boot on.
options:
  file:
    description: The plugin on the target, C(NAME_VERSION.crp); a bare file name is enough for a plugin that is there.
    type: path
    required: true
  active:
    description: Whether the plugin is active. Left as it is when not given.
    type: bool
  state:
    description: Whether the plugin is there.
    type: str
    default: present
    choices: [present, absent]
extends_documentation_fragment: korvex.container_service.service
author: Korvex Container Service maintainers (@korvex)
"""

EXAMPLES = r"""
- name: A plugin is installed but not loaded
  korvex.container_service.plugin:
    file: /userstorage1/metrics_1.2.crp
    active: false
"""

RETURN = r""" # """

import os

from ansible_collections.korvex.container_service.plugins.module_utils.service import Failure, run, same_contents, segment

DIRECTORY = "/userstorage1/container_rte/plugins/"


def work(module, service):
    file, active = module.params["file"], module.params["active"]
    name = os.path.basename(file)
    found = [plugin for plugin in service.get("/plugins")["plugins"] if plugin["fileName"] == name]
    before = {"present": bool(found), "active": bool(found) and not found[0]["isDeactivated"]}
    if module.params["state"] == "absent":
        if found and not module.check_mode:
            service.request("DELETE", "/plugins/" + segment(name))
        return {"changed": bool(found), "diff": {"before": before, "after": {"present": False, "active": False}}}

    has_file = os.path.dirname(file) != "" and os.path.isfile(file)
    if not found and not has_file:
        raise Failure("There is no plugin '%s' on the target" % file)
    changed = has_file and not same_contents(file, DIRECTORY + name)
    if changed and not module.check_mode:
        with open(file, "rb") as content:
            service.upload("/plugins", name, content, os.path.getsize(file))
        found = [plugin for plugin in service.get("/plugins")["plugins"] if plugin["fileName"] == name]
    was_active = not found or not found[0]["isDeactivated"]
    if active is not None and active != was_active:
        changed = True
        if not module.check_mode:
            service.request("PUT", "/plugins/%s/activate?pluginVersion=%s" % (segment(found[0]["name"]), segment(found[0]["version"])),
                            {"activate": active})
    after = {"present": True, "active": was_active if active is None else active}
    return {"changed": changed, "diff": {"before": before, "after": after}}


def main():
    run({
        "file": {"type": "path", "required": True},
        "active": {"type": "bool"},
        "state": {"type": "str", "default": "present", "choices": ["present", "absent"]},
    }, work)


if __name__ == "__main__":
    main()
