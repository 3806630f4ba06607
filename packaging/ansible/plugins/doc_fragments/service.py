from __future__ import absolute_import, division, print_function

__metaclass__ = type


class ModuleDocFragment:
    DOCUMENTATION = r"""
options:
  url:
    description: Where the service on the target answers, seen from the target.
    type: str
    default: http://127.0.0.1:8460
  token_file:
    description: File on the target that holds the token. Not read when O(token) is given.
    type: path
    default: /mnt/cfdrive/containers/api-token
  token:
    description: The token itself.
    type: str
  ca_path:
    description: File on the target with the CA that signed the service's certificate; without it the system's own CAs count.
    type: path
  validate_certs:
    description: Whether the service's certificate is checked.
    type: bool
    default: true
  timeout:
    description: Seconds without an answer after which a request has failed.
    type: int
    default: 660
requirements:
  - Korvex Container Service on the target
"""
