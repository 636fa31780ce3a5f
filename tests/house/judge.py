"""Fails when bench/judge.py takes a row for good that is bad, or the other way round.

usage: judge.py SOURCE_DIR
"""

import runpy
import sys

verdicts = runpy.run_path(f"{sys.argv[1]}/bench/judge.py")["verdicts"]

# One row of three runs that take `ours` ms (of a peer's 100), its limit, the stored ratio; what is said of it.
TABLE = [
    ("on the limit", (50, 50, 50), 2.0, None, "new"),
    ("9 % under the limit", (55, 55, 55), 2.0, 1.82, ""),
    ("11 % under the limit", (56.2, 56.2, 56.2), 2.0, 1.78, "WRONG limit"),
    ("14 % worse than stored", (50, 50, 50), 0, 2.32, ""),
    ("16 % worse than stored", (50, 50, 50), 0, 2.39, "WRONG was"),
    ("one slow run of three", (50, 50, 500), 2.0, 2.0, ""),
    ("two slow runs of three", (50, 500, 500), 2.0, 2.0, "WRONG limit WRONG was"),
    ("far better than stored", (1, 1, 1), 2.0, 2.0, ""),
    ("a number that is none", (50, None, 50), 0, 2.0, "WRONG number"),
    ("took no time", (0, 0, 0), 2.0, 2.0, ""),
    ("left out", None, 0, 2.0, "gone"),
]


def said(better, times, limit, stored, part=False):
    value = lambda ms: None if ms is None else ms if better == "less" else 1e4 / ms if ms else float("inf")
    peers = {"far": value(400), "p": value(100)}
    row = lambda ms: {"row": "r", "better": better, "ours": value(ms), "peers": peers, "limit": limit}
    runs = [[row(ms)] for ms in times] if times else [[]] * 3
    wrong, named = verdicts({"r": {"p": stored}} if stored else {}, runs, part)
    words = [f"WRONG {w}" for line in wrong for w in ("limit", "was", "number") if w in line]
    return " ".join(words + [w for line in named if "far" not in line for w in ("new", "gone") if f": {w}," in line])


faults = [f"{name}, {better} is better: not '{want}'" for name, *row, want in TABLE for better in ("less", "more")
          if said(better, *row) != want]
if said("less", None, 0, 2.0, part=True):
    faults.append("a run of some rows misses others")
row = {"row": "r", "better": "less", "ours": 1, "peers": {"p": 1}, "limit": 1.2}
if len(verdicts(None, [[row]])[0]) != 1 or verdicts(None, [[row | {"limit": 1}]]) != ([], []):
    faults.append("limits alone")
sys.exit("\n".join(faults) or None)
