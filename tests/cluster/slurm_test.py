"""A batch on a real Slurm of two nodes, one of which dies in the middle."""
import contextlib
import filecmp
import json
import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest

COMMAND = os.environ["NQ360"]
SAMPLE = os.environ["NQ360_SAMPLE"]
HERE = os.path.dirname(os.path.abspath(__file__))
PROGRAMS = ["munged", "slurmctld", "slurmd", "sbatch", "squeue", "scontrol"]
PATIENCE = 280  # seconds, for all of it

STILLS = 20
PARTS = 6


def free_ports(count):
    """Numbers of ports in a row that nobody listens on."""
    for first in range(20000, 60000, 10):
        with contextlib.ExitStack() as sockets:
            try:
                for port in range(first, first + count):
                    sockets.enter_context(socket.socket()).bind(("127.0.0.1", port))
            except OSError:
                continue
            return first
    raise AssertionError("no free ports")


def missing():
    """Why the test cannot run here, or None."""
    absent = [name for name in PROGRAMS if not shutil.which(name, path=os.environ["PATH"] + ":/usr/sbin")]
    if absent:
        return "not installed: " + ", ".join(absent)
    return None if os.getuid() == 0 else "only root can start these daemons"


def children_of(pid):
    """The processes below one, itself left out."""
    found = []
    for entry in os.listdir("/proc"):
        if entry.isdigit():
            with contextlib.suppress(OSError), open(f"/proc/{entry}/stat", encoding="utf-8") as file:
                if int(file.read().rpartition(")")[2].split()[1]) == pid:
                    found += [int(entry), *children_of(int(entry))]
    return found


class Cluster:
    """munged, slurmctld and two slurmd, all files in one folder, ended by their process ids."""

    def __init__(self, folder):
        self.folder = folder
        self.pids = {}
        for name in ("munge", "state"):
            os.mkdir(os.path.join(folder, name), 0o755)
        ports = free_ports(3)
        with open(os.path.join(HERE, "slurm.conf.in"), encoding="utf-8") as file:
            text = file.read()
        host = socket.gethostname().split(".")[0]
        for name, value in [("DIR", folder), ("HOST", host), ("CONTROL", str(ports)),
                            ("NODES", f"{ports + 1}-{ports + 2}")]:
            text = text.replace(f"@{name}@", value)
        self.configuration = os.path.join(folder, "slurm.conf")
        with open(self.configuration, "w", encoding="utf-8") as file:
            file.write(text)
        os.environ["SLURM_CONF"] = self.configuration
        os.environ["PATH"] += ":/usr/sbin"

    def start(self):
        munge = os.path.join(self.folder, "munge")
        with open(os.open(munge + "/key", os.O_CREAT | os.O_WRONLY, 0o600), "wb") as file:
            file.write(os.urandom(128))
        self._begin("munge", ["munged", "--force", "--foreground", f"--socket={munge}/socket",
                              f"--key-file={munge}/key", f"--pid-file={munge}/pid", f"--log-file={munge}/log",
                              f"--seed-file={munge}/seed"])
        self._wait_for(lambda: os.path.exists(munge + "/socket"), "munged")
        self._begin("control", ["slurmctld", "-D", "-f", self.configuration])
        for node in ("n1", "n2"):
            self._begin(node, ["slurmd", "-D", "-f", self.configuration, "-N", node])
        self._wait_for(lambda: self._ask("sinfo", "-h", "-o", "%D %T") == "2 idle", "the nodes")

    def kill_node(self, node):
        """The daemon of a node dies; what it has begun goes on."""
        self.pids[node].kill()
        self.pids[node].wait()

    def end(self):
        """Ends all of it: first the tasks, then their daemons."""
        left = [pid for process in self.pids.values() for pid in children_of(process.pid)]
        for pid in left + self._steps():
            with contextlib.suppress(ProcessLookupError):
                os.kill(pid, signal.SIGKILL)
        for process in reversed(list(self.pids.values())):
            process.kill()
            process.wait()

    def _steps(self):
        """What a killed daemon has left: processes that have this cluster's folder in their environment."""
        found = []
        for entry in os.listdir("/proc"):
            if entry.isdigit() and int(entry) not in (os.getpid(), os.getppid()):
                with contextlib.suppress(OSError), open(f"/proc/{entry}/cmdline", "rb") as file:
                    line = file.read()
                    if b"slurmstepd" in line or os.fsencode(self.folder) in line:
                        with open(f"/proc/{entry}/environ", "rb") as environ:
                            if os.fsencode(self.folder) in environ.read() + line:
                                found.append(int(entry))
        return found

    def _begin(self, name, command):
        self.pids[name] = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                           stderr=subprocess.DEVNULL)

    @staticmethod
    def _ask(*command):
        return subprocess.run(command, capture_output=True, check=False).stdout.decode().strip()

    @staticmethod
    def _wait_for(condition, what):
        end = time.monotonic() + 60
        while not condition():
            if time.monotonic() > end:
                raise TimeoutError(f"{what} did not begin")
            time.sleep(0.1)


