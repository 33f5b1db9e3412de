#!/usr/bin/env python3
"""Makes the folders of six packages: about 4,600 files and 285 MB, 82 MB compressed."""
import pathlib
import random
import sys

FOLDERS = ["app-viewer", "app-planner", "app-tools", "data-charts", "data-ports", "data-terrain"]
FILES_IN_EACH = 767
MEAN_SIZE = 62_000  # bytes

chance = random.Random(7)
words = [bytes(chance.choices(b"abcdefghijklmnopqrstuvwxyz", k=chance.randint(3, 9))) for _ in range(4000)]
text = b" ".join(chance.choices(words, k=400_000))


def content(size):
    """Some incompressible bytes, the rest words."""
    random_size = size * 17 // 100
    start = chance.randrange(len(text) - 1)
    repeated = (text[start:] + text * (size // len(text) + 1))[: size - random_size]
    return chance.randbytes(random_size) + repeated


for folder in FOLDERS:
    for number in range(FILES_IN_EACH):
        path = pathlib.Path(sys.argv[1], folder, f"part-{number % 24}", f"file-{number}")
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content(int(chance.expovariate(1 / MEAN_SIZE)) + 200))
