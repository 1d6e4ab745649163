"""When a machine is tied, and when it is left alone."""
import os

from fake_host import BERLIN, FINGERPRINT, OSLO, URL, plain_words
from module_test import ENROLLED, ModuleTest

from ansible_collections.ombry.sec_client.plugins.module_utils.host import Failure


class BootstrapTest(ModuleTest):
    def test_EmptyMachine_IsTied_AndTheSecondTimeLeftAlone(self):
        host = self.make()
        result = self.run_module(host, "bootstrap")
        self.assertTrue(result["changed"])
        self.assertEqual((result["address"], result["datacenter"], result["fingerprint"]), (URL, BERLIN, FINGERPRINT))
        self.assertEqual(plain_words(host), ["configure-bootstrap-url -t t -r %s -d %s" % (URL, BERLIN)])
        self.assertFalse(self.run_module(host, "bootstrap")["changed"])
        self.assertEqual(len(host.ran), 1)

    def test_HostStandsForTheUsualAddress_AsTheToolMakesIt(self):
        host = self.make()
        for given, url in (("Server1", URL), ("server1:99", URL.replace("8181", "99"))):
            self.run_module(host, "bootstrap", {"url": None, "host": given})
            self.assertEqual(host.report().address, url)

    def test_AnotherAddressOrDatacenter_TiesItAnew(self):
        for other in ({"url": URL + "2"}, {"datacenter_id": OSLO}):
            host = self.make("bootstrap")
            self.assertTrue(self.run_module(host, "bootstrap", other)["changed"], other)

    def test_DatacenterByName_IsComparedByTheIdThatTheServiceTells(self):
        host = self.make("bootstrap")
        self.assertFalse(self.run_module(host, "bootstrap", {"datacenter_id": None, "datacenter": "Berlin"})["changed"])
        self.assertTrue(self.run_module(host, "bootstrap", {"datacenter_id": None, "datacenter": "Oslo"})["changed"])
        with self.assertRaisesRegex(Failure, "no datacenter 'Rome'"):
            self.run_module(host, "bootstrap", {"datacenter_id": None, "datacenter": "Rome"})

    def test_ListWithAnotherColumn_OrANameOfManyLines_IsReadAllTheSame(self):
        host = self.make("bootstrap")
        host.service.columns = "\tEurope"
        host.service.datacenters = dict({"other": "three\n\nlines"}, **host.service.datacenters)
        self.assertFalse(self.run_module(host, "bootstrap", {"datacenter_id": None, "datacenter": "Berlin"})["changed"])

    def test_LostCertificate_TiesItAnew(self):
        host = self.make("bootstrap")
        host.certificate().unlink()
        self.assertTrue(self.run_module(host, "bootstrap")["changed"])

    def test_FingerprintInAnyForm_IsCompared(self):
        host = self.make("bootstrap")
        for form in ("abcd", "sha256 Fingerprint=AB:CD"):
            self.assertFalse(self.run_module(host, "bootstrap", {"fingerprint": form})["changed"], form)

    def test_DiffTellsACertificateThatIsHeldTo_AsItIs(self):
        for given in ({}, {"fingerprint": "abcd"}):
            host = self.make("bootstrap")
            diff = self.run_module(host, "bootstrap", dict(given, datacenter_id=OSLO))["diff"]
            self.assertEqual(diff["after"], dict(diff["before"], datacenter=OSLO), given)
        diff = self.run_module(self.make(), "bootstrap")["diff"]
        self.assertEqual(diff["after"]["fingerprint"], "as the service shows it")

    def test_ServiceWithAnotherFingerprint_IsSentNothing(self):
        host = self.make()
        with self.assertRaisesRegex(Failure, "Nothing was sent"):
            self.run_module(host, "bootstrap", {"fingerprint": "12:34"})
        self.assertEqual(host.ran, [])

    def test_TiedMachine_SendsNothingToWhoeverShowsAnotherCertificate(self):
        # The tool's get-datacenters trusts whoever answers, on a tied machine, too.
        for given in ({"datacenter": "Berlin"}, {"datacenter": "Berlin", "fingerprint": FINGERPRINT},
                      {"datacenter_id": OSLO}, {"datacenter_id": OSLO, "fingerprint": FINGERPRINT}):
            for check in (True, False):
                with self.subTest(given=given, check=check):
                    host = self.make("bootstrap")
                    host.service.fingerprint = "99:99"
                    with self.assertRaisesRegex(Failure, "Nothing was sent"):
                        self.run_module(host, "bootstrap", dict({"datacenter_id": None}, **given), check)
                    self.assertEqual(host.ran, [])

    def test_NewCertificateOfTheService_IsTakenIfItIsAskedFor(self):
        host = self.make("bootstrap")
        host.service.fingerprint = "99:99"
        self.assertTrue(self.run_module(host, "bootstrap", {"fingerprint": "99:99"})["changed"])
        self.assertEqual(host.report().fingerprint, "99:99")

    def test_AnotherAddress_OrAnUntidyTie_IsAFirstContact(self):
        host = self.make("bootstrap")
        host.service.fingerprint = "99:99"
        self.assertTrue(self.run_module(host, "bootstrap", {"url": URL + "2"})["changed"])
        host.certificate().unlink()
        host.service.fingerprint = "12:34"
        self.assertTrue(self.run_module(host, "bootstrap", {"url": URL + "2"})["changed"])

    def test_CertificateThatTurnsOutToBeAnother_IsNotTrustedAfterwards(self):
        host = self.make()
        host.fingerprint_of = lambda url: "1234"  # another one answered there than later the tool
        with self.assertRaisesRegex(Failure, "not trusted any more"):
            self.run_module(host, "bootstrap", {"fingerprint": "12:34"})
        self.assertIsNone(host.certificate())

    def test_DatacenterOfAFileThatTheToolDoesNotWrite_IsAFailure(self):
        host = self.make("bootstrap")
        host.common_datacenter = OSLO
        with self.assertRaisesRegex(Failure, "common.config"):
            self.run_module(host, "bootstrap")

    def test_FullDisk_IsToldBeforeAnythingIsDone(self):
        host = self.make()
        host.is_full = True
        with self.assertRaisesRegex(Failure, "full"):
            self.run_module(host, "bootstrap")
        self.assertEqual(host.ran, [])

    def test_Absent_LeavesNothing_AndTheSecondTimeChangesNothing(self):
        host = self.make("bootstrap", "client", ("client", {"state": "absent"}))
        self.assertTrue(self.run_module(host, "bootstrap", {"state": "absent"})["changed"])
        self.assertFalse(host.state.exists())
        self.assertFalse(self.run_module(host, "bootstrap", {"state": "absent"})["changed"])

    def test_Absent_RemovesWhatKilledRunsHaveLeft(self):
        host = self.make("bootstrap")
        for folder in ("Keys", "OmbrySecurity/Components/printer", "OmbrySecurity/CS", "OmbrySecurity/CS-cpp/cache"):
            host.leave(folder + "/.ombry-0123456789abcdef.tmp")
        self.run_module(host, "bootstrap", {"state": "absent"})
        self.assertFalse(host.state.exists())

    def test_Absent_LeavesWhatIsNotTheTools(self):
        host = self.make("bootstrap")
        host.write("common.config", "x")
        self.run_module(host, "bootstrap", {"state": "absent"})
        self.assertEqual(list(host.tree()), ["Quennet/common.config"])

    def test_Absent_LeavesNothingBehindALinkToAFolder(self):
        cache = "OmbrySecurity/CS-cpp/cache"
        for moved in ([cache], [cache + "/printer"], [cache + "/printer/aa_token"], [cache + "/aa_token"],
                      [cache + "/printer/aa_token", cache + "/printer", cache, "OmbrySecurity/CS-cpp", "OmbrySecurity"],
                      ["OmbrySecurity/Components"], ["Keys"], ["OmbrySecurity/CS"]):
            with self.subTest(moved=moved):
                host = self.make("bootstrap", "client", ("client", {"state": "absent"}))
                for file in ("v1-service.cache-p", "aa_token/a-p", "printer/aa_token/b-s", "printer/finder_cache/c-p",
                             "printer/aa_token/.ombry-0123456789abcdef.tmp"):
                    host.write(cache + "/" + file, "token")
                (host.components()).mkdir(exist_ok=True)
                for path in moved:
                    host.move(path)
                self.assertTrue(self.run_module(host, "bootstrap", {"state": "absent"})["changed"])
                self.assertEqual((host.tree(), host.state.exists()), ({}, False))

    def test_Absent_IsRefused_WhereALinkLeadsToWhatIsNotTheTools(self):
        cache = "OmbrySecurity/CS-cpp/cache"
        for moved, file in ((cache, "hosts"), (cache, "aa_token/x/y-p"), (cache, "printer/x-p"), (cache, "aa_token/token"),
                            (cache + "/printer", "aa_token.conf"), (cache + "/printer/aa_token", "passwd")):
            for check in (True, False):
                with self.subTest(moved=moved, file=file, check=check):
                    host = self.make("bootstrap")
                    host.write(cache + "/printer/aa_token/a-p", "token")
                    host.write(moved + "/" + file, "x")
                    elsewhere = host.move(moved)
                    before = host.tree()
                    with self.assertRaisesRegex(Failure, str(elsewhere)):
                        self.run_module(host, "bootstrap", {"state": "absent"}, check)
                    self.assertEqual(host.tree(), before)

    def test_Absent_IsRefused_WhereALinkLeadsToAFolderOfSomebodyElse(self):
        host = self.make("bootstrap")
        host.write("OmbrySecurity/CS-cpp/cache/aa_token/a-p", "token")
        elsewhere = host.move("OmbrySecurity/CS-cpp/cache")
        before = host.tree()
        host.owner = lambda path: os.geteuid() + 1
        with self.assertRaisesRegex(Failure, "%s, which belongs to somebody else" % elsewhere):
            self.run_module(host, "bootstrap", {"state": "absent"})
        self.assertEqual(host.tree(), before)

    def test_Absent_LeavesWhatALinkLeadsTo_ThatTheToolDoesNotOpen(self):
        host = self.make("bootstrap")
        host.write("OmbrySecurity/CS-cpp/cache/printer/aa_token/deeper/a-p", "x")
        elsewhere = host.move("OmbrySecurity/CS-cpp/cache/printer/aa_token/deeper")
        self.run_module(host, "bootstrap", {"state": "absent"})
        self.assertEqual((list(elsewhere.iterdir()), host.state.exists()), ([elsewhere / "a-p"], False))

    def test_Absent_IsRefusedWhileAClientIsEnrolled(self):
        host = self.make(*ENROLLED)
        before = host.tree()
        with self.assertRaisesRegex(Failure, "printer"):
            self.run_module(host, "bootstrap", {"state": "absent"})
        self.assertEqual(host.tree(), before)

    def test_FailureOfTheTool_IsHandedOn(self):
        host = self.make()
        host.failure = "Caught exception: Error 11.0"
        with self.assertRaises(Failure) as caught:
            self.run_module(host, "bootstrap")
        self.assertIn("Error 11.0", caught.exception.message)
        self.assertEqual(caught.exception.facts["rc"], 255)
