#!/usr/bin/env python3
"""Measures vkpublish with thousands of packages, and prints a table.

publish.py PLACE VKPUBLISH [OTHER-VKPUBLISH]

The packages are copies of one small package, in a record as version 1.1.0 wrote it, which both programs read. They take
turns. CPU times are medians of user and system time: they count on a machine with other work.
"""
import json
import os
import shutil
import statistics
import subprocess
import sys
import time

SIZES = (1000, 10000)
ROUNDS = 5


def run(program, *arguments):
    """CPU and wall time in milliseconds."""
    start = time.monotonic()
    process = subprocess.Popen((program, *arguments), stdout=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        sys.exit(f"{program} {' '.join(arguments)} ended with {process.returncode}")
    return (usage.ru_utime + usage.ru_stime) * 1000, (time.monotonic() - start) * 1000


def lines_of(keys):
    """The targets in the lists of a record."""
    targets = {}
    for name in os.listdir(f"{keys}/packages"):
        if name.startswith("changes-"):
            with open(f"{keys}/packages/{name}", encoding="utf-8") as file:
                for line in file:
                    _, archive, target = line.split(" ", 2)
                    targets[archive] = json.loads(target)
    return targets


def make(place, vkpublish, count):
    """A repository whose record has so many packages, none of them published."""
    source, repository = f"{place}/source", f"{place}/start-{count}"
    os.makedirs(source, exist_ok=True)
    with open(f"{source}/data", "w", encoding="utf-8") as file:
        file.write("data\n" * 20)
    run(vkpublish, "init", repository)
    run(vkpublish, "add", repository, source, "--name", "p", "--version", "1", "--title", "en=A package",
        "--date", "2026-01-01")
    (archive, target), = lines_of(f"{repository}.keys").items()
    digest = target["hashes"]["sha256"]
    first = f"{repository}/targets/{digest}.{archive}"
    with open(f"{repository}.keys/record.json", encoding="utf-8") as file:
        record = json.load(file)
    record.pop("packages")
    record.update(format=1, targets={}, publishedTargets={}, withdrawnTargets={})
    for number in range(count):
        name = f"package-{number}"
        record["targets"][f"{name}-1.0.0.0.tar.zst"] = {**target, "custom": {**target["custom"], "name": name}}
        shutil.copy(first, f"{repository}/targets/{digest}.{name}-1.0.0.0.tar.zst")
    os.remove(first)
    with open(f"{repository}.keys/record.json", "w", encoding="utf-8") as file:
        json.dump(record, file)
    shutil.rmtree(f"{repository}.keys/packages")
    return repository


def measure(place, programs, count):
    start = make(place, programs[0], count)
    times = {}
    for index, program in enumerate(programs):
        repository = f"{place}/r-{count}-{index}"
        shutil.copytree(start, repository)
        shutil.copytree(f"{start}.keys", f"{repository}.keys")
        times["the first publish", index] = [run(program, "publish", repository)]
    for turn in range(ROUNDS):
        for index, program in enumerate(programs):
            repository = f"{place}/r-{count}-{index}"
            for action, arguments in (
                    ("add", ("add", repository, f"{place}/source", "--name", f"n-{turn}", "--version", "1")),
                    ("publish with one new package", ("publish", repository)),
                    ("publish without news", ("publish", repository)),
                    ("list", ("list", repository)),
                    ("verify", ("verify", repository))):
                times.setdefault((action, index), []).append(run(program, *arguments))
    size = sum(entry.stat().st_size for entry in os.scandir(f"{place}/r-{count}-0/metadata"))
    print(f"| **{count} packages, {size / 1e6:.1f} MB of metadata files** | | | | |")
    for action in dict.fromkeys(action for action, _ in times):
        here = [statistics.median(column) for column in zip(*times[action, 0])]
        row = f"| {action} | {here[0]:.1f} ms | {here[1]:.1f} ms |"
        if len(programs) > 1:
            there = [statistics.median(column) for column in zip(*times[action, 1])]
            row += f" {there[0]:.1f} ms | {there[0] / here[0]:.2f} |"
        print(row, flush=True)


def main():
    place, *programs = sys.argv[1:]
    os.makedirs(place)
    print("| `vkpublish` | CPU | time |" + (" CPU of the other build | ratio |" if len(programs) > 1 else ""))
    print("|---|---|---|" + ("---|---|" if len(programs) > 1 else ""))
    for count in SIZES:
        measure(place, programs, count)


main()
