#!/usr/bin/env python3
"""Measures `nq360 view` over HTTP.

usage: view.py COMMAND SAMPLE_TOOL

Prints a table: the first list and the first thumbnail of 500 shots, previews of lenses of 3888 pixels beside a whole
export of the pair, a range of a 4 GiB file, and the server's memory.
"""
import http.client
import json
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

SHOTS = 500
ROUNDS = 15


class Server:
    """One server with its command and cache in folders of its own."""

    def __init__(self, command, folder, cache):
        self.process = subprocess.Popen(
            [command, "view", folder, "--json", "--no-browser"],
            stdout=subprocess.PIPE,
            env={**os.environ, "XDG_CACHE_HOME": str(cache)},
        )
        address = json.loads(self.process.stdout.readline())["address"]
        self.host = address.split("/")[2]
        self.cookie = f"nq360-{self.host.split(':')[1]}={address.split('key=')[1]}"

    def get(self, path, **headers):
        """Milliseconds, status and body of the answer."""
        begun = time.perf_counter()
        connection = http.client.HTTPConnection(self.host)
        connection.request("GET", path, headers={"Cookie": self.cookie, **headers})
        answer = connection.getresponse()
        body = answer.read()
        connection.close()
        if answer.status >= 300:
            sys.exit(f"{path}: {answer.status} {body}")
        return 1000 * (time.perf_counter() - begun), body

    def memory(self):
        """MiB: now, and at most so far."""
        status = Path(f"/proc/{self.process.pid}/status").read_text(encoding="ascii")
        sizes = dict(line.split(":") for line in status.splitlines() if line.startswith("Vm"))
        return [int(sizes[name].split()[0]) // 1024 for name in ("VmRSS", "VmHWM")]

    def end(self):
        self.process.terminate()
        self.process.wait()
        self.process.stdout.close()


def installed(command, root):
    """The command beside a page of one line: what is measured is the server."""
    page = root / "share" / "nq360" / "view"
    page.mkdir(parents=True)
    (page / "index.html").write_text("page", encoding="ascii")
    (root / "bin").mkdir()
    return shutil.copy(command, root / "bin" / "nq360")


def row(what, value):
    print(f"| {what} | {value} |", flush=True)


def median_of(measure):
    return f"{statistics.median(measure() for _ in range(ROUNDS)):.1f} ms"


def measure_list(command, sample, root):
    folder = root / "many"
    folder.mkdir()
    subprocess.run([sample, "still", root / "a.jpg", root / "b.jpg", "--size", "1936"], check=True)
    for shot in range(SHOTS):
        for lens, source in ((1, "a.jpg"), (2, "b.jpg")):
            shutil.copy(root / source, folder / f"S{shot:04}_{lens}.jpg")
    for cache in ("nothing in the cache", "once more, out of the cache"):
        server = Server(command, folder, root / "cache")
        milliseconds, body = server.get("/api/shots")
        row(f"{SHOTS} shots, first list, {cache}", f"{milliseconds:.0f} ms")
        begun = time.perf_counter()
        while json.loads(body)["pending"]:
            body = server.get("/api/shots")[1]
        row("... until it is whole", f"{milliseconds + 1000 * (time.perf_counter() - begun):.0f} ms")
        row("... a thumbnail then", f"{server.get('/api/thumbnail?file=S0000_1.jpg')[0]:.0f} ms")
        while len(list((root / "cache").rglob("*.json"))) < 2 * SHOTS:
            time.sleep(0.1)
        row("... memory when all has been looked at, now and at most", "{} and {} MiB".format(*server.memory()))
        server.end()


def measure_previews(command, sample, root):
    folder = root / "few"
    folder.mkdir()
    subprocess.run([sample, "still", folder / "x1.jpg", folder / "x2.jpg", "--size", "3888"], check=True)
    command_times = []
    for _ in range(5):
        begun = time.perf_counter()
        subprocess.run([command, "export", "-qf", folder / "x1.jpg", folder / "x2.jpg", root / "made.jpg"], check=True)
        command_times.append(1000 * (time.perf_counter() - begun))
    row("export of the pair of 3888, the command", f"{statistics.median(command_times):.1f} ms")
    opening = []
    for _ in range(5):
        server = Server(command, folder, root / "cache")
        while server.get("/api/shots")[1].count(b'"pending":0') == 0:
            pass
        opening.append(server.get("/api/preview?shot=x1.jpg")[0])
        if len(opening) < 5:
            server.end()
    row("preview of 1024 x 512, shot not open", f"{statistics.median(opening):.1f} ms")
    turns = iter(range(1000))
    row("the same, shot open", median_of(lambda: server.get(f"/api/preview?shot=x1.jpg&yaw={next(turns)}")[0]))
    row(
        "preview of 2880 x 1440, shot open",
        median_of(lambda: server.get(f"/api/preview?shot=x1.jpg&width=2880&yaw={next(turns)}")[0]),
    )
    with open(folder / "long.mov", "wb") as file:
        file.truncate(4 << 30)
    places = iter(range(1000))
    row("1 MiB out of a file of 4 GiB", median_of(lambda: range_time(server, next(places))))
    row("memory with one shot of 3888 open, now and at most", "{} and {} MiB".format(*server.memory()))
    server.end()


def range_time(server, place):
    first = place * (200 << 20)
    return server.get("/files/long.mov", Range=f"bytes={first}-{first + (1 << 20) - 1}")[0]


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    with tempfile.TemporaryDirectory(prefix="nq360-bench-") as work:
        root = Path(work)
        command = installed(sys.argv[1], root)
        print("| `nq360 view`, over HTTP | |\n|---|--:|")
        measure_list(command, sys.argv[2], root)
        measure_previews(command, sys.argv[2], root)


if __name__ == "__main__":
    main()
