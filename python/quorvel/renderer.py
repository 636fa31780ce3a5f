"""Rendering: frames as images in memory, one or many, and to files."""

from __future__ import annotations

import atexit
import json
import warnings
import weakref
from collections.abc import Callable, Iterable, Iterator
from types import TracebackType
from typing import Any, NamedTuple, Union

from . import _quorvel
from .composition import Composition
from .errors import FrameError
from .image import Image

__all__ = ["FrameReport", "HeldImage", "Renderer"]

Frames = Union[str, int, Iterable[int], None]

_alive: weakref.WeakSet[Renderer] = weakref.WeakSet()


class FrameReport(NamedTuple):
    """What became of a frame that was to be written."""

    frame: int
    files: list[str]  # written whole
    error: str  # "" when the frame stands
    skipped: bool  # its files were there already
    computed: int  # results
    cached: int  # results taken from what was computed before
    ms: float  # from its start to its last file
    bytes: int  # of its files


class HeldImage(NamedTuple):
    """An image that counts in the memory budget, because somebody holds it or it was drawn ahead."""

    frame: int
    node: str
    bytes: int


class Renderer:
    """Draws frames of a composition, which may be changed between two calls: what an edit does not reach stays
    cached. Calls release the interpreter's lock; threads may share a renderer, whose calls queue, and a process may
    have several. Ctrl-C ends a call within a second and leaves the renderer usable. After a fork, raises Error.

    `memory` bounds cached results, files on their way and images that are held: bytes, or "2G". `threads` decode
    and encode files, 0 for one a processor. `scale` above 0 and at most 1 makes every frame smaller. `gpu` is "auto",
    "software" or a device's number; all renderers of a process share one. `content` knows files that are read by
    their bytes, not by size and date. The device is opened by the first call; Error says why it cannot be.

    >>> import numpy as np
    >>> import quorvel as qv
    >>> shot = qv.Composition(format=(64, 32), frames="1-3")
    >>> ends = [shot.add("constant", color=[value] * 4) for value in (0, 1)]
    >>> dim = shot.add("dissolve", "dim", inputs=ends, which={"keys": [[1, 0], [3, 1]]})
    >>> with qv.Renderer(shot, memory="64M", gpu="software") as renderer:
    ...     small = renderer.frame(2, scale=0.5)
    ...     means = [float(np.mean(image)) for frame, image in renderer.frames()]
    >>> small.shape, means
    ((16, 32, 4), [0.0, 0.5, 1.0])
    """

    def __init__(
        self,
        shot: Composition,
        *,
        memory: int | str = "2G",
        threads: int = 0,
        scale: float = 1.0,
        gpu: str | int = "auto",
        content: bool = False,
    ) -> None:
        self.shot = shot
        size = _quorvel.byte_size(memory) if isinstance(memory, str) else memory
        self._renderer = _quorvel.Renderer(size, threads, scale, str(gpu), content)
        _alive.add(self)

    def frame(
        self, frame: int, node: str | None = None, *, scale: float | None = None, area: str = "format"
    ) -> Image:
        """One frame of a node, the composition's first output unless named. `area` is what its pixels cover: "format",
        transparent black around a smaller data window, or that "window" itself, which may be empty. Raises FrameError,
        MemoryBudgetError that names the images which are held, CompositionError, UnknownNode."""
        image = self._renderer.frame(self.shot._compiled(), frame, node, scale or 0.0, area)
        self._warn()
        return Image(image)

    def frames(
        self, frames: Frames = None, node: str | None = None, *, scale: float | None = None, area: str = "format"
    ) -> Iterator[tuple[int, Image]]:
        """Frame and image for one frame after another ("1-100x2", numbers, or the composition's own), decoded, drawn
        and read back ahead of their use by two frames, as far as the memory budget has room. They show the composition
        as it is when the first is asked for. Raises as `frame` does, and ends then."""
        compiled = self.shot._compiled()
        numbers = _numbers(compiled, frames)
        for image in self._renderer.frames(compiled, numbers, node, scale or 0.0, area):
            self._warn()
            given = Image(image)
            del image
            yield given.frame, given
            del given

    def write(
        self,
        frames: Frames = None,
        *,
        outputs: str | Iterable[str] = (),
        overwrite: bool = False,
        skip_existing: bool = False,
        skip_current: bool = False,
        keep_going: bool = False,
        progress: bool | Callable[[FrameReport], Any] = False,
    ) -> list[FrameReport]:
        """Renders frames to the files of the composition's outputs, as `quorvel render` does with options of these
        names; `outputs` are paths in their place, each "PATH" or "NODE=PATH". Files that are there already are refused
        unless one of the three says otherwise. `progress` is True for a bar where tqdm is installed, or is called with
        each frame's report once its files stand, on another thread; it may not call the renderer, and what it raises
        ends the run. Returns the reports in the order of the frames. Raises FrameError: before anything is drawn where
        frames are known to fail, and at the first that fails, unless `keep_going`."""
        policies = {"overwrite": overwrite, "skip_existing": skip_existing, "skip_current": skip_current}
        chosen = [name for name, wanted in policies.items() if wanted]
        if len(chosen) > 1:
            raise ValueError(f"{chosen[0]} and {chosen[1]} exclude each other")
        compiled = self.shot._compiled()
        numbers = _numbers(compiled, frames)
        reports: list[FrameReport] = []
        close, each = _bar(len(numbers)) if progress is True else (None, progress or None)

        def tell(what: str, value: Any) -> None:
            if what == "notice":
                warnings.warn(value, stacklevel=2)
                return
            reports.append(FrameReport(*value))
            if each is not None:
                each(reports[-1])

        given = [outputs] if isinstance(outputs, str) else list(outputs)
        existing = chosen[0] if chosen else "refuse"
        try:
            self._renderer.write(compiled, numbers, given, existing, keep_going, tell)
        finally:
            if close is not None:
                close()
        failed = [report.error for report in reports if report.error]
        if failed and not keep_going:
            raise FrameError(failed[0])
        return reports

    @property
    def stats(self) -> dict[str, Any]:
        """Where time and memory went since the start, as `quorvel render --stats=FILE` has it. Waits its turn."""
        return dict(json.loads(self._renderer.stats()))

    @property
    def held(self) -> list[HeldImage]:
        """The images that count in the memory budget now."""
        return [HeldImage(*each) for each in self._renderer.held()]

    def close(self) -> None:
        """Ends what is under way and gives everything back but images that are held. Calls then raise Error."""
        self._renderer.close()

    def __enter__(self) -> Renderer:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()

    def _warn(self) -> None:
        for text in self._renderer.take_notices():
            warnings.warn(text, stacklevel=3)


def _numbers(compiled: _quorvel.Composition, frames: Frames) -> list[int]:
    own = compiled.frames
    if frames is None:
        return own
    if isinstance(frames, int):
        return [frames]
    if not isinstance(frames, str):
        return [int(each) for each in frames]
    numbers = _quorvel.parse_frames(frames)
    if numbers or not frames.startswith("^"):
        return numbers
    return _quorvel.parse_frames(f"{_quorvel.frames_text(own)},{frames}")


def _bar(count: int) -> tuple[Callable[[], None] | None, Callable[[FrameReport], Any] | None]:
    try:
        from tqdm.auto import tqdm
    except ImportError:
        return None, None
    bar = tqdm(total=count, unit="frame")
    return bar.close, lambda report: bar.update()


@atexit.register
def _close_all() -> None:
    for renderer in list(_alive):
        renderer.close()
