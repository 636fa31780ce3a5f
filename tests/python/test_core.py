"""quorvel.core against NumPy, plain Python and OpenImageIO's tools."""

import asyncio
import concurrent.futures
import gc
import os
import pathlib
import subprocess
import sys
import weakref
from collections.abc import Callable
from typing import Any

import numpy as np
import pytest
from quorvel import core

CURVE = core.Curve([core.Key(1, 0.0, core.key_linear), core.Key(11, 5.0, core.key_linear)], extrapolate=True)
MOVE = [core.step_transform, 10, 20, 30, 2, 3, 0, 0, 0, 0, 0, 0]


@pytest.fixture(scope="module")
def plate(tmp_path_factory: pytest.TempPathFactory) -> pathlib.Path:
    """A plain file of 64 x 48 noise."""
    file = tmp_path_factory.mktemp("plates") / "plate ü.exr"
    noise = "--pattern noise:seed=3 64x48 4 --chnames R,G,B,A -d half -o".split()
    subprocess.run(["oiiotool", *noise, str(file)], check=True)
    return file


def test_arrays_of_any_shape_and_layout() -> None:
    times = np.arange(-6, 30, 0.5)
    shaped: list[Any] = [times.reshape(3, 4, 6), times.reshape(4, 18).T[::2], times.astype("i2"), np.zeros((0, 3)), [[1]]]
    for each in shaped:
        values = CURVE.value(each)
        assert values.shape == np.shape(each) and values.dtype == np.float64
        np.testing.assert_allclose(values, (np.asarray(each, float) - 1) / 2)
    assert isinstance(CURVE.value(np.float32(3)), float)
    halves = np.arange(65536, dtype=np.uint16).reshape(2, -1, 4)[:, ::-1]
    for half in halves, halves.view(np.float16):
        np.testing.assert_array_equal(core.half_to_float(half), halves.view(np.float16).astype(np.float32))


def test_matrices_are_numpys() -> None:
    a, b = np.random.default_rng(5).normal(size=(2, 3, 3))
    np.testing.assert_allclose(core.product(a, b.T), a @ b.T)
    np.testing.assert_allclose(core.inverse(a), np.linalg.inv(a))  # type: ignore[arg-type]
    one, *rest = core.step_matrix(MOVE, 64, 48)
    assert one is not None and rest == [64, 48, False] and core.inverse(np.zeros((3, 3))) is None
    np.testing.assert_allclose(core.total([MOVE, np.array(MOVE)], 64, 48).matrix, one @ one)  # type: ignore[arg-type]
    assert core.mblur_samples(1, [None, np.eye(3), [[1, 0, 9], [0, 1, 0], [0, 0, 1]]], 64, 48) == 10


@pytest.mark.parametrize("call, error, text", [
    (lambda: CURVE.value(["x"]), TypeError, "t: numbers"),
    (lambda: core.Curve([core.Key(1, 0), core.Key(1, 1)]), core.NotCompilable, "equal key times"),
    (lambda: core.product(np.eye(3), np.eye(4)), ValueError, r"b: .*\(3, 3\), not \(4, 4\)"),
    (lambda: core.step_matrix([], 1, 1), IndexError, ""),
    (lambda: core.h_bbox((0, 0, 1, 1), np.eye(3) * [1e19, 1, 1]), OverflowError, ""),
    (lambda: core.half_to_float(np.zeros(3)), TypeError, "src: float16"),
    (lambda: core.Record([], [2**32], [1]), ValueError, "data: 4294967296"),
    (lambda: core.Record([], [], [1]).typed_hash(), IndexError, ""),
    (lambda: core.Walk().build([[]], [0.5], [0]), TypeError, "always_flags: whole"),
    (lambda: core.ocio.rgb_to_rgba(np.zeros((4, 4))), ValueError, "rgb: "),
    (lambda: core.color.Spec([core.color.Knob("gain", [])], []), ValueError, "gain"),
    (lambda: core.read_image("missing.exr"), FileNotFoundError, "missing.exr"),
    (lambda: core.read_image(__file__), OSError, "test_core.py: "),
])
def test_errors_name_what_is_wrong(call: Callable[[], object], error: type[Exception], text: str) -> None:
    with pytest.raises(error, match=text):
        call()


