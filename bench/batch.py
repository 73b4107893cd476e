#!/usr/bin/env python3
"""What a batch makes in a minute on one core and on two, what its journal costs, and how far a cluster would go.

The cluster is reckoned: tasks of the times measured here are handed to nodes as they become free, the longest first,
and each movie is joined when its last part is made. Nodes have one core, as this machine's half.
"""

import argparse
import heapq
import os
import shutil
import statistics
import time
from dataclasses import dataclass
from pathlib import Path

from files import Tools, empty_folder
from work import run

STILLS = 32
MOVIES = 6
FRAMES = 60
SHORT = 0.5  # seconds of such a movie
NODES = (1, 4, 16, 64, 256, 1000)
BEGIN = 1.0  # seconds from a free node to a task's first line, as Slurm's own and a shared folder take
STORAGE = 1e9  # bytes a second that a shared folder gives and takes, in all
CARD_STILLS = 300
CARD_MINUTES = 20
SPLITS = (4, 10, 30, 60)  # seconds of a part
RATE = 30000 / 1001


def make_card(tools, data):
    card = data / "card"
    if card.exists():
        return card
    card.mkdir()
    for number in range(STILLS):
        halves = [card / f"IMG {number:04}_{lens}.jpg" for lens in (1, 2)]
        date = f"2026:01:02 03:{number:02}:00"
        tools.make(halves[1], "still", *halves, "--size", 3888, "--seed", number % 4, "--datetime", date)
    for number in range(MOVIES):
        halves = [card / f"MOV {number:04}_{lens}.mov" for lens in (1, 2)]
        date = f"2026:01:02 04:{number:02}:00"
        movie = ["movie", *halves, "--size", 1936, "--frames", FRAMES, "--sound", "both", "--key-frames", 15]
        tools.make(halves[1], *movie, "--datetime", date)
    return card


def batch_times(tools, data, card, cores, rounds):
    """Seconds of a batch on so many cores, and seconds that its journal's lines take to be written and synced."""
    seconds, journal = [], []
    for _ in range(rounds):
        made = empty_folder(data / "made")
        command = [tools.nq360, "batch", card, "--to", made, "--jobs", len(cores), "-q"]
        seconds.append(run([command], cores=cores).seconds)
        journal.append(seconds_of_lines(made / ".nq360/journal.jsonl", data / "journal-again"))
    return seconds, journal


def seconds_of_lines(path, again):
    """How long the lines take when they are appended and synced one by one, as the batch does it."""
    lines = path.read_bytes().splitlines(keepends=True)
    file = os.open(again, os.O_WRONLY | os.O_CREAT | os.O_TRUNC | os.O_APPEND)
    began = time.monotonic()
    for line in lines:
        os.write(file, line)
        os.fdatasync(file)
    taken = time.monotonic() - began
    os.close(file)
    os.unlink(again)
    return taken


@dataclass(frozen=True)
class Costs:
    """Seconds on one core: of a still, of a second of movie made, of one joined; bytes that they read and write."""

    still: float
    movie: float
    join: float
    still_bytes: float
    movie_bytes: float


def costs(tools, data, card):
    core = sorted(os.sched_getaffinity(0))[:1]
    still = [card / f"IMG 0000_{lens}.jpg" for lens in (1, 2)]
    movie = [card / f"MOV 0000_{lens}.mov" for lens in (1, 2)]
    part, part_of_it, joined = data / "1.part", data / "short.part", data / "joined.mov"
    picture = data / "one.jpg"

    def seconds(*command):
        return statistics.median(run([[tools.nq360, *command]], cores=core).seconds for _ in range(3))

    still_seconds = seconds("export", *still, picture, "-f", "-q")
    movie_seconds = seconds("export", *movie, part, "--part", "1/1", "-f", "-q")
    join_seconds = seconds("join", part, joined, "-f", "-q")
    seconds("export", *movie, part_of_it, "--part", "1/1", "--end", SHORT, "-f", "-q")
    short_join_seconds = seconds("join", part_of_it, joined, "-f", "-q")
    length = FRAMES / RATE
    moved = sum(path.stat().st_size for path in movie) + 3 * part.stat().st_size  # written, read and written again
    return Costs(
        still_seconds,
        movie_seconds / length,
        max(join_seconds - short_join_seconds, 0) / (length - SHORT),  # without what a process takes to begin
        sum(path.stat().st_size for path in still) + picture.stat().st_size,
        moved / length,
    )


