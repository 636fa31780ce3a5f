"""Compositions of image nodes from Python: load, change, render to NumPy arrays or files."""

from . import nodes
from ._quorvel import version as __version__
from .composition import Composition, Format
from .errors import CompositionError, Error, FrameError, MemoryBudgetError
from .node import Node

__all__ = [
    "Composition",
    "CompositionError",
    "Error",
    "Format",
    "FrameError",
    "MemoryBudgetError",
    "Node",
    "__version__",
    "nodes",
]
