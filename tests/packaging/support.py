"""What the tests of this folder share: the places of the build, and the command tables as rkm has them."""
import collections
import json
import os
import shutil
import socket
import subprocess
import threading

SOURCE = os.environ["RKM_SOURCE_DIR"]
BUILD = os.environ["RKM_BUILD_DIR"]
BIN = os.path.join(BUILD, "bin")
SHARE = os.path.join(BUILD, "share")

Option = collections.namedtuple("Option", "command long short value")


def run(*words, **kwargs):
    """Runs a program that has to succeed and gives its standard output."""
    result = subprocess.run(words, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=120, **kwargs)
    if result.returncode != 0:
        raise AssertionError(f"{words} ended with {result.returncode}: {result.stderr}{result.stdout}")
    return result.stdout


def installation(folder, config):
    """An installation of rkm in a folder, with this configuration; gives the path of rkm."""
    for name in ("bin", "etc/vk"):
        os.makedirs(os.path.join(folder, name))
    for name in ("lib", "share"):
        os.symlink(os.path.join(BUILD, name), os.path.join(folder, name))
    with open(os.path.join(folder, "etc/vk/vk.cfg"), "w", encoding="utf-8") as file:
        file.write(config)
    return shutil.copy(os.path.join(BIN, "rkm"), os.path.join(folder, "bin"))


def options():
    """Every option of every command; short is None where there is no letter."""
    tool = os.path.join(BUILD, "packaging/completion/rkm-completions")
    rows = [line.split("\t") for line in run(tool, "list").splitlines()]
    return [Option(command, long, None if short == "-" else short, value) for command, long, short, value in rows]


def options_by_command():
    commands = collections.OrderedDict()
    for option in options():
        commands.setdefault(option.command, []).append(option)
    return commands


def read(*path):
    with open(os.path.join(SOURCE, *path), encoding="utf-8") as file:
        return file.read()


class StandIn(threading.Thread):
    """Answers on the service's socket what it was told to."""

    ANSWERS = {
        "isServiceActive": False, "isVKClientActive": False, "ping": True,
        "hello": {"protocol": 1, "service": "vkservice", "version": "1", "pid": 1, "worker": False},
    }

    def __init__(self, path, **answers):
        super().__init__(daemon=True)
        self.answers = dict(self.ANSWERS, **answers)
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(path)
        self.listener.listen()
        self.start()

    def run(self):
        while True:
            try:
                connection = self.listener.accept()[0]
            except OSError:
                return
            threading.Thread(target=self.serve, args=[connection], daemon=True).start()

    def serve(self, connection):
        with connection, connection.makefile("rw", encoding="utf-8") as lines:
            try:
                for line in lines:
                    request = json.loads(line)
                    answer = {"jsonrpc": "2.0", "id": request["id"], "result": self.answers[request["method"]]}
                    print(json.dumps(answer), file=lines, flush=True)
            except OSError:
                pass

    def stop(self):
        self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()
        self.join()
