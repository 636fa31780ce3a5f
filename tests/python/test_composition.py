"""Compositions in Python: texts that come back, edits in place, errors, the catalogue."""

import copy
import difflib
import json
import keyword
import pickle
import random
import re
import subprocess
from pathlib import Path
from typing import Any

import pytest

import quorvel as qv

ROOT = Path(__file__).resolve().parents[2]
EXAMPLES = sorted([*ROOT.glob("examples/*.json"), *ROOT.glob("examples/jobs/*.json")])
TEXT = """{"format": {"width": 8, "height": 4}, "nodes": [
  // The first.
  {"name": "a", "type": "constant"}, // beside
  /* two */ {"name": "b", "type": "blur", "inputs": "a",
    "knobs": {"size": 3 /* wide */, "mix": 0.5}}
]}
"""


@pytest.mark.parametrize("path", EXAMPLES, ids=lambda path: str(path.stem))
def test_every_example_comes_back(path: Path, tmp_path: Path) -> None:
    text, shot = path.read_text(), qv.Composition.load(path)
    fresh = shot.to_json(comments=False)
    assert shot.to_json() == text and qv.Composition.parse(fresh, path) == shot
    assert max(map(len, fresh.splitlines())) <= 120
    with pytest.raises(OSError):
        shot.save(tmp_path / "missing" / path.name)
    assert shot.to_json() == path.read_text()
    shot.save(tmp_path / path.name)  # paths go along
    moved = qv.Composition.load(tmp_path / path.name)
    assert moved == qv.Composition.load(path) == pickle.loads(pickle.dumps(shot))
    reads = [(tmp_path / node.file).parent.resolve() for node in moved if node.type == "read"]
    assert set(reads) <= {ROOT / "examples/plates"}
    # A number changed alone is one line of difference: what stood there, with the new number.
    for node, name, value in [(node, *given) for node in moved for given in node.knobs.given.items()]:
        knob = qv.nodes.types[node.type].knobs[name]
        if value == 1 or not isinstance(value, (int, float)) or not knob.minimum <= 1 <= knob.maximum:
            continue
        edited = qv.Composition.load(path)
        edited[node.name].knobs[name] = 1
        diff = list(difflib.ndiff(text.splitlines(), edited.to_json().splitlines()))
        (old,), (new,) = ([line[2:] for line in diff if line[0] == sign] for sign in "-+")
        assert new == re.sub(f'(?<="{name}": )[^,}}]+', "true" if value is False else "1", old)


@pytest.mark.parametrize("change, old, new", [
    ("b.size = 4", '"size": 3', '"size": 4'),
    ("del b.mix", ', "mix": 0.5', ""),
    ("del b.size", '"size": 3 /* wide */, ', ""),
    ("b.limit = 9", "0.5}", '0.5, "limit": 9}'),
    ("a.disabled = True", '"constant"}', '"constant", "disabled": true}'),
    ("a.name = 'c'", '"a"', '"c"'),
    ("del s['b']", TEXT[TEXT.index(", // beside") :], " // beside\n  /* two */\n]}\n"),
    ("s.add('blur', inputs=b)", "0.5}}\n", '0.5}},\n  {"name": "blur", "type": "blur", "inputs": "b"}\n'),
    ("b.size[1].keys = (1, 2), (3, 4, 'step')", '"size": 3', '"size": [3, {"keys": [[1, 2], [3, 4, "step"]]}]'),
])  # fmt: skip
def test_an_edit_changes_its_place_alone(tmp_path: Path, change: str, old: str, new: str) -> None:
    (tmp_path / "a.json").write_text(TEXT)
    with qv.Composition.edit(tmp_path / "a.json") as shot:
        compiled = shot._compiled()
        assert compiled is shot._compiled()
        exec(change, {"s": shot, "a": shot["a"], "b": shot["b"]})
        assert compiled is not shot._compiled()
    assert (tmp_path / "a.json").read_text() == TEXT.replace(old, new) != TEXT


