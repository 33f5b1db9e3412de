"""The manual has every command, option and message of the programs, and no others."""
import glob
import os
import re
import unittest
import xml.etree.ElementTree

from support import BIN, SOURCE, options_by_command, read, run

PAGES = sorted(glob.glob(os.path.join(SOURCE, "docs/man/*.[1-9]")))
COMMON = {"help", "version", "socket"}


def sections(page):
    """The subsections of a page by their heading."""
    parts = re.split(r"(?m)^\.S[sh] (.*)$", page)
    return dict(zip(parts[1::2], parts[2::2]))


def documented(section):
    """The options in the list heads of a section, long ones and letters."""
    heads = "\n".join(re.findall(r"(?m)^\.It (.*)$", section))
    return set(re.findall(r"Fl Fl ([a-z][a-z-]*)", heads)), set(re.findall(r"(?<!Fl )Fl ([A-Za-z])\b", heads))


class Manual(unittest.TestCase):
    def test_every_option_stands_in_its_commands_section(self):
        parts = sections(read("docs/man/rkm.1"))
        common_long, common_short = documented(parts["Common options"])
        self.assertEqual(common_long, COMMON)
        self.assertEqual(common_short, {"h"})
        shape = {"none": r"^$", "required": r"^ Ns = Ns Ar [A-Z]+", "optional": r"^ Ns Op = Ns Ar [A-Z]+$"}
        for command, options in options_by_command().items():
            with self.subTest(command=command):
                long, short = documented(parts[command])
                own = [option for option in options if option.long not in COMMON]
                self.assertEqual(long, {option.long for option in own})
                self.assertEqual(short, {option.short for option in own if option.short})
                for option in own:
                    head = re.search(rf"(?m)^\.It .*Fl Fl {option.long}\b(?!-)(.*)$", parts[command]).group(1)
                    self.assertRegex(head.split(" ; ")[0], shape[option.value])

    def test_every_message_that_it_explains_exists(self):
        catalogue = xml.etree.ElementTree.parse(os.path.join(SOURCE, "locale/vkc_de.ts"))
        texts = {source.text for source in catalogue.iter("source")}
        explained = re.findall(r'(?m)^\.It "(.*)"$', sections(read("docs/man/rkm.1"))["DIAGNOSTICS"])
        self.assertGreater(len(explained), 20)
        for text in explained:
            self.assertIn(text.replace(r"\(dq", '"'), texts)

    def test_every_option_of_the_publisher(self):
        parts = sections(read("docs/man/vkpublish.1"))
        commands = re.findall(r"(?m)^  ([a-z-]+) ", run(os.path.join(BIN, "vkpublish"), "--help"))
        self.assertGreater(len(commands), 5)
        self.assertIn("Fl Fl no-wait", parts["DESCRIPTION"])  # once, for all commands
        for command in commands:
            with self.subTest(command=command):
                help_text = run(os.path.join(BIN, "vkpublish"), command, "--help")
                wanted = set(re.findall(r"(?m)^\s+(?:-\w, )?--([a-z][a-z-]+)", help_text)) - {"help", "help-all", "no-wait"}
                self.assertTrue(wanted)
                self.assertEqual(documented(parts[command])[0], wanted)

    def test_every_command_and_option_of_vkctl(self):
        page = read("docs/man/vkctl.1")
        help_text = run(os.path.join(BIN, "vkctl"), "--help")
        self.assertEqual(documented(sections(page)["Options"])[0], set(re.findall(r"--([a-z]+)", help_text)))
        for command in re.findall(r"(?m)^  ([a-z]+) ", help_text):
            self.assertIn(command, sections(page))
        statuses = dict(re.findall(r"Status(\w+) = (\d)", read("src/vkctl/ExitStatus.h")))
        self.assertEqual(re.findall(r"(?m)^\.It (\d)$", page), sorted(statuses.values()))

    def test_every_option_of_the_service(self):
        options = re.findall(r"(?m)^  (-[a-z-]+)", run(os.path.join(BIN, "vkservice"), "--help"))
        long, short = documented(read("docs/man/vkservice.8"))
        heads = "\n".join(re.findall(r"(?m)^\.It (.*)$", read("docs/man/vkservice.8")))
        self.assertIn("-worker", options)
        for option in options:
            if option.startswith("--"):
                self.assertIn(option[2:], long)
            else:
                self.assertIn(f"Fl {option[1:]}", heads)

    def test_every_configuration_key(self):
        used = set()
        for path in glob.glob(os.path.join(SOURCE, "src/**/*.cpp"), recursive=True):
            with open(path, encoding="utf-8") as file:
                used.update(re.findall(r'(?:Rule|getStrValue|configValue|codesOf\([\w*]+,)\s*\(?\s*u"([a-z]+\.[\w.]+)"_s',
                                       file.read()))
        documented_keys = set(re.findall(r"Va ([a-z]+\.[\w.]+)", read("docs/man/vk.cfg.5")))
        self.assertGreater(len(used), 15)
        self.assertEqual(used - documented_keys, set())
        self.assertEqual({key for key in documented_keys - used if key != "mail.verify."}, set())

    def test_every_variable_with_its_values_and_default(self):
        source = read("src/vkservice/control/KnownVariables.cpp")
        rows = re.findall(r'addRule\(\s*(\w+)Rule\(u"([\w.]+)"_s(?:,\s*(.*?))?\)\);', source, re.S)
        self.assertEqual(len(rows), source.count("addRule("))
        entries = dict(re.findall(r"(?ms)^\.It Va ([\w.]+)(.*?)(?=^\.It|^\.El)", read("docs/man/vk.cfg.5")))
        entries["mail.password"] = entries["mail.user"]
        for kind, name, values in rows:
            with self.subTest(variable=name):
                text = " ".join(entries[name].split())
                if kind == "wholeNumber":
                    numbers = values.replace("sDay", "86400").replace("qint64", "")
                    default, least, most = (eval(number) for number in numbers.split(","))
                    self.assertIn(f" {least} to {most}", text)
                    self.assertIn(f"Default: {default}.", text)
                elif kind == "yesNo":
                    self.assertIn(".Ql yes", text)
                    self.assertIn("Default: " + {"true": "yes", "false": "no"}[values], text)
                elif kind in ("word", "strictWord"):
                    body = re.search(r"QStringList " + values.replace("()", "") + r"\(\)\n{(.*?)\n}", source, re.S).group(1)
                    words = re.findall(r'"(\w+)"', body)
                    self.assertIn(f".Ql {words[0]} (the default)", text)
                    for word in words:
                        self.assertIn(".Ql " + word, text)
                else:
                    self.assertIn(kind, ["certificates", "metricsFile", "path", "text", "windows"])

    def test_every_result_of_a_run(self):
        codes = dict(re.findall(r"(Result\w+) = (\d+)", read("src/vkservice/values/ResultCode.h")))
        texts = re.findall(r'case (Result\w+):\s+return u"(.*?)"_s', read("src/vkservice/values/ResultCode.cpp"))
        self.assertEqual(len(codes), len(texts))
        explained = dict(re.findall(r"(?m)^\.It (\d+) \\\(en (.*)$", read("docs/man/vkservice.8")))
        self.assertEqual({codes[name]: text for name, text in texts},
                         {code: text.replace(r"\&", "") for code, text in explained.items()})
        statuses = set(re.findall(r"(?m)^\.It (1\d\d)$", read("docs/man/rkm.1")))
        self.assertEqual(statuses, {str(100 + int(code)) for code in codes.values() if code != "1"})

    def test_pages_are_well_formed_and_name_each_other(self):
        run("mandoc", "-Tlint", "-Wwarning", *PAGES)
        names = {os.path.basename(page) for page in PAGES}
        for page in PAGES:
            with open(page, encoding="utf-8") as file:
                ours = re.findall(r"(?m)^\.Xr ((?:rkm|vk)\S*) (\d)", file.read())
            self.assertTrue(ours, page)
            for name, section in ours:
                self.assertIn(f"{name}.{section}", names, page)
                self.assertNotEqual(f"{name}.{section}", os.path.basename(page))


if __name__ == "__main__":
    unittest.main()
