"""The metrics file of a real service is valid, and the dashboard and the alert rules fit it."""
import glob
import json
import os
import re
import shutil
import subprocess
import tempfile
import time
import unittest

from support import BIN, SOURCE, installation, read, run

RULES = os.path.join(SOURCE, "packaging/monitoring/alerts.yml")
DASHBOARD = os.path.join(SOURCE, "packaging/monitoring/dashboard.json")
DAY = 86400


def wait_for(look):
    deadline = time.monotonic() + 30
    while time.monotonic() < deadline:
        found = look()
        if found:
            return found
        time.sleep(0.05)
    raise AssertionError("waited in vain")


def written_by_the_service(folder):
    """The file of a service that has installed one package, checked it, and failed to update once."""
    place = os.path.join(folder, "machine")
    metrics = os.path.join(place, "collected", "vkservice.prom")
    installation(place, f'[application]\nlogDir = "{place}/log"\n[service]\nsocketName = "{place}/socket"\n'
                 f'stateDir = "{place}/state"\ninstall.dir = "{place}/installed"\n'
                 f'defaultServer = "file://{place}/repository"\nstatus.metricsFile = "{metrics}"\n')
    for name in ("vkservice", "vkctl", "vkpublish"):
        shutil.copy(os.path.join(BIN, name), os.path.join(place, "bin"))
    os.makedirs(os.path.join(place, "source"))
    os.makedirs(os.path.dirname(metrics))
    with open(os.path.join(place, "source/file"), "w", encoding="utf-8") as file:
        file.write("content\n" * 1000)
    environment = {"PATH": "/usr/bin:/bin", "LC_ALL": "C.UTF-8", "HOME": place, "TMPDIR": place}

    def call(program, *words, check=True):
        return subprocess.run([os.path.join(place, "bin", program), *words], env=environment, check=check,
                              capture_output=True, timeout=120)

    def has(line):
        if not os.path.exists(metrics):
            return None
        with open(metrics, encoding="utf-8") as file:
            text = file.read()
        return text if line + "\n" in text else None

    call("vkpublish", "init", place + "/repository", "--no-passphrase")
    call("vkpublish", "add", place + "/repository", place + "/source", "--name", "tool", "--version", "1.0")
    call("vkpublish", "publish", place + "/repository")
    shutil.copy(place + "/repository/metadata/1.root.json", place + "/etc/vk/root.json")
    with subprocess.Popen([place + "/bin/vkservice"], env=environment, stderr=subprocess.DEVNULL) as service:
        try:
            wait_for(lambda: has("vkservice_packages 0"))
            call("rkm", "update", "--quiet")
            call("vkctl", "verify")
            call("rkm", "update-schedule-settings", "--mode=automatic", "--interval=1d")
            wait_for(lambda: has('vkservice_package_info{package="tool",version="1.0.0.0"} 1'))
            shutil.rmtree(place + "/repository")
            call("rkm", "update", "--quiet", check=False)
            return wait_for(lambda: has('vkservice_runs_total{code="2",result="unreachable"} 1')), os.stat(metrics)
        finally:
            service.terminate()


class Catalogue(unittest.TestCase):
    def test_explains_each_event_of_the_source_with_the_fields_that_it_has(self):
        source = dict(re.findall(r'auto (s\w+) = "([0-9a-f]{32})"', read("src/vkservice/process/JournalEvent.h")))
        text = read("packaging/systemd/vkservice.catalog")
        entries = dict(re.findall(r"(?ms)^-- (\w+)\n(.*?)(?=^-- |\Z)", text))
        self.assertEqual(sorted(source.values()), sorted(entries))
        self.assertEqual(len(entries), text.count("\n-- ") + 1)
        self.assertLessEqual(set(entries), set(re.findall("`([0-9a-f]{32})`", read("docs/monitoring.md"))))
        code = "\n".join(read(path) for path in glob.glob(os.path.join(SOURCE, "src/vkservice/**/*.cpp"), recursive=True))
        for name in source:
            self.assertRegex(code, rf"\bmessage::{name}\b")
        self.assertLessEqual(set(re.findall(r"@(\w+)@", text)), set(re.findall(r'"(VK_\w+)"', code)))

    def test_journalctl_takes_it(self):
        with tempfile.TemporaryDirectory() as root:
            for folder in ("usr/lib/systemd/catalog", "var/lib/systemd/catalog"):
                os.makedirs(os.path.join(root, folder))
            shutil.copy(os.path.join(SOURCE, "packaging/systemd/vkservice.catalog"),
                        os.path.join(root, "usr/lib/systemd/catalog"))
            run("journalctl", f"--root={root}", "--update-catalog")
            listed = run("journalctl", f"--root={root}", "--list-catalog").splitlines()
            self.assertEqual(len(listed), read("packaging/systemd/vkservice.catalog").count("Subject: "))
            self.assertTrue(all(" vkservice: " in line for line in listed), listed)


