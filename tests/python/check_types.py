"""Types: mypy --strict on the package, its tests and the examples; and stubs that are true of the module.

usage: check_types.py SOURCE_DIR BUILD_DIR
"""

import os
import pathlib
import subprocess
import sys


def run(*command: str, **environment: str) -> "subprocess.CompletedProcess[str]":
    return subprocess.run(command, env=os.environ | environment, capture_output=True, text=True)


def main(source: pathlib.Path, build: pathlib.Path) -> int:
    checked = [source / "python/quorvel", source / "tests/python", *sorted((source / "examples").glob("*.py"))]
    cache = str(build / "mypy")
    types = run("/usr/bin/mypy", "--strict", "--python-executable", sys.executable, "--cache-dir", cache,
                *map(str, checked), MYPYPATH=str(source / "python"))
    print(types.stdout, types.stderr)
    failed = types.returncode != 0

    # Other versions of mypy write the same stubs in other words.
    if run("/usr/bin/mypy", "--version").stdout.startswith("mypy 1.0."):
        stubs = run(sys.executable, str(source / "scripts/stubs"), "--check", str(build))
        print(stubs.stdout, stubs.stderr)
        failed |= stubs.returncode != 0

    # Every class of the module has pybind11's metaclass, which no stub needs to know.
    told = run("/usr/bin/stubtest", "--concise", "quorvel._quorvel", MYPYPATH=str(source / "python"))
    lines = [line for line in told.stdout.splitlines() if not line.endswith("metaclass differs")]
    print("\n".join(lines), told.stderr)
    return int(failed or bool(lines) or "quorvel" in told.stderr)


if __name__ == "__main__":
    sys.exit(main(*map(pathlib.Path, sys.argv[1:])))
