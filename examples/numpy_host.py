"""The smallest host of one's own: quorvel's graph, cache, curves and transforms, with NumPy for a GPU.

A flower falls through an evening. What a frame needs is found, taken from the cache or computed, and given up
when the budget is spent. Four frames of it become one picture.

usage: numpy_host.py OUT.png
"""

from __future__ import annotations

import struct
import sys
import zlib
from collections.abc import Callable
from dataclasses import dataclass, field
from pathlib import Path

import numpy as np
from quorvel import core
from quorvel.core import Image

WIDTH, HEIGHT = 240, 180


@dataclass
class Node:
    """An image made of other images and of knobs, which may move."""

    name: str
    compute: Callable[..., Image]
    inputs: list[int] = field(default_factory=list)
    knobs: dict[str, core.Curve] = field(default_factory=dict)


class Host:
    """Renders frames of a graph whose nodes are numbered upstream first; the last one is the output."""

    def __init__(self, nodes: list[Node], budget: int) -> None:
        self.nodes, self.budget = nodes, budget
        self.images: dict[int, Image] = {}  # by slot
        self.walk, self.schedule, self.cache = core.Walk(), core.Schedule(), core.ResultCache()
        inputs = [node.inputs for node in nodes]
        self.walk.build(inputs, [bool(node.knobs) for node in nodes], [0] * len(nodes))
        self.schedule.build(inputs, [])

    def key(self, number: int, frame: float) -> int:
        """What the pixels of a node depend on, as one number: which it is, its knobs, its inputs' keys."""
        node = self.nodes[number]
        knobs = np.array([curve.value(frame) for curve in node.knobs.values()], np.float64)
        words = np.concatenate([[number], knobs.view(np.uint32), self.walk.values[node.inputs].view(np.uint32)])
        slot = core.SlotSpec(components=len(words), offset=0)
        return core.Record([slot], words.astype(np.uint32), kinds=[1]).typed_hash()

    def render(self, frame: float) -> tuple[Image, list[str]]:
        """The image of a frame, and the names of the nodes that had to be computed for it."""
        first = not self.walk.values.any()
        self.walk.walk([], first, lambda number, dirty: self.key(number, frame))

        self.cache.begin_touch()
        plan = self.schedule.run(self.walk.values, self.cache, pin=True)
        results: dict[int, Image] = {}
        computed = []
        for number in map(int, plan.order):
            node = self.nodes[number]
            if plan.compute[number]:
                inputs = [results[i] for i in node.inputs]
                results[number] = self.keep(number, node.compute(frame, *inputs, **node.knobs))
                computed.append(node.name)
            else:
                results[number] = self.images[int(plan.cached[number])]
        self.cache.end_touch([])
        for popped in self.cache.evict(self.budget, self.budget):
            del self.images[popped.slot]
        return results[len(self.nodes) - 1], computed

    def keep(self, number: int, image: Image) -> Image:
        slot = max(self.images, default=-1) + 1
        self.images[slot] = image
        self.cache.put(int(self.walk.values[number]), slot, [(slot, image.nbytes)], pinned=True)
        return image


def evening(frame: float) -> Image:
    low, high = np.array([[1.0, 0.45, 0.15, 1], [0.05, 0.1, 0.4, 1]])
    height = np.linspace(0, 1, HEIGHT)[::-1, None, None] ** 0.7
    return np.broadcast_to(low + (high - low) * height, (HEIGHT, WIDTH, 4)).astype(np.float32)


def flower(frame: float) -> Image:
    y, x = np.mgrid[:HEIGHT, :WIDTH] + 0.5
    radius, angle = np.hypot(x - WIDTH / 2, y - HEIGHT / 2), np.arctan2(y - HEIGHT / 2, x - WIDTH / 2)
    petals = np.clip(34 * (1 + 0.45 * np.cos(5 * angle)) - radius, 0, 1)[..., None]
    heart = np.clip(12 - radius, 0, 1)[..., None]
    image: Image = (petals * (1 - heart) + heart * [1, 0.6, 0.05, 1]).astype(np.float32)
    return image


def expose(frame: float, image: Image, stops: core.Curve) -> Image:
    gain: Image = np.exp2(np.array([1, 1, 1, 0], np.float32) * np.float32(stops.value(frame)))
    return image * gain


def tumble(frame: float, image: Image, fall: core.Curve, turn: core.Curve) -> Image:
    """Moves an image, averaged over as many times of an open shutter as its way is long."""
    def steps(samples: int) -> list[list[float]]:  # curves take and give arrays
        times = np.linspace(frame, frame + 1, samples)
        return [[core.step_transform, 0, y, degrees, 1, 1, 0, 0, core.skew_xy, WIDTH / 2, HEIGHT / 2, 0]
                for y, degrees in zip(fall.value(times), turn.value(times))]

    path = [core.total([step], WIDTH, HEIGHT).matrix for step in steps(5)]
    samples = max(1, core.mblur_samples(0.5, path, WIDTH, HEIGHT))
    pixels = np.stack([*(np.mgrid[:HEIGHT, :WIDTH][::-1] + 0.5), np.ones((HEIGHT, WIDTH))])
    result = np.zeros_like(image)
    for step in steps(samples):
        back = core.step_matrix([*step[:-1], 1], WIDTH, HEIGHT)[0]  # inverted
        assert back is not None
        column, row, _ = np.floor(np.tensordot(back, pixels, 1)).astype(int)
        inside = (column >= 0) & (column < WIDTH) & (row >= 0) & (row < HEIGHT)
        result[inside] += image[row[inside], column[inside]]
    return (result / samples).astype(np.float32)


def over(frame: float, a: Image, b: Image) -> Image:
    return a + b * (1 - a[..., 3:])


def write_png(path: str, image: Image) -> None:
    def chunk(kind: bytes, data: bytes) -> bytes:
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

    rgb = (np.clip(image[..., :3], 0, 1) ** (1 / 2.2) * 255 + 0.5).astype(np.uint8)
    rows = b"".join(b"\0" + row.tobytes() for row in rgb)
    head = struct.pack(">IIBBBBB", image.shape[1], image.shape[0], 8, 2, 0, 0, 0)
    chunks = chunk(b"IHDR", head) + chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b"")
    Path(path).write_bytes(b"\x89PNG\r\n\x1a\n" + chunks)


def main(out: str) -> None:
    key, smooth, linear = core.Key, core.key_smooth, core.key_linear
    dusk = core.Curve([key(1, 0, smooth), key(40, -2.5, smooth)])
    fall = core.Curve([key(1, -50, smooth), key(40, 50, smooth)])
    turn = core.Curve([key(1, 0, linear), key(40, 330, linear)])
    nodes = [
        Node("evening", evening),
        Node("flower", flower),
        Node("dusk", expose, [0], {"stops": dusk}),
        Node("tumble", tumble, [1], {"fall": fall, "turn": turn}),
        Node("over", over, [3, 2]),
    ]
    host = Host(nodes, budget=32 << 20)
    frames = []
    for frame in (4, 14, 24, 34, 4):
        image, computed = host.render(frame)
        print(f"frame {frame}: computed {', '.join(computed) or 'nothing'}; {len(host.cache)} results held")
        frames.append(image)
    write_png(out, np.concatenate(frames[:4], axis=1))


if __name__ == "__main__":
    main(*sys.argv[1:])
