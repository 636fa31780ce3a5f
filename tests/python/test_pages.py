"""What README.md and docs/python.md show is true, in a folder with the examples and their plates."""

import doctest
import pathlib
import re
import runpy
import shutil
import subprocess

import numpy as np
import pytest
import quorvel
from PIL import Image


ROOT = pathlib.Path(__file__).resolve().parents[2]


def test_pages_hold(tmp_path: pathlib.Path, monkeypatch: pytest.MonkeyPatch) -> None:
    shutil.copytree(ROOT / "examples", tmp_path / "examples", ignore=shutil.ignore_patterns("plates"))
    plates = pathlib.Path(quorvel.__file__).parents[2] / "examples/quorvel_plates"
    subprocess.run([plates, "examples/plates"], cwd=tmp_path, check=True)
    monkeypatch.chdir(tmp_path)
    pages = [(ROOT / page).read_text() for page in ("README.md", "docs/python.md")]
    blocks, examples = (re.findall(r"^```python\n(.*?)^```$", page, re.MULTILINE | re.DOTALL) for page in pages)
    assert len(blocks) == 1
    exec(blocks[0], {})
    runner = doctest.DocTestRunner()
    runner.run(doctest.DocTestParser().get_doctest("\n".join(examples), {}, "python.md", None, 0))
    assert runner.tries > 20 and runner.failures == 0

    runpy.run_path("examples/contact_sheet.py")["main"]("sheet.png")
    made, shown = (np.asarray(Image.open(path), int) for path in ("sheet.png", ROOT / "docs/contact_sheet.jpg"))
    assert np.abs(made - shown).mean() < 3
