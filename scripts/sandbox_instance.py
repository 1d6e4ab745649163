"""One instance of the sandbox service, for the scripts that try many clients against two of them."""
import json
import pathlib
import subprocess

BUILD = pathlib.Path(__file__).resolve().parent.parent / "build/dev"
SANDBOX = BUILD / "Sandbox/ombry-sandbox"
TOOL = BUILD / "Ombry.SecClientConfig/ombry_sec_client_config_here"


class Instance:
    """Runs over the database in `work`; `clients`: how many connections it can keep at once."""

    def __init__(self, work, clients):
        self.work, self.clients, self.port, self.process = work, clients, 0, None
        self.start()

    def start(self):
        """After `kill` on the same port."""
        self.process = subprocess.Popen([SANDBOX, "--state", self.work / "service", "--port", str(self.port),
                                         "--threads", str(self.clients + 8)],
                                        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.url = json.loads(self.process.stdout.readline())["baseUrl"]
        self.port = int(self.url.split(":")[2].split("/")[0])

    def kill(self):
        self.process.kill()
        self.process.wait()
        self.process.stdout.close()
