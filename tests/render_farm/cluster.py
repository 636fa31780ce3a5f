"""A private cluster for a test, and what can befall it."""

import os
import pathlib
import signal
import subprocess
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]


def wait_until(what, truth, seconds=120):
    """The first result of `truth` that counts as true."""
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        result = truth()
        if result:
            return result
        time.sleep(0.05)
    raise AssertionError(f"not within {seconds} s: {what}")


class Cluster:
    def __init__(self, folder, nodes, cpus):
        self.folder = pathlib.Path(folder)
        self.conf = self.folder / "slurm.conf"
        self.environment = dict(os.environ, SLURM_CONF=str(self.conf), FARM_CPUS=str(cpus), SLURM_BITSTR_LEN="0")
        self.nodes = [f"n{i + 1}" for i in range(nodes)]
        self.count = nodes

    def __enter__(self):
        self.run("scripts/farm-up", self.folder, self.count, check=True)
        return self

    def __exit__(self, *_):
        for node in self.nodes:
            self.signal(self.processes(node), signal.SIGCONT)
        self.run("scripts/farm-down", self.folder)

    def run(self, *words, check=False, cwd=ROOT):
        return subprocess.run([str(w) for w in words], env=self.environment, cwd=cwd, check=check, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)

    def tasks(self, job):
        """Of an array job: (index, state, node, restarts); nothing while the controller is away."""
        lines = self.run("squeue", "-h", "-r", "-t", "all", "-j", job, "-O",
                         "ArrayTaskID:9,State:14,NodeList:9,RestartCnt:9").stdout.splitlines()
        rows = [[line[:9].strip(), line[9:23].strip(), line[23:32].strip(), line[32:41].strip()] for line in lines]
        return [{"index": int(i), "state": s, "node": n, "restarts": int(r)}
                for i, s, n, r in rows if i.isdigit() and r.isdigit()]

    def processes(self, node):
        """The daemon of a node, its tasks' processes and those that look after them."""
        found = set()
        for folder in pathlib.Path("/proc").glob("[0-9]*"):
            try:
                words = (folder / "environ").read_bytes().split(b"\0")
                if b"SLURMD_NODENAME=" + node.encode() not in words or f"SLURM_CONF={self.conf}".encode() not in words:
                    continue
                found.add(int(folder.name))
                parent = int((folder / "stat").read_text().rpartition(")")[2].split()[1])
                if pathlib.Path(f"/proc/{parent}/comm").read_text() == "slurmstepd\n":
                    found.add(parent)
            except (OSError, ValueError):
                continue  # it has ended
        try:
            found.add(int((self.folder / node / "slurmd.pid").read_text()))
        except (OSError, ValueError):
            pass
        return found

    def renderers(self, job):
        """The processes that render a job's chunks, and which."""
        found = {}
        for folder in pathlib.Path("/proc").glob("[0-9]*"):
            try:
                if (folder / "comm").read_text() != "quorvel\n":
                    continue
                words = (folder / "environ").read_bytes().decode().split("\0")
                task = [w for w in words if w.startswith(f"QUORVEL_TASK={job}_")]
                if task and f"SLURM_CONF={self.conf}" in words:
                    found[int(folder.name)] = int(task[0].partition("_")[2].partition("_")[2].partition(".")[0])
            except OSError:
                continue
        return found

    def renderer(self, job, index):
        """The process that renders a chunk; 0 between two of them."""
        return max((p for p, i in self.renderers(job).items() if i == index), default=0)

    @staticmethod
    def signal(processes, number):
        for process in processes:
            try:
                os.kill(process, number)
            except ProcessLookupError:
                pass

    def start_node(self, node):
        self.run("slurmd", "-N", node, "-f", self.conf, check=True)

    def node_state(self, node):
        return self.run("sinfo", "-h", "-N", "-n", node, "-o", "%T").stdout.strip()

    def resume_drained(self):
        if self.run("sinfo", "-h", "-N", "-t", "drain", "-o", "%N").stdout.strip():
            self.run("scontrol", "update", "NodeName=ALL", "State=RESUME")

    def kill_controller(self):
        # What it decided is written down within five seconds; without that it starts tasks twice and drains nodes.
        begin = time.time()
        saved = lambda: (self.folder / "state/job_state").stat().st_mtime > begin or time.time() > begin + 6
        wait_until("the controller's state is saved", saved)
        self.signal([int((self.folder / "slurmctld.pid").read_text())], signal.SIGKILL)

    def start_controller(self):
        self.run("slurmctld", "-f", self.conf, check=True)
