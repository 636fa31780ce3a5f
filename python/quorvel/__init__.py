"""Compositions of image nodes from Python: load, change, render to NumPy arrays or files."""

from . import core, nodes
from ._quorvel import version as __version__
from .composition import Composition, Format
from .errors import CompositionError, Error, FrameError, MemoryBudgetError
from .image import Image
from .node import Node
from .renderer import FrameReport, HeldImage, Renderer

__all__ = [
    "Composition",
    "CompositionError",
    "Error",
    "Format",
    "FrameError",
    "FrameReport",
    "HeldImage",
    "Image",
    "MemoryBudgetError",
    "Node",
    "Renderer",
    "__version__",
    "core",
    "nodes",
]
