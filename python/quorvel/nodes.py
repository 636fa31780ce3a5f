"""The catalogue of node types as data: what there is, what each reads, and its knobs.

>>> types["blur"].knobs["size"].default
(10.0, 10.0)
>>> [each.name for each in families["filter"]][:3]
['blur', 'glow', 'sharpen']
"""

from __future__ import annotations

from types import MappingProxyType
from typing import Any, Mapping, NamedTuple

from . import _quorvel

__all__ = ["Input", "Knob", "NodeType", "families", "types"]


class Input(NamedTuple):
    """What a node of the type reads."""

    name: str
    required: bool
    help: str


class Knob(NamedTuple):
    """What a type says of one of its knobs."""

    name: str
    kind: str  # number, integer, flag, choice, text, texts, file, object
    default: Any  # float, int, bool, str; a tuple where there are several; a dict for an object
    help: str
    expects: str  # in words: "2 numbers from 0 to 1"
    choices: tuple[str, ...]  # of a choice
    minimum: float  # -inf and inf where there is none
    maximum: float
    length: int  # components of a numeric knob; 0 for others
    fewest: int  # components to give at least, where they are given as a list
    pixels: bool  # a length or position, which follows the render's scale

    @property
    def numeric(self) -> bool:
        """Whether it may be keyed."""
        return self.length > 0


class NodeType(NamedTuple):
    """A type of the catalogue."""

    name: str
    family: str
    help: str
    inputs: tuple[Input, ...]
    knobs: Mapping[str, Knob]
    takes_layers: bool  # further inputs beside its one, each under a name of your own
    repeats_last_input: bool  # any number of images under the last input's name
    writes_files: bool


def _default(row: Mapping[str, Any]) -> Any:
    kind, defaults = row["kind"], row["defaults"]
    if kind in ("number", "integer", "flag"):
        make = {"number": float, "integer": int, "flag": bool}[kind]
        return make(defaults[0]) if len(defaults) == 1 else tuple(make(each) for each in defaults)
    return {"texts": (), "object": {}}.get(kind, row["default_text"])


def _knob(row: Mapping[str, Any]) -> Knob:
    same = {key: row[key] for key in ("name", "kind", "help", "expects", "minimum", "maximum", "fewest", "pixels")}
    return Knob(default=_default(row), choices=tuple(row["choices"]), length=len(row["defaults"]), **same)


def _type(row: Mapping[str, Any]) -> NodeType:
    inputs = tuple(Input(**each) for each in row["inputs"])
    knobs = MappingProxyType({each["name"]: _knob(each) for each in row["knobs"]})
    rest = {key: each for key, each in row.items() if key not in ("inputs", "knobs")}
    return NodeType(inputs=inputs, knobs=knobs, **rest)


types: Mapping[str, NodeType] = MappingProxyType({row["name"]: _type(row) for row in _quorvel.catalogue()})
"""Every node type by its name."""

families: Mapping[str, tuple[NodeType, ...]] = MappingProxyType(
    {each.family: tuple(other for other in types.values() if other.family == each.family) for each in types.values()}
)
"""The types of each family, in the catalogue's order."""
