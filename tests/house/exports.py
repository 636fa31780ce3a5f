"""Fails when the library exports a symbol that is not in namespace qv.

usage: exports.py LIBRARY
"""

import re
import subprocess
import sys

# What the C++ runtime forces out of a library: type information and inline functions of the
# standard library that the linker must be able to merge between libraries.
FORCED = re.compile(
    r"^(typeinfo (name )?for |vtable for |VTT for |guard variable for |construction vtable for )?"
    r"(std::|__gnu_cxx::|void std::|bool std::|unsigned long std::|OpenImageIO|fmt::|_init$|_fini$|__|_edata|_end|__bss_start)"
)
OURS = re.compile(r"(^|[ *&(])qv::")


def main():
    listing = subprocess.run(
        ["nm", "-DC", "--defined-only", sys.argv[1]], check=True, capture_output=True, text=True
    ).stdout
    symbols = [line.split(None, 2)[2] for line in listing.splitlines()]
    ours = [s for s in symbols if OURS.search(s)]
    foreign = [s for s in symbols if s not in set(ours) and not FORCED.search(s)]
    print(f"{len(symbols)} symbols, {len(ours)} in qv")
    print("\n".join(f"foreign: {s}" for s in foreign))
    return 1 if foreign or not ours else 0


if __name__ == "__main__":
    sys.exit(main())
