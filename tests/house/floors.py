"""Fails when an include line in qv/ or host/ points up, or sideways into a room that it may not know of, or to
OpenImageIO where that would be loaded with the program.

usage: floors.py SOURCE_DIR
"""

import pathlib
import re
import sys

# Which other rooms a room may look into. A room that is not named looks into none.
ROOMS = {
    "gpu": {"gpu/gl"},
    "io": {"io/exr", "io/general"},
    "io/exr": {"io"},  # its slots, halves and claims; what is read through it stands in io and io/general
    "io/general": {"io", "io/exr"},
    "nodes/filter": {"gpu", "gpu/gl"},
    "transport": {"gpu/gl"},
}

# What every room may use.
ROOT = {"qv/export.h", "qv/version.h", "qv/huge_pages.h", "qv/integers.h"}

# Within a room: what a file may include are those behind it in its line. Those without a line are what a room
# keeps to itself, open to all of it.
FLOORS = {}
for line in """graph: schedule result_cache flat_map
graph: walk
graph: record
io: scheduler decode half
io: layers
io: image_read
gpu: draw registry
nodes/filter: ops plan scratch
nodes/merge: merge text
nodes/merge: channels text
xform: motion_blur matrix
xform: crop matrix
xform: steps matrix""".splitlines():
    units = [f"{line.split(':')[0]}/{name}" for name in line.split()[1:]]
    FLOORS |= {unit: set(units[i + 1:]) for i, unit in enumerate(units)}
# The rooms of the host, roof first: each may look into those behind it, and into itself. An inner room that is
# named here stands on its own floor.
HOST = [{"cli"}, {"live", "render_farm"}, {"manual", "report"}, {"service"}, {"render"}, {"draw"}, {"plan"},
        {"frame"}, {"shot"}, {"nodes"}, {"node"}, {"programs"}, {"decode"}, {"general/images"}, {"plates"}, {"writer"},
        {"files", "gpu"}, {"base"}, {"general"}]
# Inner rooms that know nothing of the one around them.
CELLARS = {"live/http", "live/session"}
# The module's, and the one room of the host that may include OpenImageIO.
MODULE = "general/images"
INCLUDE = re.compile(r'^\s*#\s*include\s*[<"]((?:qv|host|bench|tests)/[^">]+)[">]', re.MULTILINE)


def allowed(own, target):
    if target in ROOT:
        return True
    if not target.startswith("qv/"):
        return False
    unit = target.removeprefix("qv/").removesuffix(".h")
    room, other = own.rpartition("/")[0], unit.rpartition("/")[0]
    if room != other:
        return other in ROOMS.get(room, ())
    return unit == own or unit not in FLOORS or own not in FLOORS or unit in FLOORS[own]


def host_room(unit):
    inner = unit.rpartition("/")[0]
    return inner if any(inner in names for names in HOST) else unit.split("/")[0]


def host_allowed(own, target):
    if target.startswith("qv/"):
        return True
    if not target.startswith("host/"):
        return False
    rooms = [host_room(unit) for unit in (own, target.removeprefix("host/"))]
    inner, other = (unit.rpartition("/")[0] for unit in (own, target.removeprefix("host/")))
    if inner in CELLARS and rooms[0] == rooms[1] and inner != other:
        return False
    mine, theirs = [next((i for i, names in enumerate(HOST) if room in names), -1) for room in rooms]
    return min(mine, theirs) >= 0 and (rooms[0] == rooms[1] or theirs > mine)


def main():
    root = pathlib.Path(sys.argv[1])
    faults, files = [], 0
    for tree, judge in (("qv", allowed), ("host", host_allowed)):
        for path in sorted(p for p in root.glob(f"{tree}/**/*") if p.suffix in (".h", ".cpp")):
            files += 1
            own = path.relative_to(root / tree).with_suffix("").as_posix()
            targets = INCLUDE.findall(path.read_text())
            faults += [f"{path.relative_to(root)} includes {t}" for t in targets if not judge(own, t)]
    faults += [f"{path.relative_to(root)} includes OpenImageIO" for tree in ("host", "python")
               for path in sorted(root.glob(f"{tree}/**/*")) if path.suffix in (".h", ".cpp")
               and path.parent != root / "host" / MODULE and "include <OpenImageIO/" in path.read_text()]
    faults += [f"{unit} has no header" for unit in FLOORS if not (root / "qv" / f"{unit}.h").exists()]
    print("\n".join(faults) or f"{files} files, every include points down")
    return 1 if faults or not files else 0


if __name__ == "__main__":
    sys.exit(main())
