"""The machine that a module runs on: the two programs, and the few files that the modules look after themselves."""

import errno
import fcntl
import hashlib
import json
import os
import re
import shutil
import socket
import ssl
from contextlib import contextmanager
from urllib.parse import urlsplit

from ansible_collections.ombry.sec_client.plugins.module_utils.report import Report, hints

TOOL = "Ombry.SecClientConfig"
DOCTOR = "ombry-doctor"
STATE = "/var/lib/Quennet"  # as the package has it; where the doctor is, its word counts
SECURITY = "OmbrySecurity"
CACHES = SECURITY + "/CS-cpp/cache"
COMPONENTS = SECURITY + "/Components"
KEYS = "Keys"
CERTIFICATES = "CertificateStores/OmbrySecurity"  # by the name of the store, a fact of its own
# Below the folder of the caches: the folders that the tool opens, and what it saves in them.
CACHE_FOLDER = re.compile(r"[^/]*(/(aa_token|finder_cache))?")
CACHE = re.compile(r"([^/]+/)?(v1-service\.cache|(aa_token|finder_cache)/[^/]+)-[ps]|(.+/)?\.ombry-[0-9a-f]+\.tmp")
FOLDERS = (SECURITY + "/CS", CACHES, COMPONENTS, CERTIFICATES, KEYS)  # those that the tool makes files in
# Of a whole enrolment with its caches; what is left below it would be used up in the middle of a command.
ROOM = 256 * 1024
LOCK = "/run/ombry-sec_client.lock"  # beside the state, of which a removal leaves nothing
UNKNOWN = 3  # the doctor's exit code if it may not look


class Failure(Exception):
    """Ends the module; `facts` stand beside the message in its result."""

    def __init__(self, message, **facts):
        super().__init__(message)
        self.message = message
        self.facts = facts


def without_tokens(text):
    """The tool quotes an answer that does not fit, and that of the token service holds a token."""
    return re.sub(r'("\w*token"\s*:\s*")[^"]*', r"\1********", text, flags=re.IGNORECASE)


