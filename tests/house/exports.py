"""Fails when the library exports a symbol that is not in namespace qv.

usage: exports.py LIBRARY
"""

import re
import subprocess
import sys

# Sanitizers put names of their own into what they build.
FORCED = re.compile(r"^(__|_init$|_fini$|_edata$|_end$)")
OURS = re.compile(r"^((typeinfo|typeinfo name|vtable) for )?qv::")


def main():
    listing = subprocess.run(
        ["nm", "-DC", "--defined-only", sys.argv[1]], check=True, capture_output=True, text=True
    ).stdout
    symbols = [line.split(None, 2)[2] for line in listing.splitlines()]
    ours = [s for s in symbols if OURS.search(s)]
    foreign = [s for s in symbols if not OURS.search(s) and not FORCED.search(s)]
    print(f"{len(symbols)} symbols, {len(ours)} in qv")
    print("\n".join(f"foreign: {s}" for s in foreign))
    return 1 if foreign or not ours else 0


if __name__ == "__main__":
    sys.exit(main())
