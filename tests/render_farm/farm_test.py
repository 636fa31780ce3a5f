"""Frames on a real cluster of three nodes, and everything that dies on the way.

usage: farm_test.py QUORVEL [SEED]
"""

import collections
import concurrent.futures
import contextlib
import copy
import io
import json
import os
import pathlib
import re
import resource
import signal
import subprocess
import sys
import tempfile
import time
import traceback

import yaml

import openjd_rules
from cluster import Cluster, wait_until
from storm import Storm, journal

FRAMES, CHUNK, RETRIES = 60, 10, 6


def write_shot(file, frames, output, size=(480, 270), radius=40, read=None, **knobs):
    source = ({"name": "c", "type": "read", "knobs": {"file": read}} if read else
              {"name": "c", "type": "constant", "knobs": {"color": {"keys": [[1, 0], [600, 1]]}}})
    file.write_text(json.dumps({
        "format": {"width": size[0], "height": size[1]}, "frames": frames, "nodes": [
            source,
            {"name": "soft", "type": "disc_blur", "inputs": "c",
             "knobs": {"radius": {"keys": [[1, radius], [600, radius + 20]]}, "edges": "repeat"}},
            {"name": "out", "type": "write", "inputs": "soft", "knobs": {"file": output, **knobs}}]}))
    return file


class Farm:
    """The command on a cluster."""

    def __init__(self, cluster, program):
        self.cluster, self.program, self.started = cluster, program, []

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for each in self.started:
            each.kill()

    def __call__(self, *words):
        return self.cluster.run(self.program, "farm", *words)

    def begin(self, shot, *words, **started):
        self.started.append(subprocess.Popen(
            [self.program, "farm", "submit", str(shot), "--wait", "--threads=1", "--gpu=software", "--memory=128M", *words],
            env=self.cluster.environment, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **started))
        return self.started[-1]

    def status(self, shot):
        text = self("status", shot, "--json").stdout
        return json.loads(text[text.index("{"):])


def expect_no_parts(folder):
    parts = [p.name for p in folder.glob(".*.part")]
    assert not parts, parts


