#!/usr/bin/python3
"""Makes package archives from their descriptions.

   fuzz/make_archives.py FROM TO     NAME.json in FROM becomes NAME.tar and NAME.tar.zst in TO

A description is an object: "format" is one of Python's tarfile ("ustar", "gnu", "pax"), "entries" a list of objects
with the members of a TarInfo ("name", "type" as one letter, "linkname", "mode", "mtime", "size", "uname",
"pax_headers") and "content", a text. A "size" replaces the content's own in the header.
"""
import io
import json
import os
import subprocess
import sys
import tarfile

FORMATS = {"ustar": tarfile.USTAR_FORMAT, "gnu": tarfile.GNU_FORMAT, "pax": tarfile.PAX_FORMAT}


def archive(description):
    file = io.BytesIO()
    with tarfile.open(fileobj=file, mode="w", format=FORMATS[description["format"]]) as tar:
        for members in description["entries"]:
            content = members.get("content", "").encode()
            info = tarfile.TarInfo(members["name"])
            info.size = len(content)
            info.type = members.get("type", "0").encode()
            for name in ("linkname", "mode", "mtime", "uname", "size", "pax_headers"):
                setattr(info, name, members.get(name, getattr(info, name)))
            # Written by hand, because tarfile would not write a header that contradicts the content.
            file.write(info.tobuf(tar.format, "utf-8", "surrogateescape"))
            file.write(content + b"\0" * (-len(content) % tarfile.BLOCKSIZE))
    return file.getvalue()


def main():
    source, target = sys.argv[1:]
    os.makedirs(target, exist_ok=True)
    for name in sorted(os.listdir(source)):
        with open(os.path.join(source, name), encoding="utf-8") as file:
            data = archive(json.load(file))
        path = os.path.join(target, name.replace(".json", ".tar"))
        with open(path, "wb") as file:
            file.write(data)
        subprocess.run(["zstd", "-qf", path, "-o", path + ".zst"], check=True)


main()
