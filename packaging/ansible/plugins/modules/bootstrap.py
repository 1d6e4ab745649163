#!/usr/bin/python
"""Ties a machine to a service."""

DOCUMENTATION = r"""
module: bootstrap
short_description: Tie a machine to a Security Framework service
version_added: 1.0.0
description:
  - Makes the host a member of one of the service's datacenters, and has it remember the service's certificate.
  - The first contact with an address trusts whoever answers, unless I(fingerprint) says what it has to be. Later ones
    trust the certificate that is there, until I(fingerprint) says another.
author: The authors of Ombry
options:
  state:
    description:
      - C(present) ties the host. It is tied again if address, datacenter or I(fingerprint) are others than these, if the
        certificate is missing, or if what there is cannot come from one run.
      - C(absent) removes address, datacenter, certificate, caches and key from the host. It fails while clients are
        enrolled there, which nobody could remove at the service afterwards.
    type: str
    choices: [present, absent]
    default: present
  url:
    description:
      - The address of the service. It is compared letter by letter with the one that is there.
    type: str
  host:
    description:
      - Stands for C(https://HOST:8181/securityframeworkservice), or for that port which it names.
    type: str
  datacenter:
    description:
      - The name of the datacenter. The service is asked for its id at each run, to compare it with the one that is there.
    type: str
  datacenter_id:
    description:
      - The id of the datacenter. Nobody has to be asked, so that a host which is as it should be needs no network.
    type: str
  fingerprint:
    description:
      - SHA-256 of the service's certificate, as C(openssl x509 -fingerprint -sha256) prints it. With another one neither
        password nor token are sent, and nothing is trusted.
      - The certificate is looked at before each command that sends them, over a connection of its own. The command then
        makes others, on which the tool judges no certificate, since it has none to judge by. Whoever takes the address
        over in between gets the password or the token, and that is not noticed if it is given back at once. Prefer a token
        that lasts for a short time.
      - What is trusted in the end is compared once more. A certificate that is another is removed, and the task fails.
    type: str
extends_documentation_fragment:
  - ombry.sec_client.identity
requirements:
  - The package C(ombry-sec-client-config) on the host.
seealso:
  - module: ombry.sec_client.client
  - module: ombry.sec_client.machine_info
"""

EXAMPLES = r"""
- name: Tie the machine to the service
  ombry.sec_client.bootstrap:
    url: https://server1:8181/securityframeworkservice
    datacenter: Berlin
    fingerprint: "{{ service_fingerprint }}"
    token: "{{ install_token }}"

- name: Forget the service
  ombry.sec_client.bootstrap:
    state: absent
"""

RETURN = r"""
address:
  description: The address of the service.
  returned: if the host is tied
  type: str
  sample: https://server1:8181/securityframeworkservice
datacenter:
  description: The id of the datacenter.
  returned: if the host is tied
  type: str
  sample: 5ad7b0c2-0001-4c00-8000-000000000001
fingerprint:
  description: SHA-256 of the certificate that is trusted.
  returned: if the host is tied
  type: str
commands:
  description: The commands that were run, or that a run would run, without secrets.
  returned: success
  type: list
  elements: str
  sample: [configure-bootstrap-url]
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

import os

from ansible.module_utils.basic import AnsibleModule

from ansible_collections.ombry.sec_client.plugins.module_utils import identity
from ansible_collections.ombry.sec_client.plugins.module_utils.host import (
    CERTIFICATES, FOLDERS, Failure, Host)
from ansible_collections.ombry.sec_client.plugins.module_utils.plan import Plan, end
from ansible_collections.ombry.sec_client.plugins.module_utils.report import hints


def url_of(params):
    """As the tool makes it of a host."""
    if params["url"]:
        return params["url"]
    return "https://%s%s/securityframeworkservice" % (params["host"].lower(), "" if ":" in params["host"] else ":8181")


def plain(fingerprint):
    """Of any form, that of the line which openssl prints among them."""
    return fingerprint.rpartition("=")[2].replace(":", "").lower() if fingerprint else None


def told(report):
    if not (report.address or report.datacenter or report.fingerprint):
        return {}
    return {"address": report.address, "datacenter": report.datacenter, "fingerprint": report.fingerprint}


def expected_fingerprint(params, report):
    """What the service has to show, or None for a first contact. The tool's two commands here trust whoever answers."""
    given = params["fingerprint"]
    if given and plain(given) != plain(report.fingerprint):
        return given
    return report.fingerprint if given or report.is_tied_in_one_run and report.address == url_of(params) else None


def require_certificate(params, host, report):
    expected = expected_fingerprint(params, report)
    if not expected:
        return
    shown = host.fingerprint_of(url_of(params))
    if plain(shown) != plain(expected):
        raise Failure("The service at %s shows the certificate %s, not %s. Nothing was sent to it, and nothing was "
                      "changed" % (url_of(params), shown, expected))


