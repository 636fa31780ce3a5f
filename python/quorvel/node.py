"""A node of a composition, and what its knobs give."""

from __future__ import annotations

import keyword
import os
from collections.abc import Iterable, Iterator, Mapping, MutableMapping, Sequence
from typing import TYPE_CHECKING, Any, Union

from . import _quorvel, json_text
from .document import by_name
from .errors import UnknownKnob
from .nodes import Knob, NodeType, types

if TYPE_CHECKING:
    from .composition import Composition

__all__ = ["Flag", "Inputs", "Integer", "Key", "Knobs", "Node", "Number", "Vector"]

Key = tuple[Any, ...]
"""(frame, value), (frame, value, interpolation) or (frame, value, "slopes", in, out)."""


def plain(value: Any) -> Any:
    """A value as JSON has it: lists, dicts, texts, numbers; a keyed one with its keys. Raises TypeError."""
    if isinstance(value, Keyed):
        return value._given()
    if isinstance(value, (bool, str, int, float)) or value is None:
        return value
    if isinstance(value, Mapping):
        return _plain_object(value)
    if isinstance(value, os.PathLike):
        return os.fspath(value)
    if hasattr(value, "tolist"):  # NumPy's
        return plain(value.tolist())
    if isinstance(value, Iterable):
        return [plain(each) for each in value]
    raise TypeError(f"expected numbers, texts, lists or dicts, found {value!r}")


def _plain_object(value: Mapping[Any, Any]) -> Any:
    """An object; where it has keys whose values are lists, a list of an object for each component."""
    made = {str(name): plain(each) for name, each in value.items()}
    keys = made.get("keys")
    if not made.keys() <= {"keys", "extrapolate"} or not isinstance(keys, list):
        return made
    rows: list[list[Any]] = [[int(each) if isinstance(each, bool) else each for each in key] for key in keys if isinstance(key, list)]
    widths = {len(row[1]) if len(row) > 1 and isinstance(row[1], list) else 0 for row in rows}
    if len(rows) < len(keys) or len(widths) != 1 or widths == {0}:
        return {**made, "keys": rows} if len(rows) == len(keys) else made
    parts = [[[row[0], row[1][at], *row[2:]] for row in rows] for at in range(widths.pop())]
    return [{**made, "keys": part} for part in parts]


class Keyed:
    """What a numeric knob, or a component of one, has beside its value. The value is that of the moment when it was
    asked for (of a keyed one at the composition's first frame); all else looks at the composition as it is."""

    _node: Node
    _knob: Knob
    _at: int | None

    def _bind(self, node: Node, knob: Knob, at: int | None) -> None:
        self._node, self._knob, self._at = node, knob, at

    def _given(self) -> Any:
        """As the composition says it, in JSON."""
        value = self._node.knobs._json(self._knob)
        return value[self._at] if self._at is not None and isinstance(value, list) else value

    def _put(self, value: Any) -> None:
        if self._at is not None:
            whole = self._node.knobs._json(self._knob)
            parts = list(whole) if isinstance(whole, list) else [whole] * self._knob.length
            value = parts[: self._at] + [value] + parts[self._at + 1 :]
        self._node.knobs[self._knob.name] = value

    @property
    def animated(self) -> bool:
        """Whether it has keys."""
        given = self._given()
        return any(isinstance(each, dict) for each in (given if isinstance(given, list) else [given]))

    @property
    def keys(self) -> tuple[Key, ...]:
        """Its keys, each (frame, value), (frame, value, interpolation) or (frame, value, "slopes", in, out); none
        where it is constant, and where the components of a list have keys of their own. Set, they replace all of
        it; a list knob takes keys whose values are lists as well."""
        given = self._given()
        return tuple(tuple(key) for key in given["keys"]) if isinstance(given, dict) else ()

    @keys.setter
    def keys(self, keys: Iterable[Sequence[Any]]) -> None:
        self._put({"keys": list(keys), **({"extrapolate": True} if self.extrapolate else {})})

    @property
    def extrapolate(self) -> bool:
        """Whether the curve goes on straight before the first key and behind the last."""
        given = self._given()
        return isinstance(given, dict) and bool(given.get("extrapolate", False))

    @extrapolate.setter
    def extrapolate(self, on: bool) -> None:
        given = self._given()
        if isinstance(given, dict):
            self._put({"keys": given["keys"], "extrapolate": on} if on else {"keys": given["keys"]})

    def value_at(self, frame: float) -> Any:
        """Its value at a frame, as a node sees it: within the knob's range; a tuple for a list knob."""
        values = self._node.knobs._at(self._knob, frame)
        if self._at is not None:
            return values[self._at]
        return values[0] if self._knob.length == 1 else values

    def __repr__(self) -> str:
        value = self._alone()
        return f"<{value!r}, keyed: {json_text.compact(self._given())}>" if self.animated else repr(value)

    def __reduce__(self) -> Any:
        value = self._alone()
        return type(value), (value,)

    def _alone(self) -> Any:
        """The value without the knob."""
        if isinstance(self, tuple):
            return tuple(each._alone() for each in self)
        return {Number: float, Integer: int, Flag: bool}[type(self)](self)


