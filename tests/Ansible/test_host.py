"""How the modules hear the two programs, and what they do to files themselves."""
import fcntl
import json
import os
import shutil
import tempfile
import unittest
from unittest import mock

import collection  # noqa: F401  isort:skip
from ansible_collections.ombry.sec_client.plugins.module_utils import host as host_module
from ansible_collections.ombry.sec_client.plugins.module_utils import identity
from ansible_collections.ombry.sec_client.plugins.module_utils.host import Failure, Host, without_tokens

DOCUMENT = {"version": 1, "state": "/var/lib/Quennet", "status": "critical", "findings": [
    {"source": "clients", "name": "key", "severity": "error", "undecided": False, "message": "Others may read it",
     "pairs": {"path": "/k"}, "remedy": "chmod 600 -- /k"}]}


class ScriptedModule:
    """Answers each program with what the test has told beforehand, in its order."""

    def __init__(self, *answers, check_mode=False, is_installed=True):
        self.answers = list(answers)
        self.check_mode = check_mode
        self.is_installed = is_installed
        self.ran = []
        self.warnings = []

    def get_bin_path(self, name):
        return "/usr/bin/" + name if self.is_installed else None

    def run_command(self, words):
        self.ran.append(words)
        return self.answers.pop(0)

    def warn(self, text):
        self.warnings.append(text)


def answer(document, code=0):
    return code, json.dumps(document), ""


class HostTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="ombry-host-")
        self.addCleanup(shutil.rmtree, self.folder)

    def test_WhatTheDoctorFinds_IsRead_AlthoughItIsNotWell(self):
        module = ScriptedModule(answer(DOCUMENT, 2))
        self.assertEqual(Host(module).report(connect=True).bad("clients.key")[0]["message"], "Others may read it")
        self.assertEqual(module.ran, [["/usr/bin/ombry-doctor", "--json", "--connect"]])

    def test_DoctorThatMayNotLook_IsAFailureThatAsksForRoot(self):
        undecided = dict(DOCUMENT, findings=[dict(DOCUMENT["findings"][0], undecided=True)])
        for given in (answer(DOCUMENT, 3), answer(undecided, 2)):
            with self.assertRaisesRegex(Failure, "become"):
                Host(ScriptedModule(given)).report()

    def test_DoctorWithoutADocument_OrWithOneOfAnotherVersion_IsAFailure(self):
        for given in ((127, "", "cannot execute"), (0, "[", ""), answer(dict(DOCUMENT, version=2))):
            with self.assertRaisesRegex(Failure, "no document that can be read"):
                Host(ScriptedModule(given)).report()

    def test_FailureOfTheTool_ComesWithItsTextItsCodeAndTheDoctorsRemedy(self):
        module = ScriptedModule((255, "out", "Caught exception: Error 11.0\n"), answer(DOCUMENT, 2))
        with self.assertRaises(Failure) as caught:
            Host(module).run(["enroll-client", "-t", "s3cret"])
        self.assertEqual(caught.exception.message,
                         "Ombry.SecClientConfig enroll-client ended with exit code 255: Caught exception: Error 11.0")
        self.assertEqual(caught.exception.facts, {
            "rc": 255, "stdout": "out", "stderr": "Caught exception: Error 11.0\n",
            "hints": ["clients.key: Others may read it; type: chmod 600 -- /k"]})

    def test_TokenInAnAnswerThatTheToolQuotes_IsNotHandedOn(self):
        text = """serialization_='{"access_token" : "abc.def", "token_type":"x"}' is no answer"""
        self.assertNotIn("abc", without_tokens(text))
        self.assertEqual(without_tokens("Error 11.0"), "Error 11.0")

    def test_NothingInstalledAndNoState_IsAnEmptyMachine_OfWhichACheckWarns(self):
        for state, check_mode in ((self.folder, True), (self.folder, False), (self.folder + "/none", False)):
            with mock.patch.object(host_module, "STATE", state):
                module = ScriptedModule(check_mode=check_mode, is_installed=False)
                self.assertFalse(Host(module).report().is_tied)
                self.assertEqual(len(module.warnings), check_mode)
                with self.assertRaisesRegex(Failure, "not both installed"):
                    Host(module).run(["get-datacenters"])

    def test_NothingInstalledButAState_IsAFailure(self):
        os.mkdir(self.folder + "/Keys")
        with open(self.folder + "/file", "w"):
            pass
        for state in (self.folder, self.folder + "/file"):
            with mock.patch.object(host_module, "STATE", state):
                with self.assertRaisesRegex(Failure, "not both installed"):
                    Host(ScriptedModule(check_mode=True, is_installed=False)).report()

    def test_StateThatMayNotBeLookedAt_IsAFailureThatAsksForRoot(self):
        with mock.patch.object(os, "listdir", side_effect=PermissionError(13, "Permission denied")):
            with self.assertRaisesRegex(Failure, "become"):
                Host(ScriptedModule(is_installed=False)).report()

    def test_RoomIsAskedForWhereTheStateWillLie(self):
        host = Host(ScriptedModule())
        host.require_room(self.folder + "/not/there/yet")
        for bytes_free, files_free, files in ((0, 9, 9), (host_module.ROOM - 1, 9, 9), (host_module.ROOM, 0, 9)):
            disk = mock.Mock(f_bavail=bytes_free, f_frsize=1, f_favail=files_free, f_files=files)
            with mock.patch.object(os, "statvfs", return_value=disk) as asked:
                with self.assertRaisesRegex(Failure, "full"):
                    host.require_room(self.folder + "/not/there/yet")
                asked.assert_called_once_with(self.folder)
        disk = mock.Mock(f_bavail=host_module.ROOM, f_frsize=1, f_favail=0, f_files=0)
        with mock.patch.object(os, "statvfs", return_value=disk):
            host.require_room(self.folder)

    def test_TwoRunsOfOneHost_FollowEachOther_AndACheckWaitsForNobody(self):
        lock = self.folder + "/lock"

        def is_free():
            with open(lock) as file:
                try:
                    fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
                except BlockingIOError:
                    return False
                return True

        with mock.patch.object(host_module, "LOCK", lock):
            with Host(ScriptedModule(check_mode=True)).alone():
                self.assertFalse(os.path.exists(lock))
            for failure in (None, Failure("full")):
                try:
                    with Host(ScriptedModule()).alone():
                        self.assertFalse(is_free())
                        with Host(ScriptedModule(check_mode=True)).alone():
                            pass
                        if failure:
                            raise failure
                except Failure:
                    pass
                self.assertTrue(is_free())
        with mock.patch.object(host_module, "LOCK", self.folder + "/none/lock"):
            with self.assertRaisesRegex(Failure, "become"), Host(ScriptedModule()).alone():
                pass

    def test_ServiceThatDoesNotAnswer_IsAFailureWithTheDoctorsReason(self):
        finding = {"source": "connect", "name": "server", "undecided": False, "message": "nobody answers", "pairs": {},
                   "remedy": None}
        host = Host(ScriptedModule(answer(dict(DOCUMENT, findings=[dict(finding, severity="critical")])),
                                   answer(dict(DOCUMENT, findings=[dict(finding, severity="warning")]))))
        with self.assertRaisesRegex(Failure, "nobody answers"):
            host.require_service()
        host.require_service()

    def test_OnlyEmptyFoldersGo_UpToTheLast(self):
        host = Host(ScriptedModule())
        os.makedirs(self.folder + "/a/b/c")
        os.makedirs(self.folder + "/a/d")
        host.remove_empty(self.folder + "/a/b/c", self.folder + "/a")
        self.assertEqual(sorted(os.listdir(self.folder + "/a")), ["d"])
        host.remove_empty(self.folder + "/a/d", self.folder + "/a")
        self.assertEqual(os.listdir(self.folder), [])

    def test_LinksToEmptyFoldersGo_AndOthersStay(self):
        host = Host(ScriptedModule())
        for name in ("empty", "full", "full/x", "links"):
            os.mkdir("%s/%s" % (self.folder, name))
        for name in ("empty", "full"):
            link = "%s/links/%s" % (self.folder, name)
            os.symlink("%s/%s" % (self.folder, name), link)
            host.remove_empty(link, link)
        self.assertEqual((os.listdir(self.folder + "/links"), os.listdir(self.folder + "/full")), (["full"], ["x"]))

    def test_WhatIsKept_IsForTheOwnerAlone_AndWhatCannotBeRead_CountsAsNothing(self):
        host = Host(ScriptedModule())
        path = self.folder + "/x.json"
        self.assertIsNone(host.read_json(path))
        host.write_json(path, {"a": 1})
        self.assertEqual((host.read_json(path), os.stat(path).st_mode & 0o777), ({"a": 1}, 0o600))
        with open(path, "w") as file:
            file.write("{")
        self.assertIsNone(host.read_json(path))
        with self.assertRaisesRegex(Failure, "cannot be written"):
            host.write_json(self.folder + "/missing/x.json", {})

    def test_RemovalOfALink_LeavesWhatItPointsTo(self):
        host = Host(ScriptedModule())
        os.mkdir(self.folder + "/kept")
        os.symlink(self.folder + "/kept", self.folder + "/link")
        for name in ("/link", "/link", "/none"):
            host.remove(self.folder + name)
        self.assertEqual(os.listdir(self.folder), ["kept"])

    def test_WhoActs_BecomesTheToolsOptions(self):
        for params, words in (({"user": "u", "password": "p"}, ["-u", "u", "-p", "p"]), ({"token": "t"}, ["-t", "t"]),
                              ({"acting_client": "c"}, ["-n", "c"])):
            self.assertTrue(identity.is_given(params))
            self.assertEqual(identity.words(params), words)
        self.assertFalse(identity.is_given({"user": None, "token": ""}))
