"""What all tests of the package share."""

import pathlib

import pytest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent


@pytest.fixture
def root() -> pathlib.Path:
    """The repository."""
    return ROOT
