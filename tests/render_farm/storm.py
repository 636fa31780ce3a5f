"""What befalls a job on a cluster."""

import collections
import json
import math
import pathlib
import random
import re
import signal
import threading
import time

from cluster import wait_until


def journal(file):
    lines = []
    for line in file.read_text().split("\n") if file.exists() else []:
        try:
            lines.append(json.loads(line))
        except ValueError:
            pass
    return lines


class Storm:
    """What befalls a job, one after another, each once so many frames are done. Until it is over renderers stand
    still meanwhile, or a fast machine has nothing left to befall."""

    def __init__(self, cluster, job, file, seed, status):
        self.cluster, self.job, self.file, self.status = cluster, job, file, status
        self.random = random.Random(seed)
        self.told = collections.Counter()
        self.frames, self.left_alone = 0, set()
        self.lock, self.over = threading.Lock(), threading.Event()

    def done(self):
        return len({line["frame"] for line in journal(self.file) if line["outcome"] == "done"})

    def keep_pace(self):
        while not self.over.wait(0.03):
            with self.lock:
                number = signal.SIGSTOP if self.done() >= self.frames else signal.SIGCONT
                self.cluster.signal(set(self.cluster.renderers(self.job)) - self.left_alone, number)

    def keep_nodes(self):
        """As who looks after a cluster: a controller that forgot what it decided drains nodes for good."""
        while not self.over.wait(2):
            self.cluster.resume_drained()

    def leave_alone(self, processes, number):
        with self.lock:
            self.left_alone |= set(processes)
            self.cluster.signal(processes, number)

    def running(self):
        tasks = [t for t in self.cluster.tasks(self.job)
                 if t["state"] == "RUNNING" and self.cluster.renderer(self.job, t["index"])]
        return self.random.choice(tasks) if tasks else None

    def restarts(self):
        return {t["index"]: t["restarts"] for t in self.cluster.tasks(self.job)}

    def wait_for_restart(self, task):
        wait_until(f"chunk {task['index']} is put back",
                   lambda: self.restarts().get(task["index"], 0) > task["restarts"])
        self.told["restarts"] += 1

    def kill_renderer(self):
        before = self.restarts()
        last = max(before)  # whose number is the whole array's
        renderer = wait_until("the last chunk runs", lambda: self.cluster.renderer(self.job, last))
        self.cluster.signal([renderer], signal.SIGKILL)
        self.wait_for_restart({"index": last, "restarts": before[last]})
        after = self.restarts()
        assert after == {**before, last: before[last] + 1}, f"others were put back too: {before} {after}"

    def ask_to_end(self):
        task = wait_until("a chunk runs", self.running)
        self.leave_alone([self.cluster.renderer(self.job, task["index"])], signal.SIGCONT)
        self.cluster.run("scancel", "--batch", "--signal=TERM", f"{self.job}_{task['index']}", check=True)
        self.wait_for_restart(task)

    def kill_node(self):
        task = wait_until("a chunk runs", self.running)
        # A machine without power tells nobody: who looks after a task must not see it die first.
        processes = self.cluster.processes(task["node"])
        for number in signal.SIGSTOP, signal.SIGKILL:
            self.cluster.signal(processes, number)
        self.wait_for_restart(task)
        self.cluster.start_node(task["node"])

    def stop_node(self):
        task = wait_until("a chunk runs", self.running)
        self.leave_alone(self.cluster.processes(task["node"]), signal.SIGSTOP)
        self.wait_for_restart(task)
        elsewhere = lambda: any(t["index"] == task["index"] and t["state"] in ("RUNNING", "COMPLETED")
                                for t in self.cluster.tasks(self.job))
        wait_until(f"chunk {task['index']} runs elsewhere", elsewhere)
        self.cluster.signal(self.cluster.processes(task["node"]), signal.SIGCONT)

    def reach_limit(self):
        task = wait_until("a chunk runs", self.running)
        name = f"{self.job}_{task['index']}"
        renderer = self.cluster.renderer(self.job, task["index"])
        # So that it is there when Slurm looks, every half minute.
        self.leave_alone([renderer], signal.SIGSTOP)
        hours, minutes, seconds = re.search(r"RunTime=(\d+):(\d+):(\d+)",
                                            self.cluster.run("scontrol", "show", "job", name).stdout).groups()
        # In 40 to 100 seconds: once it is reached, Slurm asks nobody any more.
        limit = int(hours) * 60 + int(minutes) + (int(seconds) + 40) // 60 + 1
        self.cluster.run("scontrol", "update", f"JobId={name}", f"TimeLimit={limit}", check=True)
        asked = lambda: int(re.search(r"ShdPnd:\s*(\w+)", pathlib.Path(f"/proc/{renderer}/status").read_text())[1], 16)
        wait_until("the renderer is asked to end", lambda: asked() >> (signal.SIGTERM - 1) & 1)
        self.cluster.signal([renderer], signal.SIGCONT)
        self.wait_for_restart(task)
        self.cluster.run("scontrol", "update", f"JobId={name}", "TimeLimit=UNLIMITED", check=True)

    def kill_controller(self):
        self.cluster.kill_controller()
        before = self.done()
        states = {chunk["state"] for chunk in self.status()["chunks"]}
        assert states <= {"done", "unknown"}, states
        self.frames = before + 2
        wait_until("frames go on without a controller", lambda: self.done() > before, 30)
        self.cluster.start_controller()

    def rage(self):
        blows = [self.kill_renderer, self.ask_to_end, self.reach_limit, self.kill_node, self.stop_node,
                 self.kill_controller]
        self.random.shuffle(blows)
        others = [threading.Thread(target=work, daemon=True) for work in (self.keep_pace, self.keep_nodes)]
        for other in others:
            other.start()
        for blow in blows:
            self.frames = self.done() + 3
            wait_until("frames are done", lambda: self.done() >= self.frames)
            begin = time.monotonic()
            blow()
            print(f"  {blow.__name__.replace('_', ' ')}: {time.monotonic() - begin:.1f} s")
        self.frames = math.inf