def makespan(tasks, nodes):
    """When the last of these is done; tasks: seconds, and a list that gets the time of its end."""
    free = [0.0] * nodes
    for seconds, ends in sorted(tasks, key=lambda task: -task[0]):
        end = heapq.heappop(free) + BEGIN + seconds
        heapq.heappush(free, end)
        ends.append(end)
    return max(free)


def cluster_time(cost, nodes, split):
    """Seconds until all of the card is made, its movie in parts of this length."""
    length = 60 * CARD_MINUTES
    stills, parts = [], []
    tasks = [(cost.still, stills)] * CARD_STILLS + [(split * cost.movie, parts)] * -(-length // split)
    made = makespan(tasks, nodes)
    return max(made, max(parts) + BEGIN + length * cost.join)


def print_cluster_table(cost):
    length = 60 * CARD_MINUTES
    alone = CARD_STILLS * cost.still + length * cost.movie
    stored = (CARD_STILLS * cost.still_bytes + length * cost.movie_bytes) / STORAGE
    print("| Nodes | Parts of | Seconds | Times as fast | Efficiency | Seconds of the shared folder at 1 GB/s |")
    print("|--:|--:|--:|--:|--:|--:|")
    for nodes in NODES:
        seconds, split = min((cluster_time(cost, nodes, split), -split) for split in SPLITS)
        speed = alone / seconds
        print(f"| {nodes} | {-split} s | {seconds:.0f} | {speed:.1f} | {speed / nodes:.0%} | {stored:.0f} |")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build", type=Path)
    parser.add_argument("data", type=Path)
    parser.add_argument("--rounds", type=int, default=5)
    arguments = parser.parse_args()
    tools = Tools(arguments.build, Path())
    data = arguments.data.resolve()
    data.mkdir(parents=True, exist_ok=True)
    card = make_card(tools, data)
    both = sorted(os.sched_getaffinity(0))[:2]
    one, two, journal = [], [], []
    for _ in range(arguments.rounds):
        one += batch_times(tools, data, card, both[:1], 1)[0]
        seconds, lines = batch_times(tools, data, card, both, 1)
        two += seconds
        journal += [taken / all_of_it for taken, all_of_it in zip(lines, seconds)]
    shots = STILLS + MOVIES
    for cores, seconds in ((1, one), (2, two)):
        median = statistics.median(seconds)
        print(
            f"batch of {STILLS} stills of 3888, {MOVIES} movies of {FRAMES} frames of 1936: {cores} cores"
            f" {median:.2f} s, {60 * shots / median:.1f} shots a minute",
            flush=True,
        )
    efficiency = statistics.median(alone / (2 * together) for alone, together in zip(one, two))
    print(f"efficiency of the second core {efficiency:.1%}, journal {statistics.median(journal):.2%} of the time")
    cost = costs(tools, data, card)
    print(f"one core: a still {cost.still:.2f} s, a second of movie {cost.movie:.2f} s, joined {cost.join:.4f} s")
    print(f"\nA card of {CARD_STILLS} stills and {CARD_MINUTES} minutes of movie, in the parts that are best:\n")
    print_cluster_table(cost)
    shutil.rmtree(data / "made", ignore_errors=True)
    for name in ("1.part", "short.part", "joined.mov", "one.jpg"):
        (data / name).unlink()


if __name__ == "__main__":
    main()
