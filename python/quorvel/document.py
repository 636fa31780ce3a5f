"""What the plain values of a composition's text say: inputs and knobs, whichever way they are written."""

from __future__ import annotations

import os
from collections.abc import Mapping
from typing import Any, NamedTuple

from . import json_text
from .nodes import NodeType, types


class Format(NamedTuple):
    """The picture's frame in pixels."""

    width: int
    height: int
    pixel_aspect: float = 1.0


MEMBERS = ("name", "type", "comment", "disabled", "inputs", "knobs")


def by_name(node_type: NodeType, inputs: Any) -> dict[str, Any]:
    """Inputs as an object, whichever way they are written."""
    names = [each.name for each in node_type.inputs]
    if not inputs or not names:
        return {}
    if isinstance(inputs, str):
        return {names[0]: [inputs] if node_type.repeats_last_input and len(names) == 1 else inputs}
    if isinstance(inputs, dict):
        last = names[-1] if node_type.repeats_last_input else None
        return {name: [each] if name == last and isinstance(each, str) else each for name, each in inputs.items()}
    if not node_type.repeats_last_input:
        return dict(zip(names, inputs))
    single = dict(zip(names[:-1], inputs))
    return {**single, names[-1]: list(inputs[len(names) - 1 :])}


def shortest(node_type: NodeType, inputs: Any) -> Any:
    """Inputs as a person writes them: a text where only the first is connected, a list where one repeats."""
    names = [each.name for each in node_type.inputs]
    if isinstance(inputs, dict) and list(inputs) == names[:1]:
        inputs = inputs[names[0]]
    if isinstance(inputs, list) and len(inputs) == 1:
        return inputs[0]
    return inputs


def node_names(value: Any) -> list[str]:
    """The nodes that a value of inputs names."""
    if isinstance(value, dict):
        value = list(value.values())
    if isinstance(value, list):
        return [text for each in value for text in node_names(each)]
    return [value] if isinstance(value, str) else []


def completed(node_type: NodeType, inputs: Any, missing: str) -> Any:
    """Inputs with a stand-in wherever a required one is not connected yet."""
    required = [each.name for each in node_type.inputs if each.required]
    if inputs is None:
        return {name: missing for name in required}
    if isinstance(inputs, list):
        return inputs + [missing] * (len(required) - len(inputs))
    if isinstance(inputs, str) and required:
        inputs = {node_type.inputs[0].name: inputs}
    if not isinstance(inputs, dict) or (node_type.takes_layers and inputs):
        return inputs
    return {**{name: missing for name in required}, **inputs}


def file_knobs(data: Mapping[str, Any]) -> list[str]:
    """The knobs given to a node that are paths."""
    return [name for name in data.get("knobs", {}) if types[data["type"]].knobs[name].kind == "file"]


def is_relative(path: str) -> bool:
    """Whether it depends on the folder; what a variable stands for is taken to be absolute."""
    return bool(path) and not path.startswith(("/", "~")) and not (path.startswith("$") and not path.startswith("$$"))


def _normal(data: Mapping[str, Any], name: str, value: Any) -> Any:
    """A knob's value in the one way of writing that shows whether two are equal."""
    knob = types[data["type"]].knobs[name]
    if knob.kind == "texts":
        return [each for each in ([value] if isinstance(value, str) else list(value)) if each]
    if not knob.numeric:
        return value
    parts = value if isinstance(value, (list, tuple)) else [value] * knob.length
    return [_normal_component(each) for each in parts]


def _normal_component(value: Any) -> Any:
    if not isinstance(value, dict):
        return value
    keys = [(*key, "linear") if len(key) == 2 else tuple(key) for key in value["keys"]]
    return keys, bool(value.get("extrapolate", False))


def is_default(data: Mapping[str, Any], name: str, value: Any) -> bool:
    """Whether a knob of a node would be the same without it."""
    default = types[data["type"]].knobs[name].default
    return bool(_normal(data, name, value) == _normal(data, name, default))


def without_defaults(data: Mapping[str, Any]) -> dict[str, Any]:
    """A node with nothing that goes without saying, its members in their order."""
    knobs = {name: value for name, value in data.get("knobs", {}).items() if not is_default(data, name, value)}
    made = {**data, "knobs": knobs, "disabled": data.get("disabled", False)}
    return {key: made[key] for key in MEMBERS if made.get(key)}


def meaning(data: Mapping[str, Any], folder: str) -> Any:
    """What a node of a composition in that folder says: equal for two that mean the same."""
    node_type = types[data["type"]]
    knobs = {
        name: _normal(data, name, value)
        for name, value in data.get("knobs", {}).items()
        if not is_default(data, name, value)
    }
    for name in file_knobs(data):
        if name in knobs and is_relative(knobs[name]):
            knobs[name] = os.path.normpath(os.path.join(folder, knobs[name]))
    inputs = by_name(node_type, data.get("inputs"))
    return (data["name"], node_type.name, inputs, knobs, data.get("comment", ""), data.get("disabled", False))


def laid_out(doc: Mapping[str, Any]) -> str:
    """A whole composition as a person would write it: a node a line, as far as it fits."""
    lines = []
    for key, value in doc.items():
        if key == "nodes":
            nodes = ",\n".join("    " + json_text.layout(without_defaults(each), 4, 4) for each in value)
            text = f"[\n{nodes}\n  ]" if value else "[]"
        else:
            text = json_text.layout(value, 2, len(key) + 6)
        lines.append(f'  "{key}": {text}')
    return "{\n" + ",\n".join(lines) + "\n}\n"


def move(doc: Mapping[str, Any], old: str, new: str) -> None:
    """Makes paths that are relative to one folder relative to another; both absolute."""
    for data in doc["nodes"] if old != new else ():
        for name in file_knobs(data):
            path = data["knobs"][name]
            if is_relative(path):
                data["knobs"][name] = os.path.relpath(os.path.join(old, path), new)
