"""Fails when the composition that README.md shows is not the one that the demo renders.

usage: readme.py SOURCE_DIR
"""

import pathlib
import re
import sys

root = pathlib.Path(sys.argv[1])
shown = re.findall(r"^```json\n(.*?)^```$", (root / "README.md").read_text(), re.MULTILINE | re.DOTALL)
rendered = (root / "examples" / "shot.json").read_text()
if shown != [rendered]:
    sys.exit("README.md does not show examples/shot.json as it stands")
if len(rendered.splitlines()) >= 40:
    sys.exit("examples/shot.json has grown too long to be read at a glance")