class Number(Keyed, float):
    """A float that knows its knob."""


class Integer(Keyed, int):
    """An int that knows its knob."""


class Flag(Keyed, int):
    """True or False, as 1 or 0 that know their knob."""


class Vector(Keyed, tuple):  # type: ignore[type-arg]
    """A tuple that knows its knob; its items are those of one component each."""


_SCALARS: dict[str, type[Union[Number, Integer, Flag]]] = {"number": Number, "integer": Integer, "flag": Flag}


class Knobs(MutableMapping[str, Any]):
    """All knobs of a node by name: values, or defaults where none is given. Deleting one gives its default back."""

    def __init__(self, node: Node) -> None:
        self._node = node

    def __getitem__(self, name: str) -> Any:
        knob = self._spec(name)
        if not knob.numeric:
            return _copied(self._json(knob))
        values = self._at(knob, self._node._shot._first_frame())
        scalar = _SCALARS[knob.kind]
        if knob.length == 1:
            return self._bound(scalar(values[0]), knob, None)
        parts = [self._bound(scalar(each), knob, at) for at, each in enumerate(values)]
        return self._bound(Vector(parts), knob, None)

    def __setitem__(self, name: str, value: Any) -> None:
        self.assign({name: value})

    def __delitem__(self, name: str) -> None:
        self._node._shot._edit_knobs(self._node, {}, [self._spec(name).name])

    def __iter__(self) -> Iterator[str]:
        return iter(self._node._type.knobs)

    def __len__(self) -> int:
        return len(self._node._type.knobs)

    def __repr__(self) -> str:
        return repr(dict(self))

    @property
    def given(self) -> dict[str, Any]:
        """Those that the composition names, as JSON has them."""
        return dict(_copied(self._node._data.get("knobs", {})))

    def assign(self, values: Mapping[str, Any]) -> None:
        """Gives several knobs their values, checked together. Raises CompositionError, and then nothing changes."""
        self._node._shot._edit_knobs(self._node, values, [])

    def _spec(self, name: str) -> Knob:
        knobs = self._node._type.knobs
        if name not in knobs:
            # The check says what may have been meant.
            self._node._shot._check_node({**self._node._data, "knobs": {name: 0}}, [name], UnknownKnob)
        return knobs[name]

    def _json(self, knob: Knob) -> Any:
        default = list(knob.default) if isinstance(knob.default, tuple) else knob.default
        return self._node._data.get("knobs", {}).get(knob.name, default)

    def _at(self, knob: Knob, frame: float) -> tuple[Any, ...]:
        make = {"integer": int, "flag": bool}.get(knob.kind, float)
        json = json_text.compact(self._json(knob))
        return tuple(make(each) for each in _quorvel.knob_at(self._node.type, knob.name, json, float(frame)))

    def _bound(self, value: Any, knob: Knob, at: int | None) -> Any:
        value._bind(self._node, knob, at)
        return value


def _copied(value: Any) -> Any:
    if isinstance(value, dict):
        return {name: _copied(each) for name, each in value.items()}
    return [_copied(each) for each in value] if isinstance(value, list) else value


