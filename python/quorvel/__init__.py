"""Compositions of image nodes from Python: load, change, render to NumPy arrays or files."""

from ._quorvel import version as __version__
from .composition import Composition
from .errors import CompositionError, Error, FrameError, MemoryBudgetError

__all__ = ["Composition", "CompositionError", "Error", "FrameError", "MemoryBudgetError", "__version__"]
