"""What frames cost on the way to Python, and what they leave behind."""

from __future__ import annotations

import os
import pathlib
import statistics
import subprocess
import sys
import tempfile
import threading
import time

import numpy as np
import quorvel as qv
from report import Report

WIDTH, HEIGHT = 960, 540


def composition(width: int = WIDTH, height: int = HEIGHT) -> qv.Composition:
    """A picture that is another at every frame, of one size."""
    shot = qv.Composition(format=(width, height), frames="1-100")
    boards = [shot.add("checkerboard", size=size) for size in (40, 13)]
    mixed = shot.add("dissolve", inputs=boards, which={"keys": [[0, 0], [9000, 1]]})
    shot.add("blur", "soft", inputs=mixed, size=6)
    return shot


def measure(report: Report, built: pathlib.Path) -> None:
    with tempfile.TemporaryDirectory() as folder:
        shot = composition()
        shot.save(pathlib.Path(folder) / "shot.json")
        if report.wants("renderer.frame"):
            measure_calls(report, shot, built)
    if report.wants("another thread"):
        measure_lock(report)
    if report.wants("memory"):
        measure_memory(report)


def measure_calls(report: Report, shot: qv.Composition, built: pathlib.Path) -> None:
    rounds, single, many = 3, 15, 30 if report.quick else 100
    ours: dict[str, list[float]] = {"frame": [], "frames": []}
    peer: dict[str, list[float]] = {"frame": [], "frames": []}

    def in_cpp(what: str, first: int, count: int) -> list[float]:
        numbers = [str(first), str(first + count - 1)]
        told = subprocess.run([built / "render_peer", str(shot.path), what, *numbers], check=True, capture_output=True)
        return [float(line) for line in told.stdout.split()]

    for step in range(rounds):
        first = 1 + step * 200
        with qv.Renderer(shot, gpu="software") as renderer:
            renderer.frame(0)
            for frame in range(first, first + single):
                begin = time.perf_counter()
                renderer.frame(frame)
                ours["frame"].append(time.perf_counter() - begin)
        peer["frame"] += in_cpp("frame", first, single)
        with qv.Renderer(shot, gpu="software") as renderer:
            renderer.frame(0)
            begin = time.perf_counter()
            for _frame, image in renderer.frames(range(first, first + many)):
                del image
            ours["frames"].append(time.perf_counter() - begin)
        peer["frames"] += in_cpp("frames", first, many)
    times = {name: (min(ours[name]) * 1e3, min(peer[name]) * 1e3) for name in ours}
    # The least of each, which others on the machine disturb least. At most 1 ms more, and at most 5 % more.
    mine, theirs = times["frame"]
    report.row(f"renderer.frame {WIDTH}x{HEIGHT}", "ms", mine, {"C++": theirs}, theirs / (theirs + 1))
    mine, theirs = times["frames"]
    report.row(f"renderer.frames, {many} of {WIDTH}x{HEIGHT}", "ms", mine, {"C++": theirs}, 1 / 1.05)


def waited_for_a_core() -> float:
    """Seconds that this thread was kept from running by others on the machine."""
    return int(pathlib.Path(f"/proc/self/task/{threading.get_native_id()}/schedstat").read_text().split()[1]) / 1e9


def count_for(seconds: float) -> float:
    """How far this thread counts in a second in which it has a core."""
    counted, begin, waited = 0, time.perf_counter(), waited_for_a_core()
    while time.perf_counter() - begin < seconds:
        for _ in range(1000):
            counted += 1
    return counted / (time.perf_counter() - begin - waited_for_a_core() + waited)


def measure_lock(report: Report) -> None:
    """In a process of its own, whose driver draws on one thread."""
    code = f"import sys; sys.path[:0] = {sys.path!r}; import rows_renderer; rows_renderer.count_beside()"
    told = subprocess.run([sys.executable, "-c", code], env=os.environ | {"LP_NUM_THREADS": "1"}, check=True, capture_output=True)
    beside, alone = map(float, told.stdout.split())
    report.row("another thread counts while a frame is drawn", "1/s", beside, {"alone": alone}, 0.9, "more")


def count_beside() -> None:
    """Prints how far one counts while frames are drawn, and alone, a second; in turn, the median of each."""
    beside, alone = [], []
    with qv.Renderer(composition(1920, 1080), gpu="software") as renderer:
        renderer.frame(0)
        for step in range(9):
            alone.append(count_for(0.5))
            drawing = threading.Thread(target=lambda: [renderer.frame(1 + step * 100 + i) for i in range(6)])
            drawing.start()
            beside.append(count_for(0.5))
            drawing.join()
    print(statistics.median(beside), statistics.median(alone))


def resident() -> int:
    return int(pathlib.Path("/proc/self/statm").read_text().split()[1]) * 4096


def measure_memory(report: Report) -> None:
    size = 320 * 180 * 16
    mebibyte = 1 << 20
    with qv.Renderer(composition(320, 180), gpu="software", memory="64M") as renderer:
        for _frame, image in renderer.frames(range(1, 301)):
            del image
        early = resident()
        for _frame, image in renderer.frames(range(301, 1301)):
            del image
        report.row("memory after 1000 frames more", "MiB", resident() / mebibyte, {"before": early / mebibyte}, 0.98)
        views = [np.asarray(renderer.frame(frame)) for frame in range(1, 11)]
        report.require(sum(each.bytes for each in renderer.held) == 10 * size, "10 views are held")
        views.clear()
        report.require(renderer.held == [], "none is held")
        report.row("memory held by 10 views", "MiB", 10 * size / mebibyte, {"their pixels": 10 * 320 * 180 * 16 / mebibyte}, 1)
