"""What the modules make of the doctor's document."""
import unittest

import collection  # noqa: F401  isort:skip
from ansible_collections.ombry.sec_client.plugins.module_utils.report import Report, hints


def finding(source, name, severity="success", remedy=None, **pairs):
    return {"source": source, "name": name, "severity": severity, "undecided": False, "message": name, "pairs": pairs,
            "remedy": remedy}


TIED = [finding("bootstrap", "address", address="https://s"), finding("bootstrap", "datacenter", datacenter="d", path="/f"),
        finding("bootstrap", "whole"), finding("trust", "certificate", sha256="AB")]


def report(*findings):
    return Report({"version": 1, "state": "/s", "status": "ok", "findings": list(findings)})


class ReportTest(unittest.TestCase):
    def test_MachineWithAddressDatacenterAndCertificate_IsTied(self):
        self.assertTrue(report(*TIED).is_tied_in_one_run)

    def test_MachineThatLacksOneOfThem_IsNot(self):
        for missing in (0, 1, 3):
            self.assertFalse(report(*(TIED[:missing] + TIED[missing + 1:])).is_tied)

    def test_CertificateThatIsThereButDamaged_TiesToNothing(self):
        damaged = finding("trust", "certificate", "critical", "configure", sha256="AB")
        self.assertFalse(report(*TIED[:3], damaged).is_tied)

    def test_CertificateThatEndsSoon_StillTies(self):
        self.assertTrue(report(*TIED[:3], finding("trust", "certificate", "warning", sha256="AB")).is_tied)

    def test_RemainsOfTwoRuns_TieButNotInOne(self):
        for remains in (finding("bootstrap", "whole", "warning", older="/a"),
                        finding("trust", "certificate", "warning", second_sha256="CD")):
            mixed = report(*TIED, remains)
            self.assertEqual((mixed.is_tied, mixed.is_tied_in_one_run), (True, False))

    def test_FirstCertificateAndTheSecond_AreBothNamed(self):
        mixed = report(*TIED, finding("trust", "certificate", "warning", second_sha256="CD"))
        self.assertEqual(mixed.fingerprints, ["AB", "CD"])

    def test_WhatMakesCommandsFail_IsToldOfASource_OrOfOneCheck(self):
        mixed = report(finding("clients", "key", "error"), finding("clients", "service", "critical"),
                       finding("clients", "key", "warning"), finding("state", "place", "error"))
        self.assertEqual(mixed.bad("clients"), mixed.findings[:2])
        self.assertEqual(mixed.bad("clients.key"), mixed.findings[:1])

    def test_ServicesAreThoseOfTheirClient(self):
        both = report(finding("clients", "service", client="a", service="x"),
                      finding("clients", "service", client="b", service="x"), finding("clients", "service"))
        self.assertEqual(list(both.services("a")), ["x"])
        self.assertEqual(both.services("c"), {})

    def test_LeftoversAreThePathsOfWhatIsThere(self):
        self.assertEqual(report(finding("state", "leftovers")).leftovers, [])
        self.assertEqual(report(finding("state", "leftovers", "warning", path="/a", age_seconds=1)).leftovers, ["/a"])

    def test_HintIsARemedyWithItsReason_AndWithoutARemedyThereIsNone(self):
        self.assertEqual(hints([finding("clients", "key", "error", "chmod 600"), finding("a", "b", "warning")]),
                         ["clients.key: key; type: chmod 600"])
