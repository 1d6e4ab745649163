"""The collection as Ansible finds it: below a folder of its namespace. Import this before anything of it."""
import atexit
import os
import pathlib
import shutil
import sys
import tempfile

SOURCE = pathlib.Path(__file__).resolve().parents[2] / "packaging/ansible"
PATH = tempfile.mkdtemp(prefix="ombry-collection-")
atexit.register(shutil.rmtree, PATH, ignore_errors=True)
FOLDER = os.path.join(PATH, "ansible_collections/ombry/sec_client")
os.makedirs(os.path.dirname(FOLDER))
os.symlink(SOURCE, FOLDER)
sys.path.insert(0, PATH)
