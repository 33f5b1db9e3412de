"""script/lint finds each kind of violation, and nothing in a tree that follows the rules."""
import os
import subprocess
import tempfile
import unittest

from support import SOURCE


class Lint(unittest.TestCase):
    def lint(self, path, text):
        with tempfile.TemporaryDirectory() as folder:
            os.makedirs(os.path.join(folder, os.path.dirname(path)))
            with open(os.path.join(folder, path), "w", encoding="utf-8") as file:
                file.write(text)
            result = subprocess.run([os.path.join(SOURCE, "script/lint"), folder], capture_output=True, text=True, check=False)
            self.assertEqual(result.returncode, 1 if result.stdout else 0)
            return result.stdout

    def test_findings(self):
        cases = [
            ("src/os/Clock.cpp", '#include "../vkc/vkc_Application.h"\n', "past the folders"),
            ("src/tuf/Keys.cpp", '#include "os/FileSystem.h"\n', None),
            ("src/vkcore/include/vkcore/Config.h", "#pragma once\n#include <internal/Protocol.h>\n", "not public"),
            ("src/vkcore/include/vkcore/Config.h", '#pragma once\n#include "vkcore/Server.h"\n', "not public"),
            ("src/vkcore/include/vkcore/Config.h", "#pragma once\n#include <vkcore/Server.h>\n#include <QtCore/QList>\n", None),
            ("src/vkc/Console.h", "class Console;\n", "no #pragma once"),
            ("src/vkc/Console.cpp", "int i; \n", "blanks at its end"),
            ("src/vkc/Console.cpp", "int i;", "does not end in a newline"),
            ("src/vkc/Console.cpp", "// TODO: later\n", "unfinished work"),
            ("src/vkc/Console.cpp", "int i;\n" * 601, "has 601 lines"),
            ("src/vkc/Console.cpp", "int i;\n" * 600, None),
        ]
        for path, text, finding in cases:
            with self.subTest(path=path, finding=finding):
                out = self.lint(path, text)
                self.assertEqual(len(out.splitlines()), 1 if finding else 0, out)
                self.assertRegex(out, f"^{path}:.*{finding}" if finding else "^$")


if __name__ == "__main__":
    unittest.main()
