"""The completions offer what the command tables have, in real shells, and never wait or start a service."""
import json
import os
import pty
import re
import select
import socket
import socketserver
import subprocess
import tempfile
import threading
import time
import unittest

from support import BIN, SHARE, SOURCE, installation, options_by_command, run

BASH_FILE = os.path.join(SHARE, "bash-completion/completions/rkm")
FISH_FILE = os.path.join(SHARE, "fish/vendor_completions.d/rkm.fish")
ZSH_FOLDER = os.path.join(SHARE, "zsh/vendor-completions")

BASH_CALL = """
compopt() { :; }
source "$1"
shift
COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
_rkm
[ ${#COMPREPLY[@]} -eq 0 ] || printf '%s\\n' "${COMPREPLY[@]}"
"""


class Folder(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.environment = {
            "HOME": self.folder,
            "TMPDIR": self.folder,
            "PATH": BIN + ":/usr/bin:/bin",
            "LC_ALL": "C.UTF-8",
            "XDG_CONFIG_HOME": self.folder + "/config",
            "XDG_STATE_HOME": self.folder + "/state",
        }

    def bash(self, *words):
        return run("bash", "--norc", "-c", BASH_CALL, "bash", BASH_FILE, *words, env=self.environment).splitlines()

    def fish(self, line):
        out = run("fish", "--no-config", "-c", 'source $argv[1]; complete -C "$argv[2]"', FISH_FILE, line,
                  env=self.environment)
        return [row.split("\t")[0] for row in out.splitlines()]


class Vkctl(Folder):
    def test_bash_offers_what_its_help_lists(self):
        help_text = run(os.path.join(BIN, "vkctl"), "--help", env=self.environment)
        call = BASH_CALL.replace("_rkm", "_vkctl")
        offer = lambda *words: set(run("bash", "--norc", "-c", call, "bash", os.path.join(SOURCE, "packaging/completion/vkctl.bash"),
                                       "vkctl", *words, env=self.environment).splitlines())
        options = set(re.findall(r"--[a-z]+", help_text))
        commands = set(re.findall(r"(?m)^  ([a-z]+) ", help_text))
        self.assertEqual(offer(""), options | commands)
        self.assertEqual(offer("verify", "--j"), {"--json"})


class Tables(Folder):
    def test_bash_and_fish_offer_every_command(self):
        commands = list(options_by_command())
        self.assertEqual(self.bash("rkm", "")[: len(commands)], commands)
        self.assertEqual(set(self.fish("rkm ")), set(commands))

    def test_bash_and_fish_offer_every_option_of_each_command(self):
        for command, options in options_by_command().items():
            with self.subTest(command=command):
                long = {"--" + option.long for option in options}
                short = {"-" + option.short for option in options if option.short}
                self.assertEqual(set(self.bash("rkm", command, "")), long | short)
                offered = {word.split("=")[0] for word in self.fish(f"rkm {command} --")}
                self.assertEqual(offered, long)

    def test_zsh_has_every_option_of_each_command(self):
        with open(os.path.join(ZSH_FOLDER, "_rkm"), encoding="utf-8") as file:
            text = file.read()
        run("zsh", "-f", "-n", os.path.join(ZSH_FOLDER, "_rkm"))
        for command, options in options_by_command().items():
            block = re.search(rf"(?ms)^ +{command}\) options=\($(.*?)^ +\) ;;$", text).group(1)
            found = set(re.findall(r"(?m)^ +'\*(-[^\[=+]+)", block))
            wanted = {"--" + o.long for o in options} | {"-" + o.short for o in options if o.short}
            self.assertEqual(found, wanted, command)


class Typing(Folder):
    def test_words_in_bash(self):
        os.mkdir(os.path.join(self.folder, "data"))
        cases = [
            (["rkm", "sh"], ["show-settings", "show-schedule-settings", "show-monitoring-settings"]),
            (["rkm", "update-settings", "--proxy-"], ["--proxy-mode", "--proxy-user", "--proxy-password"]),
            (["rkm", "update-settings", "--proxy-mode", "=", "m"], ["manual"]),
            (["rkm", "update-settings", "--proxy-mode", ""], ["os", "manual"]),
            (["rkm", "update-schedule-settings", "-m", "a"], ["automatic"]),
            (["rkm", "update-settings", "--data-dir", self.folder + "/d"], [self.folder + "/data"]),
            (["rkm", "update-settings", "--user", ""], []),
        ]
        for words, wanted in cases:
            self.assertEqual(self.bash(*words), wanted, words)
        self.assertIn("--proxy", self.bash("rkm", "show-settings", "--server", ""))

    def test_words_in_fish(self):
        self.assertEqual(self.fish("rkm update-settings --proxy-mode="), ["--proxy-mode=manual", "--proxy-mode=os"])
        self.assertEqual(self.fish("rkm update-schedule-settings -m a"), ["automatic"])
        self.assertEqual(self.fish("rkm update --q"), ["--quiet"])

    def test_words_in_zsh(self):
        self.assertEqual(self.zsh("rkm update-sch"), "rkm update-schedule-settings ")
        self.assertEqual(self.zsh("rkm update --qu"), "rkm update --quiet ")
        self.assertEqual(self.zsh("rkm update-schedule-settings --mode=au"),
                         "rkm update-schedule-settings --mode=automatic ")

    def zsh(self, typed):
        """The command line after a tab, in an interactive shell on its own terminal."""
        result = os.path.join(self.folder, "line")
        script = (f"fpath=({ZSH_FOLDER} $fpath) ; autoload -Uz compinit ; compinit -u -D ; "
                  f"show() {{ print -r -- $BUFFER'|' > {result} ; exit }} ; zle -N show ; bindkey '^X' show ; print re''ady\n")
        child, terminal = pty.fork()
        if child == 0:
            os.execvpe("zsh", ["zsh", "-f", "-i"], dict(self.environment, TERM="dumb", ZDOTDIR=self.folder))
        try:
            os.write(terminal, script.encode())
            self.expect(terminal, b"ready\r\n")
            os.write(terminal, typed.encode() + b"\t\x18")
            os.waitpid(child, 0)
            child = 0
        finally:
            os.close(terminal)
            if child:
                os.kill(child, 9)
                os.waitpid(child, 0)
        with open(result, encoding="utf-8") as file:
            return file.read().rstrip("\n")[:-1]

    def expect(self, terminal, wanted):
        seen, end = b"", time.monotonic() + 60
        while wanted not in seen:
            ready = select.select([terminal], [], [], max(0, end - time.monotonic()))[0]
            self.assertTrue(ready, f"no {wanted} in {seen}")
            seen += os.read(terminal, 4096)


SERVERS = {"revision": 1, "servers": [
    {"name": name, "uri": "https://a.example", "userName": "", "enabled": True, "default": False, "savePassword": False}
    for name in ("Main", "Mirror one")]}
ANSWERS = {"ping": True, "isServiceActive": False, "isVKClientActive": False, "getServerList": SERVERS,
           "hello": {"protocol": 1, "service": "vkservice", "version": "1", "pid": 1, "worker": False}}


class Answers(socketserver.StreamRequestHandler):
    def handle(self):
        for line in self.rfile:
            request = json.loads(line)
            answer = {"jsonrpc": "2.0", "id": request["id"], "result": ANSWERS[request["method"]]}
            self.wfile.write(json.dumps(answer).encode() + b"\n")


class WithService(Folder):
    def setUp(self):
        super().setUp()
        self.rkm = installation(self.folder, '[service]\nsocketName = "vkservice"\n')
        self.environment["PATH"] = self.folder + "/bin:/usr/bin:/bin"

    def serve(self, path):
        service = socketserver.ThreadingUnixStreamServer(path, Answers)
        service.daemon_threads = True
        self.addCleanup(service.shutdown)
        threading.Thread(target=service.serve_forever, args=[0.05], daemon=True).start()

    @unittest.skipIf(os.geteuid() != 0, "only root can take on other users")
    def test_the_usual_socket_is_that_of_the_user(self):
        os.chmod(self.folder, 0o755)
        os.remove(self.folder + "/etc/vk/vk.cfg")
        with open(self.rkm, "w", encoding="utf-8") as file:
            file.write("#!/bin/sh\necho \"1) $2\"\n")
        paths = [self.folder + "/" + name for name in ("own/vkservice.socket", "vkservice")]
        for path, mode, owner in zip(paths, (0o700, 0o755), (65534, 0)):
            os.makedirs(os.path.dirname(path), exist_ok=True)
            self.serve(path)
            os.chmod(path, 0o666)
            os.chown(os.path.dirname(path), owner, 0)
            os.chmod(os.path.dirname(path), mode)
        helper = os.path.join(SHARE, "rkm/completion/service-words")
        for runtime, wanted in ((self.folder + "/own", paths[0]), (self.folder, paths[1]), ("", paths[1])):
            self.assertEqual(run("setpriv", "--reuid=65534", "--clear-groups", helper, self.rkm, "servers", "",
                                 env=dict(self.environment, XDG_RUNTIME_DIR=runtime)), f"--socket={wanted}\n")

    def test_server_names_numbers_and_languages_come_from_the_service(self):
        self.serve(self.folder + "/vkservice")
        self.assertEqual(self.bash(self.rkm, "update-server", "--match-name", "="), ["Main", r"Mirror\ one"])
        self.assertEqual(self.bash(self.rkm, "remove-server", "-m", r"Mirror\ o"), [r"Mirror\ one"])
        self.assertEqual(self.bash(self.rkm, "remove-server", "--match-index", ""), ["1", "2"])
        self.assertIn("de", self.bash(self.rkm, "update-settings", "--app-language", "=", "d"))
        self.assertEqual(self.fish("rkm remove-server --match-name="), ["--match-name=Main", "--match-name=Mirror one"])
        self.serve(self.folder + "/other")
        os.remove(self.folder + "/vkservice")
        line = [self.rkm, "remove-server", "--socket", "=", self.folder + "/other", "--match-index"]
        self.assertEqual(self.bash(*line, "="), ["1", "2"])
        self.assertEqual(self.bash(self.rkm, "remove-server", "--match-index", "="), [])

    def test_nothing_is_started_where_nobody_listens(self):
        left_behind = socket.socket(socket.AF_UNIX)
        left_behind.bind(os.path.join(self.folder, "vkservice"))
        left_behind.close()
        calls = os.path.join(self.folder, "calls")
        with open(self.rkm, "w", encoding="utf-8") as file:
            file.write(f"#!/bin/sh\necho \"$@\" >>{calls}\n")
        helper = os.path.join(SHARE, "rkm/completion/service-words")
        for wanted in ("servers", "numbers", "app-languages", "data-languages"):
            self.assertEqual(run(helper, self.rkm, wanted, "", env=self.environment), "")
        self.assertFalse(os.path.exists(calls))

    def test_a_service_that_never_answers_holds_nobody_up(self):
        listener = socket.socket(socket.AF_UNIX)
        self.addCleanup(listener.close)
        listener.bind(os.path.join(self.folder, "vkservice"))
        listener.listen()
        start = time.monotonic()
        self.assertEqual(self.bash(self.rkm, "remove-server", "--match-name", ""), [])
        self.assertLess(time.monotonic() - start, 5 + 10)  # the bound itself is 2 s; the rest is a busy machine
        left = subprocess.run(["pgrep", "-f", "vkservice -e -worker -s=" + self.folder], stdout=subprocess.PIPE, check=False)
        self.assertEqual(left.stdout, b"")


if __name__ == "__main__":
    unittest.main()
