"""The documents are true: links, paths, the tests behind the promises, and the examples of file formats."""
import glob
import json
import os
import re
import shutil
import sqlite3
import subprocess
import tempfile
import unittest

from support import BIN, SOURCE, installation, read, run

DOCUMENTS = sorted(glob.glob(os.path.join(SOURCE, "*.md")) + glob.glob(os.path.join(SOURCE, "docs/*.md")))


def tests_of_the_tree():
    """Names of tests as ctest -R takes them."""
    names = set()
    for path in glob.glob(os.path.join(SOURCE, "tests/**/*.cpp"), recursive=True):
        with open(path, encoding="utf-8") as file:
            for suite, case in re.findall(r"(?m)^TEST(?:_F|_P)?\((\w+),\s*(\w+)\)", file.read()):
                names.update((suite, f"{suite}.{case}"))
    for script in glob.glob(os.path.join(SOURCE, "tests/packaging/test_*.py")):
        names.add("packaging." + os.path.basename(script)[len("test_"):-len(".py")])
    return names


def shape(value):
    """The member names and types of a JSON value. Names of files, which have dots, and ids of keys are all alike."""
    if isinstance(value, dict):
        return {"FILE" if "." in name or len(name) == 64 else name: shape(member) for name, member in value.items()}
    return [shape(value[0])] if isinstance(value, list) and value else type(value).__name__


def damage_a_package(folder):
    """Changes an installed file."""
    package = json.loads(read(folder, "installed/current/.manifest.json"))["packages"][0]
    path = os.path.join(folder, "installed", package["folder"], "bin/viewer")
    os.chmod(path, 0o755)
    with open(path, "ab") as file:
        file.write(b"x")


def fail_a_check(folder, rkm, publish):
    """Leaves a refusal, and keeps the record of the trial as the check has seen it."""
    check = os.path.join(folder, "alone/check")
    os.mkdir(os.path.dirname(check))
    with open(check, "w", encoding="utf-8") as file:
        file.write("#!/bin/sh\ncat %s/state/trial.json\nexit 3\n" % folder)
    os.chmod(check, 0o755)
    publish("add", os.path.dirname(check), "--name", "alone", "--version", "1.0", "--check", "check")
    publish("publish")
    subprocess.run([rkm, "update"], capture_output=True, check=False)
    publish("remove", "alone")
    output = re.findall(r"(?m)alone 1\.0\.0\.0: check: (.*)$", read(glob.glob(os.path.join(folder, "log/vkservice.log"))[0]))
    with open(os.path.join(folder, "trial.json"), "w", encoding="utf-8") as file:
        file.write("\n".join(output))


def real_files(folder):
    """The files of a publisher and a machine after two updates, the second with a locked install log; by their headings."""
    repository, state = os.path.join(folder, "repository"), os.path.join(folder, "state")
    rkm = installation(os.path.join(folder, "machine"), f"""
        application.logDir = "{folder}/log"
        [service]
        socketName = "{folder}/socket"
        stateDir = "{state}"
        install.dir = "{folder}/installed"
        defaultServer = "file://{repository}"
        update.rootFile = "{repository}/metadata/1.root.json"
        """)
    for program in ("vkservice", "vkctl"):
        shutil.copy(os.path.join(BIN, program), os.path.dirname(rkm))
    os.makedirs(os.path.join(folder, "package/bin"))
    shutil.copy("/bin/true", os.path.join(folder, "package/bin/viewer"))

    def publish(command, *words):
        run(os.path.join(BIN, "vkpublish"), command, repository, *words)

    def add(name, version):
        publish("add", os.path.join(folder, "package"), "--name", name, "--version", version,
                "--executable", "bin/viewer", "--title", "en=Viewer", "--report", "en=New.")

    publish("init", "--no-passphrase")
    add("old", "1.0")
    add("viewer", "1.0")
    publish("publish")
    publish("remove", "old")
    publish("rotate-key", "timestamp", "--no-passphrase")
    run(rkm, "update")
    mirror = ("mirror", repository, os.path.join(folder, "mirror"), "--root", f"{repository}/metadata/1.root.json")
    run(os.path.join(BIN, "vkpublish"), *mirror)
    fail_a_check(folder, rkm, publish)
    add("viewer", "1.1")
    publish("publish")
    run(os.path.join(BIN, "vkpublish"), *mirror)
    log = sqlite3.connect(os.path.join(state, "install-log.db"))
    log.execute("BEGIN IMMEDIATE")
    run(rkm, "update")
    damage_a_package(folder)
    subprocess.run([os.path.join(os.path.dirname(rkm), "vkctl"), "verify"], capture_output=True, check=False)
    log.close()  # its worker would have entered the run
    places = {".manifest.json": "installed/generations/1/.manifest.json", ".vk-root": "installed/.vk-root",
              "installation.json": "state/installation.json", "damage.json": "state/damage.json",
              "refused.json": "state/refused.json", "trial.json": "trial.json",
              "The note on a server": "state/trust/*/servers/*.json",
              "install-log.waiting": "state/install-log.waiting/*.json", "record.json": "repository.keys/record.json",
              "mirror.json": "mirror/.vk-mirror/mirror.json"}
    return {heading: json.loads(read(*glob.glob(os.path.join(folder, place)))) for heading, place in places.items()}


class Documents(unittest.TestCase):
    def test_links_lead_somewhere(self):
        for path in DOCUMENTS:
            with open(path, encoding="utf-8") as file:
                links = re.findall(r"\]\(([^)#]+)(?:#[^)]*)?\)", file.read())
            for link in links:
                if "://" not in link:
                    self.assertTrue(os.path.exists(os.path.join(os.path.dirname(path), link)), f"{path}: {link}")

    def test_paths_of_this_tree_exist(self):
        shape = re.compile(r"`((?:src|tests|script|docs|locale|packaging|cmake|bench|fuzz)/[A-Za-z0-9_./-]*)`")
        for path in DOCUMENTS:
            with open(path, encoding="utf-8") as file:
                for name in shape.findall(file.read()):
                    if "LANG" not in name and "_fr" not in name:
                        self.assertTrue(os.path.exists(os.path.join(SOURCE, name)), f"{path}: {name}")

    def test_each_promise_names_tests_that_exist(self):
        known = tests_of_the_tree()
        rows = re.findall(r"(?m)^\| (.+?) \| (.+?) \|$", read("docs/promises.md"))
        promises = [(promise, tests) for promise, tests in rows if promise not in ("promise", "---")]
        self.assertGreater(len(promises), 10)
        for promise, tests in promises:
            named = re.findall(r"`([\w.]+)`", tests)
            self.assertTrue(named, promise)
            for name in named:
                self.assertIn(name, known, promise)

    def test_examples_of_file_formats_are_like_real_files(self):
        sections = re.findall(r"(?ms)^## ([^\n]*)$(?:(?!^## ).)*?```json\n(.*?)```", read("docs/file-formats.md"))
        examples = {heading: json.loads(example) for heading, example in sections}
        with tempfile.TemporaryDirectory() as folder:
            files = real_files(folder)
        for heading, content in files.items():
            with self.subTest(heading=heading):
                self.assertEqual(shape(examples[heading]), shape(content))
        for manifest in (".intent.json", ".prepared.json"):
            self.assertEqual(examples[manifest].keys(), files[".manifest.json"].keys())
        self.assertEqual(examples.keys(), files.keys() | {".intent.json", ".prepared.json"})


if __name__ == "__main__":
    unittest.main()
