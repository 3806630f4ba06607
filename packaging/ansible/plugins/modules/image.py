#!/usr/bin/python
from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
module: image
short_description: Container images of the container service
description:
  - Loads an image archive that lies on the target, unless the image in it is there already, or removes an image.
options:
  archive:
    description: The archive on the target, as C(podman save) or C(docker save) writes it. Required when the image is to be present.
    type: path
  name:
    description: Name or id of the image to remove. Required when it is to be absent.
    type: str
  state:
    description: Whether the image is there.
    type: str
    default: present
    choices: [present, absent]
extends_documentation_fragment: korvex.container_service.service
author: Korvex Container Service maintainers (@korvex)
"""

EXAMPLES = r"""
- name: The archive is on the target
  ansible.builtin.copy:
    src: images/web.tar
    dest: /userstorage1/web.tar
    mode: "0600"

- name: Its image is loaded
  korvex.container_service.image:
    archive: /userstorage1/web.tar
"""

RETURN = r"""
names:
  description: The names of the images that the archive holds.
  returned: when an archive was given that says so
  type: list
  elements: str
"""

import json
import os
import tarfile

from ansible_collections.korvex.container_service.plugins.module_utils.service import Failure, run, segment


def images_in(archive):
    """What the archive says of its images: pairs of id and names. None for an archive of another format."""
    try:
        with tarfile.open(archive) as tar:
            manifest = json.load(tar.extractfile("manifest.json"))
            return [(os.path.basename(image["Config"]).split(".")[0], image["RepoTags"] or []) for image in manifest]
    except (KeyError, TypeError, tarfile.TarError, ValueError):
        return None


def is_there(images, wanted):
    """Whether every image of the archive is there under all of its names."""
    known = {image["Id"].split(":")[-1]: image["RepoTags"] or [] for image in images}
    return bool(wanted) and all(number in known and set(names) <= set(known[number]) for number, names in wanted)


def load(module, service):
    archive = module.params["archive"]
    if not os.path.isfile(archive):
        raise Failure("There is no archive '%s' on the target" % archive)
    wanted = images_in(archive)
    changed = not is_there(service.get("/images")["images"], wanted)
    if changed and not module.check_mode:
        with open(archive, "rb") as file:
            service.upload("/images", os.path.basename(archive), file, os.path.getsize(archive))
    names = [name for _, names in wanted or [] for name in names]
    return {"changed": changed, "names": names}


def remove(module, service):
    name = module.params["name"]
    tagged = name if ":" in name.rsplit("/", 1)[-1] else name + ":latest"
    changed = any(image["Id"].split(":")[-1].startswith(name) or tagged in (image["RepoTags"] or [])
                  for image in service.get("/images")["images"])
    if changed and not module.check_mode:
        service.request("DELETE", "/images/" + segment(name))
    return {"changed": changed}


def main():
    run({
        "archive": {"type": "path"},
        "name": {"type": "str"},
        "state": {"type": "str", "default": "present", "choices": ["present", "absent"]},
    }, lambda module, service: (load if module.params["state"] == "present" else remove)(module, service),
        required_if=[("state", "present", ["archive"]), ("state", "absent", ["name"])])


if __name__ == "__main__":
    main()
