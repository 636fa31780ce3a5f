"""JSON with comments as people write it: read with the place of every value, laid out, and changed in place."""

from __future__ import annotations

import difflib
import json
import re
from dataclasses import dataclass, field
from json.decoder import scanstring  # type: ignore[attr-defined]
from typing import Any

__all__ = ["Place", "compact", "layout", "patched", "read", "same"]

WIDTH = 120  # columns of a line, as far as values can be parted

_BLANK = re.compile(r"(?:\s|//[^\n]*|/\*.*?\*/)*", re.DOTALL)
_REST_OF_LINE = re.compile(r"(?:[ \t\r]|//[^\n]*|/\*(?:(?!\*/)[^\n])*\*/)*(?=\n)")
_SCALAR = re.compile(r"[-+.\w]+")
_COMMENT = re.compile(r"//|/\*")


@dataclass
class Place:
    """A value and where it stands: text[start:end]. Members and items keep the text around them."""

    value: Any
    start: int
    end: int
    entries: list[_Entry] = field(default_factory=list)  # of objects and lists
    tail: str = ""  # between the last entry and the bracket


@dataclass
class _Entry:
    """A member or an item: `lead` and `head` (the name and its colon) before the value, `gap` before the comma,
    and `trail`, the rest of its line if that holds no other entry."""

    name: str | None
    lead: str
    head: str
    place: Place
    gap: str = ""
    trail: str = ""


def read(text: str) -> Place:
    """The value of a text, comments left out, with the places of all values in it. Raises ValueError."""
    place = _read(text, _skip(text, 0))
    if _skip(text, place.end) != len(text):
        raise ValueError(f"more text behind the value, at {place.end}")
    return place


def _skip(text: str, at: int) -> int:
    match = _BLANK.match(text, at)
    return match.end() if match else at


def _read(text: str, at: int) -> Place:
    if text[at : at + 1] == '"':
        value, end = scanstring(text, at + 1)
        return Place(value, at, end)
    if text[at : at + 1] in ("{", "["):
        return _read_entries(text, at)
    match = _SCALAR.match(text, at)
    if match is None:
        raise ValueError(f"expected a value at {at}")
    return Place(json.loads(match[0]), at, match.end())


def _read_entries(text: str, start: int) -> Place:
    names = text[start] == "{"
    place = Place({} if names else [], start, start)
    at, close = start + 1, "}" if names else "]"
    while True:
        begin = _skip(text, at)
        if text[begin : begin + 1] == close:
            place.tail, place.end = text[at:begin], begin + 1
            return place
        entry = _read_entry(text, at, begin, names)
        comma = _skip(text, entry.place.end)
        more = text[comma : comma + 1] == ","
        after = comma + 1 if more else entry.place.end
        entry.gap = text[entry.place.end : comma] if more else ""
        rest = _REST_OF_LINE.match(text, after)
        entry.trail = rest[0] if rest else ""
        at = after + len(entry.trail)
        place.entries.append(entry)
        if entry.name is None:
            place.value.append(entry.place.value)
        else:
            place.value[entry.name] = entry.place.value
        if not more and text[comma : comma + 1] != close:
            raise ValueError(f"expected a comma or {close} at {comma}")


def _read_entry(text: str, at: int, begin: int, named: bool) -> _Entry:
    if not named:
        return _Entry(None, text[at:begin], "", _read(text, begin))
    if text[begin : begin + 1] != '"':
        raise ValueError(f"expected a name at {begin}")
    name, end = scanstring(text, begin + 1)
    colon = _skip(text, end)
    if text[colon : colon + 1] != ":":
        raise ValueError(f"expected a colon at {colon}")
    value = _skip(text, colon + 1)
    return _Entry(name, text[at:begin], text[begin:value], _read(text, value))


def compact(value: Any) -> str:
    """On one line, whole numbers without a fraction. Raises ValueError for what is not finite."""
    if isinstance(value, dict):
        return "{" + ", ".join(f"{compact(name)}: {compact(each)}" for name, each in value.items()) + "}"
    if isinstance(value, list):
        return "[" + ", ".join(compact(each) for each in value) + "]"
    if isinstance(value, float) and value.is_integer() and abs(value) < 1e15:
        value = int(value)
    return json.dumps(value, ensure_ascii=False, allow_nan=False)


def same(one: Any, other: Any) -> bool:
    """Whether two values would be written alike: 2 and 2.0 are, 1 and true are not."""
    return compact(one) == compact(other)


def _filled(parts: list[str], column: int, indent: int, ends: int) -> str:
    """Parts with commas between them, from `column` on, broken where a line is full, and around keys."""
    text = ""
    for at, part in enumerate(parts):
        alone = '{"keys"' in part or (at > 0 and '{"keys"' in parts[at - 1])
        first, _, rest = part.partition("\n")
        width = len(first) + (1 if at + 1 < len(parts) or rest else ends)
        if at and (alone or column + 1 + width > WIDTH):
            text += "\n" + " " * indent
            column = indent
        elif at:
            text, column = text + " ", column + 1
        text += part + ("," if at + 1 < len(parts) else "")
        column = len(part.rpartition("\n")[2]) + 1 if rest else column + len(first) + 1
    return text


