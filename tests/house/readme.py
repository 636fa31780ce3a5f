"""Fails when README.md shows another composition than the demo renders, or another host than is tested.

usage: readme.py SOURCE_DIR
"""

import pathlib
import re
import sys

root = pathlib.Path(sys.argv[1])
readme = (root / "README.md").read_text()
for language, name in (("json", "shot.json"), ("cpp", "minimal_host.cpp")):
    shown = re.findall(rf"^```{language}\n(.*?)^```$", readme, re.MULTILINE | re.DOTALL)
    if shown != [(root / "examples" / name).read_text()]:
        sys.exit(f"README.md does not show examples/{name} as it stands")
rendered = (root / "examples" / "shot.json").read_text()
if len(rendered.splitlines()) >= 40:
    sys.exit("examples/shot.json has grown too long to be read at a glance")
