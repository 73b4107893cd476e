#!/usr/bin/env python3
"""Measures whole jobs of nq360 beside the tools that people use for them today.

Each job is run with each tool in turn, several times over; the ratio of a round is the other tool's time over
ours, and the median of the rounds is printed. Files are made once with the sample tool.
"""

import argparse
from pathlib import Path

import cores
import growth
import quality
import report
from files import FOLDER_WIDTH, LENSES, Tools, movie_pair, still_pair
from opponents import IN_PARTS, default_works, description_works, movie_works, still_works, thumbnail_works
from work import compare

# A movie of two parts, and one long enough for many cores.
FRAMES = 240
LONG_FRAMES = 600


def stills(tools, data, arguments):
    rows = []
    for width, lens in LENSES.items():
        rows += compare(f"stills {width} to {lens.size}", still_works(tools, data, width), arguments.rounds)
    return rows


def movies_of(tools, data, width, frames, arguments, one_encoder=False):
    job = f"{frames} frames {width} to {LENSES[width].size}"
    return compare(job, movie_works(tools, data, width, frames, one_encoder), arguments.rounds, frames)


def movies(tools, data, arguments):
    frames = arguments.frames or FRAMES
    return movies_of(tools, data, 1440, frames, arguments) + movies_of(tools, data, 1936, frames, arguments)


def long_movies(tools, data, arguments):
    frames = arguments.frames or LONG_FRAMES
    rows = movies_of(tools, data, 1936, frames, arguments, one_encoder=True)
    if frames >= quality.PART + quality.SETTLED:
        for row in rows[:2]:
            firsts, most = quality.pulse(row.errors)
            firsts = ", ".join(f"{first:.2f}" for first in firsts)
            print(
                f"{row.tool:28} PSNR where parts begin {firsts} dB; later frames within {most:.2f} dB of those around"
            )
    return rows


def defaults(tools, data, arguments):
    frames = arguments.frames or FRAMES
    still, movie = LENSES[FOLDER_WIDTH], LENSES[1936]
    pictures = still_pair(tools, data, still.width)
    movies = movie_pair(tools, data, movie.width, frames)
    works = default_works(tools, pictures, data / "out.jpg", still)
    rows = compare(f"stills {still.width}, defaults", works, arguments.rounds)
    works = default_works(tools, movies, data / "out.mov", movie, *IN_PARTS)
    return rows + compare(f"{frames} frames {movie.width}, defaults", works, arguments.rounds)


def analysis(tools, data, arguments):
    files = arguments.files
    job = f"{files} pictures of {FOLDER_WIDTH}, described"
    rows = compare(f"{job}, thumbnails", thumbnail_works(tools, data, files), arguments.rounds)
    print(f"analysis with thumbnails: {files / rows[0].seconds:.1f} files a second")
    return rows + compare(job, description_works(tools, data, files), arguments.rounds)


COMPARISONS = {
    "stills": stills,
    "movies": movies,
    "long": long_movies,
    "defaults": defaults,
    "analysis": analysis,
}


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=Path, required=True, help="build tree with the command and the sample tool")
    parser.add_argument("--command-prefix", type=Path, required=True, help="where the ffmpeg command lies")
    parser.add_argument("--data", type=Path, required=True, help="folder for the files of the jobs")
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--files", type=int, default=200, help="pictures of the analysed folder")
    parser.add_argument("--frames", type=int, help=f"of the movies ({FRAMES}, of the long ones {LONG_FRAMES})")
    parser.add_argument("--only", choices=[*COMPARISONS, "cores", "growth"])
    parser.add_argument("--charts", type=Path, help="folder for the charts and the tables")
    arguments = parser.parse_args()
    tools = Tools(arguments.build, arguments.command_prefix)
    data = arguments.data.resolve()
    data.mkdir(parents=True, exist_ok=True)
    rows = []
    for part, comparison in COMPARISONS.items():
        if arguments.only in (None, part):
            rows += comparison(tools, data, arguments)
    scalings = curves = None
    if arguments.only in (None, "cores"):
        scalings = cores.measure(tools, data, arguments.frames or LONG_FRAMES, arguments.files, arguments.rounds)
    if arguments.only in (None, "growth"):
        curves = growth.curves(tools, data)
    if arguments.charts:
        arguments.charts.mkdir(parents=True, exist_ok=True)
        if rows:
            (arguments.charts / "jobs.md").write_text(report.table(rows))
            report.draw_comparison(rows, arguments.charts / "jobs.svg")
        if scalings:
            (arguments.charts / "cores.md").write_text(cores.tables(scalings))
        if curves:
            report.draw_growth(curves, arguments.charts / "growth.svg")


if __name__ == "__main__":
    main()
