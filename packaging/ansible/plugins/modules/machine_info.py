#!/usr/bin/python
"""Says what state a machine is in."""

DOCUMENTATION = r"""
module: machine_info
short_description: Say what state a machine is in
version_added: 1.0.0
description:
  - Runs C(ombry-doctor) on the host, which reads the state of the tool there and changes nothing.
author: The authors of Ombry
options:
  connect:
    description:
      - Ask the network, too, whether the service and its discovery servers answer, and with the key that is trusted.
      - Takes up to five seconds.
    type: bool
    default: false
requirements:
  - The package C(ombry-sec-client-config) on the host.
notes:
  - Run as root, so mostly with C(become=true).
attributes:
  check_mode:
    description: Changes nothing, and so does the same in check mode.
    support: full
  diff_mode:
    description: There is nothing to compare.
    support: none
seealso:
  - module: ombry.sec_client.bootstrap
  - module: ombry.sec_client.client
  - module: ombry.sec_client.service
"""

EXAMPLES = r"""
- name: Look at the machine
  ombry.sec_client.machine_info:
    connect: true
  register: machine

- name: Stop at a machine that is not well
  ansible.builtin.assert:
    that: machine.status in ['ok', 'warning']
    fail_msg: "{{ machine.problems | join('; ') }}"
"""

RETURN = r"""
status:
  description: The worst finding, as C(ok), C(warning) or C(critical).
  returned: success
  type: str
  sample: ok
address:
  description: The address of the service that the machine is tied to.
  returned: if there is one
  type: str
  sample: https://server1:8181/securityframeworkservice
datacenter:
  description: The id of its datacenter.
  returned: if there is one
  type: str
  sample: 5ad7b0c2-0001-4c00-8000-000000000001
fingerprint:
  description: SHA-256 of the certificate that the machine's trust begins with.
  returned: if there is one
  type: str
clients:
  description: The clients with credentials on the machine, whether these can be read there, and the ids of their services.
  returned: success
  type: dict
  sample: {"printer": {"readable": true, "services": {"v1-print": "296ec44c-ad9b-4924-baa5-8fc913dee60b"}}}
problems:
  description: What is not well, with a remedy to type, a line each.
  returned: success
  type: list
  elements: str
report:
  description: The whole document of C(ombry-doctor --json).
  returned: success
  type: dict
"""

from ansible.module_utils.basic import AnsibleModule

from ansible_collections.ombry.sec_client.plugins.module_utils.host import Host
from ansible_collections.ombry.sec_client.plugins.module_utils.plan import end
from ansible_collections.ombry.sec_client.plugins.module_utils.report import hints


def gather(params, host):
    if not host.check_mode:
        host.require_installed()
    report = host.report(connect=params["connect"])
    result = {"changed": False, "status": report.status, "report": report.document}
    for name in ("address", "datacenter", "fingerprint"):
        value = getattr(report, name)
        if value:
            result[name] = value
    result["clients"] = dict((name, {"readable": finding["severity"] == "success",
                                     "services": dict((service, record["pairs"].get("id"))
                                                      for service, record in report.services(name).items())})
                             for name, finding in report.clients.items())
    result["problems"] = hints(finding for finding in report.findings if finding["severity"] != "success")
    return result


def main():
    module = AnsibleModule(argument_spec={"connect": {"type": "bool", "default": False}}, supports_check_mode=True)
    end(module, lambda: gather(module.params, Host(module)))


if __name__ == "__main__":
    main()