@pytest.mark.parametrize("change, node, knob, words", [
    ("b.siez = 4", "b", "siez", 'did you mean "size"'),
    ("b.siez", "b", "siez", 'did you mean "size"'),
    ("b.size = -1", "b", "size", "from 0 to"),
    ("b.size = float('nan')", "b", "size", "JSON"),
    ("b.kernel = 'gausian'", "b", "kernel", 'did you mean "gaussian"'),
    ("b.size.keys = [(2, 1), (1, 1)]", "b", "size", "after 2"),
    ("b.inputs = {'imgae': 'a'}", "b", None, 'did you mean "image"'),
    ("b.inputs = 'aa'", "b", None, 'did you mean "a"'),
    ("b.inputs = type(s)().add('ramp', 'a')", "a", None, "another composition"),
    ("s.add('blurr')", "blurr", None, 'did you mean "blur"'),
    ("s.add('blur', 'b')", "b", None, "taken"),
    ("del s['a']", "a", None, 'node "b" would miss it'),
    ("s['bb']", None, None, 'did you mean "b"'),
    ("s.frames = '1-x'", None, None, "frames"),
    ("s.output = 'bb'", None, None, "output"),
    ("s.format = 0, 4", None, None, "width"),
])  # fmt: skip
def test_errors_name_what_is_at_fault(change: str, node: str, knob: str, words: str) -> None:
    shot = qv.Composition.parse(TEXT, "a.json")
    with pytest.raises(qv.CompositionError) as caught:
        exec(change, {"s": shot, "b": shot["b"]})
    (problem,) = caught.value.problems
    assert (problem.file, problem.node, problem.knob) == ("a.json", node, knob) and words in str(caught.value)
    assert shot.to_json() == TEXT and not hasattr(shot["b"], "siez") and "siez" not in shot["b"].knobs


def test_catalogue_is_that_of_the_command() -> None:
    command = Path(qv.__file__).parents[2] / "host/quorvel"
    schema = json.loads(subprocess.run([command, "nodes", "--schema"], capture_output=True, check=True).stdout)
    rows = schema["$defs"]["node"]["allOf"]
    rules = {row["if"]["properties"]["type"]["const"]: row["then"]["properties"] for row in rows}
    assert rules.keys() == qv.nodes.types.keys()
    for name, rule in rules.items():
        node, told = qv.Composition().add(name), qv.nodes.types[name].knobs.values()
        defaults = {each: row["default"] for each, row in rule["knobs"]["properties"].items()}
        assert defaults == {each.name: json.loads(json.dumps(each.default)) for each in told}
        assert not set(node.knobs) & {*dir(qv.Node), "type", "name", "inputs", "comment", "disabled"}
        assert {each + "_" * keyword.iskeyword(each) for each in node.knobs} <= set(dir(node))


def random_value(knob: qv.nodes.Knob, rng: random.Random) -> Any:
    def number() -> Any:
        value = min(max(rng.choice([0, 1, 2.5, -3, 100]), knob.minimum), knob.maximum)
        value = {"flag": bool, "integer": int, "number": float}[knob.kind](value)
        return value if rng.random() < 0.7 else {"keys": [[1, value + 0, "smooth"], [9, value + 0]]}

    if not knob.numeric:
        return rng.choice(knob.choices)
    return [number() for _ in range(knob.length)] if knob.length > 1 and rng.random() < 0.5 else number()


@pytest.mark.parametrize("seed", range(4))
def test_random_edits_against_a_plain_model(seed: int) -> None:
    rng, shot = random.Random(seed), qv.Composition.load(EXAMPLES[seed % len(EXAMPLES)])
    model = copy.deepcopy(shot._doc["nodes"])
    for step in range(150):
        data = rng.choice(model)
        free = not any(f'"{data["name"]}"' in json.dumps(each.get("inputs")) for each in model)
        knob = rng.choice([*qv.nodes.types[data["type"]].knobs.values()])
        if rng.random() < 0.15:
            model.append({"name": f"new{step}", "type": rng.choice(["blur", "grade"]), "inputs": data["name"]})
            shot.add(model[-1]["type"], f"new{step}", inputs=data["name"])
        elif rng.random() < 0.1 and free:
            model.remove(data)
            del shot[data["name"]]
        elif knob.numeric or knob.choices:
            data.setdefault("knobs", {})[knob.name] = value = random_value(knob, rng)
            shot[data["name"]].knobs[knob.name] = value
    want = qv.Composition.parse(json.dumps({**shot._doc, "nodes": model}), shot.path)
    for text in (shot.to_json(), shot.to_json(comments=False)):
        assert qv.Composition.parse(text, shot.path) == want == copy.deepcopy(shot)
    comments = re.compile(r"^ *(//.*)", re.MULTILINE)
    assert comments.findall(shot.to_json()) == comments.findall(EXAMPLES[seed % len(EXAMPLES)].read_text())
