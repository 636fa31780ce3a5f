"""What quorvel.core costs on the way from Python to C++ and back."""

from __future__ import annotations

import ctypes
import pathlib
import tempfile

import numpy as np
import OpenImageIO as oiio
from quorvel import core
from report import Report, time_in_turn


def measure(report: Report, built: pathlib.Path) -> None:
    if report.wants("Curve.value"):
        measure_curve(report, built)
    if report.wants("read_image"):
        with tempfile.TemporaryDirectory() as folder:
            measure_images(report, pathlib.Path(folder))


def measure_curve(report: Report, built: pathlib.Path) -> None:
    peers = ctypes.CDLL(str(built / "peers.so"))
    peers.new_curve.restype, peers.curve_values.restype = ctypes.c_void_p, ctypes.c_double
    random = np.random.default_rng(7)
    keys, values = np.cumsum(random.uniform(0.5, 10, 50)), random.uniform(-10, 10, 50)
    times = random.uniform(keys[0], keys[-1], 100_000 if report.quick else 1_000_000)

    curve = core.Curve([core.Key(*key, core.key_smooth) for key in zip(keys, values)])
    peer = ctypes.c_void_p(peers.new_curve(keys.ctypes.data_as(ctypes.c_void_p), values.ctypes.data_as(ctypes.c_void_p), ctypes.c_size_t(50)))
    loop = lambda: peers.curve_values(peer, times.ctypes.data_as(ctypes.c_void_p), ctypes.c_size_t(len(times)))
    report.require(curve.value(times)[-1] == loop(), "Curve.value")
    ours, theirs = time_in_turn(31, [lambda: curve.value(times), loop])
    # At most 1.2 times as long.
    report.row(f"Curve.value, {len(times)} random times", "ms", ours * 1e3, {"C++ loop": theirs * 1e3}, 1 / 1.2)


def plate(folder: pathlib.Path, codec: str) -> pathlib.Path:
    """A file of 4096 x 2160 half floats: slow waves with noise in the lower bits, an ellipse in alpha."""
    y, x = np.mgrid[:2160, :4096].astype(np.float32)
    pixels = np.empty((2160, 4096, 4), np.float32)
    for c in range(3):
        pixels[..., c] = 0.5 + 0.4 * np.cos(y * 0.004) * np.sin(x * (c + 1) * 0.002)
    pixels[..., :3] += np.random.default_rng(1).integers(0, 1024, pixels[..., :3].shape) * np.float32(1e-5)
    pixels[..., 3] = (x / 2048 - 1) ** 2 + (y / 1080 - 1) ** 2 < 0.6
    file = folder / f"{codec}.exr"
    spec = oiio.ImageSpec(4096, 2160, 4, oiio.HALF)
    spec.attribute("compression", codec)
    output = oiio.ImageOutput.create(str(file))
    output.open(str(file), spec)
    output.write_image(pixels)
    output.close()
    return file


def measure_images(report: Report, folder: pathlib.Path) -> None:
    for codec, limits in {"zip": (2.6, 2.5), "none": (2.5, 2.5), "piz": (0, 0)}.items():
        if report.quick and codec != "zip":
            continue
        file = plate(folder, codec)
        for threads, limit in zip((1, 2), limits):
            # The pools that OpenImageIO and OpenEXR keep for the process; -1 is none.
            oiio.attribute("threads", threads)
            oiio.attribute("exr_threads", -1 if threads == 1 else threads)

            def theirs() -> object:
                return oiio.ImageInput.open(str(file)).read_image(oiio.FLOAT)

            name = f"read_image 4096x2160 half, {codec}, {threads} thread{'s'[:threads - 1]}"
            report.require(np.array_equal(core.read_image(file, threads), theirs()), name)
            ours, peer = time_in_turn(3 if report.quick else 7, [lambda: core.read_image(file, threads), theirs])
            report.row(name, "ms", ours * 1e3, {"OpenImageIO": peer * 1e3}, limit)
