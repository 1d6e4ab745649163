#!/usr/bin/python3
"""Runs the tests in a folder, and writes down how they went as GoogleTest does, for `scripts/test` to count.

    run_tests.py FOLDER RESULT [PATTERN]
"""
import json
import pathlib
import sys
import time
import unittest


class Result(unittest.TextTestResult):
    """Notes each test with its outcome."""

    def __init__(self, *arguments, **named):
        super().__init__(*arguments, **named)
        self.outcomes = {}
        self.began = {}

    def startTest(self, test):
        super().startTest(test)
        self.began[test.id()] = time.monotonic()
        self.outcomes[test.id()] = {"result": "COMPLETED"}

    def stopTest(self, test):
        super().stopTest(test)
        self.outcomes[test.id()]["time"] = "%.3fs" % (time.monotonic() - self.began[test.id()])

    def note(self, test, **outcome):
        # What goes wrong in setUpClass or an import belongs to no test that has begun.
        self.outcomes.setdefault(test.id(), {"result": "COMPLETED"}).update(outcome)

    def failed(self, test, text):
        self.outcomes.setdefault(test.id(), {"result": "COMPLETED"}).setdefault("failures", []).append({"failure": text})

    def addError(self, test, err):
        super().addError(test, err)
        self.failed(test, self.errors[-1][1])

    def addFailure(self, test, err):
        super().addFailure(test, err)
        self.failed(test, self.failures[-1][1])

    def addSubTest(self, test, subtest, err):
        super().addSubTest(test, subtest, err)
        if err is not None:
            self.failed(test, "%s: %s" % (subtest, self._exc_info_to_string(err, test)))

    def addSkip(self, test, reason):
        super().addSkip(test, reason)
        self.note(test, result="SKIPPED", skipped_because=reason)


def document(outcomes):
    suites = {}
    for name, outcome in outcomes.items():
        suite, _, test = name.rpartition(".")
        suites.setdefault(suite.rpartition(".")[2], []).append(dict(outcome, name=test))
    bad = sum("failures" in outcome for outcome in outcomes.values())
    return {"name": "AllTests", "tests": len(outcomes), "failures": bad, "errors": 0,
            "testsuites": [{"name": name, "tests": len(tests), "testsuite": tests} for name, tests in suites.items()]}


def main():
    folder, result_file, pattern = (sys.argv[1:] + ["test_*.py"])[:3]
    sys.dont_write_bytecode = True
    suite = unittest.TestLoader().discover(folder, pattern)
    runner = unittest.TextTestRunner(resultclass=Result, stream=sys.stdout)
    result = runner.run(suite)
    path = pathlib.Path(result_file)
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(json.dumps(document(result.outcomes), indent=1))
    # A folder in which nothing was found has not been tested.
    sys.exit(0 if result.wasSuccessful() and result.outcomes else 1)


if __name__ == "__main__":
    main()
