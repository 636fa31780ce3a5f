"""Rendering from Python: the command's pixels, views that outlive everything, budgets, threads, signals, forks."""

import gc
import itertools
import subprocess
import sys
import threading
from pathlib import Path
from typing import Any

import numpy as np
import pytest

import quorvel as qv

COMMAND = Path(qv.__file__).parents[2] / "host/quorvel"
BYTES = 64 * 48 * 16
TEXT = """{"format": {"width": 64, "height": 48}, "frames": "1-6", "nodes": [
  {"name": "board", "type": "checkerboard", "knobs": {"size": 7}},
  {"name": "small", "type": "crop", "inputs": "board", "knobs": {"box": [5, 7, 21, 17]}},
  {"name": "turn", "type": "transform", "inputs": "board", "knobs": {"rotate": {"keys": [[1, 0], [6, 70]]}}},
  {"name": "soft", "type": "blur", "inputs": "turn", "knobs": {"size": 5}},
  {"name": "out", "type": "write", "inputs": "soft", "knobs": {"file": "out.#.exr", "depth": "float"}}], "output": "out"}"""
# What a process of its own begins with: `slow` is a composition whose frame takes many seconds.
PRELUDE = f"""
import gc, itertools, os, signal, sys, threading, time
import numpy as np, quorvel as qv
shot = qv.Composition.parse('''{TEXT}''', "shot.json")
slow = qv.Composition(format=(2048, 2048))
disc = slow.add("checkerboard", "board", size=9)
for i in range(6): disc = slow.add("disc_blur", inputs=disc, radius=60)
"""


@pytest.fixture
def shot(tmp_path: Path) -> qv.Composition:
    shot = qv.Composition.parse(TEXT, tmp_path / "shot.json")
    shot.save()
    return shot


def renderer(shot: qv.Composition, **options: Any) -> qv.Renderer:
    return qv.Renderer(shot, gpu="software", **options)


def test_pixels_are_those_of_the_command(shot: qv.Composition, tmp_path: Path) -> None:
    subprocess.run([COMMAND, "render", "--gpu=software", "--progress=none", tmp_path / "shot.json"], check=True)
    files = {path: path.read_bytes() for path in tmp_path.glob("out.*.exr")}
    with renderer(shot) as render:
        for frame, image in render.frames():
            np.testing.assert_array_equal(image, qv.core.read_image(tmp_path / f"out.{frame}.exr"))
            np.testing.assert_array_equal(image, render.frame(frame))
        told: list[qv.FrameReport] = []
        assert render.write(overwrite=True, progress=told.append) == told and len(told) == len(files) == 6
        with pytest.raises(qv.FrameError, match="exists"):
            render.write()
    assert {path: path.read_bytes() for path in files} == files


def test_windows_scales_and_copies(shot: qv.Composition, tmp_path: Path) -> None:
    with renderer(shot) as render:
        whole, part = render.frame(1, "small"), render.frame(1, "small", area="window")
        board, half = np.asarray(render.frame(1, "board")), render.frame(1, "board", scale=0.5)
    framed = np.zeros_like(board)
    framed[48 - 17 : 48 - 7, 5:21] = board[48 - 17 : 48 - 7, 5:21]  # rows stand top to bottom, y is up
    np.testing.assert_array_equal(whole, framed)
    np.testing.assert_array_equal(part, framed[31:41, 5:21])
    assert (part.window, part.area, whole.area, whole.format) == ((5, 7, 21, 17), (5, 7, 21, 17), (0, 0, 64, 48), (64, 48, 1))
    assert half.shape == (24, 32, 4) and (half.frame, half.node) == (1, "board")
    np.testing.assert_array_equal(np.from_dlpack(whole), framed)
    np.testing.assert_array_equal(whole.half(), framed.astype(np.float16))
    whole.save(tmp_path / "a.exr")
    np.testing.assert_array_equal(qv.core.read_image(tmp_path / "a.exr"), framed.astype(np.float16))
    png = whole._repr_png_()
    assert png is not None and png.startswith(b"\x89PNG") and not np.asarray(whole).flags.writeable


def test_an_edit_costs_what_lies_downstream(shot: qv.Composition) -> None:
    with renderer(shot) as render:
        def cost(expected: int) -> None:
            before = render.stats["computed"]
            render.frame(3)
            assert render.stats["computed"] - before == expected

        cost(4)
        shot["soft"].size = 6
        cost(2)  # soft and out
        shot.rename("board", "field")
        shot.add("constant", "aside")
        cost(0)  # neither names nor places count
        shot["field"].size = 8
        cost(4)
        shot["soft"].size = 5
        shot["field"].size = 7
        cost(0)  # as it was at first


def test_the_budget_says_who_holds_it(shot: qv.Composition) -> None:
    with renderer(shot, memory=8 * BYTES) as render:
        views = [np.asarray(render.frame(frame))[:1] for frame in range(1, 9)]
        assert render.held == [(frame, "out", BYTES) for frame in range(1, 9)]
        with pytest.raises(qv.MemoryBudgetError, match=f'node "out": frame 3: {BYTES} bytes'):
            render.frame(9, "soft")
        del views[:4]
        assert [image.frame for image in render.held] == [5, 6, 7, 8]
        assert [frame for frame, _ in render.frames("1-20")] == list(range(1, 21))
        views.clear()
        for _, image in itertools.islice(render.frames(), 3):
            del image
        gc.collect()
        render.frame(1)  # what was drawn ahead is gone by then
        assert render.held == []


