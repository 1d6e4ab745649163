"""Hosts of its own for a test: each has its mounts, network, processes and name for itself, and an sshd.

All of it is made in namespaces that this process was started in (run_fleet.py), and ends with them.
"""
import json
import os
import pathlib
import secrets
import shutil
import sqlite3
import subprocess
import tempfile
import time

HERE = pathlib.Path(__file__).resolve().parent
SOURCE = HERE.parents[1]
CONTROLLER = "10.77.0.1"
SERVICE = "10.77.0.2"  # an address of its own, so that a host can lose the one and be reached from the other
DATACENTER = "5ad7b0c2-0001-4c00-8000-000000000001"
STATE = "var/lib/Quennet"
STATE_SIZE = "4m"
PYTHON = "/usr/bin/python3"


def run(*words, **named):
    done = subprocess.run(words, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **named)
    if done.returncode != 0:
        raise RuntimeError("%s: %s" % (" ".join(map(str, words)), done.stdout))
    return done.stdout


class FleetHost:
    def __init__(self, number, keys, place):
        self.name = "host%d" % number
        self.address = "10.77.0.%d" % (10 + number)
        self.place = place / self.name
        self.place.mkdir()
        run("ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", keys / self.name)
        (keys / (self.name + ".machine-id")).write_text(secrets.token_hex(16) + "\n")
        self.process = subprocess.Popen(
            ["unshare", "--mount", "--net", "--uts", "--ipc", "--pid", "--fork", "--kill-child", "--propagation",
             "private", "sh", HERE / "start_host.sh", self.place, self.name, keys, STATE_SIZE],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE)
        self.process.stdout.readline()  # it is where it is to be
        self.process.stdout.close()
        wire = "wire%d" % number
        run("ip", "link", "add", wire, "type", "veth", "peer", "name", "eth0", "netns", str(self.process.pid))
        run("ip", "link", "set", wire, "master", "bridge", "up")
        self.ip("link", "set", "lo", "up")
        self.ip("address", "add", self.address + "/24", "dev", "eth0")
        self.ip("link", "set", "eth0", "up")

    def await_ready(self, ssh_options):
        try:
            run("ssh", *ssh_options, "-o", "ConnectionAttempts=30", "root@" + self.address, "true")
        except RuntimeError as failure:
            raise RuntimeError("%s\n%s" % (failure, self.place.with_suffix(".log").read_text()))

    def ip(self, *words):
        run("nsenter", "--net", "--target", str(self.process.pid), "ip", *words)

    def first_process(self):
        return pathlib.Path("/proc", run("pgrep", "--parent", str(self.process.pid)).split()[0])

    def path(self, file):
        """A file of the host as it can be opened from here."""
        return self.first_process() / "root" / file

    def processor_seconds(self):
        """What its processes have used, and those that they have waited for."""
        ticks = 0
        for stat in self.path("proc").glob("[0-9]*/stat"):
            ticks += sum(map(int, stat.read_text().rpartition(")")[2].split()[11:15]))
        return ticks / os.sysconf("SC_CLK_TCK")

    def state(self):
        folder = self.path(STATE)
        return sorted(str(file.relative_to(folder)) for file in folder.rglob("*"))

    def fill_disk(self):
        with open(self.path(STATE + "/filler"), "wb") as file:
            try:
                while True:
                    file.write(b"\0" * 65536)
                    file.flush()
            except OSError:
                pass

    def empty_disk(self):
        self.path(STATE + "/filler").unlink()

    def lose_service(self):
        self.ip("route", "add", "unreachable", SERVICE + "/32")

    def find_service(self):
        self.ip("route", "delete", "unreachable", SERVICE + "/32")

    def stop(self):
        self.process.kill()
        self.process.wait()


