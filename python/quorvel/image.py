"""Images in host memory, which arrays share without a copy."""

from __future__ import annotations

import os
import tempfile
from pathlib import Path
from typing import Any, Union

import numpy as np
from numpy.typing import NDArray

from . import _quorvel
from .composition import Format

__all__ = ["Image"]


class Image(_quorvel.FrameImage):
    """One node's image at one frame: RGBA, 32-bit float, premultiplied, linear, rows top to bottom. Read-only.

    `np.asarray(image)`, `memoryview(image)` and `np.from_dlpack(image)` share its memory, of shape
    (height, width, 4); it lives as long as any of them does, whatever becomes of the renderer, and counts in
    the renderer's memory budget until then.

    >>> import quorvel as qv
    >>> shot = qv.Composition(format=(4, 2))
    >>> sky = shot.add("constant", "sky", color=[0.25, 0.5, 1, 1])
    >>> with qv.Renderer(shot, gpu="software") as renderer:
    ...     image = renderer.frame(1)
    >>> image
    <sky at frame 1: 4x2>
    >>> np.asarray(image)[0, 0]
    array([0.25, 0.5 , 1.  , 1.  ], dtype=float32)
    """

    @property
    def format(self) -> Format:
        """The frame that the image is meant for: width and height in pixels, and the pixels' aspect."""
        width, height, aspect = super().format
        return Format(width, height, aspect)

    def __array__(self, dtype: Any = None) -> NDArray[np.float32]:
        return np.asarray(memoryview(self), dtype)  # type: ignore[arg-type]

    def half(self) -> NDArray[np.float16]:
        """A copy in 16-bit floats; what they cannot hold is infinite."""
        with np.errstate(over="ignore"):
            return np.asarray(self).astype(np.float16)

    def to_oiio(self) -> Any:
        """A copy as an `OpenImageIO.ImageBuf`, with windows and metadata. Raises ImportError where that module is
        not installed."""
        import OpenImageIO as oiio

        height, width, channels = self.shape
        spec = oiio.ImageSpec(width, height, channels, "float")
        spec.x, spec.y = self.area[0], self.format.height - self.area[3]
        spec.full_width, spec.full_height = self.format.width, self.format.height
        for name, value in self.metadata.items():
            if isinstance(value, (str, int, float)):
                spec.attribute(name, value)
        buffer = oiio.ImageBuf(spec)
        buffer.set_pixels(oiio.get_roi(spec), np.ascontiguousarray(self))
        return buffer

    def save(self, path: Union[str, os.PathLike[str]]) -> None:
        """Writes a file as a `write` node without knobs does: its type is the path's extension, EXR in half floats,
        PNG and JPEG in sRGB. Raises RuntimeError that names the path."""
        super().save(os.fspath(path))

    def _repr_png_(self) -> bytes | None:
        """For notebooks: in sRGB with 8 bits."""
        if 0 in self.shape:
            return None
        with tempfile.TemporaryDirectory() as folder:
            path = Path(folder) / "image.png"
            self.save(path)
            return path.read_bytes()

    def __repr__(self) -> str:
        height, width, _ = self.shape
        return f"<{self.node} at frame {self.frame}: {width}x{height}>"