class Host:
    """Owns nothing. Every operation that fails raises Failure."""

    def __init__(self, module):
        self.module = module
        self.doctor = module.get_bin_path(DOCTOR)
        self.tool = module.get_bin_path(TOOL)

    @property
    def check_mode(self):
        return self.module.check_mode

    def warn(self, text):
        self.module.warn(text)

    @contextmanager
    def alone(self):
        """Keeps other runs from this host from before they look until they are done: what two of them plan for one state
        would not fit together. A check changes nothing, this file neither."""
        if self.check_mode:
            yield
            return
        try:
            descriptor = os.open(LOCK, os.O_RDWR | os.O_CREAT | os.O_CLOEXEC, 0o600)
        except OSError as failure:
            raise Failure("%s cannot be opened: %s; run the task as root (become: true)" % (LOCK, failure.strerror))
        try:
            fcntl.flock(descriptor, fcntl.LOCK_EX)
            yield
        finally:
            os.close(descriptor)

    @property
    def is_installed(self):
        return bool(self.doctor and self.tool)

    def require_installed(self):
        if not self.is_installed:
            raise Failure("%s and %s are not both installed on this host" % (TOOL, DOCTOR))

    def report(self, connect=False):
        """What the doctor finds. Where neither it nor any state is, there is nothing to be found."""
        if not self.is_installed and not self._has_state():
            if self.check_mode:
                self.warn("%s is not installed yet: this host is taken for one that was never enrolled" % DOCTOR)
            return Report.of_nothing(STATE)
        self.require_installed()
        return self._ask([self.doctor, "--json"] + (["--connect"] if connect else []))

    @staticmethod
    def _has_state():
        try:
            return bool(os.listdir(STATE))
        except FileNotFoundError:
            return False
        except PermissionError:
            raise Failure("%s may not be looked at; run the task as root (become: true)" % STATE)
        except NotADirectoryError:
            return True  # whatever it is, only the doctor can say what to do about it

    def _ask(self, words):
        code, out, error = self.module.run_command(words)
        try:
            report = Report(json.loads(out))
        except ValueError as failure:
            raise Failure("%s gave no document that can be read: %s" % (DOCTOR, error.strip() or failure), rc=code,
                          stdout=out, stderr=error)
        if code == UNKNOWN or report.undecided:
            raise Failure("%s may not look at the state in %s; run the task as root (become: true)"
                          % (DOCTOR, report.state), rc=code, hints=hints(report.undecided))
        return report

    def run(self, words):
        """Runs the tool; its text and its exit code are handed on whole if it fails."""
        self.require_installed()
        code, out, error = self.module.run_command([self.tool] + words)
        if code == 0:
            return out
        out, error = without_tokens(out), without_tokens(error)
        raise Failure("%s %s ended with exit code %d: %s" % (TOOL, words[0], code, (error or out).strip()),
                      rc=code, stdout=out, stderr=error, hints=self._hints())

    def _hints(self):
        try:
            report = self.report(connect=True)
        except Failure as failure:
            return [failure.message]
        return hints(finding for finding in report.findings if finding["severity"] != "success")

    def require_room(self, state):
        """A command whose state cannot be saved leaves at the service what nobody can use: it is not begun."""
        folder = state
        while not os.path.exists(folder):
            folder = os.path.dirname(folder)
        disk = os.statvfs(folder)
        free = disk.f_bavail * disk.f_frsize
        # Where inodes are made as they are needed the system counts none at all.
        if free < ROOM or (disk.f_files and not disk.f_favail):
            raise Failure("The disk below %s is full: %d bytes and %d files are free, %d bytes are needed. Nothing was "
                          "changed" % (folder, free, disk.f_favail, ROOM))

    def require_service(self):
        """The tool tries for minutes to reach a service, and does not tell why it could not. The doctor tells at once."""
        found = self.report(connect=True).unreachable
        if found:
            raise Failure("The service cannot be reached from this host: %s. Nothing was changed" % found["message"],
                          hints=hints([found]))

    def fingerprint_of(self, url):
        """SHA-256 of the certificate that is shown at an address. Nothing is sent there."""
        address = urlsplit(url)
        try:
            context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
            context.check_hostname = False
            context.verify_mode = ssl.CERT_NONE  # the caller compares it
            with socket.create_connection((address.hostname, address.port or 443), timeout=15) as connection:
                with context.wrap_socket(connection, server_hostname=address.hostname) as tls:
                    return hashlib.sha256(tls.getpeercert(binary_form=True)).hexdigest()
        except (OSError, ValueError) as failure:
            raise Failure("The service at %s does not show a certificate: %s" % (url, failure))

    def modified(self, path):
        """When a file was written, in nanoseconds, or None."""
        try:
            return os.stat(path).st_mtime_ns
        except OSError:
            return None

    def owner(self, path):
        return os.stat(path).st_uid

    def exists(self, path):
        return os.path.lexists(path)

    def names(self, folder):
        try:
            return sorted(os.listdir(folder))
        except (FileNotFoundError, NotADirectoryError):  # also where who uses it removes it meanwhile
            return []

    def remove(self, path):
        try:
            if os.path.isdir(path) and not os.path.islink(path):
                shutil.rmtree(path)
            else:
                os.remove(path)
        except OSError as failure:
            if failure.errno != errno.ENOENT:
                raise Failure("%s cannot be removed: %s" % (path, failure.strerror))

    def cached(self, report, place=""):
        """What lies at a place of the caches, what is in a folder before the folder. The tool goes through links to
        folders, and so does this, as long as nothing else is behind them than what the tool has saved."""
        top = caches(report)
        try:
            return list(self._cached(top, place, os.path.realpath(top) if os.path.islink(top) else None))
        except OSError as failure:
            raise Failure("%s cannot be looked at: %s" % (failure.filename, failure.strerror))

    def _cached(self, top, place, target):
        path = os.path.join(top, place).rstrip("/")
        if not os.path.lexists(path):
            return
        is_link = os.path.islink(path)
        is_folder = os.path.isdir(path) and (not is_link or CACHE_FOLDER.fullmatch(place))
        if is_folder and is_link:
            target = os.path.realpath(path)
            if self.owner(target) not in (0, os.geteuid()):
                raise Failure("%s leads to %s, which belongs to somebody else. Nothing was removed there" % (path, target))
        if target and not (CACHE_FOLDER if is_folder else CACHE).fullmatch(place):
            raise Failure("A link leads from the caches to %s, where %s is nothing that the tool has saved. Nothing was "
                          "removed there" % (target, path))
        for name in self.names(path) if is_folder else ():
            yield from self._cached(top, os.path.join(place, name), target)
        yield path

    def require_removable(self, report, place=""):
        """A plan asks beforehand, so that a check asks it too."""
        self.cached(report, place)

    def remove_cached(self, report, place=""):
        for path in self.cached(report, place):
            self.remove(path)

    def remove_empty(self, folder, top):
        """Removes a folder, and those above it up to `top`, as long as nothing is in them. Of a link to one the link."""
        try:
            while True:
                if os.path.islink(folder) and os.path.isdir(folder) and not os.listdir(folder):
                    os.remove(folder)
                elif os.path.isdir(folder):
                    os.rmdir(folder)
                if folder == top or len(folder) <= len(top):
                    return
                folder = os.path.dirname(folder)
        except OSError:
            return

    def read_json(self, path):
        """None if there is no such document: nobody but these modules needs it."""
        try:
            with open(path) as file:
                return json.load(file)
        except (OSError, ValueError):
            return None

    def write_json(self, path, value):
        temporary = path + ".new"
        try:
            descriptor = os.open(temporary, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o600)
            with os.fdopen(descriptor, "w") as file:
                json.dump(value, file, sort_keys=True)
            os.rename(temporary, path)
        except OSError as failure:
            raise Failure("%s cannot be written: %s" % (path, failure.strerror))


def component(report, client):
    return "%s/%s/%s" % (report.state, COMPONENTS, client)


def caches(report):
    return "%s/%s" % (report.state, CACHES)


def require_name(value, what):
    """The tool makes a path of a name. One that leads elsewhere is not for a module that also removes."""
    if not value or "/" in value or "\0" in value or value in (".", ".."):
        raise Failure("'%s' cannot be the name of a %s: it must be a name for a file" % (value, what))
