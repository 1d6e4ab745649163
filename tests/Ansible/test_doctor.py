"""What the modules decide by the word of the doctor itself."""
import json
import os
import subprocess

from fake_host import FakeHost
from module_test import ENROLLED, ModuleTest

from ansible_collections.ombry.sec_client.plugins.module_utils.host import Failure
from ansible_collections.ombry.sec_client.plugins.module_utils.report import Report

DOCTOR = os.environ.get("OMBRY_DOCTOR_HERE")  # the one that looks below its working directory


class ExaminedHost(FakeHost):
    """Its files are those of a fake, and what is told of them is not."""

    def report(self, connect=False):
        told = subprocess.run([DOCTOR, "--json"], cwd=self.folder, stdout=subprocess.PIPE)
        return Report(json.loads(told.stdout))


class DoctorTest(ModuleTest):
    def setUp(self):
        if not DOCTOR:
            self.skipTest("OMBRY_DOCTOR_HERE does not say where the doctor is")

    def test_StateThatWasMoved_AndALinkToIt_IsSeen(self):
        for folder in ("OmbrySecurity", "OmbrySecurity/Components", "OmbrySecurity/Components/printer"):
            with self.subTest(folder=folder):
                host = self.make(*ENROLLED)
                host.__class__ = ExaminedHost
                (host.state / folder).rename(host.folder / "elsewhere")
                (host.state / folder).symlink_to(host.folder / "elsewhere")
                for module, refusal in (("bootstrap", "still enrolled on this host.* printer"), ("client", "cannot be told")):
                    with self.assertRaisesRegex(Failure, refusal):
                        self.run_module(host, module, {"state": "absent"})
                self.assertEqual(host.ran, [])
