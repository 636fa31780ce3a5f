"""Fails when an include line in qv/ points up or sideways across rooms.

usage: floors.py SOURCE_DIR
"""

import pathlib
import re
import sys

# What each header or source of a room may include from other rooms, by the path without its ending.
# Within a room everything may include what stands lower in the same chain.
ALLOWED = {
    "graph/schedule": {"graph/result_cache"},
    "graph/result_cache": {"graph/flat_map"},
    "io/scheduler": {"io/decode"},
    "io/decode": {"io/half"},
    "nodes/merge/merge": {"nodes/merge/text"},
    "nodes/merge/channels": {"nodes/merge/text"},
    "nodes/filter/ops": {"nodes/filter/plan", "nodes/filter/scratch"},
    "nodes/filter/plan": {"nodes/filter/scratch", "gpu/draw", "gpu/registry"},
    "nodes/filter/scratch": {"nodes/filter/plan", "gpu/draw", "gpu/registry", "gpu/gl/entry_points"},
    "gpu/draw": {"gpu/registry", "gpu/gl/entry_points"},
    "gpu/registry": {"gpu/gl/entry_points"},
    "xform/motion_blur": {"xform/matrix"},
    "xform/crop": {"xform/matrix"},
    "xform/steps": {"xform/matrix"},
}
INCLUDE = re.compile(r'^\s*#\s*include\s*[<"]((?:qv|host|bench|tests)/[^">]+)[">]', re.MULTILINE)


def reachable(unit):
    found, todo = set(), [unit]
    while todo:
        for lower in ALLOWED.get(todo.pop(), ()):
            if lower not in found:
                found.add(lower)
                todo.append(lower)
    return found


def main():
    root = pathlib.Path(sys.argv[1])
    faults, files = [], 0
    for path in sorted(root.glob("qv/**/*")):
        if path.suffix not in (".h", ".cpp"):
            continue
        files += 1
        own = path.relative_to(root / "qv").with_suffix("").as_posix()
        room = own.rpartition("/")[0]
        for target in INCLUDE.findall(path.read_text()):
            unit = target.removeprefix("qv/").removesuffix(".h")
            same_room = unit.rpartition("/")[0] == room
            if target == "qv/export.h" or unit == own:
                continue
            if target.startswith("qv/") and (unit in reachable(own) or (same_room and own not in reachable(unit))):
                continue
            if target.startswith("qv/") and not same_room and own not in ALLOWED:
                # A file that a room keeps to itself stands where the room's highest file stands.
                peers = [u for u in ALLOWED if u.rpartition("/")[0] == room]
                if any(unit in reachable(u) for u in peers):
                    continue
            faults.append(f"{path.relative_to(root)} includes {target}")
    if files == 0:
        faults.append("no sources found: nothing was checked")
    print("\n".join(faults) if faults else f"{files} files, every include points down")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
