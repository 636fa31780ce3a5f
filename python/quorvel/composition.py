"""Compositions: loaded, changed, saved."""

from __future__ import annotations

import os
from pathlib import Path
from typing import Optional, Union

from . import _quorvel

__all__ = ["Composition"]


class Composition:
    """A composition of nodes. A first form: it can be loaded and rendered."""

    def __init__(self, text: str = "", path: str = "") -> None:
        self._text = text
        self._path = path
        self._last: Optional[_quorvel.Composition] = None

    @classmethod
    def load(cls, path: Union[str, os.PathLike[str]]) -> Composition:
        """Reads a file. Raises CompositionError, OSError."""
        return cls.parse(Path(path).read_text("utf-8"), path)

    @classmethod
    def parse(cls, text: str, path: Union[str, os.PathLike[str]] = "") -> Composition:
        """Reads a text as if it stood in the file `path`. Raises CompositionError."""
        shot = cls(text, os.fspath(path))
        shot._compiled()
        return shot

    def _compiled(self) -> _quorvel.Composition:
        if self._last is None:
            self._last = _quorvel.Composition.parse(self._text, self._path)
        return self._last
