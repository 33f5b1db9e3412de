"""The documents point to what there is: links, files, scripts, and the tests behind the promises."""
import glob
import os
import re
import unittest

from support import SOURCE, read

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


if __name__ == "__main__":
    unittest.main()
