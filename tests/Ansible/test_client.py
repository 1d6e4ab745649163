"""When a client is enrolled, replaced and removed."""
import os

from fake_host import MOMENT, plain_words
from module_test import ENROLLED, ModuleTest

from ansible_collections.ombry.sec_client.plugins.module_utils.host import Failure
from ansible_collections.ombry.sec_client.plugins.modules.client import nanoseconds

BEFORE_ALL = "2023-11-14T22:13:19Z"  # a second before MOMENT


class ClientTest(ModuleTest):
    def test_NewClient_IsEnrolled_AndTheSecondTimeLeftAlone(self):
        host = self.make("bootstrap")
        self.assertTrue(self.run_module(host, "client", {"description": "First floor"})["changed"])
        self.assertEqual(plain_words(host), ["enroll-client -t t -nn printer -desc First floor"])
        self.assertFalse(self.run_module(host, "client", {"description": "Second floor"})["changed"])
        self.assertEqual(host.service.clients, ["client1"])

    def test_UserActsWithItsPassword(self):
        host = self.make("bootstrap")
        self.run_module(host, "client", {"token": None, "user": "admin", "password": "secret"})
        self.assertEqual(plain_words(host), ["enroll-client -u admin -p secret -nn printer"])

    def test_Rotation_ReplacesTheClient_EachTime(self):
        host = self.make("bootstrap", "client")
        for name in ("client2", "client3"):
            self.assertTrue(self.run_module(host, "client", {"rotate": True})["changed"])
            self.assertEqual(host.service.clients, [name])

    def test_RotationOfWhatIsOlder_ReplacesItOnce(self):
        host = self.make("bootstrap", "client")
        self.assertFalse(self.run_module(host, "client", {"rotate_before": BEFORE_ALL})["changed"])
        made = str(host.components() / "printer/ombrycomponent.config")
        os.utime(made, (MOMENT, MOMENT))
        self.assertFalse(self.run_module(host, "client", {"rotate_before": "2023-11-14T22:13:20Z"})["changed"])
        between = "2023-11-14T22:13:20.000000001Z"
        self.assertTrue(self.run_module(host, "client", {"rotate_before": between})["changed"])
        self.assertFalse(self.run_module(host, "client", {"rotate_before": between})["changed"])

    def test_MomentIsReadToTheNanosecond_AndAnythingElseRefused(self):
        self.assertEqual(nanoseconds("2023-11-14T22:13:20.000000001Z"), MOMENT * 10 ** 9 + 1)
        # As it comes of YAML without quotes, by itself and through a variable.
        for unquoted in ("2023-11-14T22:13:20+00:00", "2023-11-14 22:13:20+00:00"):
            self.assertEqual(nanoseconds(unquoted), MOMENT * 10 ** 9)
        host = self.make("bootstrap")
        for wrong in ("yesterday", "2023-11-14", "2023-11-14T22:13:20", "2023-13-14T22:13:20Z",
                      "2023-11-14 22:13:20",
                      "2023-11-14T22:13:20+01:00"):
            with self.assertRaisesRegex(Failure, "no moment"):
                self.run_module(host, "client", {"rotate_before": wrong})

    def test_TokensOfTheClientThatWas_AreGoneBeforeTheNewOneActs(self):
        host = self.make("bootstrap", "client")
        host.write("OmbrySecurity/CS-cpp/cache/printer/aa_token/old", "client1")
        self.run_module(host, "client", {"rotate": True})
        self.assertEqual([text for path, text in host.tree().items() if "aa_token" in path], ["client2"])

    def test_UnreadableCredentials_AreReplaced_WhereThatHelps(self):
        for cause in ("damaged", "cloned", "damaged-or-cloned", "key-lost"):
            host = self.make("bootstrap", "client")
            host.unreadable["printer"] = cause
            self.assertTrue(self.run_module(host, "client")["changed"], cause)
            self.assertRegex(host.warnings[0], "keeps the client")

    def test_UnreadableCredentials_AreAFailureWithTheRemedy_WhereANewClientWouldBeLost(self):
        for cause in ("key-damaged", "key-not-private", "key-out-of-reach", "no-file"):
            host = self.make("bootstrap", "client")
            host.unreadable["printer"] = cause
            with self.assertRaises(Failure) as caught:
                self.run_module(host, "client")
            self.assertEqual(len(caught.exception.facts["hints"]), 1)
            self.assertEqual(host.ran, [])

    def test_KeyThatCannotBeUsed_KeepsNewClientsAway(self):
        host = self.make("bootstrap", ("client", {"name": "other"}))
        host.has_key_trouble = True
        with self.assertRaisesRegex(Failure, "key"):
            self.run_module(host, "client")
        self.assertEqual(host.ran, [])

    def test_KeyThatIsLost_DoesNot(self):
        host = self.make("bootstrap", ("client", {"name": "other"}))
        host.has_key_trouble = True
        (host.state / "Keys/protection.key").unlink()
        self.assertTrue(self.run_module(host, "client")["changed"])

    def test_WhateverIsWrongBelowAnEnrollment_KeepsNewClientsAway(self):
        # Neither of these is mended by a new client, even where no file is at the path, or none is told.
        for trouble in (("clients", "key", "error", "rm /i && Ombry.SecClientConfig enroll-client -nn other",
                         {"path": "/none", "identity": "/i"}),
                        ("clients", "key", "error", "systemd-machine-id-setup", {"path": "/none/machine-id"}),
                        ("clients", "key", "critical", None, {}),
                        ("state", "place", "critical", "rm -f -- /x", {"path": "/x"})):
            with self.subTest(trouble=trouble):
                for runs in (("bootstrap",), ("bootstrap", "client")):
                    host = self.make(*runs)
                    host.troubles.append(trouble)
                    with self.assertRaisesRegex(Failure, "Nothing was changed"):
                        self.run_module(host, "client", {"rotate": True})
                    self.assertEqual(host.ran, [])

    def test_WhatStandsInThePlaceOfAFolder_KeepsThoseAwayWhoSaveThere(self):
        components, cache = "OmbrySecurity/Components", "OmbrySecurity/CS-cpp/cache"
        for path, given, is_theirs in (
                ("Keys", {}, True), (components, {}, True), (cache, {}, True),
                (components + "/printer", {}, True), (components + "/printer/Services", {}, True),
                (components + "/other", {}, False), (components + "/printer2", {}, False),
                (cache + "/printer", {}, True), (cache + "/printer/aa_token", {}, True),
                (cache + "/other", {}, False), (cache + "/other/aa_token", {}, False),
                (cache + "/finder_cache", {}, True), (cache + "/other", {"token": None, "acting_client": "other"}, True),
                (cache + "/finder_cache", {"token": None, "acting_client": "other"}, False)):
            with self.subTest(path=path, given=given):
                host = self.make("bootstrap", ("client", {"name": "other"}))
                host.put_obstacle(path)
                if not is_theirs:
                    self.assertTrue(self.run_module(host, "client", given)["changed"])
                    continue
                with self.assertRaisesRegex(Failure, "Nothing was changed") as caught:
                    self.run_module(host, "client", given)
                self.assertEqual((caught.exception.facts["hints"][0].endswith(path), host.ran), (True, []))

    def test_Absent_IsRefused_WhereWhoActsCannotSaveACache(self):
        cache = "OmbrySecurity/CS-cpp/cache"
        for path, given, is_refused in (
                (cache + "/aa_token", {}, True), (cache + "/printer", {}, False), ("Keys", {}, False),
                (cache + "/printer/aa_token", {"token": None, "acting_client": "printer"}, True)):
            with self.subTest(path=path, given=given):
                host = self.make(*ENROLLED)
                host.put_obstacle(path)
                if not is_refused:
                    self.assertTrue(self.run_module(host, "client", dict(given, state="absent"))["changed"])
                    continue
                with self.assertRaisesRegex(Failure, "Nothing was changed"):
                    self.run_module(host, "client", dict(given, state="absent"))
                self.assertEqual(host.ran, [])

    def test_WarningsBelowAnEnrollment_AndErrorsBesideIt_DoNot(self):
        for trouble in (("state", "place", "warning", None, {}), ("clients", "key", "warning", None, {}),
                        ("tokens", "token", "error", "rm /t", {"path": "/t"})):
            host = self.make("bootstrap")
            host.troubles.append(trouble)
            self.assertTrue(self.run_module(host, "client")["changed"], trouble)

    def test_FullDiskOrServiceOutOfReach_IsToldBeforeTheOldClientGoes(self):
        for trouble in ("disk", "service"):
            host = self.make("bootstrap", "client")
            host.is_full = trouble == "disk"
            host.service.is_up = trouble != "service"
            with self.assertRaisesRegex(Failure, "full|reached"):
                self.run_module(host, "client", {"rotate": True})
            self.assertEqual(host.ran, [])
            self.assertEqual(host.service.clients, ["client1"])

    def test_MachineThatIsNotTied_IsAFailure(self):
        host = self.make()
        with self.assertRaisesRegex(Failure, "tied to no service"):
            self.run_module(host, "client")

    def test_ClientThatWouldReplaceItself_IsRefused(self):
        host = self.make("bootstrap", "client")
        with self.assertRaisesRegex(Failure, "cannot enrol itself"):
            self.run_module(host, "client", {"token": None, "acting_client": "printer", "rotate": True})

    def test_NobodyWhoActs_IsRefused_WhereSomethingIsToBeDone(self):
        host = self.make("bootstrap")
        with self.assertRaisesRegex(Failure, "was given"):
            self.run_module(host, "client", {"token": None})
        self.run_module(host, "client")
        self.assertFalse(self.run_module(host, "client", {"token": None})["changed"])

    def test_NamesThatLeadElsewhere_AreRefused(self):
        host = self.make(*ENROLLED)
        before = host.tree()
        for name in ("", ".", "..", "../x", "a/b", "a\0"):
            for state in ("present", "absent"):
                with self.assertRaisesRegex(Failure, "name of a client"):
                    self.run_module(host, "client", {"name": name, "state": state})
        self.assertEqual(host.tree(), before)

    def test_Absent_RemovesItsServicesFirst_AndLeavesNothingOfIt(self):
        host = self.make(*ENROLLED, ("service", {"name": "v2-print"}))
        result = self.run_module(host, "client", {"state": "absent"})
        self.assertEqual(result["commands"], ["unenroll-service printer v1-print", "unenroll-service printer v2-print",
                                              "unenroll-client printer"])
        self.assertEqual((host.service.clients, host.service.services), ([], {}))
        self.assertEqual([path for path in host.tree() if "printer" in path], [])
        self.assertFalse(self.run_module(host, "client", {"state": "absent"})["changed"])

    def test_Absent_LeavesNothingBehindALinkToAFolder(self):
        for moved in ("OmbrySecurity/CS-cpp/cache", "OmbrySecurity/CS-cpp/cache/printer",
                      "OmbrySecurity/CS-cpp/cache/printer/aa_token", "OmbrySecurity/Components",
                      "OmbrySecurity/Components/printer", "OmbrySecurity/Components/printer/Services"):
            with self.subTest(moved=moved):
                host = self.make(*ENROLLED)
                host.move(moved)
                self.run_module(host, "client", {"state": "absent"})
                self.assertEqual([path for path in host.tree() if "printer" in path], [])
                self.assertFalse(os.path.lexists(host.components() / "printer"))

    def test_LinkThatLeadsToWhatIsNotTheTools_IsToldBeforeAnythingGoes(self):
        cache = "OmbrySecurity/CS-cpp/cache"
        for moved, file, given in ((cache + "/printer/aa_token", "passwd", {"rotate": True}),
                                   (cache + "/printer/aa_token", "passwd", {"state": "absent"}),
                                   (cache, "printer/passwd", {"state": "absent"})):
            for check in (True, False):
                with self.subTest(moved=moved, given=given, check=check):
                    host = self.make(*ENROLLED)
                    elsewhere = host.move(moved)
                    (elsewhere / file).write_text("x")
                    with self.assertRaisesRegex(Failure, str(elsewhere)):
                        self.run_module(host, "client", given, check)
                    self.assertEqual((host.ran, (elsewhere / file).exists()), ([], True))

    def test_Absent_RemovesTheTokensOfAClientThatIsGone(self):
        # As a run leaves it that was cut off, or somebody who has used the tool; nobody needs to act.
        host = self.make("bootstrap", "client")
        host.run(["unenroll-client", "-t", "t", "-un", "printer"])
        host.ran.clear()
        gone = {"state": "absent", "token": None}
        for check in (True, False):
            result = self.run_module(host, "client", gone, check)
            self.assertEqual((result["changed"], result["commands"]), (True, []))
        self.assertEqual(([path for path in host.tree() if "printer" in path], host.ran), ([], []))
        self.assertFalse(self.run_module(host, "client", gone)["changed"])

    def test_Absent_RemovesWhatKilledRunsHaveLeftOfIt(self):
        host = self.make(*ENROLLED)
        for client in ("printer", "printer2"):
            for folder in ("/", "/Services/"):
                host.leave("OmbrySecurity/Components/" + client + folder + ".ombry-0123456789abcdef.tmp")
        self.run_module(host, "client", {"state": "absent"})
        self.assertEqual([folder.name for folder in host.components().iterdir()], ["printer2"])
        self.assertEqual(len(list(host.components().rglob("*.tmp"))), 2)

    def test_Absent_RemovesTheNoteOfAServiceThatIsGone(self):
        host = self.make(*ENROLLED)
        host.run(["unenroll-service", "-n", "printer", "-on", "printer", "-s", "v1-print"])
        self.run_module(host, "client", {"state": "absent"})
        self.assertEqual([path for path in host.tree() if "printer" in path], [])
        self.assertFalse((host.components() / "printer").exists())

    def test_Absent_ByTheClientItself(self):
        host = self.make(*ENROLLED)
        self.run_module(host, "client", {"state": "absent", "token": None, "acting_client": "printer"})
        self.assertEqual(plain_words(host)[-1], "unenroll-client-self -n printer")
        self.assertEqual((host.service.clients, host.service.services), ([], {}))

    def test_Absent_OfCredentialsThatNobodyCanRead_IsAFailure(self):
        host = self.make("bootstrap", "client")
        host.unreadable["printer"] = "cloned"
        with self.assertRaisesRegex(Failure, "cannot be told"):
            self.run_module(host, "client", {"state": "absent"})
        self.assertEqual(host.ran, [])

    def test_Absent_ThatTheToolDidNotDo_IsAFailure(self):
        host = self.make("bootstrap", "client")
        host.unenroll_client = lambda options: None
        with self.assertRaisesRegex(Failure, "still there"):
            self.run_module(host, "client", {"state": "absent"})
