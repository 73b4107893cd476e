"""What a second core brings, and what more of them will: each job on one core and on two, in turn."""

import os
import statistics
import sys
from dataclasses import dataclass

from files import FOLDER_WIDTH, LENSES, movie_pair, picture_folder, still_pair
from growth import SECONDS, export_of_seconds
from opponents import describe_with_thumbnails, export
from work import run

MORE_CORES = (2, 4, 8, 16, 64)


@dataclass(frozen=True)
class Scaling:
    """A job's medians: seconds on one core and on two, how many times as fast that is, and how busy the two are."""

    job: str
    one: float
    two: float
    speed: float
    busy: float

    @property
    def efficiency(self):
        return self.speed / 2

    @property
    def serial(self):
        """The share of the work that one core does while the others wait, by Amdahl's law."""
        return max(0, 2 / self.speed - 1)

    def speed_on(self, cores):
        """How many times as fast as one core so many are, were it for this share alone."""
        return 1 / (self.serial + (1 - self.serial) / cores)


def scaling(job, command, rounds):
    cores = sorted(os.sched_getaffinity(0))[:2]
    if len(cores) < 2:
        sys.exit("one core is not enough to see what a second one brings")
    one, two = [], []
    for _ in range(rounds):
        one.append(run([command], cores=cores[:1]))
        two.append(run([command], cores=cores))
    found = Scaling(
        job,
        statistics.median(usage.seconds for usage in one),
        statistics.median(usage.seconds for usage in two),
        statistics.median(alone.seconds / both.seconds for alone, both in zip(one, two)),
        statistics.median(usage.processor / (2 * usage.seconds) for usage in two),
    )
    print(
        f"{job:44} {found.one:8.2f} s {found.two:8.2f} s  efficiency {found.efficiency:6.1%}"
        f"  serial {found.serial:6.1%}  busy {found.busy:6.1%}",
        flush=True,
    )
    return found


def scalings(tools, data, frames, files, rounds):
    """Of a still, a movie and a folder, each as a person would have it done."""
    still, movie = LENSES[FOLDER_WIDTH], LENSES[1936]
    pictures = still_pair(tools, data, still.width)
    movies = movie_pair(tools, data, movie.width, frames)
    folder = picture_folder(tools, data, files)
    return [
        scaling(f"still {still.width}", export(tools, pictures, data / "out.jpg", still), rounds),
        scaling(f"{frames} frames of {movie.width}", export(tools, movies, data / "out.mov", movie), rounds),
        scaling(
            f"{files} pictures of {still.width}, thumbnails", describe_with_thumbnails(tools, data, folder), rounds
        ),
    ]


def memory_of_workers(tools, data, frames):
    """Peak MiB of the same movie, one part of it made at a time and two."""
    lens = LENSES[1936]
    pair = movie_pair(tools, data, lens.width, frames)
    one, two = (run([export(tools, pair, data / "out.mov", lens, "--jobs", jobs)]).peak for jobs in (1, 2))
    print(f"memory of two workers: {two:.0f} MiB, of one: {one:.0f} MiB, {two / one:.2f} times")


def growth_of_length(tools, data):
    """How many times the memory and the time of a movie of 10 seconds one of a minute takes."""
    short, long = (export_of_seconds(tools, data, seconds) for seconds in (10, SECONDS))
    print(
        f"{SECONDS} s against 10 s: memory {long.peak:.0f} to {short.peak:.0f} MiB, {long.peak / short.peak:.3f} times;"
        f" time {long.seconds / short.seconds:.2f} times"
    )


def measure(tools, data, frames, files, rounds):
    found = scalings(tools, data, frames, files, rounds)
    print(tables(found), end="")
    memory_of_workers(tools, data, frames)
    growth_of_length(tools, data)
    return found


def tables(found):
    """What was measured on two cores, and what the serial share makes of more of them."""
    lines = [
        "| Job | One core, s | Two cores, s | Efficiency | Serial share | Two cores busy |",
        "|---|--:|--:|--:|--:|--:|",
    ]
    lines += [
        f"| {job.job} | {job.one:.2f} | {job.two:.2f} | {job.efficiency:.1%} | {job.serial:.1%} | {job.busy:.1%} |"
        for job in found
    ]
    lines += ["", "| Job | " + " | ".join(f"{cores} cores" for cores in MORE_CORES) + " |"]
    lines += ["|---|" + "--:|" * len(MORE_CORES)]
    lines += [f"| {job.job} | " + " | ".join(f"{job.speed_on(n):.1f}" for n in MORE_CORES) + " |" for job in found]
    return "\n".join(lines) + "\n"
