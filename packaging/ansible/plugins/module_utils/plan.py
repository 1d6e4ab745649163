"""What a module is about to do. A check tells the plan, a run carries the same one out: so they cannot differ."""

from ansible_collections.ombry.sec_client.plugins.module_utils.host import Failure


class Plan:
    def __init__(self, before, after):
        self.before = before  # for the diff; never a secret, and nothing that only a run could know
        self.after = after
        self.steps = []  # (words that may be shown, function)

    def add(self, told, function):
        self.steps.append((told, function))

    @property
    def is_empty(self):
        return not self.steps

    def result(self):
        result = {"changed": not self.is_empty, "commands": [told for told, function in self.steps if told]}
        result["diff"] = {"before": self.before, "after": self.before if self.is_empty else self.after}
        return result

    def carry_out(self):
        for told, function in self.steps:
            function()


def end(module, make):
    """Ends the module with what `make` returns, or with why it could not."""
    try:
        result = make()
    except Failure as failure:
        module.fail_json(msg=failure.message, **failure.facts)
    else:
        module.exit_json(**result)