class Inputs(MutableMapping[str, Any]):
    """What a node reads, by the names of its inputs: nodes; a list of nodes where an input repeats. Set with nodes or
    their names; deleting one disconnects it."""

    def __init__(self, node: Node) -> None:
        self._node = node

    def __getitem__(self, name: str) -> Any:
        given = by_name(self._node._type, self._node._data.get("inputs"))[name]
        shot = self._node._shot
        return [shot[each] for each in given] if isinstance(given, list) else shot[given]

    def __setitem__(self, name: str, value: Any) -> None:
        self._node.inputs = {**self, name: value}

    def __delitem__(self, name: str) -> None:
        self[name]  # raises where it is not connected
        self._node.inputs = {each: value for each, value in self.items() if each != name}

    def __iter__(self) -> Iterator[str]:
        return iter(by_name(self._node._type, self._node._data.get("inputs")))

    def __len__(self) -> int:
        return len(list(iter(self)))

    def __repr__(self) -> str:
        return repr(by_name(self._node._type, self._node._data.get("inputs")))


class Node:
    """A node of a composition, a view: changes are the composition's. Knobs are attributes; what is not given reads
    as its default. A name that Python keeps for itself has a _ behind it (`ramp.from_`); `knobs` has all by name.
    Raises CompositionError where a value is not what the knob takes, and nothing changes then.

    >>> from quorvel import Composition
    >>> soft = Composition().add("blur", size=7)
    >>> soft.size, soft.kernel
    ((7.0, 7.0), 'gaussian')
    >>> soft.size[0].keys = [(1, 0, "smooth"), (24, 12)]
    >>> soft.size.value_at(24)
    (12.0, 7.0)
    >>> soft.size.keys = [(1, (0, 0)), (24, (12, 3))]
    >>> soft.size.value_at(24)
    (12.0, 3.0)
    """

    __slots__ = ("_shot", "_data")
    _shot: Composition
    _data: dict[str, Any]

    def __init__(self, shot: Composition, data: dict[str, Any]) -> None:
        object.__setattr__(self, "_shot", shot)
        object.__setattr__(self, "_data", data)

    @property
    def _type(self) -> NodeType:
        return types[self._data["type"]]

    @property
    def type(self) -> str:
        """The name of its type, a key of quorvel.nodes.types."""
        return str(self._data["type"])

    @property
    def name(self) -> str:
        """Its name; set, whatever reads the node knows the new one."""
        return str(self._data["name"])

    @name.setter
    def name(self, name: str) -> None:
        self._shot.rename(self.name, name)

    @property
    def inputs(self) -> Any:
        """What it reads, by input: an Inputs. Set with a node or a name for the first, a list in the inputs' order,
        or a dict."""
        return Inputs(self)

    @inputs.setter
    def inputs(self, inputs: Any) -> None:
        self._shot._edit_inputs(self, inputs)

    @property
    def knobs(self) -> Knobs:
        """All its knobs by name."""
        return Knobs(self)

    @property
    def comment(self) -> str:
        """For whoever reads the file; "" for none."""
        return str(self._data.get("comment", ""))

    @comment.setter
    def comment(self, comment: str) -> None:
        self._shot._edit_member(self, "comment", str(comment), not comment)

    @property
    def disabled(self) -> bool:
        """Whether it lets its first input through unchanged."""
        return bool(self._data.get("disabled", False))

    @disabled.setter
    def disabled(self, disabled: bool) -> None:
        self._shot._edit_member(self, "disabled", bool(disabled), not disabled)

    def __getattr__(self, name: str) -> Any:
        if name.startswith("_"):
            raise AttributeError(name)
        return self.knobs[_knob_name(name)]

    def __setattr__(self, name: str, value: Any) -> None:
        if hasattr(type(self), name):
            object.__setattr__(self, name, value)
        else:
            self.knobs[_knob_name(name)] = value

    def __delattr__(self, name: str) -> None:
        del self.knobs[_knob_name(name)]

    def __dir__(self) -> list[str]:
        return [*super().__dir__(), *(name + "_" if keyword.iskeyword(name) else name for name in self._type.knobs)]

    def __eq__(self, other: object) -> bool:
        return isinstance(other, Node) and self._data is other._data

    def __hash__(self) -> int:
        return id(self._data)

    def __repr__(self) -> str:
        knobs = ", ".join(f"{name}={json_text.compact(value)}" for name, value in self.knobs.given.items())
        inputs = self._data.get("inputs")
        reads = f" of {inputs if isinstance(inputs, str) else json_text.compact(inputs)}" if inputs else ""
        return f"<{self.name}: {self.type}({knobs}){reads}{', disabled' if self.disabled else ''}>"


def _knob_name(name: str) -> str:
    return name[:-1] if name.endswith("_") and keyword.iskeyword(name[:-1]) else name
