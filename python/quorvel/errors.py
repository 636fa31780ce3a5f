"""What can go wrong, each an exception of its own. The texts are those of the command `quorvel`."""

from __future__ import annotations

import re
from typing import NamedTuple

__all__ = ["CompositionError", "Error", "FrameError", "MemoryBudgetError", "Problem", "UnknownKnob", "UnknownNode"]

_PROBLEM = re.compile(
    r'(?:(?P<file>.*?): )?(?:node "(?P<node>.*?)": )?(?:knob "(?P<knob>.*?)": )?(?P<message>.*?)'
    r'(?: \(did you mean "(?P<suggestion>.*?)"\?\))?'
)
_UNKNOWN_KNOB = re.compile(r'unknown knob "(?P<knob>.*?)"')
_FRAME = re.compile(r'(?:.*?: )?node "(?P<node>.*?)": frame (?P<frame>-?\d+): ', re.DOTALL)


class Problem(NamedTuple):
    """One thing that is wrong with a composition; what does not apply is None.

    >>> Problem.of('shot.json: node "soft": unknown knob "siez" (did you mean "size"?)')
    Problem(file='shot.json', node='soft', knob='siez', message='unknown knob "siez"', suggestion='size')
    """

    file: str | None
    node: str | None
    knob: str | None
    message: str
    suggestion: str | None

    @classmethod
    def of(cls, line: str) -> Problem:
        """The parts of a line as the command prints it."""
        match = _PROBLEM.fullmatch(line)
        if match is None:
            return cls(None, None, None, line, None)
        parts = match.groupdict()
        unknown = _UNKNOWN_KNOB.match(parts["message"])
        knob = unknown["knob"] if unknown else parts["knob"]
        return cls(parts["file"], parts["node"], knob, parts["message"], parts["suggestion"])


class Error(Exception):
    """The mother of all errors of this package; str() is a text for people."""

    def __str__(self) -> str:
        return "\n".join(str(each) for each in self.args)


class CompositionError(Error):
    """A composition, or a change to one, that cannot be used; it is as it was before.

    >>> error = CompositionError('shot.json: node "soft": knob "size": expected a number of at least 0, found -3')
    >>> error.problems[0].node, error.problems[0].knob, error.problems[0].message
    ('soft', 'size', 'expected a number of at least 0, found -3')
    """

    @property
    def problems(self) -> tuple[Problem, ...]:
        """Each thing that is wrong: file, node, knob, message, suggestion."""
        return tuple(Problem.of(line) for line in str(self).splitlines())


class UnknownNode(CompositionError, KeyError):
    """There is no node of that name."""


class UnknownKnob(CompositionError, AttributeError, KeyError):
    """The node's type has no such knob."""


class FrameError(Error):
    """A frame that could not be made; the text says why.

    >>> FrameError('shot.json: node "plate": frame 7: no such file').frame
    7
    """

    @property
    def frame(self) -> int | None:
        """The frame that failed, None where the text names none."""
        match = _FRAME.match(str(self))
        return int(match["frame"]) if match else None

    @property
    def node(self) -> str | None:
        """The node at which it failed, None where the text names none."""
        match = _FRAME.match(str(self))
        return match["node"] if match else None


class MemoryBudgetError(Error, MemoryError):
    """An image needs more than the memory budget leaves; where views hold the rest, the text names them."""
