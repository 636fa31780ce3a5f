"""Texts with comments anywhere, changed in place, against plain values."""

import json
import random
from typing import Any

from quorvel import json_text

BLANKS = ["", "", "", " ", "\n", "\n\n  ", "/* c */", "// d\n", "/*\n e */"]
SCALARS: list[Any] = [1, 2.5, True, False, None, "s//x", "t/*y", 'q"\\', "{", 1e30, "long " * 20]


def value(rng: random.Random, depth: int = 0) -> Any:
    kind = rng.random() if depth < 3 else 1
    if kind < 0.3:
        return {rng.choice("abcdefg") * rng.randint(1, 3): value(rng, depth + 1) for _ in range(rng.randint(0, 4))}
    if kind < 0.6:
        return [value(rng, depth + 1) for _ in range(rng.randint(0, 4))]
    if kind < 0.65:
        return [{"name": name, "x": value(rng, 2)} for name in rng.sample("pqrs", 3)]
    return rng.choice(SCALARS)


def written(rng: random.Random, what: Any) -> str:
    def blank(text: str = "") -> str:
        return rng.choice(BLANKS) + rng.choice(BLANKS) + text

    if isinstance(what, dict):
        members = (f"{blank(json.dumps(name))}{blank()}:{written(rng, each)}" for name, each in what.items())
        return blank("{" + ",".join(members) + blank("}")) + blank()
    if isinstance(what, list):
        return blank("[" + ",".join(written(rng, each) for each in what) + blank("]")) + blank()
    return blank(json.dumps(what)) + blank()


def changed(rng: random.Random, what: Any) -> Any:
    if not isinstance(what, (dict, list)) or rng.random() < 0.1:
        return value(rng, 1) if rng.random() < 0.5 else what
    if isinstance(what, dict):
        kept = {name: changed(rng, each) for name, each in what.items() if rng.random() < 0.85}
        return {**kept, rng.choice("abcxyz"): value(rng, 2)} if rng.random() < 0.3 else kept
    items = [changed(rng, each) if rng.random() < 0.3 else each for each in what if rng.random() < 0.85]
    return [*items, value(rng, 2)] if rng.random() < 0.4 else items


def test_changed_texts_say_the_new_values_and_keep_the_rest() -> None:
    for seed in range(1500):
        rng = random.Random(seed)
        old = value(rng)
        text = written(rng, old)
        place = json_text.read(text)
        new = changed(rng, old)
        patched = text[: place.start] + json_text.patched(text, place, new) + text[place.end :]
        assert place.value == old and json_text.read(patched).value == new, (seed, text, patched)
        assert json.dumps(old) != json.dumps(new) or patched == text, (seed, text)
        assert json_text.read(json_text.layout(new, 0, 0)).value == new
