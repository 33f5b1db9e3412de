"""The ceremony of docs/keys.md happens as it is written there, each person in a folder of their own."""
import os
import re
import shutil
import subprocess
import tempfile
import unittest

from support import BIN, read, run


def commands(text):
    """(who, command, the output as it is written) of each command."""
    lines = [line[4:] for line in text.splitlines() if line.startswith("    ")]
    starts = [index for index, line in enumerate(lines) if re.match(r"\w+\$ ", line)]
    for index, start in enumerate(starts):
        end = starts[index + 1] if index + 1 < len(starts) else len(lines)
        who, command = lines[start].split("$ ", 1)
        yield who, command, "".join(line + "\n" for line in lines[start + 1:end])


VARIES = {r"[0-9a-f]{8}\.\.\.": "[0-9a-f]{64}", r"root-[0-9a-f]{16}": "root-[0-9a-f]{16}",
          r"\d{4}-\d\d-\d\dT[\d:]+Z": r"\S+Z", r"\.\.\.": ".*"}


def pattern(written):
    """What an output has to be: the page shortens ids and lists, and its dates are others."""
    lines = []
    for line in written.splitlines():
        parts = re.split("(" + "|".join(VARIES) + ")", line.removesuffix("y") if line.startswith("Sign this?") else line)
        shown = "".join(next((real for shape, real in VARIES.items() if re.fullmatch(shape, part)), re.escape(part))
                        for part in parts)
        # The answer ends the line of the question on a terminal alone.
        lines.append("(?s:.*)" if line == "..." else shown + ("" if line.startswith("Sign this?") else "\n"))
    return "".join(lines)


class Ceremony(unittest.TestCase):
    def test_the_page_is_true(self):
        section = re.search(r"(?ms)^## The ceremony.*?(?=^## )", read("docs/keys.md")).group(0)
        with tempfile.TemporaryDirectory() as folder:
            repository = os.path.join(folder, "updates")
            passphrase = os.path.join(folder, "passphrase")
            with open(passphrase, "w", encoding="utf-8") as file:
                file.write("correct horse\n")
            os.chmod(passphrase, 0o600)
            environment = os.environ | {"VKPUBLISH_PASSPHRASE_FILE": passphrase, "PATH": f"{BIN}:{os.environ['PATH']}"}

            def call(who, command):
                place = os.path.join(folder, who)
                os.makedirs(place, exist_ok=True)
                done = subprocess.run(command.replace("/srv/updates", repository), shell=True, cwd=place, env=environment,
                                      input="y\n", capture_output=True, text=True, check=False)
                self.assertEqual((done.returncode, done.stderr), (0, ""), command)
                return done.stdout.replace(repository, "/srv/updates")

            os.makedirs(os.path.join(folder, "publisher/build/data"))
            call("publisher", "vkpublish init /srv/updates")
            call("publisher", "vkpublish add /srv/updates build --name viewer --version 1.0 && vkpublish publish /srv/updates")
            first = re.search(r"root-([0-9a-f]{8})", call("publisher", "ls /srv/updates.keys")).group(1)
            people = set()
            for who, command, written in commands(section):
                people.add(who)
                for stick in ("root-alice.pem.pub", "root-bob.pem.pub", "root-carol.pem.pub", "root.payload", "alice.sig", "carol.sig"):
                    for other in people - {who}:
                        if os.path.exists(os.path.join(folder, other, stick)):
                            os.makedirs(os.path.join(folder, who), exist_ok=True)
                            shutil.copy(os.path.join(folder, other, stick), os.path.join(folder, who))
                output = call(who, command.replace("9e691fa3", first))
                self.assertRegex(output, f"\\A{pattern(written)}\\Z", command)
            self.assertEqual(people, {"publisher", "alice", "bob", "carol"})
            self.assertIn("is valid", run(os.path.join(BIN, "vkpublish"), "verify", repository))


if __name__ == "__main__":
    unittest.main()
