"""Work that is measured: commands, what they took, and several tools in turn."""

import os
import statistics
import subprocess
import sys
import time
from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path

import quality


@dataclass(frozen=True)
class Usage:
    """What commands took: seconds, seconds of processor time, and the peak MiB of any of them."""

    seconds: float
    processor: float
    peak: float


@dataclass(frozen=True)
class Work:
    """One tool's way to do a job. Of a movie: what it makes, and how to tell the errors of its frames."""

    commands: list
    environment: dict | None = None
    movie: Path | None = None
    errors: Callable[[], list] | None = None


@dataclass(frozen=True)
class Row:
    """What a tool needs for a job: medians. Of a movie also its Mbit/s, and the errors of its frames' luma."""

    job: str
    tool: str
    seconds: float
    peak: float
    ratio: float
    rate: float | None = None
    errors: list | None = None

    @property
    def psnr(self):
        return None if self.errors is None else quality.psnr(self.errors)


def run(commands, environment=None, cores=None):
    """Runs commands one after the other, on these cores alone."""
    pinned = ["taskset", "-c", ",".join(map(str, cores))] if cores else []
    processor = peak = 0
    began = time.monotonic()
    for command in commands:
        words = [*pinned, *map(str, command)]
        process = subprocess.Popen(
            words, env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL
        )
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        if process.returncode != 0:
            sys.exit(f"this command failed with status {process.returncode}: {' '.join(words)}")
        processor += usage.ru_utime + usage.ru_stime
        peak = max(peak, usage.ru_maxrss)
    return Usage(time.monotonic() - began, processor, peak / 1024)


def compare(job, works, rounds, frames=None):
    """Runs the tools in turn, the first being ours; gives a Row for each, and prints it."""
    usages = {tool: [] for tool in works}
    if frames is None:
        for work in works.values():  # once unmeasured, so that every file is in memory; a movie's reading is nothing
            run(work.commands, work.environment)
    for _ in range(rounds):
        for tool, work in works.items():
            usages[tool].append(run(work.commands, work.environment))
    ours = next(iter(usages.values()))
    rows = []
    for tool, work in works.items():
        rows.append(
            Row(
                job,
                tool,
                statistics.median(usage.seconds for usage in usages[tool]),
                max(usage.peak for usage in usages[tool]),
                statistics.median(theirs.seconds / our.seconds for theirs, our in zip(usages[tool], ours)),
                work.movie and work.movie.stat().st_size * 8e-6 * 30 / frames,
                work.errors and work.errors(),
            )
        )
        print(line(rows[-1]), flush=True)
    return rows


def line(row):
    quality = "" if row.psnr is None else f"  {row.rate:6.1f} Mbit/s  {row.psnr:5.2f} dB"
    return f"{row.job:44} {row.tool:28} {row.seconds:8.2f} s {row.peak:7.0f} MiB  {row.ratio:6.2f}{quality}"
