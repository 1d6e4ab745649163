"""When a service is registered, and when its registration stands."""
import os

from fake_host import plain_words
from module_test import ENROLLED, ModuleTest

from ansible_collections.ombry.sec_client.plugins.module_utils.host import Failure


class ServiceTest(ModuleTest):
    def test_NewService_IsRegistered_AndTheSecondTimeLeftAlone(self):
        host = self.make("bootstrap", "client")
        result = self.run_module(host, "service")
        self.assertTrue(result["changed"])
        self.assertEqual(result["id"], "service2")
        self.assertEqual(plain_words(host), ["enroll-service -n printer -owner printer -name v1-print -url "
                                             "https://printer:9443/print -namespace Office -hostname printer"])
        result = self.run_module(host, "service")
        self.assertEqual((result["changed"], result["id"]), (False, "service2"))

    def test_WhatItIsRegisteredAs_IsCompared(self):
        for other in ({"url": "https://printer:9444/print"}, {"namespace": "Factory"}, {"hostname": "scanner"}):
            host = self.make(*ENROLLED)
            self.assertTrue(self.run_module(host, "service", other)["changed"], other)
            self.assertFalse(self.run_module(host, "service", other)["changed"], other)
            (registered,) = host.service.services.values()
            self.assertEqual(dict(registered, **other), registered)

    def test_RegistrationOfSomebodyElse_IsReplaced(self):
        host = self.make("bootstrap", "client")
        host.run(["enroll-service", "-n", "printer", "-owner", "printer", "-name", "v1-print", "-url", "u",
                  "-namespace", "else", "-hostname", "where"])
        self.assertTrue(self.run_module(host, "service")["changed"])
        self.assertEqual(len(host.service.services), 1)
        self.assertFalse(self.run_module(host, "service")["changed"])

    def test_RegistrationThatSomebodyElseHasReplacedSince_IsReplacedAgain(self):
        host = self.make(*ENROLLED)
        host.run(["enroll-service", "-n", "printer", "-owner", "printer", "-name", "v1-print", "-url", "u",
                  "-namespace", "Office", "-hostname", "printer"])
        self.assertTrue(self.run_module(host, "service")["changed"])

    def test_FullDisk_IsToldBeforeTheOldRegistrationGoes(self):
        host = self.make(*ENROLLED)
        host.is_full = True
        with self.assertRaisesRegex(Failure, "full"):
            self.run_module(host, "service", {"namespace": "Factory"})
        self.assertEqual((host.ran, len(host.service.services)), ([], 1))

    def test_WhatStandsInThePlaceOfItsFolders_IsToldBeforeTheOldRegistrationGoes(self):
        # A service that is registered and has no record would stay at the service.
        searches = "OmbrySecurity/CS-cpp/cache/printer/finder_cache"
        for path, given in (("OmbrySecurity/Components/printer/Services", {"namespace": "Factory"}),
                            (searches, {"namespace": "Factory"}), (searches, {"state": "absent"})):
            with self.subTest(path=path, given=given):
                host = self.make(*ENROLLED)
                host.put_obstacle(path)
                with self.assertRaisesRegex(Failure, "Nothing was changed"):
                    self.run_module(host, "service", given)
                self.assertEqual((host.ran, len(host.service.services)), ([], 1))

    def test_LinkThatLeadsToWhatIsNotTheTools_IsToldBeforeTheOldRegistrationGoes(self):
        host = self.make(*ENROLLED)
        elsewhere = host.move("OmbrySecurity/CS-cpp/cache/printer/finder_cache")
        (elsewhere / "hosts").write_text("x")
        with self.assertRaisesRegex(Failure, str(elsewhere)):
            self.run_module(host, "service", {"namespace": "Factory"})
        self.assertEqual((host.ran, len(host.service.services)), ([], 1))

    def test_WhatStandsInThePlaceOfTheFoldersOfOthers_IsTheirs(self):
        for path in ("Keys", "OmbrySecurity/Components/other", "OmbrySecurity/CS-cpp/cache/aa_token"):
            with self.subTest(path=path):
                host = self.make(*ENROLLED)
                host.put_obstacle(path)
                self.assertTrue(self.run_module(host, "service", {"namespace": "Factory"})["changed"])

    def test_RegistrationOfAClientThatWasReplaced_IsReplaced(self):
        host = self.make(*ENROLLED, ("client", {"rotate": True}))
        self.assertTrue(self.run_module(host, "service")["changed"])
        (registered,) = host.service.services.values()
        self.assertEqual([registered["owner"]], host.service.clients)
        self.assertFalse(self.run_module(host, "service")["changed"])

    def test_Renewal_ReplacesIt(self):
        host = self.make(*ENROLLED)
        self.assertTrue(self.run_module(host, "service", {"renew": True})["changed"])
        self.assertEqual(len(host.service.services), 1)

    def test_RegistrationWhoseRecordWasLost_IsFoundAndReplaced_AlthoughASearchWasKept(self):
        host = self.make(*ENROLLED)
        os.remove(host.components() / "printer/Services/v1-print.config")
        self.run_module(host, "service")
        self.assertEqual(len(host.service.services), 1)

    def test_DamagedRecord_IsReplaced(self):
        host = self.make(*ENROLLED)
        host.damaged.add("v1-print")
        self.assertTrue(self.run_module(host, "service")["changed"])
        self.assertEqual(len(host.service.services), 1)

    def test_DamagedNote_OnlyCostsARegistration(self):
        host = self.make(*ENROLLED)
        for text in ("", "[]", '{"id": "another"}'):
            host.write("OmbrySecurity/Components/printer/Services/v1-print.registration.json", text)
            self.assertTrue(self.run_module(host, "service")["changed"], text)
        self.assertFalse(self.run_module(host, "service")["changed"])

    def test_OwnerThatIsNotEnrolled_IsAFailure(self):
        host = self.make("bootstrap")
        with self.assertRaisesRegex(Failure, "printer is not enrolled"):
            self.run_module(host, "service")

    def test_OwnerWhoseCredentialsCannotBeRead_IsToldBeforeTheOldRegistrationGoes(self):
        for given in ({}, {"token": "t", "acting_client": None}):
            host = self.make(*ENROLLED)
            host.unreadable["printer"] = "damaged"
            with self.assertRaisesRegex(Failure, "Nothing was changed") as caught:
                self.run_module(host, "service", dict(given, namespace="Factory"))
            self.assertEqual((len(caught.exception.facts["hints"]), host.ran, len(host.service.services)), (1, [], 1))

    def test_ServiceOutOfReach_IsToldBeforeTheOldRegistrationGoes(self):
        host = self.make(*ENROLLED)
        host.service.is_up = False
        with self.assertRaisesRegex(Failure, "reached"):
            self.run_module(host, "service", {"namespace": "Factory"})
        self.assertEqual(len(host.service.services), 1)
        self.assertFalse(self.run_module(host, "service")["changed"])

    def test_Absent_RemovesRecordAndNote_AndTheSecondTimeChangesNothing(self):
        host = self.make(*ENROLLED)
        self.assertTrue(self.run_module(host, "service", {"state": "absent"})["changed"])
        self.assertEqual(host.service.services, {})
        self.assertEqual([path for path in host.tree() if "v1-print" in path], [])
        self.assertFalse(self.run_module(host, "service", {"state": "absent"})["changed"])

    def test_Absent_OfADamagedRecord_IsAFailure(self):
        host = self.make(*ENROLLED)
        host.damaged.add("v1-print")
        with self.assertRaisesRegex(Failure, "cannot be told"):
            self.run_module(host, "service", {"state": "absent"})

    def test_NamesThatLeadElsewhere_AreRefused(self):
        host = self.make(*ENROLLED)
        for given in ({"name": "../x"}, {"client": ".."}):
            with self.assertRaisesRegex(Failure, "cannot be the name"):
                self.run_module(host, "service", given)
        with self.assertRaisesRegex(Failure, "not enrolled"):
            self.run_module(host, "service", {"acting_client": "../..", "namespace": "Factory"})