def test_storm(farm, folder, seed):
    """Every frame stands in the end, with the bytes of an undisturbed rendering, and is rendered no more often than
    its chunk was put back."""
    shot = write_shot(folder / "storm.json", f"1-{FRAMES}", "out/f.####.exr")
    begin = time.monotonic()
    farm.cluster.run(farm.program, "render", shot, "-o", folder / "still/f.####.exr", "--threads=1",
                     "--gpu=software", "--progress=none", check=True)
    print(f"  undisturbed: {time.monotonic() - begin:.1f} s")
    waiting = farm.begin(shot, f"--chunk={CHUNK}", f"--retries={RETRIES}")
    said = waiting.stdout.readline()
    job = re.match(r"job (\d+): 60 frames in 6 chunks", said).group(1)
    storm = Storm(farm.cluster, job, folder / "out/.quorvel/storm.jsonl", seed, lambda: farm.status(shot))
    storm.rage()
    rest = waiting.communicate(timeout=300)[0]
    storm.over.set()
    assert waiting.returncode == 0 and "60 of 60 frames are whole" in rest, rest
    for frame in range(1, FRAMES + 1):
        name = f"f.{frame:04}.exr"
        assert (folder / "out" / name).read_bytes() == (folder / "still" / name).read_bytes(), name
    expect_no_parts(folder / "out")
    status = farm.status(shot)
    assert [c["state"] for c in status["chunks"]] == ["done"] * 6 and status["whole"] == FRAMES, status
    restarts = {t["index"]: t["restarts"] for t in farm.cluster.tasks(job)}
    assert [c["restarts"] for c in status["chunks"]] == [restarts[i] for i in range(6)], (status, restarts)
    assert sum(restarts.values()) >= storm.told["restarts"] >= 5, restarts
    rendered = collections.Counter(line["frame"] for line in journal(storm.file) if line["outcome"] == "done")
    for frame, times in rendered.items():
        assert times <= 1 + restarts[(frame - 1) // CHUNK], (frame, times, restarts)
    assert set(rendered) <= set(range(1, FRAMES + 1))
    print(f"  put back {sum(restarts.values())} times; {sum(rendered.values())} renderings noted of {FRAMES} frames")


def test_bad_frame(farm, folder):
    """All other frames stand; the exit code and the list name the bad one, and one that is mended is rendered."""
    plates = write_shot(folder / "plates.json", "1-6", "plate/p.####.exr", (64, 36), 1)
    farm.cluster.run(farm.program, "render", plates, check=True)
    plate = folder / "plate/p.0004.exr"
    whole = plate.read_bytes()
    os.truncate(plate, len(whole) - 150)
    shot = write_shot(folder / "bad.json", "1-6", "bad/f.####.png", (64, 36), 1, "plate/p.####.exr")
    refused = farm("submit", shot, "--chunk=3")
    assert refused.returncode == 1 and "nothing was submitted" in refused.stdout, refused.stdout
    waiting = farm.begin(shot, "--chunk=3", "--keep-going")
    said = waiting.communicate(timeout=120)[0]
    assert waiting.returncode == 1 and "5 of 6 frames are whole; not 4\n" in said, said
    status = farm.status(shot)
    assert [c["state"] for c in status["chunks"]] == ["done", "failed"], status
    assert "frame 4" in status["chunks"][1]["why"] and status["whole"] == 5, status
    assert farm("status", shot).returncode == 1
    stood = {f: f.stat().st_mtime_ns for f in (folder / "bad").glob("f.*.png")}
    plate.write_bytes(whole)
    again = farm("retry", shot, "--chunk=3", "--wait")
    assert again.returncode == 0 and ": 1 frame in 1 chunk " in again.stdout, again.stdout
    assert all(f.stat().st_mtime_ns == when for f, when in stood.items()), "retry rendered more than was bad"
    assert farm.status(shot)["whole"] == 6
    assert "nothing was submitted" in farm("retry", shot).stdout


def test_full_disk(farm, folder):
    """A disk without room fails its frames alone; with room again they are rendered."""
    disk = folder / "disk"
    disk.mkdir()
    if subprocess.run(["mount", "-t", "tmpfs", "-o", "size=200k", "none", disk], stderr=subprocess.DEVNULL).returncode:
        print("  left out: only root may mount")
        return
    try:
        shot = write_shot(folder / "full.json", "1-8", str(disk / "f.####.exr"), (96, 54), 1, compression="none")
        waiting = farm.begin(shot, "--chunk=4")
        said = waiting.communicate(timeout=120)[0]
        assert waiting.returncode == 1 and re.search(r"\b[1-6] of 8 frames are whole", said), said
        expect_no_parts(disk)
        assert farm.status(shot)["failed"] >= 1, farm.status(shot)
        subprocess.run(["mount", "-o", "remount,size=4m", disk], check=True)
        assert farm("retry", shot, "--chunk=4", "--wait").returncode == 0
    finally:
        subprocess.run(["umount", disk], check=True)


def test_deadly_frame(farm, folder):
    """On a chunk's last try a frame that ends the renderer takes no other along."""
    frames = {"1-3,5-6": (64, 36), "4": (1000, 600)}
    for asked, size in frames.items():
        plates = write_shot(folder / "large.json", asked, "large/p.####.exr", size, 1)
        farm.cluster.run(farm.program, "render", plates, check=True)
    shot = write_shot(folder / "deadly.json", "1-6", "deadly/f.####.exr", (64, 36), 1, "large/p.####.exr",
                      compression="none")
    # Of files, which Slurm hands on: who writes a larger one is ended by a signal.
    most = 3 << 20
    waiting = farm.begin(shot, "--chunk=6", "--retries=1",
                         preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (most, most)))
    said = waiting.communicate(timeout=120)[0]
    assert waiting.returncode == 1 and "5 of 6 frames are whole; not 4\n" in said, said
    chunk, = farm.status(shot)["chunks"]
    assert chunk["state"] == "failed" and chunk["restarts"] == 1, chunk


