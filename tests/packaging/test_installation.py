"""An installation is complete and works in any folder; the Debian packages contain the same files."""
import glob
import json
import os
import re
import shutil
import subprocess
import tempfile
import unittest

from support import BUILD, SOURCE, run

PROGRAMS = {"rkm": "rkm", "vkctl": "rkm", "vkservice": "vkservice", "vkpublish": "vkpublish"}
FILES = {
    "rkm": ["bin/rkm", "share/man/man1/rkm.1", "share/bash-completion/completions/rkm", "bin/vkctl",
            "share/man/man1/vkctl.1", "share/bash-completion/completions/vkctl", "share/zsh/vendor-completions/_rkm",
            "share/fish/vendor_completions.d/rkm.fish", "share/rkm/completion/service-words"],
    "libvkcore1": ["lib/libvkcore.so.1", "lib/vkcore/libinstalllog.so", "share/rkm/locale/messages/vkc_de.qm",
                   "share/rkm/locale/messages/vkctl_de.qm",
                   "share/rkm/locale/messages/vkcore_de.qm", "share/man/man5/vk.cfg.5"],
    "libvkcore-dev": ["include/vkcore/IPCClient.h", "include/vkcore/Application.h", "lib/libvkcore.so"],
    "vkservice": ["bin/vkservice", "share/man/man8/vkservice.8", "lib/systemd/system/vkservice.service",
                  "lib/systemd/system/vkservice.socket", "lib/systemd/catalog/vkservice.catalog",
                  "libexec/vkprocesses", "share/man/man8/vkprocesses.8", "lib/systemd/system/vkprocesses@.service",
                  "lib/systemd/system/vkprocesses.socket",
                  "share/doc/vkservice/examples/monitoring/alerts.yml",
                  "share/doc/vkservice/examples/monitoring/dashboard.json",
                  "lib/sysusers.d/vkservice.conf", "lib/tmpfiles.d/vkservice.conf",
                  "share/polkit-1/rules.d/vkservice.rules",
                  "share/doc/vkservice/protocol.md", "share/doc/vkservice/administrator.md"],
    "vkpublish": ["bin/vkpublish", "share/man/man1/vkpublish.1", "share/man/man5/vk-repository.5",
                  "lib/systemd/system/vkpublish-mirror@.service", "lib/systemd/system/vkpublish-mirror@.timer",
                  "lib/systemd/system/vkpublish-refresh@.service", "lib/systemd/system/vkpublish-refresh@.timer",
                  "lib/sysusers.d/vkpublish.conf", "share/doc/vkpublish/keys.md"],
}


def files_below(folder):
    found = set()
    for place, _, names in os.walk(folder):
        found.update(os.path.relpath(os.path.join(place, name), folder) for name in names)
    return found


class RunPath(unittest.TestCase):
    """Regression: an empty entry made the loader search the current folder for every library first."""

    def test_leads_beside_the_program_and_nowhere_else(self):
        libraries = glob.glob(os.path.join(BUILD, "**", "lib*.so"), recursive=True)
        self.assertEqual({os.path.basename(path) for path in libraries}, {"libvkcore.so", "libinstalllog.so"})
        for path in libraries + [os.path.join(BUILD, "bin", program) for program in PROGRAMS] + [os.path.join(BUILD, "libexec/vkprocesses")]:
            for entries in re.findall(r"R(?:UN)?PATH.*\[(.*)\]", run("readelf", "-d", path)):
                for entry in entries.split(":"):
                    self.assertTrue(entry.startswith("$ORIGIN"), f"{path}: {entries}")


# Asks the rule, in the engine of polkitd, about pairs of an action and a user, and prints the answers.
ASK = """
var rule, polkit = {Result: {YES: "yes"}, addRule: function (added) { rule = added; }};
RULE
print(PAIRS.map(function (pair) { return rule({id: pair[0]}, {user: pair[1]}) || "-"; }).join(" "));
"""


class PolkitRule(unittest.TestCase):
    def test_lets_the_service_alone_block_shutdown_and_sleep_and_nothing_else(self):
        login = "org.freedesktop.login1."
        cases = {(login + "inhibit-block-shutdown", "vkservice"): "yes", (login + "inhibit-block-sleep", "vkservice"): "yes",
                 (login + "inhibit-block-idle", "vkservice"): "-", (login + "power-off", "vkservice"): "-",
                 (login + "inhibit-block-shutdown", "nobody"): "-", (login + "inhibit-block-sleep", ""): "-"}
        with open(os.path.join(SOURCE, "packaging/polkit/vkservice.rules"), encoding="utf-8") as file:
            program = ASK.replace("RULE", file.read()).replace("PAIRS", json.dumps(list(cases)))
        with tempfile.NamedTemporaryFile("w", suffix=".js") as script:
            script.write(program)
            script.flush()
            self.assertEqual(run("duk", script.name).split(), list(cases.values()))


