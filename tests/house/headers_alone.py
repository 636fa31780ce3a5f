#!/usr/bin/env python3
"""Every header compiles alone. One that a source of this build includes first has just shown that it does;
the others are compiled here, each by itself.

usage: headers_alone.py SOURCE_DIR BUILD_DIR COMPILER"""
import json
import os
import re
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

source, build, compiler = Path(sys.argv[1]), Path(sys.argv[2]), sys.argv[3]
FIRST_INCLUDE = re.compile(r'^#include [<"](.+)[>"]', re.MULTILINE)
FLAG = re.compile(r"(?<= )-(?:isystem |I|std=|W|ffp|fvisibility=)\S+")

rooms, shown, flags = set(), set(), {}
for entry in json.loads((build / "compile_commands.json").read_text()):
    path = Path(entry["file"])
    if not path.is_relative_to(source) or path.is_relative_to(build):
        continue
    rooms.add(path.relative_to(source).parts[0])
    if first := FIRST_INCLUDE.search(path.read_text()):
        shown.add(first[1])
    flags |= dict.fromkeys(FLAG.findall(entry["command"]))
command = [compiler, *" ".join(flags).split(), "-fsyntax-only", "-x", "c++", os.devnull, "-include"]

headers = [path for room in sorted(rooms) for path in sorted((source / room).rglob("*.h"))]
left = [path for path in headers if str(path.relative_to(source)) not in shown]
assert headers and len(left) < len(headers), "the build names no source of this tree"


def complaints(header):
    return subprocess.run([*command, str(header)], capture_output=True, text=True, check=False).stderr


with ThreadPoolExecutor(os.cpu_count()) as pool:
    faults = [text for text in pool.map(complaints, left) if text]
print("\n".join(faults))
print(f"{len(headers)} headers, {len(left)} of them compiled here, {len(faults)} do not compile alone")
sys.exit(bool(faults))