@pytest.mark.parametrize(
    "call, error, text",
    [
        (lambda render: render.frame(1, "sfot"), KeyError, "sfot"),
        (lambda render: render.frame(1, scale=2), ValueError, "scale"),
        (lambda render: render.frame(1, area="all"), ValueError, "area"),
        (lambda render: render.frame(1, "gone"), qv.FrameError, "gone.exr"),
        (lambda render: list(render.frames("1-2", "gone")), qv.FrameError, "gone.exr"),
        (lambda render: render.write("1", outputs="nobody=a.exr"), qv.FrameError, "nobody"),
        (lambda render: render.write("1", progress=lambda report: 1 / 0), ZeroDivisionError, ""),
        (lambda render: render.write("1", progress=lambda report: render.stats), RuntimeError, "itself"),
        (lambda render: (render.close(), render.frame(1)), qv.Error, "closed"),
        (lambda render: qv.Renderer(render.shot, gpu="auto"), ValueError, "device"),
        (lambda render: qv.Renderer(render.shot, memory="2 apples"), ValueError, "apples"),
    ],
)
def test_errors(shot: qv.Composition, call: Any, error: type[Exception], text: str) -> None:
    shot.add("read", "gone", file="gone.exr")
    with renderer(shot) as render:
        with pytest.raises(error, match=text) as raised:
            call(render)
        if isinstance(raised.value, qv.FrameError) and text == "gone.exr":
            assert (raised.value.node, raised.value.frame) == ("gone", 1)


def test_threads_in_a_storm(shot: qv.Composition) -> None:
    renders = [renderer(shot), renderer(shot, scale=0.5), renderer(shot, memory="8M")]
    expected = [[np.array(each.frame(frame)) for frame in range(1, 7)] for each in renders]
    wrong: list[Any] = []

    def ask(seed: int) -> None:
        random = np.random.default_rng(seed)
        for step in range(12):
            which, frame = int(random.integers(3)), int(random.integers(1, 7))
            images = renders[which].frames([frame]) if step % 3 else iter([(frame, renders[which].frame(frame))])
            wrong.extend(each for each, image in images if np.any(np.not_equal(image, expected[which][each - 1])))

    threads = [threading.Thread(target=ask, args=[seed]) for seed in range(8)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    for each in renders:
        each.close()
    assert not wrong


ENDS = {
    "views outlive all": """
for order in itertools.permutations(["render", "image", "stream", "own"]):
    own = qv.Composition.parse(shot.to_json(), "shot.json"); render = qv.Renderer(own, gpu="software")
    image = render.frame(2); stream = render.frames(); next(stream)
    view = np.asarray(image)[3:, 5:]; tensor = np.from_dlpack(image); copy = view.copy()
    for name in order: del globals()[name]; gc.collect(); assert (view == copy).all() and (tensor[3:, 5:] == copy).all()""",
    "at exit": """
render = qv.Renderer(shot, gpu="software"); sys.view = np.asarray(render.frame(1)); stream = render.frames(); next(stream)""",
    "ctrl-c": """
render = qv.Renderer(slow, gpu="software")
def interrupt(): begun.append(time.time()); os.kill(os.getpid(), signal.SIGINT)
for call in (lambda: render.frame(1), lambda: next(render.frames("1")), lambda: render.write("1", outputs="never.exr")):
    begun = []; threading.Timer(0.3, interrupt).start()
    try: call(); sys.exit("nobody was interrupted")
    except KeyboardInterrupt: assert time.time() - begun[0] < 5 and not os.path.exists("never.exr")
render.shot = shot; assert render.frame(1).shape == (48, 64, 4)""",
    "fork": """
render = qv.Renderer(shot, gpu="software"); image = render.frame(1); stream = render.frames(); next(stream)
child = os.fork()
if child == 0:
    for call in (lambda: render.frame(1), lambda: next(stream), lambda: render.stats, lambda: qv.Renderer(shot)):
        try: call(); os._exit(1)
        except qv.Error as error: assert "fork" in str(error)
    del render, stream; gc.collect(); assert np.asarray(image).any(); sys.exit(7)
assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 7 and render.frame(2).frame == 2""",
}


@pytest.mark.parametrize("script", ENDS.values(), ids=ENDS.keys())
def test_ends(script: str, tmp_path: Path) -> None:
    command = [sys.executable, "-W", "ignore:This process:DeprecationWarning", "-c", PRELUDE + script + "\nprint('whole')"]
    done = subprocess.run(command, cwd=tmp_path, capture_output=True, text=True, timeout=120)
    assert (done.returncode, done.stdout, done.stderr) == (0, "whole\n", "")


def test_memory_is_flat(shot: qv.Composition) -> None:
    def resident() -> int:
        return int(Path("/proc/self/statm").read_text().split()[1]) * 4096

    with renderer(shot, memory="4M") as render:
        sizes = []
        for _ in range(8):
            for _, image in render.frames(list(range(1, 7)) * 20):
                del image
            sizes.append(resident())
    assert max(sizes[3:]) - sizes[2] < 300 * BYTES // 10, sizes  # of 600 images