@unittest.skipIf(missing(), missing())
class Slurm(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="nq360-slurm-")
        self.addCleanup(shutil.rmtree, self.folder)
        os.mkdir(os.path.join(self.folder, "cluster"))
        self.cluster = Cluster(os.path.join(self.folder, "cluster"))
        self.addCleanup(self.cluster.end)
        try:
            self.cluster.start()
        except TimeoutError as late:
            self.skipTest(f"no cluster can be set up here: {late}")
        self.shots = os.path.join(self.folder, "a card")
        self.made = os.path.join(self.folder, "made, all of it")
        self.options = ["--size", "320x160", "--sound", "2"]

    def make_shots(self):
        os.mkdir(self.shots)
        for number in range(STILLS):
            self.sample("still", f"IMG {number:03}_%d.jpg", "--seed", str(number),
                        "--datetime", f"2026:01:02 03:{number:02}:00")
        self.sample("movie", "MOV 100_%d.mov", "--frames", str(120 * PARTS), "--sound", "both", "--key-frames", "15")

    def sample(self, kind, name, *options):
        halves = [os.path.join(self.shots, name % lens) for lens in (1, 2)]
        subprocess.run([SAMPLE, kind, *halves, "--size", "1440", *options], check=True)

    def run_batch(self, *arguments):
        return subprocess.run([COMMAND, "batch", *arguments], stdin=subprocess.DEVNULL, capture_output=True, check=False)

    def states(self):
        """The tasks' states by number."""
        lines = self.run_batch("--status", self.made, "--json").stdout.decode().splitlines()
        return [json.loads(line) for line in lines]

    def wait_until(self, condition):
        end = time.monotonic() + PATIENCE
        while not condition(states := self.states()):
            if time.monotonic() > end:
                queue = subprocess.run(["squeue"], capture_output=True, check=False).stdout.decode()
                self.fail(f"it takes too long: {states}\n{queue}")
            time.sleep(0.3)
        return states

    @staticmethod
    def nodes_at_work():
        """The node of each task that runs."""
        return subprocess.run(["squeue", "-h", "-r", "-t", "RUNNING", "-o", "%N"], capture_output=True,
                              check=False).stdout.decode().split()

    def test_all_is_made_though_a_node_dies(self):
        self.make_shots()
        done = self.run_batch(self.shots, "--to", self.made, *self.options, "--slurm", "--split", "4", "--",
                              "--time=10", "--comment=a b; c")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertRegex(done.stdout.decode(), r"^job \d+: 15 shots\njob \d+: 5 shots\njob \d+: 7 parts of MOV 100_1-360"
                                               r".mov\njob \d+: joins MOV 100_1-360.mov\n$")
        # A second batch leaves it to Slurm.
        again = self.run_batch(self.shots, "--to", self.made, *self.options)
        self.assertEqual(again.returncode, 1)
        self.assertIn("Slurm is at work on it", again.stderr.decode())

        at_work = []

        def a_part_runs(states):
            at_work[:] = self.nodes_at_work()  # what was told to run may have ended since
            return at_work and any(task["state"] == "running" and task["output"].endswith(".part") for task in states)

        self.wait_until(a_part_runs)
        self.cluster.kill_node(at_work[0])
        states = self.wait_until(lambda states: all(task["state"] == "done" for task in states))
        self.assertEqual(len(states), STILLS + 7 + 1)

        told = self.run_batch("--status", self.made)
        self.assertEqual((told.returncode, told.stdout),
                         (0, b"28 tasks: 28 done, 0 running, 0 waiting, 0 failed, 0 lost\n"))
        alone = os.path.join(self.folder, "alone")
        self.assertEqual(self.run_batch(self.shots, "--to", alone, *self.options).returncode, 0)
        names = sorted(name for name in os.listdir(alone) if not name.startswith("."))
        self.assertEqual(len(names), STILLS + 1)
        self.assertEqual(sorted(name for name in os.listdir(self.made) if not name.startswith(".")), names)
        for name in names:
            self.assertTrue(filecmp.cmp(os.path.join(alone, name), os.path.join(self.made, name), shallow=False), name)
        left = [name for name in os.listdir(os.path.join(self.made, ".nq360")) if name.startswith(("task-", "parts-"))]
        self.assertEqual(left, [])
        # What Slurm has made is made.
        again = self.run_batch(self.shots, "--to", self.made, *self.options)
        self.assertEqual(again.returncode, 0, again.stderr)
        self.assertIn("0 made, 21 left as they were, 0 failed", again.stderr.decode())

    def test_what_fails_is_told(self):
        os.mkdir(self.shots)
        self.sample("movie", "MOV 1_%d.mov", "--frames", "130", "--sound", "none", "--key-frames", "15")
        done = self.run_batch(self.shots, "--to", self.made, "--size", "64x32", "--slurm", "--split", "4")
        self.assertEqual(done.returncode, 0, done.stderr)
        os.remove(os.path.join(self.shots, "MOV 1_2.mov"))
        states = self.wait_until(lambda states: all(task["state"] in ("done", "failed", "lost") for task in states))
        self.assertIn("failed", {task["state"] for task in states})
        told = self.run_batch("--status", self.made)
        self.assertEqual(told.returncode, 1)
        self.assertIn("MOV 1_2.mov: there is no such file", told.stderr.decode())
        # Handed over again, what was told before counts no more.
        self.sample("movie", "MOV 1_%d.mov", "--frames", "130", "--sound", "none", "--key-frames", "15")
        self.assertEqual(self.run_batch(self.shots, "--to", self.made, "--size", "64x32", "--slurm").returncode, 0)
        self.assertIn(self.states()[0]["state"], ("waiting", "running", "done"))
        self.wait_until(lambda states: all(task["state"] == "done" for task in states))
        again = self.run_batch(self.shots, "--to", self.made, "--size", "32x16", "--slurm")
        self.assertEqual(again.returncode, 0, again.stderr)
        self.assertIn(self.states()[0]["state"], ("waiting", "running"))
        self.wait_until(lambda states: all(task["state"] == "done" for task in states))


if __name__ == "__main__":
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    unittest.main()
