#!/usr/bin/env python3
"""Makes two versions of a folder of tables, 55 MB: records changed in place, inserted and deleted, and a renamed file.
make_tables.py OLD NEW"""
import pathlib
import random
import sys

RECORD = 64  # bytes
TABLES = {"charts-2026.1.db": 450_000, "places.db": 250_000, "routes.db": 160_000}  # records
RENAMED = {"charts-2026.1.db": "charts-2026.2.db"}
CHANGED = 0.007  # of the records, and as many inserted and deleted together

chance = random.Random(13)


def record(number):
    return b"%08d;%-12d;%09.6f;%010.6f;" % (number, chance.randrange(10**6), chance.uniform(-90, 90),
                                            chance.uniform(-180, 180)) + chance.randbytes(RECORD - 44)


def changed(records):
    for old in records:
        draw = chance.random()
        if draw < CHANGED / 2:
            continue
        if draw < CHANGED:
            yield record(len(records))
        yield old[:9] + b"%-12d" % chance.randrange(10**6) + old[21:] if draw > 1 - CHANGED else old


for name, count in TABLES.items():
    records = [record(number) for number in range(count)]
    for folder, file, content in ((sys.argv[1], name, records),
                                  (sys.argv[2], RENAMED.get(name, name), changed(records))):
        path = pathlib.Path(folder, "data", file)
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(b"".join(content))
