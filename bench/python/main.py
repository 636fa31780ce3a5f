#!/usr/bin/python3
"""The Python package beside C++ and beside OpenImageIO's module. Every rows_*.py here has a `measure`.

usage: bench_python [--json FILE] [--only TEXT] [--quick]    from the build's bench/python
"""

import importlib
import pathlib
import sys

BUILT = pathlib.Path(sys.argv[0]).absolute().parent
HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE), str(BUILT.parent.parent / "python")]

if __name__ == "__main__":
    report = importlib.import_module("report").Report("python")
    for rows in sorted(HERE.glob("rows_*.py")):
        importlib.import_module(rows.stem).measure(report, BUILT)
    report.finish()