class Fleet:
    """Hosts on a bridge, a service beside them, and the collection as an administrator installs it."""

    def __init__(self, count, build):
        self.place = pathlib.Path(tempfile.mkdtemp(prefix="ombry-fleet-"))
        self.hosts = []
        self.service = None
        self.runs = []
        try:
            self.start(count, build)
        except BaseException:
            self.stop()
            raise

    def start(self, count, build):
        keys = self.place / "keys"
        keys.mkdir()
        run("ip", "link", "set", "lo", "up")
        run("ip", "link", "add", "bridge", "type", "bridge")
        for address in (CONTROLLER, SERVICE):
            run("ip", "address", "add", address + "/24", "dev", "bridge")
        run("ip", "link", "set", "bridge", "up")
        run("ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", keys / "controller")
        self.hosts = [FleetHost(number + 1, keys, self.place) for number in range(count)]
        self.start_service(build)
        run("cpack", "-G", "DEB", "-D", "CPACK_COMPONENTS_ALL=tool", "-B", self.place / "packages", cwd=build)
        (self.package,) = (self.place / "packages").glob("*.deb")
        self.environment = dict(
            os.environ, HOME=str(self.place), FLEET_RECORD=str(self.place / "record"), ANSIBLE_NOCOLOR="1",
            ANSIBLE_CONFIG=str(self.place / "ansible.cfg"), LC_ALL="C.UTF-8")
        run("ansible-galaxy", "collection", "build", "--output-path", self.place, SOURCE / "packaging/ansible",
            env=self.environment)
        (tarball,) = self.place.glob("ombry-sec_client-*.tar.gz")
        run("ansible-galaxy", "collection", "install", "--offline", "-p", self.place / "collections", tarball,
            env=self.environment)
        self.write_files(keys)
        for host in self.hosts:
            host.await_ready(self.ssh_options() + ["-i", keys / "controller"])

    def ssh_options(self):
        return ["-F", "none", "-o", "UserKnownHostsFile=%s/known_hosts" % self.place]

    def start_service(self, build):
        self.token = secrets.token_hex(16)
        self.service_state = self.place / "service"
        self.service_log = open(self.place / "service.log", "w")
        self.service = subprocess.Popen(
            [build / "Sandbox/ombry-sandbox", "--address", SERVICE, "--state", self.service_state, "--install-token",
             self.token], stdout=subprocess.PIPE, stderr=self.service_log, text=True)
        ready = json.loads(self.service.stdout.readline())
        self.url, self.fingerprint = ready["baseUrl"], ready["fingerprint"]

    def write_files(self, keys):
        (self.place / "known_hosts").write_text("".join(
            "%s %s" % (host.address, (keys / (host.name + ".pub")).read_text()) for host in self.hosts))
        (self.place / "inventory").write_text("".join(
            "%s ansible_host=%s\n" % (host.name, host.address) for host in self.hosts))
        (self.place / "variables.json").write_text(json.dumps({
            "machine_package_file": str(self.package),
            "machine_url": self.url,
            "machine_datacenter_id": DATACENTER,
            "machine_fingerprint": self.fingerprint,
            "machine_token": self.token,
            "machine_clients": [{
                "name": "printer",
                "description": "First floor",
                "services": [{"name": "v1-print", "url": "https://{{ ansible_host }}:9443/print", "namespace": "Office"}],
            }],
        }))
        for name, content in (("enroll", {"roles": ["ombry.sec_client.machine"]}),
                              ("look", {"tasks": [{"ombry.sec_client.machine_info": {"connect": True}}]}),
                              ("intrude", {"tasks": [{"ombry.sec_client.client": {"name": "spy", "token": "wrong"}}]})):
            (self.place / (name + ".yml")).write_text(json.dumps([dict(content, hosts="all", gather_facts=False)]))
        (self.place / "ansible.cfg").write_text("""[defaults]
inventory = {place}/inventory
collections_path = {place}/collections
callback_plugins = {here}/callback
callbacks_enabled = record
remote_user = root
private_key_file = {place}/keys/controller
interpreter_python = {python}
forks = {forks}
local_tmp = {place}/tmp
[ssh_connection]
pipelining = true
control_path_dir = {place}/ssh
ssh_args = {ssh} -o ControlMaster=auto -o ControlPersist=300
""".format(place=self.place, ssh=" ".join(self.ssh_options()), here=HERE, python=PYTHON, forks=len(self.hosts)))

    def play(self, *options, playbook="enroll", **variables):
        """Runs the role, or another playbook, on all hosts. What each task came to stands in the answer's `lines`."""
        record = self.place / "record"
        record.write_text("")
        began, used = time.monotonic(), self.processor_seconds()
        played = subprocess.run(
            ["ansible-playbook", "%s/%s.yml" % (self.place, playbook), "-e", "@%s/variables.json" % self.place, "-e",
             json.dumps(variables), *options], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
            env=self.environment, stdin=subprocess.DEVNULL)
        outcome = Outcome(played, [json.loads(line) for line in record.read_text().splitlines()])
        self.runs.append((" ".join([playbook, *options, *("%s=%s" % entry for entry in variables.items())]),
                          time.monotonic() - began, self.processor_seconds() - used))
        return outcome

    def processor_seconds(self):
        """What controller and hosts have used so far."""
        here = os.times()
        return here.children_user + here.children_system + sum(host.processor_seconds() for host in self.hosts)

    def ask(self, query):
        """What the service has written down."""
        database = sqlite3.connect("file:%s/state.sqlite?mode=ro" % self.service_state, uri=True)
        try:
            return database.execute(query).fetchall()
        finally:
            database.close()

    def clients(self):
        """Its clients: what it keeps of a secret, by id."""
        return dict(self.ask("SELECT id, hex(hash) FROM clients"))

    def services(self):
        """Its services: name, host and owner."""
        return sorted(self.ask("SELECT name, host, client FROM services"))

    def stop(self):
        for host in self.hosts:
            host.stop()
        if self.service:
            self.service.terminate()
            self.service.wait()
            self.service.stdout.close()
            self.service_log.close()
        shutil.rmtree(self.place, ignore_errors=True)


class Outcome:
    def __init__(self, played, lines):
        self.code = played.returncode
        self.output = played.stdout
        self.lines = lines

    def failed(self):
        """What failed on which host."""
        return {line["host"]: line["result"] for line in self.lines if line["outcome"] != "ok"}

    def changes(self):
        """How often something was changed, or would be, on each host by each task."""
        changes = {}
        for line in self.lines:
            if line["result"].get("changed"):
                key = line["host"], line["task"]
                changes[key] = changes.get(key, 0) + 1
        return changes

    def told(self, host):
        """What the modules of the collection said on a host: the commands, and the difference."""
        return [(line["task"], line["result"]["commands"], line["result"].get("diff"))
                for line in self.lines if line["host"] == host and "commands" in line["result"]]
