"""Writes down what each task came to on each host, one JSON document a line, for the test to read."""
DOCUMENTATION = r"""
name: record
type: aggregate
short_description: Outcomes as lines of JSON, in the file that FLEET_RECORD names
description: For the test of the fleet.
"""

import json
import os

from ansible.plugins.callback import CallbackBase


class CallbackModule(CallbackBase):
    CALLBACK_VERSION = 2.0
    CALLBACK_TYPE = "aggregate"
    CALLBACK_NAME = "record"

    def note(self, outcome, result):
        kept = ("changed", "msg", "commands", "diff", "rc", "stderr", "hints", "report", "clients", "warnings")
        line = {"host": result._host.get_name(), "task": result.task_name, "outcome": outcome,
                "result": {key: value for key, value in result._result.items() if key in kept}}
        with open(os.environ["FLEET_RECORD"], "a") as file:
            file.write(json.dumps(line) + "\n")

    def v2_runner_on_ok(self, result):
        # Of a loop each round has been noted already.
        if "results" not in result._result:
            self.note("ok", result)

    def v2_runner_on_failed(self, result, ignore_errors=False):
        if "results" not in result._result:
            self.note("failed", result)

    def v2_runner_on_unreachable(self, result):
        self.note("unreachable", result)

    def v2_runner_item_on_ok(self, result):
        self.note("ok", result)

    def v2_runner_item_on_failed(self, result):
        self.note("failed", result)