class Folder(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def use(self, prefix):
        """Publishes a package and updates from it with the programs below prefix."""
        place = os.path.join(self.folder, "place")
        os.makedirs(os.path.join(place, "source/bin"))
        with open(os.path.join(place, "source/bin/tool"), "w", encoding="utf-8") as file:
            file.write("#!/bin/sh\necho it works\n")
        os.chmod(file.name, 0o755)
        environment = {"PATH": "/usr/bin:/bin", "LC_ALL": "C.UTF-8", "HOME": place, "TMPDIR": place}
        call = lambda program, *words: run(os.path.join(prefix, "bin", program), *words, env=environment)
        for program in PROGRAMS:
            self.assertRegex(call(program, "--version"), r"\d+\.\d+")

        repository = os.path.join(place, "repository")
        call("vkpublish", "init", repository, "--no-passphrase")
        call("vkpublish", "add", repository, os.path.join(place, "source"), "--name", "tool", "--version", "1.0")
        call("vkpublish", "publish", repository)
        os.makedirs(os.path.join(prefix, "etc/vk"))
        shutil.copy(os.path.join(repository, "metadata/1.root.json"), os.path.join(prefix, "etc/vk/root.json"))
        with open(os.path.join(prefix, "etc/vk/vk.cfg"), "w", encoding="utf-8") as file:
            file.write(f'[application]\nlogDir = "{place}/log"\nlanguage = "de"\n[service]\n'
                       f'socketName = "{place}/socket"\nstateDir = "{place}/state"\n'
                       f'defaultServer = "file://{repository}"\ninstall.dir = "{place}/installed"\n')
        self.assertIn("Aktualisierung beendet:", call("rkm", "update", "--quiet"))
        self.assertIn("Name: tool\n", call("rkm", "install-log"))
        self.assertEqual(run(os.path.join(place, "installed/current/tool/bin/tool")), "it works\n")

    def test_cmake_install(self):
        prefix = os.path.join(self.folder, "prefix")
        run("cmake", "--install", BUILD, "--prefix", prefix)
        found = files_below(prefix)
        for package, files in FILES.items():
            self.assertLessEqual(set(files), found, package)
            self.assertIn(f"share/doc/{package}/copyright", found)
        for path in found:
            self.assertNotRegex(path, r"vktuf|completions$|\.a$|test")
        with open(os.path.join(prefix, "lib/systemd/system/vkservice.service"), encoding="utf-8") as file:
            self.assertIn(f"ExecStart={prefix}/bin/vkservice", file.read())
        with open(os.path.join(prefix, "lib/systemd/system/vkprocesses@.service"), encoding="utf-8") as file:
            self.assertIn(f"ExecStart={prefix}/libexec/vkprocesses\n", file.read())
        # Fails at an exposure of 1.5 or more, or of 0.9.
        for command, threshold in ("mirror", 14), ("refresh", 8):
            unit = os.path.join(prefix, f"lib/systemd/system/vkpublish-{command}@.service")
            with open(unit, encoding="utf-8") as file:
                self.assertIn(f"ExecStart={prefix}/bin/vkpublish {command} ", file.read())
            run("systemd-analyze", "security", "--offline=true", f"--threshold={threshold}", unit)
        self.use(prefix)

    def test_every_public_header_is_installed_and_stands_alone(self):
        run("cmake", "--install", BUILD, "--prefix", self.folder, "--component", "development")
        headers = sorted(os.path.basename(path) for path in glob.glob(os.path.join(self.folder, "include/vkcore/*")))
        ours = os.path.join(SOURCE, "src/vkcore/include/vkcore")
        self.assertEqual(headers, sorted(os.listdir(ours)))

    def test_debian_packages(self):
        packages = os.path.join(self.folder, "packages")
        run("cpack", "-G", "DEB", "-B", packages, cwd=BUILD)
        root = os.path.join(self.folder, "root")
        contents = {}
        for path in glob.glob(os.path.join(packages, "*.deb")):
            name = run("dpkg-deb", "-f", path, "Package").strip()
            folder = os.path.join(self.folder, name)
            run("dpkg-deb", "-x", path, folder)
            run("dpkg-deb", "-x", path, root)
            contents[name] = files_below(folder)
            self.check_dependencies(name, path)
            # What names the user whom all programs trust is the administrator's, and in no other installation.
            self.assertEqual(run("dpkg-deb", "-I", path, "conffiles") if name == "vkservice" else "",
                             "/etc/vk/service.cfg\n" if name == "vkservice" else "")
        self.assertEqual(set(contents), set(FILES))
        for name, files in FILES.items():
            for file in files:
                packed = file + ".gz" if "/man/" in file else file
                self.assertIn("usr/" + packed, contents[name], name)
        names = [file for files in contents.values() for file in files]
        self.assertEqual(len(names), len(set(names)), "two packages hold one file")
        self.use(os.path.join(root, "usr"))

    def check_dependencies(self, name, path):
        depends = run("dpkg-deb", "-f", path, "Depends")
        wanted = {"rkm": ["libqt6core6", "libvkcore1 (=", "vkservice (="], "libvkcore1": ["libqt6core6", "libsqlite3-0"],
                  "vkservice": ["libcurl4", "libarchive13", "libsystemd0", "libssl3", "libseccomp2",
                                                                    "libvkcore1 (="],
                  "vkpublish": ["libarchive13", "libcurl4", "libssl3"], "libvkcore-dev": ["libvkcore1 (=", "qt6-base-dev"]}
        for dependency in wanted[name]:
            self.assertIn(dependency, depends, name)
        self.assertNotRegex(depends, re.compile("gtest|gmock|optionparser|fastrtps"))


if __name__ == "__main__":
    unittest.main()
