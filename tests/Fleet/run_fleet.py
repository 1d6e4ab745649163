#!/usr/bin/python3
"""Runs the test of the fleet in namespaces of its own, where its hosts and their network can be made. Where that is not
allowed the test is left out, with the reason.

    run_fleet.py BUILD RESULT [HOSTS]
"""
import os
import pathlib
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
APART = ["unshare", "--mount", "--net", "--pid", "--fork", "--kill-child", "--mount-proc", "--propagation", "private"]
# What the hosts are made of: a file system over another one, and a network.
TRY = """set -e
mount -t tmpfs none /mnt
mkdir /mnt/changed /mnt/work /mnt/root
mount -t overlay -o lowerdir=/,upperdir=/mnt/changed,workdir=/mnt/work overlay /mnt/root
ip link add bridge type bridge
ip link add wire type veth peer name other
unshare --mount --net --uts --ipc --pid --fork true"""


def main():
    build, result, hosts = (sys.argv[1:] + ["4"])[:3]
    words = ["/usr/bin/python3", str(HERE.parent / "Ansible/run_tests.py"), str(HERE), result]
    environment = dict(os.environ, FLEET_BUILD=build, FLEET_HOSTS=hosts)
    tried = subprocess.run(APART + ["sh", "-c", TRY], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    if tried.returncode == 0:
        words = APART + words
    else:
        environment["FLEET_SKIPPED"] = "no hosts can be made here: " + tried.stdout.strip().splitlines()[-1]
    os.execvpe(words[0], words, environment)


if __name__ == "__main__":
    main()
