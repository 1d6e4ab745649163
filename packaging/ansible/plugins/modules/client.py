#!/usr/bin/python
"""Enrols a client on a machine."""

DOCUMENTATION = r"""
module: client
short_description: Enrol a client of a Security Framework service on a machine
version_added: 1.0.0
description:
  - Makes a client at the service, whose id and secret are made on the host and kept there, enciphered.
author: The authors of Ombry
options:
  name:
    description:
      - The client's name on the host.
    type: str
    required: true
  state:
    description:
      - C(present) enrols the client if it has no credentials on the host, or some that cannot be deciphered there.
      - C(absent) removes its services and itself at the service, and what the host has of them.
    type: str
    choices: [present, absent]
    default: present
  description:
    description:
      - What the service is told of the client. It is told when it is enrolled, and not compared afterwards.
    type: str
  rotate:
    description:
      - Replace the client by one with another id and another secret. Each such run changes something.
      - Its services are registered for the client that was, until they are registered anew; see I(renew) of
        M(ombry.sec_client.service).
    type: bool
    default: false
  rotate_before:
    description:
      - Replace the client if its credentials were made before this moment, as C(2026-11-22T15:30:00Z), by the host's clock.
      - A rotation that a part of the hosts has missed is completed by the same run once more, which leaves the others alone.
    type: str
extends_documentation_fragment:
  - ombry.sec_client.identity
  - ombry.sec_client.identity.acting_client
notes:
  - What the host has is compared, not what the service has. A client that the service has forgotten looks well here.
  - Before something is changed the module asks whether there is room on the disk and whether the service answers. A
    client that is enrolled and cannot be saved would stay at the service with a secret that nobody knows.
requirements:
  - The package C(ombry-sec-client-config) on the host.
seealso:
  - module: ombry.sec_client.bootstrap
  - module: ombry.sec_client.service
"""

EXAMPLES = r"""
- name: Enrol the printer
  ombry.sec_client.client:
    name: printer
    description: First floor
    token: "{{ install_token }}"

- name: Give every printer a new secret by Sunday's date, whichever run reaches it
  ombry.sec_client.client:
    name: printer
    rotate_before: "2026-11-22T00:00:00Z"
    token: "{{ install_token }}"

- name: Let the printer remove itself and its services
  ombry.sec_client.client:
    name: printer
    state: absent
    acting_client: printer
"""

RETURN = r"""
client:
  description: The client's name.
  returned: success
  type: str
  sample: printer
commands:
  description: The commands that were run, or that a run would run, without secrets.
  returned: success
  type: list
  elements: str
  sample: [enroll-client printer]
rc:
  description: The exit code of the tool.
  returned: if it failed
  type: int
stderr:
  description: Its text, whole but for tokens.
  returned: if it failed
  type: str
hints:
  description: What the doctor advises against it.
  returned: if it failed
  type: list
  elements: str
"""

import re
from datetime import datetime, timezone

from ansible.module_utils.basic import AnsibleModule

from ansible_collections.ombry.sec_client.plugins.module_utils import identity, registration
from ansible_collections.ombry.sec_client.plugins.module_utils.host import (
    KEYS, Failure, Host, caches, component, require_name)
from ansible_collections.ombry.sec_client.plugins.module_utils.plan import Plan, end
from ansible_collections.ombry.sec_client.plugins.module_utils.report import hints

# With these a client can be enrolled, but not be saved, or not be read by who needs it.
IN_THE_WAY = ("key-damaged", "key-not-private", "key-out-of-reach", "no-file")


def nanoseconds(moment):
    # Written without quotes it is a moment to YAML, too, which comes here as Python writes it.
    found = re.match(r"^(\d{4}-\d\d-\d\d)[T ](\d\d:\d\d:\d\d)(?:\.(\d{1,9}))?(?:Z|\+00:00)$", moment)
    try:
        whole = datetime.strptime("%s %s" % found.group(1, 2), "%Y-%m-%d %H:%M:%S").replace(tzinfo=timezone.utc)
    except (AttributeError, ValueError):
        raise Failure("rotate_before is no moment such as 2026-11-22T15:30:00Z: '%s'" % moment)
    return int(whole.timestamp()) * 10 ** 9 + int((found.group(3) or "").ljust(9, "0"))


def is_due(params, host, finding):
    if params["rotate"] or not params["rotate_before"]:
        return params["rotate"]
    made = host.modified(finding["pairs"]["path"])
    return made is not None and made < nanoseconds(params["rotate_before"])


def is_lost_key(host, finding):
    """The one thing that an enrolment mends: it makes another key, as the doctor advises. A finding that names anything
    beside the key's path is of something else, such as the machine's identity."""
    return set(finding["pairs"]) == {"path"} and not host.exists(finding["pairs"]["path"]) \
        and "enroll-client" in (finding["remedy"] or "")


