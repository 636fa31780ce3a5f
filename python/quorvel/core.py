"""The parts of the library that need no GL context, for hosts of one's own.

Everything is named as in C++. Curves, the graph, transforms and files lie here; what nodes make of their
texts and numbers lies in modules named as C++'s folders: `color`, `filter`, `keyer`, `merge`, `ocio` and
`time`. Matrices are arrays of shape (3, 3), boxes and formats tuples; a C++ output argument is a further
result. C++'s map is Python's dict, and its matrix routines are installed when this module is imported.
Errors: IndexError and ValueError where C++ has out_of_range and invalid_argument or length_error; TypeError
for arrays of the wrong type.
"""

from __future__ import annotations

import asyncio
import os
import threading
import weakref
from collections.abc import Generator
from concurrent.futures import Future
from typing import Any, Dict, Optional, Union

import numpy as np
import numpy.typing as npt

from ._quorvel.core import *
from ._quorvel.core import DecodeQueue as _DecodeQueue
from ._quorvel.core import color as color, filter as filter, keyer as keyer, merge as merge, ocio as ocio, time as time

Image = npt.NDArray[np.float32]


class _Jobs:
    """The jobs that have not ended, by number. Whoever takes a job out is who ends it."""

    def __init__(self, queue: _DecodeQueue) -> None:
        self.queue = queue
        self._lock = threading.Lock()
        self._waiting: Dict[int, DecodeJob] = {}

    def submit(self, path: Union[str, os.PathLike[str]], priority: int) -> DecodeJob:
        with self._lock:
            number = self.queue.submit(path, priority)
            job = self._waiting[number] = DecodeJob(self, number)
        return job

    def take(self, number: int) -> Optional[DecodeJob]:
        with self._lock:
            return self._waiting.pop(number, None)

    def cancel(self) -> None:
        with self._lock:
            jobs = list(self._waiting.values())
        for job in jobs:
            job.cancel()

    def close(self) -> None:
        self.queue.close()
        self.cancel()

    def hand_over(self) -> None:
        """Ends jobs as their decodes end. No image outlives its turn of the loop here."""
        while self._hand_one_over():
            pass

    def _hand_one_over(self) -> bool:
        ended = self.queue.next()
        if ended is None:
            return False
        number, image, error = ended
        job = self.take(number)
        if job is not None and job.set_running_or_notify_cancel():
            if image is None:
                job.set_exception(error)
            else:
                job.set_result(image)
        return True


class DecodeJob(Future[Image]):
    """A file being decoded: a Future of its image, which can be awaited too.

    The image is as from `read_image`: shape (height, width, channels), float32. `result` and `await` raise
    what `read_image` raises.
    """

    def __init__(self, jobs: _Jobs, number: int) -> None:
        super().__init__()
        self._jobs = jobs
        self._number = number

    def cancel(self) -> bool:
        """Forgets the job, also while it is decoded; False where it has ended already."""
        if not super().cancel():
            return False
        if self._jobs.take(self._number) is not None:
            self._jobs.queue.cancel(self._number)
            self.set_running_or_notify_cancel()
        return True

    def reprioritize(self, priority: int) -> None:
        """Moves the job to another priority while it is queued; nothing where it has begun."""
        self._jobs.queue.reprioritize(self._number, priority)

    def __await__(self) -> Generator[Any, None, Image]:
        return asyncio.wrap_future(self).__await__()


class DecodeScheduler:
    """Decodes image files in the background, most urgent first, on threads of its own.

    `workers` threads serve every job, `priority_workers` those of priority 0 alone; each decodes with
    `threads` threads, 0 for OpenImageIO's default. The smaller a priority the more urgent; equal ones start
    in the order of submission. Any thread may call it. Left with `with`, dropped, or at the end of the
    process it cancels its jobs, waits for the decodes in hand and ends its threads. In a process forked
    from the one that made it, it is closed.

    >>> from quorvel import core
    >>> async def shapes(*paths: str) -> list[tuple[int, ...]]:
    ...     with core.DecodeScheduler(workers=2) as scheduler:
    ...         jobs = [scheduler.submit(path, priority) for priority, path in enumerate(paths)]
    ...         return [(await job).shape for job in jobs]
    >>> asyncio.run(shapes("missing.exr"))
    Traceback (most recent call last):
    FileNotFoundError: [Errno 2] No such file or directory: 'missing.exr'
    """

    def __init__(self, workers: int = 1, priority_workers: int = 0, threads: int = 1) -> None:
        self._jobs = _Jobs(_DecodeQueue(workers, priority_workers, threads))
        self._close = weakref.finalize(self, self._jobs.close)
        # A daemon, because the end of the process waits for all others before it closes this.
        threading.Thread(target=self._jobs.hand_over, name="quorvel decoded", daemon=True).start()

    def submit(self, path: Union[str, os.PathLike[str]], priority: int = 1) -> DecodeJob:
        """Queues a file. RuntimeError: the scheduler is closed."""
        return self._jobs.submit(path, priority)

    def queued(self) -> int:
        """How many jobs have not started."""
        return self._jobs.queue.queued()

    def running(self) -> int:
        """How many decodes are in hand, cancelled ones included."""
        return self._jobs.queue.running()

    def clear(self) -> None:
        """Cancels every job that has not ended."""
        self._jobs.cancel()

    def close(self) -> None:
        """Cancels every job and ends the threads. Further calls do nothing."""
        self._close()

    def __enter__(self) -> DecodeScheduler:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()
