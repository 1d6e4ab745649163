#!/usr/bin/python
"""Enrols a service of a client."""

DOCUMENTATION = r"""
module: service
short_description: Enrol a service of a client with a Security Framework service
version_added: 1.0.0
description:
  - Registers a service that a client of this host owns, so that others find it.
author: The authors of Ombry
options:
  name:
    description:
      - The service's name.
    type: str
    required: true
  client:
    description:
      - The client that owns it, which is enrolled on this host.
    type: str
    required: true
  state:
    description:
      - C(present) registers the service if the host has no record of it, if it was registered as something else than what
        is asked for here or by somebody else than this module, or for a client that was replaced since.
      - C(absent) removes the service that the host has a record of.
    type: str
    choices: [present, absent]
    default: present
  url:
    description:
      - Where the service is called.
    type: str
  namespace:
    description:
      - Its namespace.
    type: str
  hostname:
    description:
      - The host that it is registered for.
    type: str
  renew:
    description:
      - Register the service anew in any case. Give it what the task of its client has told, as in the example, so that
        check mode foresees what a rotation of the client brings.
    type: bool
    default: false
extends_documentation_fragment:
  - ombry.sec_client.identity
  - ombry.sec_client.identity.acting_client
notes:
  - What a service was registered as is kept beside the tool's record of it, in C(SERVICE.registration.json).
requirements:
  - The package C(ombry-sec-client-config) on the host.
seealso:
  - module: ombry.sec_client.client
"""

EXAMPLES = r"""
- name: Enrol the printer
  ombry.sec_client.client:
    name: printer
    token: "{{ install_token }}"
  register: printer

- name: Register what it serves, as the printer itself
  ombry.sec_client.service:
    name: v1-print
    client: printer
    url: https://printer:9443/print
    namespace: Office
    hostname: printer
    acting_client: printer
    renew: "{{ printer is changed }}"

- name: Take it back
  ombry.sec_client.service:
    name: v1-print
    client: printer
    acting_client: printer
    state: absent
"""

RETURN = r"""
id:
  description: The id of the registration.
  returned: if the host has a record of it
  type: str
  sample: 296ec44c-ad9b-4924-baa5-8fc913dee60b
commands:
  description: The commands that were run, or that a run would run, without secrets.
  returned: success
  type: list
  elements: str
  sample: [enroll-service printer v1-print]
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

from ansible.module_utils.basic import AnsibleModule

from ansible_collections.ombry.sec_client.plugins.module_utils import identity, registration
from ansible_collections.ombry.sec_client.plugins.module_utils.host import Failure, Host, component, require_name
from ansible_collections.ombry.sec_client.plugins.module_utils.plan import Plan, end
from ansible_collections.ombry.sec_client.plugins.module_utils.report import hints

PLACE = ("namespace", "hostname")


def wanted(params):
    return dict((name, params[name]) for name in ("url",) + PLACE)


def known(host, record):
    """What the record was registered as; None if somebody else than this module did it."""
    if record is None or "id" not in record["pairs"]:
        return None
    note = host.read_json(registration.note_path(record))
    if not isinstance(note, dict) or note.pop("id", None) != record["pairs"]["id"]:
        return None
    return note


def is_of_replaced_client(host, report, client, record):
    credentials = report.clients.get(client)
    made = host.modified(credentials["pairs"]["path"]) if credentials else None
    registered = host.modified(record["pairs"]["path"])
    return made is not None and registered is not None and registered < made


def enroll(params, host, report):
    host.remove_cached(report, registration.searches(params))
    host.run(["enroll-service"] + identity.words(params)
             + ["-owner", params["client"], "-name", params["name"], "-url", params["url"],
                "-namespace", params["namespace"], "-hostname", params["hostname"]])
    record = host.report().services(params["client"]).get(params["name"])
    if not record or record["severity"] != "success":
        raise Failure("The tool was content, but there is no good record of %s" % params["name"],
                      hints=hints([record] if record else []))
    host.write_json(registration.note_path(record), dict(wanted(params), id=record["pairs"]["id"]))


def plan_present(params, host, report):
    record = report.services(params["client"]).get(params["name"])
    was = known(host, record)
    is_good = record is not None and record["severity"] == "success"
    before = {}
    if record:
        before = dict({"client": params["client"], "service": params["name"]}, **(was or {"url": "not known"}))
    plan = Plan(before, dict(wanted(params), client=params["client"], service=params["name"]))
    is_stale = is_good and (params["renew"] or is_of_replaced_client(host, report, params["client"], record))
    if is_good and was == wanted(params) and not is_stale:
        return plan
    if is_stale:
        plan.before = dict(before, registration="old")
        plan.after["registration"] = "new"
    registration.require_identity(params, host, report, owner=params["client"])
    registration.require_places(params, report, component(report, params["client"]))
    host.require_removable(report, registration.searches(params))
    host.require_room(report.state)
    registration.require_service(host, report)
    # The one of the same name, namespace and host goes by itself; another would be out of this host's reach.
    if record and record["pairs"].get("id") and (was is None or any(was.get(part) != params[part] for part in PLACE)):
        registration.plan_removal(plan, params, host, report, params["client"], params["name"])
    plan.add("enroll-service %s %s" % (params["client"], params["name"]), lambda: enroll(params, host, report))
    return plan


def plan_absent(params, host, report):
    record = report.services(params["client"]).get(params["name"])
    if record is None:
        return Plan({}, {})
    plan = Plan({"client": params["client"], "service": params["name"]}, {})
    if record["severity"] == "error":
        raise Failure("The service cannot be told to remove it: %s" % record["message"], hints=hints([record]))
    registration.require_identity(params, host, report)
    registration.require_places(params, report)
    registration.require_service(host, report)
    registration.plan_removal(plan, params, host, report, params["client"], params["name"])
    return plan


def decide(params, host, report):
    require_name(params["client"], "client")
    require_name(params["name"], "service")
    return (plan_present if params["state"] == "present" else plan_absent)(params, host, report)


def service(params, host, check):
    with host.alone():
        report = host.report()
        plan = decide(params, host, report)
        result = plan.result()
        if not check and not plan.is_empty:
            plan.carry_out()
            report = host.report()
        record = report.services(params["client"]).get(params["name"])
        if record and "id" in record["pairs"]:
            result["id"] = record["pairs"]["id"]
        return result


def main():
    options = dict(identity.arguments(), name={"type": "str", "required": True}, client={"type": "str", "required": True},
                   state={"type": "str", "choices": ["present", "absent"], "default": "present"}, url={"type": "str"},
                   namespace={"type": "str"}, hostname={"type": "str"}, renew={"type": "bool", "default": False})
    module = AnsibleModule(argument_spec=options, supports_check_mode=True,
                           mutually_exclusive=identity.mutually_exclusive(),
                           required_together=identity.REQUIRED_TOGETHER,
                           required_if=[["state", "present", ["url", "namespace", "hostname"]]])
    end(module, lambda: service(module.params, Host(module), module.check_mode))


if __name__ == "__main__":
    main()
