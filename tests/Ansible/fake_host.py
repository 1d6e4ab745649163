"""A machine and a service for the modules' tests: works, keeps its state in a folder, and can be looked into."""
import collection  # noqa: F401  isort:skip
import contextlib
import itertools
import json
import os
import pathlib
import shutil
import tempfile

from ansible_collections.ombry.sec_client.plugins.module_utils.host import Failure, Host, caches
from ansible_collections.ombry.sec_client.plugins.module_utils.report import Report

URL = "https://server1:8181/securityframeworkservice"
BERLIN = "5ad7b0c2-0001-4c00-8000-000000000001"
OSLO = "5ad7b0c2-0002-4c00-8000-000000000002"
FINGERPRINT = "AB:CD"
MOMENT = 1_700_000_000  # when the first file is written; each later one comes a second after the one before


class FakeService:
    def __init__(self):
        self.clients = []
        self.services = {}  # id: what it was registered as
        self.datacenters = {BERLIN: "Berlin", OSLO: "Oslo"}
        self.columns = ""  # of the datacenter list, behind id and name
        self.fingerprint = FINGERPRINT
        self.is_up = True
        self.ids = itertools.count(1)


class FakeHost(Host):
    """Runs neither of the programs: it writes the files that the tool would, and tells of them as the doctor would."""

    def __init__(self, service=None):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="ombry-host-"))
        self.state = self.folder / "Quennet"
        self.service = service or FakeService()
        self.is_check = False
        self.is_alone = False
        self.is_full = False
        self.failure = ""  # what the tool is to end with
        self.has_key_trouble = False
        self.troubles = []  # findings beside those of the state: source, name, severity, remedy and pairs of each
        self.common_datacenter = None
        self.unreadable = {}  # client: cause
        self.damaged = set()  # records
        self.ran = []
        self.warnings = []
        self.seconds = itertools.count(MOMENT)

    def close(self):
        shutil.rmtree(self.folder)

    check_mode = property(lambda self: self.is_check)
    is_installed = True

    def warn(self, text):
        self.warnings.append(text)

    # What the tool keeps.

    def write(self, path, text):
        file = self.state / path
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text)
        moment = next(self.seconds)
        os.utime(file, (moment, moment))

    def tree(self):
        return {str(file.relative_to(self.folder)): file.read_text()
                for file in sorted(self.folder.rglob("*")) if file.is_file()}

    def put_obstacle(self, path):
        path = str(self.state / path)
        self.troubles.append(("state", "place", "error", "rm -f -- " + path, {"path": path}))

    def leave(self, path):
        """As a run that was killed in a save."""
        self.write(path, "half")
        self.troubles.append(("state", "leftovers", "warning", "rm", {"path": str(self.state / path)}))

    def move(self, path):
        """Elsewhere, and puts a link in its place."""
        elsewhere = self.folder / path.replace("/", "-")
        (self.state / path).rename(elsewhere)
        (self.state / path).symlink_to(elsewhere)
        return elsewhere

    def components(self):
        return self.state / "OmbrySecurity/Components"

    def certificate(self):
        return next(iter((self.state / "CertificateStores/OmbrySecurity").glob("*")), None)

    # The doctor.

    def report(self, connect=False):
        findings = []

        def tell(source, name, severity="success", remedy=None, **pairs):
            findings.append({"source": source, "name": name, "severity": severity, "undecided": False,
                             "message": "%s.%s is %s" % (source, name, severity), "pairs": pairs, "remedy": remedy})

        security = self.state / "OmbrySecurity"
        for name, key, file in (("address", "address", security / "ombrysecurity.config"),
                                ("datacenter", "datacenter", security / "CS/datacenterid.config")):
            if key == "datacenter" and self.common_datacenter:
                tell("bootstrap", name, datacenter=self.common_datacenter, path=str(self.state / "common.config"))
            elif file.exists():
                tell("bootstrap", name, **{key: file.read_text(), "path": str(file)})
            else:
                tell("bootstrap", name, "critical", "configure-bootstrap-url", path=str(file))
        certificate = self.certificate()
        if certificate:
            tell("trust", "certificate", sha256=certificate.read_text())
        else:
            tell("trust", "certificate", "critical", "configure-bootstrap-url")
        key = str(self.state / "Keys/protection.key")
        if not self.has_key_trouble:
            tell("clients", "key", path=key)
        elif os.path.exists(key):
            tell("clients", "key", "error", "chmod 600", path=key)
        else:
            tell("clients", "key", "error", "Ombry.SecClientConfig enroll-client -nn other", path=key)
        for trouble in self.troubles:
            tell(*trouble[:-1], **trouble[-1])
        for folder in sorted(self.components().glob("*")):
            self.tell_client(tell, folder)
        if connect and not self.service.is_up:
            tell("connect", "server", "critical", "configure-bootstrap-url")
        return Report({"version": 1, "state": str(self.state), "status": "ok", "findings": findings})

    def tell_client(self, tell, folder):
        credentials = folder / "ombrycomponent.config"
        cause = self.unreadable.get(folder.name)
        if credentials.exists() and cause:
            tell("clients", "credentials", "error", "enroll-client", client=folder.name, path=str(credentials),
                 cause=cause)
        elif credentials.exists():
            tell("clients", "credentials", client=folder.name, path=str(credentials))
        for record in sorted(folder.glob("Services/*.config")):
            pairs = {"client": folder.name, "service": record.stem, "path": str(record)}
            if record.stem in self.damaged:
                tell("clients", "service", "error", "enroll-service", **pairs)
            else:
                tell("clients", "service", id=record.read_text(), **pairs)

    # The tool.

    def run(self, words):
        if self.is_check and words[0] != "get-datacenters":
            raise AssertionError("a check has run " + words[0])
        self.ran.append(words)
        if self.failure:
            raise Failure("Ombry.SecClientConfig %s ended with exit code 255: %s" % (words[0], self.failure), rc=255)
        options = {words[index]: words[index + 1] for index in range(1, len(words), 2)}
        for name in (options.get("-n"), options.get("-owner")):
            if name and (name in self.unreadable or not (self.components() / name / "ombrycomponent.config").exists()):
                raise Failure("Ombry.SecClientConfig %s ended with exit code 255: %s" % (words[0], name), rc=255)
        return getattr(self, words[0].replace("-", "_"))(options)

    def get_datacenters(self, options):
        return "".join("%s\t%s%s\n" % (*entry, self.service.columns) for entry in self.service.datacenters.items())

    def configure_bootstrap_url(self, options):
        ids = [key for key, name in self.service.datacenters.items() if name == options.get("-dn")]
        old = self.certificate()
        if old:
            old.unlink()
        name = self.service.fingerprint.replace(":", "").lower()
        self.write("CertificateStores/OmbrySecurity/" + name, self.service.fingerprint)
        self.write("OmbrySecurity/ombrysecurity.config", options["-r"])
        self.write("OmbrySecurity/CS/datacenterid.config", options.get("-d") or ids[0])

    def enroll_client(self, options):
        name = options["-nn"]
        self.forget_client(name)
        identity = "client%d" % next(self.service.ids)
        self.service.clients.append(identity)
        self.write("Keys/protection.key", "key")
        self.write("OmbrySecurity/Components/%s/ombrycomponent.config" % name, identity)
        self.unreadable.pop(name, None)
        # The token that it gets at its first call.
        self.write("OmbrySecurity/CS-cpp/cache/%s/aa_token/t-p" % name, identity)

    def forget_client(self, name):
        credentials = self.components() / name / "ombrycomponent.config"
        if credentials.exists() and name not in self.unreadable:
            self.service.clients.remove(credentials.read_text())
            credentials.unlink()

    def unenroll_client(self, options):
        self.forget_client(options["-un"])

    def unenroll_client_self(self, options):
        self.forget_client(options["-n"])

    def enroll_service(self, options):
        # What a cached search shows is what is removed; it shows what was there when it was made.
        place = {"name": options["-name"], "namespace": options["-namespace"], "hostname": options["-hostname"]}
        searches = pathlib.Path(caches(self.report())) / options.get("-n", "") / "finder_cache/all-p"
        found = list(self.service.services)
        if searches.exists():
            found = json.loads(searches.read_text())
        else:
            self.write(str(searches.relative_to(self.state)), json.dumps(found))
        for key in found:
            if place.items() <= self.service.services.get(key, {}).items():
                del self.service.services[key]
        key = "service%d" % next(self.service.ids)
        owner = (self.components() / options["-owner"] / "ombrycomponent.config").read_text()
        self.service.services[key] = dict(place, url=options["-url"], owner=owner)
        self.damaged.discard(options["-name"])
        self.write("OmbrySecurity/Components/%s/Services/%s.config" % (options["-owner"], options["-name"]), key)

    def unenroll_service(self, options):
        record = self.components() / options["-on"] / "Services" / (options["-s"] + ".config")
        self.service.services.pop(record.read_text(), None)
        record.unlink()

    # What a test cannot have from this machine.

    @contextlib.contextmanager
    def alone(self):
        self.is_alone = not self.is_check
        try:
            yield
        finally:
            self.is_alone = False

    def require_room(self, state):
        if self.is_full:
            raise Failure("The disk is full")

    def fingerprint_of(self, url):
        return self.service.fingerprint.replace(":", "").lower()


def plain_words(host):
    """The commands that were run, a line each."""
    return [" ".join(words) for words in host.ran]