def has_datacenter(params, host, report):
    if params["datacenter_id"]:
        return report.datacenter == params["datacenter_id"]
    require_certificate(params, host, report)
    lines = host.run(["get-datacenters", "-r", url_of(params)] + identity.words(params)).splitlines()
    rows = [line.split("\t") for line in lines]  # id and name; what stands behind them may be of another version
    ids = [row[0] for row in rows if row[1:2] == [params["datacenter"]]]
    if not ids:
        raise Failure("The service at %s has no datacenter '%s'" % (url_of(params), params["datacenter"]))
    return report.datacenter in ids


def is_as_wanted(params, host, report):
    return report.is_tied_in_one_run and report.address == url_of(params) \
        and (not params["fingerprint"] or plain(report.fingerprint) == plain(params["fingerprint"])) \
        and has_datacenter(params, host, report)


def remove_trust(host, report):
    for fingerprint in report.fingerprints:
        host.remove("%s/%s/%s" % (report.state, CERTIFICATES, plain(fingerprint)))


def configure(params, host, expected):
    words = ["configure-bootstrap-url"] + identity.words(params) + ["-r", url_of(params)]
    if params["datacenter_id"]:
        words += ["-d", params["datacenter_id"]]
    else:
        words += ["-dn", params["datacenter"]]
    host.run(words)
    report = host.report()
    if expected and plain(report.fingerprint) != plain(expected):
        remove_trust(host, report)
        raise Failure("The service at %s showed the certificate %s, which is not the one that it had to show. It is not "
                      "trusted any more" % (url_of(params), report.fingerprint))


def plan_present(params, host, report):
    if not identity.is_given(params):
        raise Failure("Neither a user nor a token was given")
    expected = expected_fingerprint(params, report)
    after = {"address": url_of(params), "datacenter": params["datacenter_id"] or params["datacenter"],
             "fingerprint": expected or "as the service shows it"}
    plan = Plan(told(report), after)
    if is_as_wanted(params, host, report):
        return plan
    if not report.is_datacenter_ours:
        raise Failure("Which datacenter this is says %s, which the tool does not write and cannot overrule"
                      % report.pair("bootstrap", "datacenter", "path"))
    host.require_room(report.state)
    require_certificate(params, host, report)
    plan.add("configure-bootstrap-url", lambda: configure(params, host, expected))
    return plan


def plan_absent(params, host, report):
    plan = Plan(told(report), {})
    enrolled = sorted(set(report.clients) | set(finding["pairs"]["client"] for finding in report.of("clients", "service")
                                                if "client" in finding["pairs"]))
    if enrolled:
        raise Failure("These are still enrolled on this host, and have to be removed first: %s" % ", ".join(enrolled))
    files = [report.pair("bootstrap", "address", "path"), report.pair("clients", "key", "path")]
    if report.is_datacenter_ours:
        files.append(report.pair("bootstrap", "datacenter", "path"))
    files += ["%s/%s/%s" % (report.state, CERTIFICATES, plain(fingerprint)) for fingerprint in report.fingerprints]
    files += report.leftovers
    for file in files:
        if file and host.exists(file):
            plan.add(None, lambda file=file: host.remove(file))
    if host.cached(report):
        plan.add(None, lambda: host.remove_cached(report))
    if not plan.is_empty:
        plan.before = plan.before or {"remains": report.state}
        folders = [os.path.dirname(file) for file in report.leftovers]
        for folder in folders + ["%s/%s" % (report.state, folder) for folder in FOLDERS]:
            plan.add(None, lambda folder=folder: host.remove_empty(folder, report.state))
    return plan


def decide(params, host, report):
    return (plan_present if params["state"] == "present" else plan_absent)(params, host, report)


def bootstrap(params, host, check):
    with host.alone():
        report = host.report()
        plan = decide(params, host, report)
        result = plan.result()
        if not check and not plan.is_empty:
            plan.carry_out()
            report = host.report()
            if params["state"] == "present" and not report.is_tied:
                raise Failure("The tool was content, but this host is not tied to the service",
                              hints=hints(report.bad("bootstrap", "trust")))
        if params["state"] == "present":
            result.update((name, value) for name, value in told(report).items() if value)
        return result


def main():
    options = dict(identity.arguments(with_client=False), state={"type": "str", "choices": ["present", "absent"],
                                                                 "default": "present"},
                   url={"type": "str"}, host={"type": "str"}, datacenter={"type": "str"}, datacenter_id={"type": "str"},
                   fingerprint={"type": "str"})
    module = AnsibleModule(argument_spec=options, supports_check_mode=True,
                           mutually_exclusive=identity.mutually_exclusive(with_client=False)
                           + [["url", "host"], ["datacenter", "datacenter_id"]],
                           required_together=identity.REQUIRED_TOGETHER,
                           required_if=[["state", "present", ["url", "host"], True],
                                        ["state", "present", ["datacenter", "datacenter_id"], True]])
    end(module, lambda: bootstrap(module.params, Host(module), module.check_mode))


if __name__ == "__main__":
    main()
