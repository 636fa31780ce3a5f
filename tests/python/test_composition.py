"""Compositions in Python: texts that come back, edits in place, errors, the catalogue."""

from __future__ import annotations

import copy
import difflib
import json
import keyword
import pickle
import random
import re
import subprocess
from pathlib import Path
from typing import Any, Callable

import pytest

import quorvel as qv

ROOT = Path(__file__).resolve().parents[2]
EXAMPLES = sorted([*ROOT.glob("examples/*.json"), *ROOT.glob("examples/jobs/*.json")])


def without_comments(text: str) -> Any:
    return json.loads("\n".join(line for line in text.splitlines() if not line.lstrip().startswith("//")))


@pytest.mark.parametrize("path", EXAMPLES, ids=lambda path: str(path.stem))
def test_every_example_comes_back(path: Path, tmp_path: Path) -> None:
    shot = qv.Composition.load(path)
    assert shot.to_json() == path.read_text()
    fresh = shot.to_json(comments=False)
    assert qv.Composition.parse(fresh, path) == shot
    assert max(map(len, fresh.splitlines())) <= 120
    shot.save(tmp_path / "moved" / ".." / path.name)  # paths go along
    moved = qv.Composition.load(tmp_path / path.name)
    assert moved == qv.Composition.load(path) == pickle.loads(pickle.dumps(shot))
    reads = [node for node in moved if node.type == "read"]
    assert all((tmp_path / node.file).parent.resolve() == ROOT / "examples/plates" for node in reads)
    # One knob of each node, changed alone, is one line of difference: what stood there, with the new value.
    for node in qv.Composition.load(path):
        for name, value in node.knobs.given.items():
            knob = node._type.knobs[name]
            changes = knob.numeric and value != 1 and knob.minimum <= 1 <= knob.maximum
            if not changes or isinstance(value, (list, dict)):
                continue
            edited = qv.Composition.load(path)
            edited[node.name].knobs[name] = 1
            assert edited[node.name].knobs[name] in (1, (1, 1), (1, 1, 1))
            diff = list(difflib.ndiff(path.read_text().splitlines(), edited.to_json().splitlines()))
            (old,), (new,) = ([line[2:] for line in diff if line[0] == sign] for sign in "-+")
            assert new == re.sub(f'(?<="{name}": )[^,}}]+', "true" if value is False else "1", old)


TEXT = """{"format": {"width": 8, "height": 4}, "nodes": [
  // The first.
  {"name": "a", "type": "constant"}, // beside
  /* two */ {"name": "b", "type": "blur", "inputs": "a",
    "knobs": {"size": 3 /* wide */, "mix": 0.5}}
]}
"""


@pytest.mark.parametrize(
    "change, old, new",
    [
        (lambda s: setattr(s["b"], "size", 4), '"size": 3', '"size": 4'),
        (lambda s: delattr(s["b"], "mix"), ', "mix": 0.5', ""),
        (lambda s: delattr(s["b"], "size"), '"size": 3 /* wide */, ', ""),
        (lambda s: setattr(s["b"], "limit", 9), "0.5}", '0.5, "limit": 9}'),
        (lambda s: setattr(s["a"], "disabled", True), '"constant"}', '"constant", "disabled": true}'),
        (lambda s: s.rename("a", "c"), '"a"', '"c"'),
        (lambda s: s.__delitem__("b"), TEXT[TEXT.index(", // beside") :], " // beside\n  /* two */\n]}\n"),
        (lambda s: s.add("blur", inputs="b"), "0.5}}\n", '0.5}},\n  {"name": "blur", "type": "blur", "inputs": "b"}\n'),
        (lambda s: setattr(s["b"].size[1], "keys", [(1, 2), (3, 4, "step")]), '"size": 3',
         '"size": [3, {"keys": [[1, 2], [3, 4, "step"]]}]'),
    ],
)  # fmt: skip
def test_an_edit_changes_its_place_alone(tmp_path: Path, change: Callable[[Any], Any], old: str, new: str) -> None:
    (tmp_path / "a.json").write_text(TEXT)
    with qv.Composition.edit(tmp_path / "a.json") as shot:
        compiled = shot._compiled()
        assert compiled is shot._compiled()
        change(shot)
        assert compiled is not shot._compiled()
    assert (tmp_path / "a.json").read_text() == TEXT.replace(old, new) != TEXT


