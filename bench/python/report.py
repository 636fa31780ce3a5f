"""Rows of a benchmark: the table, the options and the JSON of bench/report.h, for Python."""

from __future__ import annotations

import argparse
import json
import statistics
import time
from collections.abc import Callable
from typing import Any


def time_in_turn(rounds: int, functions: list[Callable[[], object]]) -> list[float]:
    """Seconds a call, the median of each, timed in turn round after round; the first round is not counted."""
    seconds: list[list[float]] = [[] for _ in functions]
    for counted in range(-1, rounds):
        for function, each in zip(functions, seconds):
            begin = time.perf_counter()
            result = function()
            took = time.perf_counter() - begin
            del result
            if counted >= 0:
                each.append(took)
    return [statistics.median(each) for each in seconds]


class Report:
    """Collects rows, prints them with ratios, writes them as JSON."""

    def __init__(self, name: str) -> None:
        parser = argparse.ArgumentParser(prog=f"bench {name}", allow_abbrev=False)
        parser.add_argument("--json", metavar="FILE")
        parser.add_argument("--only", metavar="TEXT", default="")
        parser.add_argument("--quick", action="store_true")
        self.options = parser.parse_args()
        self.name, self.quick = name, bool(self.options.quick)
        self._rows: list[dict[str, Any]] = []
        print(f"{'bench ' + name:<52} {'ours':>12} {'unit':<9} peers (times better than each)")

    def wants(self, name: str) -> bool:
        """Whether the row or group is to be measured."""
        return self.options.only in name

    def row(self, name: str, unit: str, ours: float, peers: dict[str, float], limit: float = 0, better: str = "less") -> None:
        """Adds a row. The ratio to a peer is how many times better ours is; `limit` the least that is good enough."""
        self._rows.append({"row": name, "unit": unit, "better": better, "ours": ours, "peers": peers, "limit": limit})
        ratios = {peer: value / ours if better == "less" else ours / value for peer, value in peers.items()}
        line = f"{name:<52} {ours:12.5g} {unit:<9}"
        line += "".join(f"  {peer} {value:.5g} ({ratios[peer]:.2f}x)" for peer, value in peers.items())
        if limit > 0:
            line += f"  [limit {limit:.2f}x: {'reached' if min(ratios.values()) >= limit else 'MISSED'}]"
        print(line, flush=True)

    def require(self, equal: bool, what: str) -> None:
        """Ends with 1 where an answer differs from a peer's: no timing counts then."""
        if not equal:
            raise SystemExit(f"bench {self.name}: answers differ: {what}")

    def finish(self) -> None:
        if self.options.json:
            with open(self.options.json, "w") as file:
                json.dump(self._rows, file, indent=1)
