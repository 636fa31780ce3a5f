"""One change of a composition, checked by what checks whole ones, among stand-ins for all that it does not touch."""

from __future__ import annotations

from collections.abc import Collection, Mapping, Sequence
from typing import Any

from . import _quorvel, json_text
from .document import completed, node_names
from .errors import Problem
from .nodes import types

__all__ = ["node_problems", "top_problems"]


def node_problems(
    doc: Mapping[str, Any], names: Collection[str], node: Mapping[str, Any], knobs: Sequence[str] | None, file: str
) -> str:
    """What is wrong with a node, a line each: with its inputs and knobs, or with the `knobs` named alone. An input
    that it still needs is no fault. `names`: of the nodes that are there."""
    wanted = {key: value for key, value in node.items() if key != "disabled" and (key != "inputs" or knobs is None)}
    node_type = types.get(wanted["type"])
    read = node_names(wanted.get("inputs"))
    known = set(read) <= {*names, wanted["name"]}
    others = [name for name in (read if known else names) if name != wanted["name"]]
    if node_type is not None:
        missing = wanted["name"] + "'s input"
        wanted["inputs"] = completed(node_type, wanted.get("inputs"), missing)
        others.append(missing)
    stub = {
        "format": doc["format"],
        "views": doc.get("views", ["view"]),
        "nodes": [wanted, *(_stand_in(name) for name in dict.fromkeys(others))],
    }
    text = str(_quorvel.problems(json_text.compact(stub), file))
    if knobs is None:
        return text
    return "\n".join(line for line in text.splitlines() if Problem.of(line).knob in (*knobs, None))


def top_problems(doc: Mapping[str, Any], key: str, value: Any, file: str) -> str:
    """What is wrong with one of the members at the top of a composition."""
    names = [str(each["name"]) for each in doc["nodes"]] if key == "output" else ["any"]
    stub = {"format": doc["format"], "nodes": [_stand_in(name) for name in names], key: value}
    return str(_quorvel.problems(json_text.compact(stub), file))


def _stand_in(name: str) -> dict[str, Any]:
    return {"name": name, "type": "constant"}