def test_unstartable(farm, folder):
    """A chunk that a node could not start is let go: by a chunk that ends, by retry and by who waits. So is the check."""
    refusal = folder / "refuse"
    for frames, chunk, words in ("1-6", 3, ()), ("7-12", 6, ()), ("13-18", 6, ("--wait",)):
        shot = write_shot(folder / f"start{frames}.json", frames, f"start{frames}/f.####.exr", (32, 18), 1)
        refusal.touch()
        said = farm("submit", shot, f"--chunk={chunk}", "--threads=1", "--memory=64M", *words)
        assert said.returncode == 0, said.stdout
        if frames == "7-12":
            wait_until("the chunk is held", lambda: "launch failed" in farm.status(shot)["chunks"][0].get("why", ""))
            assert ": 1 chunk that a node could not start " in farm("retry", shot).stdout
        wait_until("the job ends", lambda: farm.status(shot)["ended"])
        status = farm.status(shot)
        assert status["whole"] == 6 and sum(c["restarts"] for c in status["chunks"]) == 1, status
        wait_until("the check has run", (folder / f"start{frames}/.quorvel/start{frames}/checked").exists)
        farm.cluster.resume_drained()

    shot = write_shot(folder / "late.json", "1-2", "late/f.####.exr", (32, 18), 1)
    said = farm("submit", shot, "--chunk=2", "--threads=1", "--memory=64M", "--sbatch=--begin=now+3").stdout
    check = re.search(r"job (\d+) checks", said)[1]
    assert farm.cluster.run("scontrol", "hold", check).returncode == 0
    wait_until("the job ends", lambda: farm.status(shot)["ended"])
    refusal.touch()
    farm.cluster.run("scontrol", "release", check)
    wait_until("the check is held", lambda: "held" in farm.cluster.run("squeue", "-h", "-j", check, "-o", "%r").stdout)
    assert "nothing was submitted" in farm("retry", shot).stdout
    wait_until("the check has run", (folder / "late/.quorvel/late/checked").exists)
    farm.cluster.resume_drained()


