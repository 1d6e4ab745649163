"""What the tests of the modules share: machines at the start, and both ways to run a module."""
import unittest

from fake_host import BERLIN, URL, FakeHost

from ansible_collections.ombry.sec_client.plugins.modules import bootstrap, client, service

BOOTSTRAP = {"state": "present", "url": URL, "host": None, "datacenter": None, "datacenter_id": BERLIN,
             "fingerprint": None, "user": None, "password": None, "token": "t"}
CLIENT = {"state": "present", "name": "printer", "description": None, "rotate": False, "rotate_before": None,
          "user": None, "password": None, "token": "t", "acting_client": None}
SERVICE = {"state": "present", "name": "v1-print", "client": "printer", "url": "https://printer:9443/print",
           "namespace": "Office", "hostname": "printer", "renew": False, "user": None, "password": None, "token": None,
           "acting_client": "printer"}
RUN = {"bootstrap": (bootstrap.bootstrap, BOOTSTRAP), "client": (client.client, CLIENT),
       "service": (service.service, SERVICE)}


class ModuleTest(unittest.TestCase):
    def make(self, *runs):
        """A machine on which these modules have run."""
        host = FakeHost()
        self.addCleanup(host.close)
        for run in runs:
            self.run_module(host, *(run if isinstance(run, tuple) else (run, {})))
        host.ran.clear()
        return host

    def run_module(self, host, module, given=None, check=False):
        function, params = RUN[module]
        host.is_check = check
        try:
            return function(dict(params, **(given or {})), host, check)
        finally:
            host.is_check = False


ENROLLED = ("bootstrap", "client", "service")
