"""The collection as Ansible's own programs see it."""
import json
import os
import shutil
import subprocess
import tarfile
import tempfile
import unittest

import collection
import yaml

MODULES = ("bootstrap", "client", "machine_info", "service")


class DocumentsTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.place = tempfile.mkdtemp(prefix="ombry-ansible-")
        cls.addClassCleanup(shutil.rmtree, cls.place)
        # ansible-lint looks beside the folder that is named here, Ansible itself in it if it has this name.
        cls.environment = dict(os.environ, HOME=cls.place, ANSIBLE_LOCAL_TEMP=cls.place, LC_ALL="C.UTF-8",
                               ANSIBLE_COLLECTIONS_PATH=os.path.join(collection.PATH, "ansible_collections"))

    def run_program(self, *words, **named):
        return subprocess.run(words, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, env=self.environment,
                              stdin=subprocess.DEVNULL, **named)

    def test_AnsibleLint_IsSilent_WithTheProfileForProduction(self):
        # A copy, since it would write its cache into the tree.
        folder = os.path.join(self.place, "lint/ansible_collections/ombry/sec_client")
        shutil.copytree(collection.SOURCE, folder)
        environment = dict(self.environment, ANSIBLE_COLLECTIONS_PATH=os.path.join(self.place, "lint/ansible_collections"))
        # Newer ones say of Debian 12's Ansible, which the collection is for as well, that it is no longer supported; and on
        # stderr what Debian 13's lint cannot read with Debian 13's Ansible.
        checked = subprocess.run(["ansible-lint", "-q", "--offline", "--nocolor", "--profile", "production",
                                  "-x", "meta-runtime[unsupported-version]"], cwd=folder, env=environment,
                                 stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.assertEqual((checked.returncode, checked.stdout.strip()), (0, ""), checked.stderr)

    def test_AnsibleDoc_ShowsEachModule_WithTheOptionsThatItTakes(self):
        shown = self.run_program("ansible-doc", "--json", *("ombry.sec_client." + name for name in MODULES))
        self.assertEqual(shown.returncode, 0, shown.stdout)
        documents = json.loads(shown.stdout)
        for name in MODULES:
            document = documents["ombry.sec_client." + name]
            self.assertTrue(document["examples"] and document["return"], name)
            self.assertEqual(document["doc"]["attributes"]["check_mode"]["support"], "full", name)
            self.assertEqual({option: self.shape(described) for option, described in document["doc"]["options"].items()},
                             {option: self.shape(taken) for option, taken in arguments_of(name).items()}, name)

    def shape(self, option):
        return {key: option[key] for key in ("type", "choices", "default", "required")
                if option.get(key) not in (None, False)}

    def test_SecretsAreNeverLogged(self):
        for name in MODULES:
            for option, taken in arguments_of(name).items():
                self.assertEqual(taken.get("no_log", False), option in ("password", "token"), "%s.%s" % (name, option))

    def test_AnsibleDoc_ShowsTheRole_WithTheDefaultsThatItHas(self):
        shown = self.run_program("ansible-doc", "-t", "role", "--json", "ombry.sec_client.machine")
        self.assertEqual(shown.returncode, 0, shown.stdout)
        options = json.loads(shown.stdout)["ombry.sec_client.machine"]["entry_points"]["main"]["options"]
        with open(collection.SOURCE / "roles/machine/defaults/main.yml") as file:
            defaults = yaml.safe_load(file)
        self.assertEqual({name: option["default"] for name, option in options.items() if "default" in option}, defaults)

    def test_Package_HoldsModulesRoleAndDocuments_AndNothingElse(self):
        built = self.run_program("ansible-galaxy", "collection", "build", "--output-path", self.place, collection.SOURCE)
        self.assertEqual(built.returncode, 0, built.stdout)
        with tarfile.open(os.path.join(self.place, "ombry-sec_client-1.0.0.tar.gz")) as package:
            names = package.getnames()
        for name in ["README.md", "CHANGELOG.md", "meta/runtime.yml", "roles/machine/tasks/main.yml"] \
                + ["plugins/modules/%s.py" % module for module in MODULES]:
            self.assertIn(name, names)
        self.assertEqual([name for name in names if "__pycache__" in name or name.startswith(".")], [])

    def test_EachModuleIsInTheReadme_AndInTheGroupIfItCallsTheService(self):
        readme = (collection.SOURCE / "README.md").read_text()
        with open(collection.SOURCE / "meta/runtime.yml") as file:
            group = yaml.safe_load(file)["action_groups"]["enrollment"]
        for name in MODULES:
            self.assertIn("`%s`" % name, readme)
            self.assertEqual("token" in arguments_of(name), name in group, name)

    def test_VersionIsThatOfTheTool(self):
        with open(collection.SOURCE / "galaxy.yml") as file:
            version = yaml.safe_load(file)["version"]
        self.assertIn("project(Ombry VERSION %s " % version, (collection.SOURCE.parents[1] / "CMakeLists.txt").read_text())


def arguments_of(name):
    """The options that a module takes, as it tells them when it starts."""
    import importlib
    from unittest import mock

    module = importlib.import_module("ansible_collections.ombry.sec_client.plugins.modules." + name)
    with mock.patch.object(module, "AnsibleModule", side_effect=StopIteration) as made:
        try:
            module.main()
        except StopIteration:
            return made.call_args[1]["argument_spec"]
