"""What `ombry-doctor --json` says of a machine, as the modules ask for it."""

VERSION = 1
OWN_DATACENTER_FILE = "datacenterid.config"


class Report:
    """One document of the doctor. What it does not know it passes over, as the document's schema asks."""

    def __init__(self, document):
        if document.get("version") != VERSION:
            raise ValueError("ombry-doctor speaks version %s of its document, this collection version %d"
                             % (document.get("version"), VERSION))
        self.document = document

    @classmethod
    def of_nothing(cls, state):
        """A machine on which the tool was never run."""
        return cls({"version": VERSION, "state": state, "status": "critical", "findings": []})

    @property
    def state(self):
        return self.document["state"]

    @property
    def status(self):
        return self.document["status"]

    @property
    def findings(self):
        return self.document["findings"]

    def of(self, source, name=None):
        return [finding for finding in self.findings
                if finding["source"] == source and name in (None, finding["name"])]

    def pair(self, source, name, key):
        """The first value under this key that a check has told, or None."""
        for finding in self.of(source, name):
            if key in finding["pairs"]:
                return finding["pairs"][key]
        return None

    def bad(self, *sources):
        """What makes commands fail; of whole sources, or of single checks as `source.name`."""
        return [finding for finding in self.findings if finding["severity"] in ("error", "critical")
                and (finding["source"] in sources or "%(source)s.%(name)s" % finding in sources)]

    @property
    def undecided(self):
        return [finding for finding in self.findings if finding["undecided"]]

    @property
    def address(self):
        return self.pair("bootstrap", "address", "address")

    @property
    def datacenter(self):
        return self.pair("bootstrap", "datacenter", "datacenter")

    @property
    def is_datacenter_ours(self):
        """False where a file that the tool does not write says which datacenter this is."""
        path = self.pair("bootstrap", "datacenter", "path")
        return path is None or path.endswith("/" + OWN_DATACENTER_FILE)

    @property
    def fingerprint(self):
        return self.pair("trust", "certificate", "sha256")

    @property
    def is_tied(self):
        return bool(self.address and self.datacenter and self.fingerprint) and not self.bad("bootstrap", "trust")

    @property
    def is_tied_in_one_run(self):
        """False if certificate, address and datacenter may be of several services, or there are two certificates."""
        return self.is_tied and self.pair("bootstrap", "whole", "older") is None \
            and self.pair("trust", "certificate", "second_sha256") is None

    @property
    def fingerprints(self):
        keys = ("sha256", "second_sha256")
        return [value for value in (self.pair("trust", "certificate", key) for key in keys) if value]

    @property
    def clients(self):
        """The finding of each client that has credentials here, by name."""
        return dict((finding["pairs"]["client"], finding) for finding in self.of("clients", "credentials")
                    if "client" in finding["pairs"])

    def services(self, client):
        """The finding of each record of a service of this client, by name."""
        return dict((finding["pairs"]["service"], finding) for finding in self.of("clients", "service")
                    if finding["pairs"].get("client") == client)

    @property
    def leftovers(self):
        """Files that killed runs have left; one may be a second name of the key."""
        return [finding["pairs"]["path"] for finding in self.of("state", "leftovers") if finding["severity"] != "success"]

    @property
    def unreachable(self):
        """What keeps this machine from every server, or None; of a document that was made with --connect."""
        return next((finding for finding in self.of("connect") if finding["severity"] == "critical"), None)


def hints(findings):
    """What the doctor advises against findings, a line each."""
    return ["%s.%s: %s; type: %s" % (finding["source"], finding["name"], finding["message"], finding["remedy"])
            for finding in findings if finding["remedy"]]