@pytest.mark.parametrize(
    "change, node, knob, words",
    [
        (lambda s: setattr(s["b"], "siez", 4), "b", "siez", 'did you mean "size"'),
        (lambda s: s["b"].siez, "b", "siez", 'did you mean "size"'),
        (lambda s: setattr(s["b"], "size", -1), "b", "size", "from 0 to"),
        (lambda s: setattr(s["b"], "size", float("nan")), "b", "size", "JSON"),
        (lambda s: setattr(s["b"], "kernel", "gausian"), "b", "kernel", 'did you mean "gaussian"'),
        (lambda s: setattr(s["b"].size, "keys", [(2, 1), (1, 1)]), "b", "size", "after 2"),
        (lambda s: setattr(s["b"], "inputs", {"imgae": "a"}), "b", None, 'did you mean "image"'),
        (lambda s: setattr(s["b"], "inputs", "aa"), "b", None, 'did you mean "a"'),
        (lambda s: s.add("blurr"), "blurr", None, 'did you mean "blur"'),
        (lambda s: s.add("blur", "b"), "b", None, "taken"),
        (lambda s: s.__delitem__("a"), "a", None, 'node "b" would miss it'),
        (lambda s: s["bb"], None, None, 'did you mean "b"'),
        (lambda s: setattr(s, "frames", "1-x"), None, None, "frames"),
        (lambda s: setattr(s, "output", "bb"), None, None, "output"),
        (lambda s: setattr(s, "format", (0, 4)), None, None, "width"),
    ],
)
def test_errors_name_what_is_at_fault(change: Callable[[Any], Any], node: str, knob: str, words: str) -> None:
    shot = qv.Composition.parse(TEXT, "a.json")
    with pytest.raises(qv.CompositionError) as caught:
        change(shot)
    (problem,) = caught.value.problems
    assert (problem.file, problem.node, problem.knob) == ("a.json", node, knob) and words in str(caught.value)
    assert shot.to_json() == TEXT
    assert not hasattr(shot["b"], "siez")


def test_catalogue_is_that_of_the_command() -> None:
    command = Path(qv.__file__).parents[2] / "host/quorvel"
    schema = json.loads(subprocess.run([command, "nodes", "--schema"], capture_output=True, check=True).stdout)
    rows = schema["$defs"]["node"]["allOf"]
    rules = {row["if"]["properties"]["type"]["const"]: row["then"]["properties"] for row in rows}
    assert rules.keys() == qv.nodes.types.keys()
    for name, rule in rules.items():
        node = qv.Composition().add(name)
        defaults = {each: told["default"] for each, told in rule["knobs"]["properties"].items()}
        assert defaults == {each.name: json.loads(json.dumps(each.default)) for each in node._type.knobs.values()}
        reserved = {each for each in dir(type(node)) if not each.startswith("_")} | {"self"}
        assert not reserved & set(node.knobs)
        assert {each + "_" * keyword.iskeyword(each) for each in node.knobs} <= set(dir(node))


def random_value(knob: qv.nodes.Knob, rng: random.Random) -> Any:
    def number() -> Any:
        value = min(max(rng.choice([0, 1, 2.5, -3, 100]), knob.minimum), knob.maximum)
        value = bool(value) if knob.kind == "flag" else int(value) if knob.kind == "integer" else value
        return value if rng.random() < 0.7 else {"keys": [[1, value + 0, "smooth"], [9, value + 0]]}

    if knob.numeric:
        return number() if rng.random() < 0.5 or knob.length == 1 else [number() for _ in range(knob.length)]
    return rng.choice(knob.choices) if knob.kind == "choice" else None


@pytest.mark.parametrize("seed", range(4))
def test_random_edits_against_a_plain_model(seed: int) -> None:
    rng = random.Random(seed)
    shot = qv.Composition.load(EXAMPLES[seed % len(EXAMPLES)])
    model = without_comments(shot.to_json())["nodes"]
    for step in range(150):
        data = rng.choice(model)
        if rng.random() < 0.15:
            data = {"name": f"new{step}", "type": rng.choice(["blur", "grade", "transform"]), "inputs": data["name"]}
            model.append(data)
            shot.add(data["type"], data["name"], inputs=data["inputs"])
        elif rng.random() < 0.1 and not any(f'"{data["name"]}"' in json.dumps(each.get("inputs")) for each in model):
            model.remove(data)
            del shot[data["name"]]
        else:
            knob = rng.choice([*qv.nodes.types[data["type"]].knobs.values()])
            value = random_value(knob, rng)
            if value is not None:
                data.setdefault("knobs", {})[knob.name] = value
                shot[data["name"]].knobs[knob.name] = value
    want = qv.Composition.parse(json.dumps({**shot._doc, "nodes": model}), shot.path)
    for text in (shot.to_json(), shot.to_json(comments=False)):
        assert qv.Composition.parse(text, shot.path) == want == copy.deepcopy(shot)
    old = [line.strip() for line in (shot.path or Path()).read_text().splitlines() if line.lstrip().startswith("//")]
    assert [line.strip() for line in shot.to_json().splitlines() if line.lstrip().startswith("//")] == old
