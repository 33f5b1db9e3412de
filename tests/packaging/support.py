"""Shared by the tests of this folder: the paths of the build, and rkm's command tables."""
import collections
import os
import shutil
import subprocess

SOURCE = os.environ["RKM_SOURCE_DIR"]
BUILD = os.environ["RKM_BUILD_DIR"]
BIN = os.path.join(BUILD, "bin")
SHARE = os.path.join(BUILD, "share")

Option = collections.namedtuple("Option", "long short value")


def run(*words, **kwargs):
    """Runs a program that has to succeed and returns its standard output."""
    result = subprocess.run(words, capture_output=True, text=True, timeout=120, **kwargs)
    if result.returncode != 0:
        raise AssertionError(f"{words} ended with {result.returncode}: {result.stderr}{result.stdout}")
    return result.stdout


def installation(folder, config):
    """Creates an installation of rkm in a folder, with this configuration; returns the path of rkm."""
    for name in ("bin", "etc/vk"):
        os.makedirs(os.path.join(folder, name))
    for name in ("lib", "share"):
        os.symlink(os.path.join(BUILD, name), os.path.join(folder, name))
    with open(os.path.join(folder, "etc/vk/vk.cfg"), "w", encoding="utf-8") as file:
        file.write(config)
    return shutil.copy(os.path.join(BIN, "rkm"), os.path.join(folder, "bin"))


def options_by_command():
    """The options of each command; short is None if there is no letter."""
    commands = collections.OrderedDict()
    for line in run(os.path.join(BUILD, "packaging/completion/rkm-completions"), "list").splitlines():
        command, long, short, value = line.split("\t")
        commands.setdefault(command, []).append(Option(long, None if short == "-" else short, value))
    return commands


def read(*path):
    with open(os.path.join(SOURCE, *path), encoding="utf-8") as file:
        return file.read()
