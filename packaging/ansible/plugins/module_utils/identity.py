"""Who acts: the options that all modules have which call the service."""


def arguments(with_client=True):
    options = {
        "user": {"type": "str"},
        "password": {"type": "str", "no_log": True},
        "token": {"type": "str", "no_log": True},
    }
    if with_client:
        options["acting_client"] = {"type": "str"}
    return options


def mutually_exclusive(with_client=True):
    return [["user", "token"] + (["acting_client"] if with_client else [])]


REQUIRED_TOGETHER = [["user", "password"]]


def is_given(params):
    return any(params.get(name) for name in ("user", "token", "acting_client"))


def words(params):
    """The options of the tool. It takes a password and a token from its command line alone."""
    if params.get("user"):
        return ["-u", params["user"], "-p", params["password"]]
    if params.get("token"):
        return ["-t", params["token"]]
    return ["-n", params["acting_client"]]


def cache_owner(params):
    """The folder of caches that a run of this identity uses, below that of all caches."""
    return params.get("acting_client") or ""