def why_not(host, report, finding):
    """What has to be mended before the client can be enrolled, or None."""
    if finding and finding["pairs"].get("cause") in IN_THE_WAY:
        return finding
    return next((wrong for wrong in report.bad("clients.key") if not is_lost_key(host, wrong)), None)


def tokens(params):
    """Those of the client that it was would be used, and refused, while they are young."""
    return params["name"] + "/aa_token"


def enroll(params, host, report):
    host.remove_cached(report, tokens(params))
    words = ["enroll-client"] + identity.words(params) + ["-nn", params["name"]]
    host.run(words + (["-desc", params["description"]] if params["description"] else []))


def plan_present(params, host, report):
    finding = report.clients.get(params["name"])
    is_there = finding is not None and finding["severity"] == "success"
    before = {}
    if finding:
        before = {"client": params["name"], "credentials": "there" if is_there else "not readable"}
    plan = Plan(before, {"client": params["name"], "credentials": "new"})
    if is_there and not is_due(params, host, finding):
        return plan
    obstacle = why_not(host, report, finding)
    if obstacle:
        raise Failure("%s. Nothing was changed" % obstacle["message"], hints=hints([obstacle]))
    if params["acting_client"] == params["name"]:
        raise Failure("A client cannot enrol itself anew: it is removed first, and may do nothing then")
    registration.require_identity(params, host, report)
    registration.require_places(params, report, component(report, params["name"]), "%s/%s" % (report.state, KEYS),
                                "%s/%s" % (caches(report), params["name"]))
    host.require_removable(report, tokens(params))
    host.require_room(report.state)
    registration.require_service(host, report)
    if finding and not is_there:
        host.warn("The service keeps the client that these credentials were of, until its administrator removes it there")
    plan.add("enroll-client " + params["name"], lambda: enroll(params, host, report))
    return plan


def remove(params, host):
    if params["acting_client"] == params["name"]:
        host.run(["unenroll-client-self", "-n", params["name"]])
    else:
        host.run(["unenroll-client"] + identity.words(params) + ["-un", params["name"]])


def forget(params, host, report):
    """What the tool leaves here of a client that is gone, and notes of services that were removed by the tool itself."""
    host.remove_cached(report, params["name"])
    folder = component(report, params["name"])
    for path in report.leftovers:
        if path.startswith(folder + "/"):
            host.remove(path)
    for name in host.names(folder + "/Services"):
        if name.endswith(registration.NOTE):
            host.remove("%s/Services/%s" % (folder, name))
    host.remove_empty(folder + "/Services", folder)


def plan_absent(params, host, report):
    name = params["name"]
    finding = report.clients.get(name)
    services = report.services(name)
    before = {}
    if finding or services:
        before = {"client": name, "services": sorted(services)}
    elif host.cached(report, name):
        before = {"client": name, "caches": "left"}
    plan = Plan(before, {})
    if finding or services:
        plan_unenrollment(plan, params, host, report, finding, services)
    if before:
        plan.add(None, lambda: forget(params, host, report))
    return plan


def plan_unenrollment(plan, params, host, report, finding, services):
    for bad in ([finding] if finding else []) + list(services.values()):
        if bad["severity"] == "error":
            raise Failure("The service cannot be told to remove it: %s. Have it removed there by its administrator"
                          % bad["message"], hints=hints([bad]))
    registration.require_identity(params, host, report)
    registration.require_places(params, report)
    host.require_removable(report, params["name"])
    registration.require_service(host, report)
    for service in sorted(services):
        registration.plan_removal(plan, params, host, report, params["name"], service)
    if finding:
        plan.add("unenroll-client %s" % params["name"], lambda: remove(params, host))


def decide(params, host, report):
    require_name(params["name"], "client")
    if params["rotate_before"]:
        nanoseconds(params["rotate_before"])
    return (plan_present if params["state"] == "present" else plan_absent)(params, host, report)


def client(params, host, check):
    with host.alone():
        plan = decide(params, host, host.report())
        result = dict(plan.result(), client=params["name"])
        if not check and not plan.is_empty:
            plan.carry_out()
            left = host.report().clients.get(params["name"])
            if params["state"] == "absent" and left:
                raise Failure("The tool was content, but credentials of %s are still there" % params["name"])
            if params["state"] == "present" and not (left and left["severity"] == "success"):
                raise Failure("The tool was content, but there are no credentials of %s that can be read" % params["name"],
                              hints=hints([left] if left else []))
        return result


def main():
    options = dict(identity.arguments(), name={"type": "str", "required": True}, description={"type": "str"},
                   state={"type": "str", "choices": ["present", "absent"], "default": "present"},
                   rotate={"type": "bool", "default": False}, rotate_before={"type": "str"})
    module = AnsibleModule(argument_spec=options, supports_check_mode=True,
                           mutually_exclusive=identity.mutually_exclusive(),
                           required_together=identity.REQUIRED_TOGETHER)
    end(module, lambda: client(module.params, Host(module), module.check_mode))


if __name__ == "__main__":
    main()
