"""Compositions of image nodes from Python: load, change, render to NumPy arrays or files."""

from ._quorvel import version as __version__

__all__ = ["__version__"]
