"""The life of a fleet: hosts that are reached over ssh, the role as it is installed, and the sandbox service."""
import datetime
import os
import pathlib
import unittest

from fleet import Fleet

REASON = os.environ.get("FLEET_SKIPPED")
HOSTS = int(os.environ.get("FLEET_HOSTS", "4"))
CHANGES_OF_AN_ENROLLMENT = ["Tie the machine to the service", "Enrol the clients", "Register their services"]


@unittest.skipIf(REASON, REASON)
class FleetTest(unittest.TestCase):
    """Its tests are one story, in the order of their names: each begins with what the one before has left."""

    @classmethod
    def setUpClass(cls):
        cls.fleet = Fleet(HOSTS, pathlib.Path(os.environ["FLEET_BUILD"]))
        cls.addClassCleanup(cls.fleet.stop)
        cls.names = [host.name for host in cls.fleet.hosts]
        cls.full, cls.cut_off = cls.fleet.hosts[-2:]

    @classmethod
    def tearDownClass(cls):
        print()
        for what, seconds, used in cls.fleet.runs:
            print("%6.1f s, %6.1f of processor time, on %d hosts: %s" % (seconds, used, HOSTS, what))
        print("%.1f s of processor time in all" % cls.fleet.processor_seconds())

    def expect_success(self, outcome):
        self.assertEqual((outcome.code, outcome.failed()), (0, {}), outcome.output)

    def tasks_that_change(self, outcome, host):
        return [task.rpartition(" : ")[2] for name, task in outcome.changes() if name == host]

    def expect_enrolled(self):
        """Each host has one client and one service, and the service has no other."""
        clients = self.fleet.clients()
        self.assertEqual(len(clients), HOSTS)
        services = self.fleet.services()
        self.assertEqual([(name, host) for name, host, _ in services], [("v1-print", name) for name in sorted(self.names)])
        self.assertEqual({owner for _, _, owner in services}, set(clients))
        return clients

    def test_1_CheckOfNewHosts_ForeseesTheEnrollment_AndDoesNothing(self):
        outcome = self.fleet.play("--check", "--diff")
        self.expect_success(outcome)
        for host in self.fleet.hosts:
            self.assertEqual(self.tasks_that_change(outcome, host.name),
                             ["Take the package to the machine"] + CHANGES_OF_AN_ENROLLMENT)
            self.assertEqual(host.state(), [])
            self.assertFalse(host.path("usr/bin/Ombry.SecClientConfig").exists())
        self.assertEqual((self.fleet.clients(), self.fleet.services()), ({}, []))
        type(self).foreseen = {name: outcome.told(name) for name in self.names}

    def test_2_FirstRun_EnrollsAll_AndTellsNoSecret(self):
        outcome = self.fleet.play("--diff", "-vvv")
        self.expect_success(outcome)
        self.expect_enrolled()
        for host in self.fleet.hosts:
            self.assertEqual(outcome.told(host.name), self.foreseen[host.name])
            self.assertIn("OmbrySecurity/Components/printer/ombrycomponent.config", host.state())
        self.assertNotIn(self.fleet.token, outcome.output)

    def test_3_SecondRun_ChangesNothing(self):
        clients = self.fleet.clients()
        outcome = self.fleet.play("--diff")
        self.expect_success(outcome)
        self.assertEqual(outcome.changes(), {})
        self.assertEqual(outcome.output.count("changed=0"), HOSTS)
        self.assertEqual(self.fleet.clients(), clients)

    def test_3_WhatTheMachinesSayOfThemselves_IsWhatTheServiceKnows(self):
        outcome = self.fleet.play(playbook="look")
        self.expect_success(outcome)
        self.assertEqual([line["host"] for line in outcome.lines if line["result"]["report"]["status"] != "ok"], [])
        told = {line["result"]["clients"]["printer"]["services"]["v1-print"] for line in outcome.lines}
        self.assertEqual(told, {key for key, in self.fleet.ask("SELECT id FROM services")})

    def test_3_WhatTheToolSays_WhenTheServiceRefuses_IsHandedOn(self):
        outcome = self.fleet.play("--limit", self.names[0], playbook="intrude")
        self.assertEqual(outcome.code, 2, outcome.output)
        failed = outcome.failed()[self.names[0]]
        self.assertEqual(failed["rc"], 255)
        self.assertRegex(failed["stderr"], r"^Caught exception: .*\b40[13]\b")
        self.assertIn(failed["stderr"].strip(), failed["msg"])
        self.expect_enrolled()

    def test_4_RotationMeetsAFullDiskAndALostService_WhichFailAlone_AndLoseNothing(self):
        before = self.expect_enrolled()
        type(self).before = before
        type(self).moment = datetime.datetime.now(datetime.timezone.utc).strftime("%Y-%m-%dT%H:%M:%S.%fZ")
        self.full.fill_disk()
        self.cut_off.lose_service()
        outcome = self.fleet.play(machine_rotate_before=self.moment, machine_package="", machine_package_file="")
        self.assertEqual(outcome.code, 2, outcome.output)
        failed = outcome.failed()
        self.assertEqual(set(failed), {self.full.name, self.cut_off.name}, outcome.output)
        self.assertIn("is full", failed[self.full.name]["msg"])
        self.assertIn("cannot be reached", failed[self.cut_off.name]["msg"])
        for host in self.fleet.hosts[:-2]:
            self.assertEqual(self.tasks_that_change(outcome, host.name), CHANGES_OF_AN_ENROLLMENT[1:])
        after = self.expect_enrolled()
        self.assertEqual(len(set(before) & set(after)), 2)

    def test_5_ThirdRun_HealsThem_AndThenEverySecretIsAnother(self):
        self.full.empty_disk()
        self.cut_off.find_service()
        outcome = self.fleet.play(machine_rotate_before=self.moment, machine_package="", machine_package_file="")
        self.expect_success(outcome)
        self.assertEqual({host for host, _ in outcome.changes()}, {self.full.name, self.cut_off.name})
        after = self.expect_enrolled()
        self.assertEqual(set(self.before) & set(after), set())
        self.assertEqual(set(self.before.values()) & set(after.values()), set())

    def test_6_Removal_LeavesNothing_AtTheServiceAndOnTheHosts(self):
        outcome = self.fleet.play(machine_state="absent")
        self.expect_success(outcome)
        self.assertEqual((self.fleet.clients(), self.fleet.services()), ({}, []))
        self.assertEqual({host.name: host.state() for host in self.fleet.hosts}, {name: [] for name in self.names})


if __name__ == "__main__":
    unittest.main()