def test_automatic_chunks(farm, folder):
    """No node stays idle, and no chunk asks for less than a run takes."""
    shot = write_shot(folder / "auto.json", "1-60", "auto/f.####.exr")
    story = folder / "auto/.quorvel/auto.jsonl"
    story.parent.mkdir(parents=True)
    most = int(re.search(r"at most +(\d+) MiB", farm.cluster.run(farm.program, "render", shot, "--dry-run",
                         "--threads=2", "--gpu=software").stdout)[1])
    processors = 3 * (FRAMES // CHUNK // 2)
    for ms, words, chunks in (1000, ["--threads=2"], processors // 2), (1000, [], 3), (60000, ["--threads=1"], 9), \
            (120000, ["--sbatch=--partition=nowhere"], 4):
        story.write_text(json.dumps({"frame": 1, "outcome": "done", "ms": ms}) + "\n")
        script = farm("export", shot, "--gpu=software", *words).stdout
        assert re.search(r"--array=0-(\d+)", script)[1] == str(chunks - 1), (ms, words, script)
        memory, images = (int(re.search(text, script)[1]) for text in (r"--mem=(\d+)M", r"--memory=(\d+)"))
        assert most < memory < most + 1000 and images < (memory << 20), (most, memory, images)


def test_cancel(farm, folder):
    """What is cancelled stays away."""
    shot = write_shot(folder / "cancel.json", "1-200", "cancel/f.####.exr")
    waiting = farm.begin(shot, "--chunk=100")
    job = re.match(r"job (\d+)", waiting.stdout.readline()).group(1)
    wait_until("a chunk runs", lambda: any(farm.cluster.renderer(job, i) for i in (0, 1)))
    assert farm("submit", shot).returncode == 2, "submitted while chunks are live"
    assert farm("cancel", shot).returncode == 0
    waiting.communicate(timeout=60)
    assert waiting.returncode == 1, waiting.returncode
    status = farm.status(shot)
    assert status["ended"] and status["failed"] == 2 and all(c["restarts"] == 0 for c in status["chunks"]), status


def test_exports(farm, folder):
    """Templates keep the rules, and the batch script runs as it is."""
    shot = write_shot(folder / "export.json", "1-5,8,11", "export/f.####.png", (32, 18), 1)
    template = None
    for words, parse in ((), json.loads), (("--yaml",), yaml.safe_load), (("--task-chunking",), json.loads), \
            (("--yaml", "--task-chunking"), yaml.safe_load):
        template = parse(farm("export", shot, "--format=openjd", "--chunk=2", "--threads=2", *words).stdout)
        assert openjd_rules.faults(template) == [], openjd_rules.faults(template)
        space = template["steps"][0]["parameterSpace"]["taskParameterDefinitions"][0]
        assert space["range"] == ("1-5,8,11" if "chunks" in space else ["1,2", "3,4", "5,8", "11"]), space
    # The rules are no ornament.
    for path, value in (["specificationVersion"], "1"), (["extra"], 1), (["steps", 0, "script", "actions", "onRun",
                        "args", 0], "{{Task.Param.Nobody}}"), (["extensions"], []), (["steps", 1, "dependencies", 0,
                        "dependsOn"], "nobody"), (["steps", 0, "parameterSpace", "taskParameterDefinitions", 0,
                        "range"], "5,1"):
        broken = copy.deepcopy(template)
        place = broken
        for name in path[:-1]:
            place = place[name]
        place[path[-1]] = value
        assert openjd_rules.faults(broken), path
    script = folder / "export.sh"
    script.write_text(farm("export", shot, "--chunk=3", "--threads=1", "--memory=64M").stdout)
    ended = farm.cluster.run("sbatch", "--wait", script)
    assert ended.returncode == 0 and len(list((folder / "export").glob("f.*.png"))) == 7, ended.stdout


def run(program, seed, tests):
    """Tests one after another, on a cluster of their own. Whether all are green, and what they said."""
    said = io.StringIO()
    with contextlib.redirect_stdout(said), tempfile.TemporaryDirectory(prefix="quorvel-farm-") as name:
        folder = pathlib.Path(name).resolve()
        # A node that finds the file cannot start what it was given.
        prolog = folder / "prolog"
        prolog.write_text(f"#!/bin/sh\n! rm {folder}/refuse 2>/dev/null\n")
        prolog.chmod(0o755)
        os.environ["FARM_SLURM_CONF"] = f"Prolog={prolog}"
        # Room for all chunks on two nodes, while the third is away.
        with Cluster(folder / f"cluster", 3, FRAMES // CHUNK // 2) as cluster, Farm(cluster, program) as farm:
            for test in tests:
                begin = time.monotonic()
                print(f"{test.__name__}: {test.__doc__}")
                try:
                    test(farm, folder, *([seed] if test is test_storm else []))
                except Exception:
                    traceback.print_exc(file=said)
                    logs = sorted(folder.glob("*/.quorvel/*/logs/*.log"))
                    for words in ["squeue", "-t", "all", "-o", "%i %T %r %S %N"], ["sinfo", "-R"], ["sinfo", "-N"], \
                            ["tail", "-n", "60", cluster.folder / "log/slurmctld.log", *logs]:
                        print(cluster.run(*words).stdout)
                    return False, said.getvalue()
                print(f"  {time.monotonic() - begin:.1f} s")
    return True, said.getvalue()


def main():
    program = str(pathlib.Path(sys.argv[1]).resolve())
    seed = int(sys.argv[2]) if len(sys.argv) > 2 else 15
    # The storm waits for Slurm most of the time.
    groups = [[test_exports, test_automatic_chunks, test_bad_frame, test_deadly_frame, test_full_disk, test_unstartable,
               test_cancel], [test_storm]]
    green = True
    with concurrent.futures.ProcessPoolExecutor(len(groups)) as pool:
        runs = [pool.submit(run, program, seed, tests) for tests in groups]
        for done in concurrent.futures.as_completed(runs):
            green &= done.result()[0]
            print(done.result()[1], end="", flush=True)
    print("farm: all green" if green else "farm: not green")
    return 0 if green else 1


if __name__ == "__main__":
    sys.exit(main())