def test_a_walk_is_not_rebuilt_under_its_own_feet() -> None:
    walk = core.Walk()
    walk.build([[], [0]], [1, 0], [0, 0])
    with pytest.raises(RuntimeError, match="under way"):
        walk.walk([], True, lambda node, dirty: walk.build([], [], []))
    with pytest.raises(IndexError):
        walk.walk([], True, lambda node, dirty: [0][node + 1])
    assert walk.walk([], False, lambda node, dirty: 7) == 2 and walk.values.tolist() == [7, 7]
    with pytest.raises(ValueError, match="read-only"):
        walk.values[0] = 3


def test_layers_land_where_they_are_sent(plate: pathlib.Path) -> None:
    image, one = core.read_image(plate), core.Slot(value=1)
    assert image.shape == (48, 64, 4) and len(np.unique(image)) > 99
    swapped, = core.load_layers(plate, [core.Read(0, 1, 3, 2, -1, 64, 48)], [[core.Slot(0, 1), core.Slot(0, 0), one, one]], 66, 47)
    np.testing.assert_array_equal(swapped[:, 2:, :2], image[1:, :, 2:0:-1])
    assert not swapped[:, :2, :2].any() and (swapped[..., 2:] == 1).all()


def test_views_outlive_what_they_came_from(plate: pathlib.Path) -> None:
    expected, schedule, scheduler = core.read_image(plate), core.Schedule(), core.DecodeScheduler()
    schedule.build([[], [0]], [])
    makers: list[tuple[Callable[[], Any], Any]] = [
        (lambda: core.read_image(plate)[3:9, ::-1], expected[3:9, ::-1]),
        (lambda: core.decode_plain(plate).pixels, expected),
        (lambda: core.oiio_read_float(plate).pixels, expected),
        (lambda: scheduler.submit(plate).result(60), expected),
        (lambda: schedule.run([1, 2], core.ResultCache(), False).order, [0, 1]),
        (lambda: core.slopes([core.Key(0, 0), core.Key(1, 1)])[1], [0, 0]),
    ]
    for make, wanted in makers:
        view = make()
        gc.collect()
        churn = [np.ones(expected.size, np.float32) for _ in range(8)]  # takes what was freed
        np.testing.assert_array_equal(view, wanted)
        del churn
    # Nothing keeps an image but who holds it, and a scheduler that is dropped ends its jobs.
    image = weakref.ref(scheduler.submit(plate).result(60))
    jobs = [scheduler.submit(plate) for _ in range(50)]
    del scheduler, makers, make
    gc.collect()
    assert image() is None and all(job.done() for job in jobs)


def test_jobs_are_futures_and_awaitable(plate: pathlib.Path) -> None:
    async def shapes(scheduler: core.DecodeScheduler) -> list[tuple[int, ...]]:
        return [image.shape for image in await asyncio.gather(*(scheduler.submit(plate) for _ in range(20)))]

    def storm(scheduler: core.DecodeScheduler, seed: int) -> None:
        for i in range(seed, seed + 60):
            job = scheduler.submit(plate, i % 3)
            if i % 7 == 0:
                scheduler.clear()
            elif i % 5 == 0:
                job.cancel()
            job.reprioritize(0)
            assert concurrent.futures.wait([job], 60).done and (job.cancelled() or job.result().shape == (48, 64, 4))

    with core.DecodeScheduler(2, 1) as scheduler, concurrent.futures.ThreadPoolExecutor() as pool:
        assert asyncio.run(shapes(scheduler)) == [(48, 64, 4)] * 20
        for stormed in [pool.submit(storm, scheduler, seed) for seed in range(4)]:
            stormed.result(60)
        child = os.fork()
        if child == 0:
            with pytest.raises(RuntimeError, match="forked"):
                scheduler.submit(plate)
            scheduler.close()
            os._exit(7)
        assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 7 and scheduler.submit(plate).result(60).any()
    with pytest.raises(RuntimeError, match="closed"):
        scheduler.submit(plate)


def test_the_host_of_numpy_computes_what_is_new(tmp_path: pathlib.Path) -> None:
    host = pathlib.Path(__file__).parents[2] / "examples/numpy_host.py"
    told = subprocess.run([sys.executable, str(host), str(tmp_path / "host.png")], capture_output=True, text=True, check=True)
    computed = [line.partition("computed ")[2].partition(";")[0] for line in told.stdout.splitlines()]
    assert computed == ["evening, flower, dusk, tumble, over", *["dusk, tumble, over"] * 3, "nothing"]
    image = core.read_image(tmp_path / "host.png")
    assert image.shape == (180, 960, 3) and (image[100, 600] == image[98:102, 598:602]).all()  # the flower's heart