def layout(value: Any, indent: int, column: int, ends: int = 1) -> str:
    """A value from `column` on, in as few lines as fit, `ends` characters left for what closes behind it. Objects
    break behind their bracket, or that of a node's last member; lists between their items."""
    line = compact(value)
    if column + len(line) + ends <= WIDTH or not isinstance(value, (dict, list)) or not value:
        return line
    if isinstance(value, list):
        parts = [layout(each, column + 1, column + 1) for each in value]
        nested = any(isinstance(each, dict) for each in value)
        inner = (",\n" + " " * (column + 1)).join(parts) if nested else _filled(parts, column + 1, column + 1, ends + 1)
        return "[" + inner + "]"
    inside = indent + 2
    *others, last = value
    head = compact({name: value[name] for name in others})[:-1] + ", " + compact(last) + ": {"
    if last in ("inputs", "knobs") and value[last] and isinstance(value[last], dict) and column + len(head) <= WIDTH:
        opened = layout(value[last], indent, WIDTH, ends + 1)
        return head + opened[1:] + "}"
    parts = [f"{compact(name)}: " for name in value]
    parts = [name + layout(each, inside, inside + len(name)) for name, each in zip(parts, value.values())]
    return "{\n" + " " * inside + _filled(parts, inside, inside, ends + 1) + "}"


def patched(text: str, place: Place, value: Any) -> str:
    """The text with the value at `place` turned into another; what stays equal stays as it is written."""
    if same(place.value, value):
        return text[place.start : place.end]
    if not place.entries or not value or type(place.value) is not type(value):
        line = text.rfind("\n", 0, place.start) + 1
        return layout(value, _indent(text[line : place.start]), place.start - line)
    pairs = _members(place, value) if isinstance(value, dict) else _items(place, value)
    entries: list[tuple[str, str]] = []  # what stands before the comma, and behind it
    carried: str | None = None  # the lead of what was taken out
    for entry, new in pairs:
        if entry is None:
            entries.append((_added(text, place, entries, *new), ""))
            continue
        lead = entry.lead if carried is None else _joined(carried, entry.lead)
        carried = None
        if new is _GONE:
            carried = lead
            continue
        body = patched(text, entry.place, new)
        entries.append((lead + entry.head + body + entry.gap, entry.trail))
    tail = place.tail
    if carried is not None and _COMMENT.search(carried):
        tail = carried.rstrip() + (tail if tail.startswith("\n") else "\n" + tail)
    inner, trail = text[place.start], ""
    for at, (body, behind) in enumerate(entries):
        inner += _below(trail, body) + ("," if at + 1 < len(entries) else "") + behind
        trail = behind
    return inner + _below(trail, tail) + text[place.end - 1]


_GONE = object()


def _members(place: Place, value: dict[str, Any]) -> list[tuple[Any, Any]]:
    """Members in their old order, each with its value or _GONE; new ones, as (None, (name, value)), behind the one
    that they follow in `value`."""
    pairs: list[tuple[Any, Any]] = [(entry, value.get(str(entry.name), _GONE)) for entry in place.entries]
    names = [entry.name for entry in place.entries]
    at = 0
    for name, each in value.items():
        if name in names:
            at = names.index(name) + 1
            continue
        pairs.insert(at, (None, (name, each)))
        names.insert(at, name)
        at += 1
    return pairs


def _items(place: Place, value: list[Any]) -> list[tuple[Any, Any]]:
    """Items in order, nodes found again by their names, all others by their values."""

    def mark(item: Any) -> str:
        named = isinstance(item, dict) and isinstance(item.get("name"), str)
        return str(item["name"]) if named else compact(item)

    old, new = [mark(each) for each in place.value], [mark(each) for each in value]
    pairs: list[tuple[Any, Any]] = []
    for _, i, end, j, stop in difflib.SequenceMatcher(None, old, new, autojunk=False).get_opcodes():
        both = min(end - i, stop - j)
        pairs += zip(place.entries[i : i + both], value[j : j + both])
        pairs += [(entry, _GONE) for entry in place.entries[i + both : end]]
        pairs += [(None, (None, each)) for each in value[j + both : stop]]
    return pairs


def _added(text: str, place: Place, before: list[tuple[str, str]], name: str | None, value: Any) -> str:
    """A new entry behind those that are written already, in the way of those that stood there."""
    first = place.entries[0]
    model = place.entries[1] if before and len(place.entries) > 1 else first
    lines = "\n" in model.lead or (name is None and isinstance(value, dict))
    line = text.rfind("\n", 0, place.start) + 1
    broken = "\n" in first.lead
    inside = _indent(first.lead) if broken else _indent(text[line : place.start]) + 2
    head = "" if name is None else compact(name) + ": "
    if not lines:
        so_far = text[line : place.start + 1] + "".join(body + "," + trail for body, trail in before)
        column = len(so_far.rpartition("\n")[2])
        if column + len(head + compact(value)) + 3 <= WIDTH:
            return (" " if before else "") + head + compact(value)
    return "\n" + " " * inside + head + layout(value, inside, inside + len(head))


def _joined(taken: str, lead: str) -> str:
    """What stands before an entry once the entry before it is gone: comments of both, and the wider gap."""
    if not _COMMENT.search(taken):
        return lead if _COMMENT.search(lead) else taken
    return taken.rstrip() + _below(taken.rstrip(), lead) if "\n" in lead else taken


def _below(blank: str, text: str) -> str:
    """A text that follows comments and blanks, on a line of its own where they leave one open."""
    return "\n" + text if "//" in blank.rpartition("\n")[2] and not text.startswith("\n") else text


def _indent(lead: str) -> int:
    """Columns of blanks at the beginning of its last line."""
    line = lead.rpartition("\n")[2]
    return len(line) - len(line.lstrip(" "))
