#!/usr/bin/env python3
"""Judges runs of the benchmarks by their limits and by the ratios stored in bench/expected.json.

usage: judge.py check EXPECTED [--part] PROGRAM=RUN.json ...
       judge.py limits PROGRAM=RUN.json ...
       judge.py store EXPECTED MACHINE [--part] PROGRAM=RUN.json ...

Several runs of one program, whose rows Report::finish wrote, are judged by the medians of their ratios.
check: ends with 1 and lists the rows of which the least ratio misses the limit by more than 10 %, or a
ratio to a peer is worse than the stored one by more than 15 %. Rows that are new or gone are named.
limits: check without what is stored, for runs of other sizes.
store: puts the ratios of these programs in the place of those stored, with a line on the machine.
--part: runs of some of the rows. None is gone then, and what is stored of the others stays.
"""

import json
import pathlib
import statistics
import sys

LIMIT_SLACK = 0.10
STORED_SLACK = 0.15


def ratio(better, ours, peer):
    """How many times better ours is; None where a number is missing."""
    if ours is None or peer is None:
        return None
    over, under = (peer, ours) if better == "less" else (ours, peer)
    return over / under if under else float("inf")


def medians(runs):
    """{row: (limit, median of the least ratio, {peer: median ratio})}; None for what a run has no number of."""
    seen = {}
    for rows in runs:
        for row in rows:
            limit, each = seen.setdefault(row["row"], (row["limit"] or 0, []))
            each.append({peer: ratio(row["better"], row["ours"], value) for peer, value in row["peers"].items()})
    middle = lambda values: None if None in values else statistics.median(values)
    result = {}
    for name, (limit, each) in seen.items():
        least = [None if None in ratios.values() else min(ratios.values(), default=float("inf")) for ratios in each]
        peers = dict.fromkeys(peer for ratios in each for peer in ratios)
        result[name] = (limit, middle(least), {p: middle([r[p] for r in each if p in r]) for p in peers})
    return result


def verdicts(stored, runs, part=False):
    """What is wrong, and what is only to be named, as two lists of lines. stored: {row: {peer: ratio}}, or
    None where there is nothing to compare with."""
    wrong, named = [], []
    rows = medians(runs)
    for name, (limit, least, peers) in rows.items():
        if least is None:
            wrong.append(f"{name}: a run has no number")
            continue
        if least < limit * (1 - LIMIT_SLACK):
            wrong.append(f"{name}: {least:.2f}x misses its limit of {limit:.2f}x")
        for peer, now in peers.items() if stored is not None else ():
            before = stored.get(name, {}).get(peer)
            if before is None:
                named.append(f"{name}, {peer}: new, {now:.2f}x")
            elif now < before * (1 - STORED_SLACK):
                wrong.append(f"{name}, {peer}: {now:.2f}x, it was {before:.2f}x")
    for name in stored if stored and not part else ():
        gone = [peer for peer in stored[name] if name not in rows or peer not in rows[name][2]]
        named += [f"{name}, {peer}: gone, it was {stored[name][peer]:.2f}x" for peer in gone]
    return wrong, named


def read_runs(arguments):
    """{program: its runs} of PROGRAM=FILE arguments."""
    runs = {}
    for argument in arguments:
        program, file = argument.split("=", 1)
        runs.setdefault(program, []).append(json.loads(pathlib.Path(file).read_text()))
    return runs


def check(stored, runs, part):
    failed = 0
    for program, each in runs.items():
        ratios = None if stored is None else stored.get(program, {}).get("ratios", {})
        wrong, named = verdicts(ratios, each, part)
        failed += len(wrong)
        said = named + [f"WRONG: {line}" for line in wrong] or ["as it should be"]
        print("\n".join(f"bench {program}: {line}" for line in said))
    return 1 if failed else 0


def store(path, stored, runs, machine, part):
    for program, each in runs.items():
        rows = {name: peers for name, (_, _, peers) in medians(each).items() if peers}
        if any(now is None for peers in rows.values() for now in peers.values()):
            print(f"bench {program}: a run has no number; nothing stored")
            return 1
        rounded = {name: {peer: float(f"{now:.3g}") for peer, now in peers.items()} for name, peers in rows.items()}
        kept = stored.get(program, {}).get("ratios", {}) if part else {}
        stored[program] = {"machine": machine, "ratios": kept | rounded}
    path.write_text(json.dumps(stored, indent=1, sort_keys=True) + "\n")
    print(f"bench: the ratios of {', '.join(runs)} are in {path}")
    return 0


def main(arguments):
    if len(arguments) < 2 or arguments[0] not in ("check", "limits", "store"):
        print(__doc__, file=sys.stderr)
        return 2
    if arguments[0] == "limits":
        return check(None, read_runs(arguments[1:]), False)
    part = "--part" in arguments
    verb, file, *rest = [argument for argument in arguments if argument != "--part"]
    path = pathlib.Path(file)
    stored = json.loads(path.read_text()) if path.exists() else {}
    if verb == "store":
        return store(path, stored, read_runs(rest[1:]), rest[0], part)
    return check(stored, read_runs(rest), part)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