class Monitoring(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = folder.name
        cls.text, cls.stat = written_by_the_service(cls.folder)
        cls.series = dict(re.findall(r"(?m)^(\w+(?:{.*})?) (\d+)$", cls.text))
        cls.names = {re.sub("{.*", "", series) for series in cls.series}

    def test_file_is_valid_and_true(self):
        run("promtool", "check", "metrics", input=self.text)
        self.assertTrue(self.text.endswith("\n# EOF\n"))
        self.assertEqual(self.stat.st_mode & 0o7777, 0o644)
        values = {"vkservice_last_run_result_code": "2", "vkservice_packages": "1", "vkservice_packages_damaged": "0",
                  'vkservice_runs_total{code="1",result="success"}': "1", "vkservice_suppressed": "0"}
        self.assertEqual({name: self.series.get(name) for name in values}, values)
        self.assertGreater(int(self.series["vkservice_downloaded_bytes_total"]), 0)
        now = time.time()
        for name, least, most in (("last_success", -100, 0), ("last_run", -100, 0), ("last_verification", -100, 0),
                                  ("metrics", -100, 0), ("next_check", 0, 2 * DAY), ("metadata_expiry", 13 * DAY, 14 * DAY)):
            self.assertTrue(least <= int(self.series[f"vkservice_{name}_timestamp_seconds"]) - now <= most, name)

    def test_dashboard_and_rules_use_what_the_service_writes(self):
        with open(DASHBOARD, encoding="utf-8") as file:
            panels = json.load(file)["panels"]
        expressions = [target["expr"] for panel in panels for target in panel["targets"]]
        with open(RULES, encoding="utf-8") as file:
            used = set(re.findall(r"vkservice_\w+", "\n".join(expressions) + file.read()))
        self.assertEqual(used - self.names, set())
        self.assertEqual(self.names - used, set(), "figures that nobody shows")
        self.assertEqual(set(re.findall(r"(?m)^\| `(vkservice_\w+)", read("docs/monitoring.md"))), self.names)
        # The rule check parses expressions, also those of a dashboard.
        rules = [{"record": "x", "expr": e.replace("$instance", ".*")} for e in expressions]
        path = os.path.join(self.folder, "dashboard.yml")
        with open(path, "w", encoding="utf-8") as file:
            json.dump({"groups": [{"name": "x", "rules": [dict(r, record=f"x{i}") for i, r in enumerate(rules)]}]}, file)
        run("promtool", "check", "rules", path)

    def test_rules_fire_when_they_should_and_only_then(self):
        run("promtool", "check", "rules", RULES)
        failures = 'vkservice_runs_total{code="2",result="unreachable"}'
        old = {"vkservice_last_success_timestamp_seconds": -14 * DAY}
        failing = {failures: "0x720 1x200 2x200 3x320", "vkservice_last_run_result_code": 2}
        cases = (({}, []), (old, ["UpdatesOverdue"]), (old | {"vkservice_suppressed": 1}, []),
                 (failing, ["UpdatesFail"]), (failing | {failures: "0x720 2x720"}, []),
                 (failing | {"vkservice_last_run_result_code": 1}, []),
                 ({"vkservice_last_run_result_code": 9}, ["UpdateNeedsPerson"]),
                 ({'vkservice_packages_left_out{reason="refused"}': 2}, ["PackagesRefused"]),
                 ({'vkservice_packages_left_out{reason="held"}': 2}, []),
                 ({"vkservice_security_pending": 1}, ["SecurityUpdatePending"]),
                 ({"vkservice_security_pending": "0x1000 1x440"}, []),
                 ({"vkservice_packages_damaged": 1}, ["PackagesDamaged"]),
                 ({"vkservice_metadata_expiry_timestamp_seconds": 3 * DAY}, ["MetadataExpiring"]),
                 ({"vkservice_metrics_timestamp_seconds": DAY - 3700}, ["ServiceSilent"]))
        path = os.path.join(self.folder, "test.yml")
        with open(path, "w", encoding="utf-8") as file:
            json.dump({"rule_files": [RULES], "evaluation_interval": "5m", "tests": [
                {"interval": "1m", "input_series": self.input_series(changes), "promql_expr_test": [
                    {"eval_time": "1440m", "expr": 'count by (alertname) (ALERTS{alertstate="firing"})',
                     "exp_samples": [{"labels": f'{{alertname="{name}"}}', "value": 1} for name in firing]}]}
                for changes, firing in cases]}, file)
        run("promtool", "test", "rules", path)

    def input_series(self, changes):
        """A day of what the service wrote, as if this were the first day of 1970, with some values changed."""
        values = {name: int(value) - int(time.time()) + DAY if "_timestamp_" in name else int(value)
                  for name, value in self.series.items()}
        values |= {"vkservice_last_run_result_code": 1, "vkservice_metrics_timestamp_seconds": "0+60x1440"} | changes
        return [{"series": name.replace("{", '{instance="m",') if "{" in name else name + '{instance="m"}',
                 "values": value if isinstance(value, str) else f"{value}x1440"} for name, value in values.items()]


if __name__ == "__main__":
    unittest.main()
