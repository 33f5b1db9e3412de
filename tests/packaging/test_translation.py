"""The German catalogues: rkm uses them, and they have every text of the code."""
import glob
import os
import re
import shutil
import subprocess
import tempfile
import unittest
import xml.etree.ElementTree

from support import SOURCE, installation, run

LUPDATE = os.environ["RKM_LUPDATE"]
PARTS = {"vkc_de.ts": "src/vkc", "vkctl_de.ts": "src/vkctl", "vkcore_de.ts": "src/vkcore"}


def messages(path):
    """(context, source, comment) of each message with its translations."""
    found = {}
    for context in xml.etree.ElementTree.parse(path).iter("context"):
        for message in context.iter("message"):
            key = (context.findtext("name"), message.findtext("source"), message.findtext("comment"))
            translation = message.find("translation")
            forms = [form.text for form in translation.iter("numerusform")] or [translation.text]
            found[key] = (translation.get("type"), message.get("numerus") == "yes", forms)
    return found


class Catalogue(unittest.TestCase):
    def test_every_text_of_the_code_is_translated_and_no_other(self):
        for name, folder in PARTS.items():
            with self.subTest(name), tempfile.TemporaryDirectory() as place:
                ours = os.path.join(SOURCE, "locale", name)
                updated = shutil.copy(ours, place)
                run(LUPDATE, "-silent", "-no-obsolete", "-locations", "none", os.path.join(SOURCE, folder), "-ts", updated)
                self.assertEqual(set(messages(updated)), set(messages(ours)))
                self.assertTrue(messages(ours))

    def test_translations_are_finished_and_keep_their_placeholders(self):
        for path in glob.glob(os.path.join(SOURCE, "locale/*.ts")):
            for (context, source, _), (state, plural, forms) in messages(path).items():
                with self.subTest(source):
                    self.assertRegex(context, r"^tarn::(vkc|vkctl|vkcore)::")
                    self.assertIsNone(state)
                    self.assertEqual(len(forms), 2 if plural else 1)
                    for form in forms:
                        self.assertEqual(sorted(re.findall(r"%\w", form)), sorted(re.findall(r"%\w", source)))
                        self.assertEqual(form.endswith(" "), source.endswith(" "))


class German(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.rkm = installation(self.folder, '[application]\nlanguage = "de"\nlogDir = "%s/log"\n' % self.folder)

    def call(self, *words):
        result = subprocess.run([self.rkm, *words], capture_output=True, check=False, timeout=60, encoding="utf-8",
                                env={"LC_ALL": "C.UTF-8", "TMPDIR": self.folder, "HOME": self.folder})
        return result.returncode, result.stdout, result.stderr

    def test_messages_of_the_command_line(self):
        self.assertEqual(self.call("update-settings", "-s"), (1, "", "Die Option „--server“ braucht einen Wert\n"))
        self.assertIn("USAGE: rkm update [options]", self.call("update", "--help")[1])


if __name__ == "__main__":
    unittest.main()
