"""script/lint finds what it is there for, and nothing in a tree that keeps the rules."""
import os
import subprocess
import tempfile
import unittest

from support import SOURCE


class Lint(unittest.TestCase):
    def lint(self, **files):
        with tempfile.TemporaryDirectory() as folder:
            headers = {"src/vkcore/include/vkcore/Server.h", "src/vkcore/internal/Protocol.h", "src/vkc/vkc_Application.h",
                       "src/vkservice/os/FileSystem.h", "src/vkservice/tuf/Updater.h", "src/vkservice/update/UpdateRun.h",
                       "src/vkservice/mail/Mail.h"}
            contents = {header: "#pragma once\n" for header in headers}
            contents.update(files["files"])
            for path, text in contents.items():
                os.makedirs(os.path.join(folder, os.path.dirname(path)), exist_ok=True)
                with open(os.path.join(folder, path), "w", encoding="utf-8") as file:
                    file.write(text)
            result = subprocess.run([os.path.join(SOURCE, "script/lint"), folder], stdout=subprocess.PIPE, text=True,
                                    check=False)
            self.assertEqual(result.returncode, 1 if result.stdout else 0)
            return result.stdout

    def test_findings(self):
        cases = [
            ("src/vkc/Run.cpp", '#include "internal/Protocol.h"\n', "which src/vkc may not"),
            ("src/vkc/Run.cpp", "#include <vkcore/Server.h>\n#include \"vkc_Application.h\"\n", None),
            ("src/vkservice/Service.cpp", '#include "../vkc/vkc_Application.h"\n', "only the client may"),
            ("src/vkservice/Service.cpp", '#include "update/UpdateRun.h"\n#include "internal/Protocol.h"\n', None),
            ("src/vkservice/os/Clock.cpp", '#include "tuf/Updater.h"\n', "which src/vkservice/os may not"),
            ("src/vkservice/tuf/Keys.cpp", '#include "os/FileSystem.h"\n', None),
            ("src/vkservice/tuf/Keys.cpp", '#include "update/UpdateRun.h"\n', "which src/vkservice/tuf may not"),
            ("src/vkservice/store/Store.cpp", '#include "mail/Mail.h"\n', "which src/vkservice/store may not"),
            ("src/vkcore/Config.cpp", '#include "os/FileSystem.h"\n', "which src/vkcore may not"),
            ("src/vkcore/include/vkcore/Config.h", "#pragma once\n#include <internal/Protocol.h>\n",
             "which src/vkcore/include may not"),
            ("src/vkc/Console.h", "class Console;\n", "no #pragma once"),
            ("src/vkc/Console.cpp", "int i; \n", "blanks at its end"),
            ("src/vkc/Console.cpp", "int i;", "does not end in a newline"),
            ("src/vkc/Console.cpp", "// TODO: later\n", "unfinished work"),
            ("src/vkc/Console.cpp", "int i;\n" * 601, "has 601 lines"),
            ("src/vkc/Console.cpp", "int i;\n" * 600, None),
        ]
        for path, text, finding in cases:
            with self.subTest(path=path, finding=finding):
                out = self.lint(files={path: text})
                if finding:
                    self.assertEqual(len(out.splitlines()), 1, out)
                    self.assertTrue(out.startswith(path + ":"), out)
                    self.assertIn(finding, out)
                else:
                    self.assertEqual(out, "")


if __name__ == "__main__":
    unittest.main()
