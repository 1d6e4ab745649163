"""What a check says is what the run does then, on every kind of machine; and what a run did, a second one leaves alone."""
import itertools
import shutil

from fake_host import FINGERPRINT, OSLO
from module_test import ENROLLED, ModuleTest

from ansible_collections.ombry.sec_client.plugins.module_utils.host import Failure


def set_attribute(name, value):
    return lambda host: setattr(host, name, value)


def cut_off_removal(host):
    for folder in ("CertificateStores", "OmbrySecurity/CS", "OmbrySecurity/Components"):
        shutil.rmtree(host.state / folder)
    (host.state / "OmbrySecurity/ombrysecurity.config").unlink()


MACHINES = {
    "empty": ((), None),
    "tied": (("bootstrap",), None),
    "with a client": (("bootstrap", "client"), None),
    "with a service": (ENROLLED, None),
    "with a replaced client": (ENROLLED + (("client", {"rotate": True}),), None),
    "without its certificate": (ENROLLED, lambda host: host.certificate().unlink()),
    "of somebody else's datacenter": (ENROLLED, set_attribute("common_datacenter", OSLO)),
    "with a damaged client": (ENROLLED, lambda host: host.unreadable.update(printer="damaged")),
    "without the credentials of a client": (ENROLLED, lambda host: host.forget_client("printer")),
    "with another damaged client": (ENROLLED + (("client", {"name": "other"}),),
                                    lambda host: host.unreadable.update(other="damaged")),
    "with a key that others can read": (ENROLLED, lambda host: host.unreadable.update(printer="key-not-private")),
    "with a damaged record": (ENROLLED, lambda host: host.damaged.add("v1-print")),
    "with the remains of a tie": (("bootstrap", "client"), cut_off_removal),
    "full": (("bootstrap",), set_attribute("is_full", True)),
    "far from the service": (ENROLLED, lambda host: setattr(host.service, "is_up", False)),
}
RUNS = [("bootstrap", {}), ("bootstrap", {"datacenter_id": OSLO}),
        ("bootstrap", {"datacenter_id": None, "datacenter": "Berlin"}), ("bootstrap", {"fingerprint": FINGERPRINT}),
        ("bootstrap", {"fingerprint": "12:34"}), ("bootstrap", {"state": "absent"}),
        ("client", {}), ("client", {"name": "scanner"}), ("client", {"rotate": True}),
        ("client", {"rotate_before": "2033-01-01T00:00:00Z"}), ("client", {"rotate_before": "2003-01-01T00:00:00Z"}),
        ("client", {"state": "absent"}), ("client", {"state": "absent", "token": None, "acting_client": "printer"}),
        ("client", {"name": "scanner", "token": None, "acting_client": "other"}),
        ("client", {"state": "absent", "token": None, "acting_client": "other"}),
        ("service", {}), ("service", {"url": "https://other"}), ("service", {"namespace": "Factory"}),
        ("service", {"renew": True}), ("service", {"state": "absent"}), ("service", {"name": "v2-print"}),
        ("service", {"name": "v2-print", "token": "t", "acting_client": None}),
        ("service", {"namespace": "Factory", "acting_client": "other"}),
        ("service", {"state": "absent", "acting_client": "other"})]
# These change something each time: that is what they are for, and no machine is younger than the year 2033.
EACH_TIME = [{"rotate": True}, {"renew": True}, {"rotate_before": "2033-01-01T00:00:00Z"}]
# A check cannot know whether a task before it would have made what is missing; it warns, and foresees a change.
NEEDED_BEFORE = ("tied to no service", "is not enrolled on this host")


class CheckModeTest(ModuleTest):
    def outcome(self, host, module, given, check):
        try:
            result = self.run_module(host, module, given, check)
        except Failure as failure:
            return "failed", failure.message.replace(str(host.folder), "")
        self.assertEqual(result["changed"], result["diff"]["before"] != result["diff"]["after"])
        return result["changed"], result["commands"], result["diff"]

    def test_CheckChangesNothing_AndTellsWhatTheRunDoes(self):
        for (name, (runs, trouble)), (module, given) in itertools.product(MACHINES.items(), RUNS):
            with self.subTest(machine=name, module=module, given=given):
                host = self.make(*runs)
                if trouble:
                    trouble(host)
                before = host.tree(), list(host.service.clients), dict(host.service.services)
                told = self.outcome(host, module, given, check=True)
                self.assertEqual((host.tree(), host.service.clients, host.service.services), before)
                warned = list(host.warnings)
                host.warnings.clear()
                done = self.outcome(host, module, given, check=False)
                if done[0] == "failed" and any(text in done[1] for text in NEEDED_BEFORE):
                    self.assertTrue(warned)
                    continue
                self.assertEqual(told, done)
                self.assertEqual(warned, host.warnings)
                if done[0] == "failed" or done[0] is False:
                    self.assertEqual((host.tree(), host.service.clients, host.service.services), before)
                elif given not in EACH_TIME:
                    self.assertFalse(self.outcome(host, module, given, check=False)[0])

    def test_RunLooksAndActsAlone(self):
        for module, check in itertools.product(("bootstrap", "client", "service"), (True, False)):
            host = self.make(*ENROLLED)
            seen = []

            def note(function):
                return lambda *words, **named: (seen.append(host.is_alone), function(*words, **named))[1]

            host.report, host.run, host.remove = note(host.report), note(host.run), note(host.remove)
            for given in ({}, {"state": "absent"}):
                self.outcome(host, module, given, check)
            self.assertEqual(set(seen), {not check}, module)

    def test_DiffHoldsNoSecret(self):
        for module, given in RUNS:
            host = self.make(*ENROLLED)
            outcome = repr(self.outcome(host, module, dict(given, token="s3cret"), check=False))
            self.assertNotIn("s3cret", outcome)
