#!/usr/bin/python
from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
module: compose_file
short_description: Compose files of the container service, and their containers
description:
  - Puts a compose file in its place and brings its containers into the wanted state.
options:
  name:
    description: The file's name at the service.
    type: str
    required: true
  content:
    description: The file's text. Without it the file that the service has is used.
    type: str
  state:
    description:
      - V(present) only keeps the file. V(created) also creates its containers, V(started) starts them, V(stopped) stops them.
      - V(absent) removes containers and file.
    type: str
    default: started
    choices: [present, created, started, stopped, absent]
extends_documentation_fragment: korvex.container_service.service
author: Korvex Container Service maintainers (@korvex)
"""

EXAMPLES = r"""
- name: The line's web server runs
  korvex.container_service.compose_file:
    name: web.yml
    content: "{{ lookup('file', 'web.yml') }}"
"""

RETURN = r"""
messages:
  description: What the compose commands said that were run.
  returned: success
  type: list
  elements: str
"""

from ansible_collections.korvex.container_service.plugins.module_utils.service import Failure, read_text, run, segment

DIRECTORY = "/userstorage1/container_rte/utilities/compose-files/"
COMMANDS = {"created": ["create"], "started": ["create", "start"], "stopped": ["stop"]}


def command(service, name, verb, messages):
    """Runs one compose command. True when it changed something."""
    path = "/compose-files/%s/containers" % segment(name)
    result = service.request("DELETE", path) if verb == "remove" else service.request("POST", path + "/" + verb)
    messages.append(result[0]["Message"])
    return not messages[-1].startswith("Nothing to do")


def states(service, name):
    """The states of the containers that belong to the file."""
    found = []
    for container in service.get("/containers?all=true")["containers"]:
        details, status = service.request("GET", "/containers/" + container["Id"], accepted=(200, 404))
        if status == 200 and (details["Compose"] or {}).get("File") == name:
            found.append(details["State"]["Status"])
    return found


def would_change(service, name, state):
    now = states(service, name)
    if state == "created":
        return not now
    if state == "started":
        return not now or any(one != "running" for one in now)
    return state == "stopped" and "running" in now


def remove(service, name, before, check_mode, messages):
    changed = bool(before)
    if changed and not check_mode:
        command(service, name, "remove", messages)
        service.request("DELETE", "/compose-files/" + segment(name))
    return changed


def put(service, name, before, after, state, check_mode, messages):
    changed = after != before
    if check_mode:
        return changed or would_change(service, name, state)
    if changed:
        service.upload("/compose-files", name, after.encode(), len(after.encode()))
    for verb in COMMANDS.get(state, []):
        changed = command(service, name, verb, messages) or changed
    return changed


def work(module, service):
    name, state = module.params["name"], module.params["state"]
    if "/" in name or name in ("", ".", ".."):
        raise Failure("'%s' is not the name of a compose file" % name)
    messages = []
    before = read_text(DIRECTORY + name)
    after = "" if state == "absent" else before if module.params["content"] is None else module.params["content"]
    if state == "absent":
        changed = remove(service, name, before, module.check_mode, messages)
    elif not after:
        raise Failure("The service has no compose file '%s', and no content is given" % name)
    else:
        changed = put(service, name, before, after, state, module.check_mode, messages)
    return {"changed": changed, "messages": messages,
            "diff": {"before": before, "after": after, "before_header": name, "after_header": name}}


def main():
    run({
        "name": {"type": "str", "required": True},
        "content": {"type": "str"},
        "state": {"type": "str", "default": "started", "choices": ["present", "created", "started", "stopped", "absent"]},
    }, work)


if __name__ == "__main__":
    main()
