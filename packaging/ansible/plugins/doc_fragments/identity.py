"""The options that say who acts."""


class ModuleDocFragment:
    DOCUMENTATION = r"""
options:
  user:
    description:
      - A user of the service.
    type: str
  password:
    description:
      - The password of I(user).
    type: str
  token:
    description:
      - A fixed token, such as an install token.
    type: str
notes:
  - The tool takes a password and a token from its command line alone, where every user of the host can read them while it
    runs. Where that matters, use a token that lasts for a short time, or an enrolled client where the module takes one.
  - Run as root, so mostly with C(become=true).
attributes:
  check_mode:
    description: Can run in check mode and say what a run would change.
    support: full
  diff_mode:
    description: Says what is there, and what will be.
    support: full
"""

    ACTING_CLIENT = r"""
options:
  acting_client:
    description:
      - A client that is enrolled on this host, and acts with the credentials that it has there. No secret leaves the host.
    type: str
"""
