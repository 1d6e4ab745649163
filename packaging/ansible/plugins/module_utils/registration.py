"""Services of a client: what `client` and `service` both need."""

import os

from ansible_collections.ombry.sec_client.plugins.module_utils import identity
from ansible_collections.ombry.sec_client.plugins.module_utils.host import Failure, caches, component
from ansible_collections.ombry.sec_client.plugins.module_utils.report import hints

RECORD = ".config"
NOTE = ".registration.json"
CACHES_OF_NOBODY = ("aa_token", "finder_cache")  # of a user or a token; they lie beside the folders of the clients


def require_identity(params, host, report, owner=None):
    """Who acts, and who is to own a service: the tool deciphers the credentials of both."""
    if not identity.is_given(params):
        raise Failure("Neither a user, a token nor an acting client was given")
    for client in sorted({owner, params["acting_client"]} - {None, ""}):
        finding = report.clients.get(client)
        if finding and finding["severity"] != "success":
            raise Failure("%s. Nothing was changed" % finding["message"], hints=hints([finding]))
        if not finding and not host.check_mode:
            raise Failure("The client %s is not enrolled on this host" % client)
        if not finding:
            host.warn("The client %s is not enrolled on this host yet: a run fails here unless it enrols it before" % client)


def require_service(host, report):
    if report.is_tied:
        host.require_service()
    elif host.check_mode:
        host.warn("This host is tied to no service yet: a run fails here unless it ties it before")
    else:
        raise Failure("This host is tied to no service", hints=hints(report.bad("state", "bootstrap", "trust")))


def require_places(params, report, *folders):
    """Nothing may stand in the place of the folders that a command saves in: these, and the caches of who acts. What is
    in the way of others is theirs."""
    if not report.is_tied:  # before that there may be no place yet
        return
    owner = identity.cache_owner(params)
    needed = list(folders) + ["%s/%s" % (caches(report), cache) for cache in ([owner] if owner else CACHES_OF_NOBODY)]

    def is_needed(path):
        return any((path + "/").startswith(folder + "/") or folder.startswith(path + "/") for folder in needed)

    for wrong in report.bad("state.place"):
        if wrong["severity"] == "critical" or is_needed(wrong["pairs"]["path"]):
            raise Failure("%s. Nothing was changed" % wrong["message"], hints=hints([wrong]))


def searches(params):
    """The place of the searches that are kept for who acts. One that is fresh does not show the older registration, which
    is looked up through them."""
    return os.path.join(identity.cache_owner(params), "finder_cache")


def note_path(record):
    """Where the module keeps what a service was registered as, which the tool's own record does not tell: beside it."""
    path = record["pairs"]["path"]
    return path[:-len(RECORD)] + NOTE


def remove(params, host, record):
    pairs = record["pairs"]
    host.run(["unenroll-service"] + identity.words(params) + ["-on", pairs["client"], "-s", pairs["service"]])
    host.remove(note_path(record))
    if host.exists(pairs["path"]):
        raise Failure("The tool was content, but %s is still there" % pairs["path"])


def plan_removal(plan, params, host, report, client, service):
    record = report.services(client)[service]
    plan.add("unenroll-service %s %s" % (client, service), lambda: remove(params, host, record))
