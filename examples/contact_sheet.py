#!/usr/bin/python3
"""A contact sheet of every merge operation: one composition, changed and drawn again for each.

usage: contact_sheet.py [OUT.png]    from the plates that scripts/demo paints; the captions need python3-pil
"""

from __future__ import annotations

import sys
from pathlib import Path

import numpy as np
from numpy.typing import NDArray
from PIL import Image, ImageDraw

import quorvel as qv

COLUMNS, CAPTION, GAP = 6, 16, 6
EXAMPLES = Path(__file__).resolve().parent


def composition() -> qv.Composition:
    """A creature, keyed off its green screen, before hills: A and B of the merge."""
    shot = qv.Composition(format=(960, 540))
    plate = shot.add("read", "plate", file=EXAMPLES / "plates/greenscreen.0012.exr")
    hills = shot.add("read", "hills", file=EXAMPLES / "plates/background.exr")
    creature = shot.add("screen_key", "creature", inputs=plate, screen=(0.055, 0.46, 0.095), black=0.25, white=0.85)
    shot.add("merge", "merge", inputs={"a": creature, "b": hills})
    return shot


def encoded(light: NDArray[np.float32]) -> NDArray[np.uint8]:
    """Linear light as sRGB with 8 bits."""
    held = np.clip(light, 0, 1)
    curve = np.where(held <= 0.0031308, held * 12.92, 1.055 * held ** (1 / 2.4) - 0.055)
    return np.asarray(np.rint(curve * 255), np.uint8)


def main(out: str = "contact_sheet.png") -> None:
    shot = composition()
    names = sorted(qv.nodes.types["merge"].knobs["operation"].choices)
    tiles = []
    with qv.Renderer(shot, memory="512M") as renderer:
        for name in names:
            shot["merge"].operation = name  # keyed and decoded images stay cached
            tiles.append(encoded(np.asarray(renderer.frame(1, scale=0.2))[..., :3]))

    height, width, _ = tiles[0].shape
    rows = -(-len(names) // COLUMNS)
    sheet = np.full((rows * (height + CAPTION) + GAP, COLUMNS * (width + GAP) + GAP, 3), 24, np.uint8)
    cells = (divmod(index, COLUMNS) for index in range(len(names)))
    places = [(row * (height + CAPTION) + CAPTION, GAP + column * (width + GAP)) for row, column in cells]
    for (top, left), tile in zip(places, tiles):
        sheet[top : top + height, left : left + width] = tile
    picture = Image.fromarray(sheet)
    words = ImageDraw.Draw(picture)
    for (top, left), name in zip(places, names):
        words.text((left, top - CAPTION + 3), name, fill=(220, 220, 220))
    picture.save(out)


if __name__ == "__main__":
    main(*sys.argv[1:])
