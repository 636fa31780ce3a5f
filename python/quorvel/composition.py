"""Compositions: loaded, made, changed and saved as the text that a person would write."""

from __future__ import annotations

import copy
import itertools
import os
from collections.abc import Iterable, Iterator, Mapping, Sequence
from contextlib import contextmanager
from functools import lru_cache
from pathlib import Path
from typing import Any, Union

from . import _quorvel, checks, json_text
from .document import MEMBERS, Format, is_default, laid_out, meaning, move, node_names, shortest
from .errors import CompositionError, UnknownNode
from .node import Node, plain
from .nodes import types
from .whole_file import write_whole

__all__ = ["Composition", "Format"]

PathLike = Union[str, "os.PathLike[str]"]

_TOP = ("$schema", "comment", "format", "frames", "views", "nodes", "output")


class Composition:
    """Nodes that read one another, the picture's format and the frames. Every change is checked at once against the
    catalogue and raises CompositionError, with file, node, knob and a suggestion, when it cannot be; nothing has
    changed then. What only shows as a whole (inputs that are still missing, circles) is said when it is rendered.

    A composition that was loaded keeps its text: comments and layout stay where nothing changes. Paths of `file`
    knobs are relative to its folder, or to the current one while it has no file. Externally synchronised.

    >>> shot = Composition(format=(960, 540), frames="1-24")
    >>> hills = shot.add("checkerboard", "hills", size=40)
    >>> soft = shot.add("blur", size=7, inputs=hills)
    >>> soft
    <blur: blur(size=7) of hills>
    >>> shot["hills"].size = -3  # doctest: +ELLIPSIS
    Traceback (most recent call last):
    quorvel.errors.CompositionError: composition: node "hills": knob "size": expected ... found -3
    >>> print(shot.to_json(), end="")
    {
      "format": {"width": 960, "height": 540},
      "frames": "1-24",
      "nodes": [
        {"name": "hills", "type": "checkerboard", "knobs": {"size": 40}},
        {"name": "blur", "type": "blur", "inputs": "hills", "knobs": {"size": 7}}
      ]
    }
    """

    def __init__(
        self,
        format: Sequence[float] = (1920, 1080),
        frames: str | int | Iterable[int] = "1",
        views: Sequence[str] = (),
    ) -> None:
        self._path: Path | None = None
        self._text = ""
        self._place: json_text.Place | None = None
        self._doc: dict[str, Any] = {"format": {"width": 1920, "height": 1080}, "nodes": []}
        self._named: dict[str, dict[str, Any]] = {}
        self._last: _quorvel.Composition | None = None
        self.format = Format(*format)  # type: ignore[arg-type]
        self.frames = frames  # type: ignore[assignment]
        self.views = views  # type: ignore[assignment]

    # From and to files.

    @classmethod
    def load(cls, path: PathLike) -> Composition:
        """Reads a file. Raises CompositionError with all that is wrong in it, and OSError."""
        try:
            return cls.parse(Path(path).read_bytes().decode(), path)
        except UnicodeDecodeError as error:
            raise CompositionError(f"{os.fspath(path)}: not JSON: {error}") from None

    @classmethod
    def parse(cls, text: str, path: PathLike | None = None) -> Composition:
        """Reads a text, as if it stood in the file `path`. Raises CompositionError."""
        shot = cls()
        shot._path = None if path is None else Path(path)
        compiled = _quorvel.Composition.parse(text, shot._file())
        shot._text, shot._place = text, json_text.read(text.removeprefix("\ufeff"))
        shot._doc = copy.deepcopy(shot._place.value)
        shot._named = {each["name"]: each for each in shot._doc["nodes"]}
        shot._last = compiled
        return shot

    @classmethod
    @contextmanager
    def edit(cls, path: PathLike) -> Iterator[Composition]:
        """Loads a file to be changed, and saves it at the end unless the block raises or nothing has changed. What is
        not touched, comments above all, stays as it is written."""
        shot = cls.load(path)
        yield shot
        if shot.to_json() != shot._text:
            shot.save()

    def to_json(self, comments: bool = True) -> str:
        """The text that `save` writes: that which was loaded with what has changed, or else one laid out anew, as it is
        without `comments`. Knobs at their defaults are left out of new text."""
        if self._place is None or not comments:
            return laid_out(self._doc)
        start = len(self._text) - len(self._text.removeprefix("\ufeff"))
        text = self._text[start:]
        body = json_text.patched(text, self._place, self._doc)
        if "\r\n" in text:
            body = body.replace("\r\n", "\n").replace("\n", "\r\n")
        return self._text[: start + self._place.start] + body + text[self._place.end :]

    def save(self, path: PathLike | None = None) -> None:
        """Writes the file, whole or not at all, and makes it this composition's own. In another folder the paths of
        `file` knobs change with it, so that they mean the same files; one that begins with a variable stays. Raises
        OSError."""
        target = self._path if path is None else Path(path)
        if target is None:
            raise ValueError("a composition that has no file yet is saved under a path")
        before = [copy.deepcopy(each.get("knobs", {})) for each in self._doc["nodes"]]
        try:
            move(self._doc, os.path.realpath(self._folder()), os.path.realpath(target.parent))
            text = self.to_json()
            write_whole(target, text)
        except BaseException:
            for each, knobs in zip(self._doc["nodes"], before):
                each.update({"knobs": knobs} if "knobs" in each else {})
            raise
        self._path, self._last = target, None
        self._text, self._place = text, json_text.read(text.removeprefix("\ufeff"))

    @property
    def path(self) -> Path | None:
        """The file that it was loaded from or saved to last."""
        return self._path

    # The top of the text.

    @property
    def format(self) -> Format:
        """Width and height in pixels, and the pixels' aspect."""
        return Format(**self._doc["format"])

    @format.setter
    def format(self, format: Sequence[float]) -> None:
        made = Format(*format)  # type: ignore[arg-type]
        given = {"width": plain(made.width), "height": plain(made.height)}
        self._edit_top("format", given if made.pixel_aspect == 1 else {**given, "pixel_aspect": made.pixel_aspect})

    @property
    def frames(self) -> str:
        """The frames to render unless asked otherwise: "1-24x2,^7"; set with numbers as well."""
        return str(self._doc.get("frames", "1"))

    @frames.setter
    def frames(self, frames: str | int | Iterable[int]) -> None:
        if not isinstance(frames, (str, int)):
            frames = str(_quorvel.frames_text([int(each) for each in frames]))
        self._edit_top("frames", str(frames), str(frames) == "1")

    @property
    def frame_numbers(self) -> list[int]:
        """The same, each by its number, in order."""
        return list(_quorvel.parse_frames(self.frames))

    @property
    def views(self) -> tuple[str, ...]:
        """What is rendered once each, for %V and %v in paths."""
        return tuple(self._doc.get("views", ()))

    @views.setter
    def views(self, views: Sequence[str]) -> None:
        self._edit_top("views", list(views), not views)

    @property
    def output(self) -> tuple[str, ...]:
        """The nodes to render by name; none: those that write files, or else those that nobody reads. Set with a
        node, a name, or several."""
        given = self._doc.get("output", ())
        return (given,) if isinstance(given, str) else tuple(given)

    @output.setter
    def output(self, output: str | Node | Iterable[str | Node] | None) -> None:
        several = [output] if isinstance(output, (str, Node)) else list(output or ())
        names = [str(self._names(each)) for each in several]
        self._edit_top("output", names[0] if len(names) == 1 else names, not names)

    @property
    def comment(self) -> str:
        """For whoever reads the file; "" for none."""
        return str(self._doc.get("comment", ""))

    @comment.setter
    def comment(self, comment: str) -> None:
        self._edit_top("comment", str(comment), not comment)

    # Nodes.

    def add(
        self,
        type: str,
        name: str | None = None,
        *,
        inputs: Any = None,
        comment: str = "",
        disabled: bool = False,
        **knobs: Any,
    ) -> Node:
        """A new node of a type, named after it unless said otherwise. `inputs` is a node or a name for the first input,
        a list, or a dict by input. Knobs whose names Python keeps for itself have a _ behind them: `from_`."""
        data: dict[str, Any] = {"name": self._free_name(type) if name is None else name, "type": type}
        if inputs:
            data["inputs"] = self._names(inputs)
        if knobs:
            data["knobs"] = {each.rstrip("_"): self._plain(data["name"], each, value) for each, value in knobs.items()}
        if comment:
            data["comment"] = comment
        if disabled:
            data["disabled"] = True
        self._check_name(data["name"])
        self._check_node(data)
        if inputs:
            data["inputs"] = shortest(types[type], data["inputs"])
        self._doc["nodes"].append(data)
        self._named[data["name"]] = data
        self._last = None
        return Node(self, data)

    def rename(self, old: str, new: str) -> None:
        """Gives a node another name, also in what reads it."""
        data = self[old]._data
        if new == old:
            return
        self._check_name(new)

        def renamed(value: Any) -> Any:
            if isinstance(value, dict):
                return {key: renamed(each) for key, each in value.items()}
            if isinstance(value, list):
                return [renamed(each) for each in value]
            return new if value == old else value

        for holder, key in [(self._doc, "output"), *((each, "inputs") for each in self._doc["nodes"])]:
            if key in holder:
                holder[key] = renamed(holder[key])
        data["name"] = new
        self._named[new] = self._named.pop(old)
        self._last = None

    def __getitem__(self, name: str) -> Node:
        """The node of that name. Raises UnknownNode, a CompositionError and KeyError."""
        if name not in self._named:
            hint = _quorvel.did_you_mean(str(name), list(self._named))
            raise UnknownNode(f'{self._file()}: there is no node "{name}"{hint}')
        return Node(self, self._named[name])

    def __delitem__(self, name: str) -> None:
        """Takes a node out. Raises CompositionError while others read it, or it is the output."""
        data = self[name]._data
        readers = [f'node "{each.name}"' for each in self if name in node_names(each._data.get("inputs"))]
        readers += ["the output"] if name in self.output else []
        if readers:
            self._refuse(name, f"cannot be taken out: {', '.join(readers)} would miss it")
        self._doc["nodes"] = [each for each in self._doc["nodes"] if each is not data]
        del self._named[name]
        self._last = None

    def __iter__(self) -> Iterator[Node]:
        return iter([Node(self, each) for each in self._doc["nodes"]])

    def __len__(self) -> int:
        return len(self._doc["nodes"])

    def __contains__(self, name: object) -> bool:
        return name in self._named

    def __eq__(self, other: object) -> bool:
        """Whether both mean the same: as nodes see them, wherever the files lie and however the texts are laid out."""
        if not isinstance(other, Composition):
            return NotImplemented
        return bool(self._meaning() == other._meaning())

    __hash__ = None  # type: ignore[assignment]

    def __repr__(self) -> str:
        size = f"{self.format.width}x{self.format.height}"
        return f"<{self._file()}: {len(self)} nodes, {size}, frames {self.frames}>"

    def __getstate__(self) -> dict[str, Any]:
        return {**self.__dict__, "_last": None}

    # What the parts of this package need of one another.

    def _compiled(self) -> _quorvel.Composition:
        """As the renderer takes it: the same object until something is edited. Raises CompositionError."""
        if self._last is None:
            self._last = _quorvel.Composition.parse(json_text.compact(self._doc), self._file())
        return self._last

    def _file(self) -> str:
        return "composition" if self._path is None else str(self._path)

    def _first_frame(self) -> float:
        return _first_of(self.frames)

    def _edit_knobs(self, node: Node, values: Mapping[str, Any], gone: Sequence[str]) -> None:
        data = self._present(node)
        given = {name: self._plain(node.name, name, value) for name, value in values.items()}
        old = data.get("knobs", {})
        new = {name: value for name, value in {**old, **given}.items() if name not in gone}
        self._check_node({**data, "knobs": new}, list(given))
        # What is given its default where nothing was given still says nothing.
        silent = [name for name in new if name not in old and is_default(data, name, new[name])]
        self._put(data, "knobs", {name: value for name, value in new.items() if name not in silent})

    def _edit_inputs(self, node: Node, inputs: Any) -> None:
        data = self._present(node)
        new = self._names(inputs)
        self._check_node({**data, "inputs": new, "knobs": {}})
        self._put(data, "inputs", shortest(types[node.type], new))

    def _edit_member(self, node: Node, key: str, value: Any, default: bool) -> None:
        self._put(self._present(node), key, None if default else value)

    def _put(self, data: dict[str, Any], key: str, value: Any) -> None:
        """Sets a member of a node in its place, or takes it out where there is nothing to say."""
        if value:
            data[key] = value
        else:
            data.pop(key, None)
        for each in [name for name in MEMBERS if name in data]:
            data[each] = data.pop(each)
        self._last = None

    def _present(self, node: Node) -> dict[str, Any]:
        if self._named.get(node.name) is not node._data:
            self._refuse(node.name, "was taken out of the composition")
        return node._data

    def _edit_top(self, key: str, value: Any, default: bool = False) -> None:
        if not default and (text := checks.top_problems(self._doc, key, value, self._file())):
            raise CompositionError(text)
        new = {**self._doc, key: value}
        self._doc = {each: new[each] for each in _TOP if each in new and not (each == key and default)}
        self._last = None

    def _plain(self, node: str, knob: str, value: Any) -> Any:
        try:
            given = plain(value)
            json_text.compact(given)
            return given
        except (TypeError, ValueError) as error:
            raise CompositionError(f'{self._file()}: node "{node}": knob "{knob}": {error}') from None

    def _check_name(self, name: Any) -> None:
        if not isinstance(name, str) or not name:
            self._refuse(str(name), "expected a text for its name")
        if name in self._named:
            self._refuse(name, "the name is taken by another node")

    def _refuse(self, node: str, message: str) -> None:
        raise CompositionError(f'{self._file()}: node "{node}": {message}')

    def _check_node(
        self,
        data: Mapping[str, Any],
        knobs: Sequence[str] | None = None,
        error: type[CompositionError] = CompositionError,
    ) -> None:
        if text := checks.node_problems(self._doc, self._named, data, knobs, self._file()):
            raise error(text)

    def _free_name(self, type: str) -> str:
        names = itertools.chain([type], (f"{type}{number}" for number in itertools.count(2)))
        return next(name for name in names if name not in self._named)

    def _names(self, inputs: Any) -> Any:
        """Inputs with names for nodes."""
        if isinstance(inputs, Node):
            if inputs._shot is not self:
                self._refuse(inputs.name, "belongs to another composition")
            return inputs.name
        if isinstance(inputs, Mapping):
            return {str(key): self._names(each) for key, each in inputs.items() if each is not None}
        return [self._names(each) for each in inputs] if isinstance(inputs, (list, tuple)) else inputs

    def _folder(self) -> Path:
        return Path() if self._path is None else self._path.parent

    def _meaning(self) -> Any:
        folder = os.path.realpath(self._folder())
        nodes = [meaning(each, folder) for each in self._doc["nodes"]]
        return (self.format, self.frame_numbers, self.views, self.output, self.comment, nodes)


@lru_cache
def _first_of(frames: str) -> int:
    return int(_quorvel.parse_frames(frames)[0])
