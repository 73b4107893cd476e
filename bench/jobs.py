#!/usr/bin/env python3
"""Measures whole jobs of nq360 beside the tools that people use for them today.

Each job is run with each tool in turn, several times over; the ratio of a round is the other tool's time over
ours, and the median of the rounds is printed. Files are made once with the sample tool.
"""

import argparse
import os
import pathlib
import shutil
import statistics
import subprocess
import sys
import time

# Lens width -> panorama size, and the full angle that ffmpeg's fisheye spans over the picture's width (the
# camera's circle of 90 degrees is smaller than the picture).
LENSES = {1440: ("2880x1440", 180 * 720 / 675), 1936: ("3840x1920", 180 * 968 / 907), 3888: ("7680x3840", 180 * 1944 / 1821)}
FRAMES = 150


class Tools:
    def __init__(self, build, command_prefix):
        self.sample = build / "sample/nq360-sample"
        self.nq360 = build / "cli/nq360"
        self.ffmpeg = command_prefix / "bin/ffmpeg"
        self.ffprobe = command_prefix / "bin/ffprobe"
        self.environment = dict(os.environ, LD_LIBRARY_PATH=str(command_prefix / "lib"))


def run(commands, environment=None):
    """Runs commands one after the other; returns (seconds, peak MiB of any of them)."""
    began = time.monotonic()
    peak = 0
    for command in commands:
        process = subprocess.Popen([str(word) for word in command], env=environment, stdin=subprocess.DEVNULL,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        if process.returncode != 0:
            sys.exit(f"this command failed with status {process.returncode}: {' '.join(map(str, command))}")
        peak = max(peak, usage.ru_maxrss)
    return time.monotonic() - began, peak / 1024


def make(path, command):
    """Makes a file with the sample tool, unless an earlier run has."""
    if not path.exists():
        subprocess.run([str(word) for word in command], check=True, stdout=subprocess.DEVNULL)


def still_pair(tools, data, width):
    pair = [data / f"still{width}-{lens}.jpg" for lens in (1, 2)]
    make(pair[1], [tools.sample, "still", *pair, "--size", width])
    return pair


def movie_pair(tools, data, width, frames):
    pair = [data / f"movie{width}-{frames}-{lens}.mov" for lens in (1, 2)]
    make(pair[1], [tools.sample, "movie", *pair, "--size", width, "--frames", frames])
    return pair


def v360(width):
    size, angle = LENSES[width]
    columns, rows = size.split("x")
    return f"[0:v][1:v]hstack,v360=dfisheye:e:ih_fov={angle:.4f}:iv_fov={angle:.4f}:w={columns}:h={rows}:interp=linear"


def export(tools, pair, out, size):
    """As a person exports: the command's own defaults."""
    return [tools.nq360, "export", "--quiet", "--force", *pair, out, "--size", size]


def exact_export(tools, pair, out, size):
    """What the other tools do too: a hard seam, their encoder's usual quality, no metadata of the camera."""
    return [*export(tools, pair, out, size), "--exact"]


def default_jobs(tools, data, still):
    """What the command's defaults cost over the plain export."""
    width = 3888 if still else 1936
    pair = still_pair(tools, data, width) if still else movie_pair(tools, data, width, FRAMES)
    out = data / ("out.jpg" if still else "out.mov")
    size = LENSES[width][0]
    return {
        "nq360": ([exact_export(tools, pair, out, size)], None),
        "nq360 with its defaults": ([export(tools, pair, out, size)], None),
    }


def still_jobs(tools, data, width):
    pair = still_pair(tools, data, width)
    out = data / "out.jpg"
    size = LENSES[width][0]
    columns, rows = size.split("x")
    project = data / f"nona{width}.pto"
    angle = LENSES[width][1]
    image = f"i w{width} h{width} f3 v{angle:.4f} r0 y0 a0 b0 c0 d0 e0 "
    project.write_text(f'p f2 w{columns} h{rows} v360 n"JPEG q90"\nm i0\n' +
                       f'{image}p90 n"{pair[0]}"\n{image}p-90 n"{pair[1]}"\n')
    return {
        "nq360": ([exact_export(tools, pair, out, size)], None),
        "ffmpeg v360": ([[tools.ffmpeg, "-v", "error", "-y", "-i", pair[0], "-i", pair[1], "-filter_complex", v360(width),
                          "-c:v", "mjpeg", "-q:v", 11, out]], tools.environment),
        "nona": ([["nona", "-m", "JPEG", "-o", data / "nona-out", project]], None),
    }


def movie_jobs(tools, data, width, frames=FRAMES):
    pair = movie_pair(tools, data, width, frames)
    out = data / "out.mov"
    # The bit rate that the library takes: the source's, scaled by the area.
    columns, rows = map(int, LENSES[width][0].split("x"))
    rate = round((30e6 if width == 1936 else 18e6) * columns * rows / width**2)
    decoder = ["-c:v", "libopenh264"]
    return {
        "nq360": ([exact_export(tools, pair, out, LENSES[width][0])], None),
        "ffmpeg v360": ([[tools.ffmpeg, "-v", "error", "-y", *decoder, "-i", pair[0], *decoder, "-i", pair[1],
                          "-filter_complex", v360(width), "-map", "0:a?", "-c:a", "pcm_s16le", "-c:v", "libopenh264",
                          "-b:v", rate, out]], tools.environment),
    }


def picture_folder(tools, data, files):
    folder = data / f"folder{files}"
    if not folder.exists():
        pair = still_pair(tools, data, 3888)
        folder.mkdir()
        for number in range(files):
            shutil.copy(pair[number % 2], folder / f"shot{number:04}.jpg")
    return folder


def analysis_jobs(tools, data, files):
    folder = picture_folder(tools, data, files)
    ours = data / "thumbnails"
    theirs = data / "thumbnails-ffmpeg"
    shutil.rmtree(ours, ignore_errors=True)
    ours.mkdir()
    theirs.mkdir(exist_ok=True)
    commands = []
    for picture in sorted(folder.iterdir()):
        commands += [["exiftool", "-j", picture],
                     [tools.ffprobe, "-v", "error", "-show_streams", "-of", "json", picture],
                     [tools.ffmpeg, "-v", "error", "-y", "-i", picture, "-frames:v", 1, "-vf", "scale=320:-2",
                      "-update", 1, theirs / picture.name]]
    return {
        "nq360": ([[tools.nq360, "analyze", "--json", "--thumbnails", ours, "--width", 320, folder]], None),
        "exiftool + ffprobe + ffmpeg": (commands, tools.environment),
    }


def compare(name, jobs, rounds):
    """Runs the tools in turn; returns a row for each: (job, tool, seconds, MiB, ratio to ours)."""
    seconds = {tool: [] for tool in jobs}
    peaks = {tool: 0 for tool in jobs}
    for commands, environment in jobs.values():  # once unmeasured, so that every file is in memory
        run(commands, environment)
    for _ in range(rounds):
        for tool, (commands, environment) in jobs.items():
            took, peak = run(commands, environment)
            seconds[tool].append(took)
            peaks[tool] = max(peaks[tool], peak)
    rows = []
    for tool, times in seconds.items():
        ratio = statistics.median(theirs / ours for theirs, ours in zip(times, seconds["nq360"]))
        rows.append((name, tool, statistics.median(times), peaks[tool], ratio))
        print(f"{name:34} {tool:28} {rows[-1][2]:8.2f} s {rows[-1][3]:7.0f} MiB  {ratio:6.2f}", flush=True)
    return rows


def table(rows):
    lines = ["| Job | Tool | Seconds | Peak MiB | Time against nq360 |", "|---|---|--:|--:|--:|"]
    lines += [f"| {name} | {tool} | {seconds:.2f} | {peak:.0f} | {ratio:.2f} |" for name, tool, seconds, peak, ratio in rows]
    return "\n".join(lines) + "\n"


def draw_comparison(rows, path):
    import matplotlib
    matplotlib.use("svg")
    matplotlib.rcParams["svg.hashsalt"] = "nq360"
    from matplotlib import pyplot
    others = [row for row in rows if row[1] != "nq360"]
    figure, axes = pyplot.subplots(figsize=(8, 0.45 * len(others) + 1.2))
    axes.barh([f"{row[0]}\n{row[1]}" for row in others][::-1], [row[4] for row in others][::-1], color="#4878a8")
    axes.axvline(1, color="black", linewidth=1)
    axes.set_xlabel("times the time of nq360")
    axes.set_xlim(0, 1.1 * max(row[4] for row in others))
    for position, row in enumerate(others[::-1]):
        axes.text(row[4], position, f" {row[4]:.1f}", va="center")
    axes.tick_params(axis="y", labelsize=7)
    figure.tight_layout()
    figure.savefig(path, metadata={"Date": None})


def grow(tools, data):
    """How time and memory grow: lists of (size, seconds, MiB) by what grows."""
    curves = {"output megapixels": [], "frames": [], "files": []}
    pair = still_pair(tools, data, 3888)
    for columns in (1024, 2048, 4096, 6144, 7680, 8192, 10240, 12288):
        command = [tools.nq360, "export", "--quiet", "--force", *pair, data / "out.jpg", "--size", f"{columns}x{columns // 2}", "--exact"]
        took = [run([command]) for _ in range(3)]
        curves["output megapixels"].append((columns * columns / 2e6, min(t for t, _ in took), max(m for _, m in took)))
    # 60 seconds; shorter exports are cut from it.
    movies = movie_pair(tools, data, 1440, 1800)
    for seconds in (10, 20, 40, 60):
        command = [tools.nq360, "export", "--quiet", "--force", *movies, data / "out.mov", "--size", "1024x512",
                   "--end", seconds, "--exact"]
        curves["frames"].append((seconds * 30, *run([command])))
    for files in (25, 50, 100, 200):
        folder = picture_folder(tools, data, files)
        thumbnails = data / "thumbnails"
        shutil.rmtree(thumbnails, ignore_errors=True)
        thumbnails.mkdir()
        command = [tools.nq360, "analyze", "--json", "--thumbnails", thumbnails, "--width", 320, folder]
        curves["files"].append((files, *run([command])))
    for what, points in curves.items():
        for size, seconds, peak in points:
            print(f"{what:20} {size:8.1f} {seconds:8.2f} s {peak:7.0f} MiB  {size / seconds:8.1f} a second", flush=True)
    shortest, longest = curves["frames"][0], curves["frames"][-1]
    print(f"memory of 60 s against 10 s: {longest[2] / shortest[2]:.3f}")
    return curves


def draw_growth(curves, path):
    import matplotlib
    matplotlib.use("svg")
    matplotlib.rcParams["svg.hashsalt"] = "nq360"
    from matplotlib import pyplot
    figure, rows = pyplot.subplots(2, len(curves), figsize=(10, 5), sharex="col")
    for column, (what, points) in enumerate(curves.items()):
        sizes = [point[0] for point in points]
        for row, (index, unit) in enumerate(((1, "seconds"), (2, "peak MiB"))):
            axes = rows[row][column]
            axes.plot(sizes, [point[index] for point in points], "o-", color="#4878a8")
            axes.set_ylim(0, 1.1 * max(point[index] for point in points))
            axes.set_xlim(left=0)
            axes.set_ylabel(unit)
            axes.grid(alpha=0.3)
        rows[1][column].set_xlabel(what)
    figure.tight_layout()
    figure.savefig(path, metadata={"Date": None})


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=pathlib.Path, required=True, help="build tree with the command and the sample tool")
    parser.add_argument("--command-prefix", type=pathlib.Path, required=True, help="where the ffmpeg command lies")
    parser.add_argument("--data", type=pathlib.Path, required=True, help="folder for the files of the jobs")
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--files", type=int, default=200, help="pictures of the analysed folder")
    parser.add_argument("--only", choices=["stills", "movies", "defaults", "analysis", "growth"])
    parser.add_argument("--charts", type=pathlib.Path, help="folder for the charts and the table")
    arguments = parser.parse_args()
    tools = Tools(arguments.build, arguments.command_prefix)
    data = arguments.data.resolve()
    data.mkdir(parents=True, exist_ok=True)
    rows = []
    if arguments.only in (None, "stills"):
        for width, (size, _) in LENSES.items():
            rows += compare(f"stills {width} to {size}", still_jobs(tools, data, width), arguments.rounds)
    if arguments.only in (None, "movies"):
        for width in (1440, 1936):
            rows += compare(f"{FRAMES} frames {width} to {LENSES[width][0]}", movie_jobs(tools, data, width), arguments.rounds)
    if arguments.only in (None, "defaults"):
        rows += compare("stills 3888, defaults", default_jobs(tools, data, True), arguments.rounds)
        rows += compare(f"{FRAMES} frames 1936, defaults", default_jobs(tools, data, False), arguments.rounds)
    if arguments.only in (None, "analysis"):
        rows += compare(f"{arguments.files} pictures of 3888, described", analysis_jobs(tools, data, arguments.files),
                        arguments.rounds)
        print(f"analysis: {arguments.files / rows[-2][2]:.1f} files a second")
    curves = grow(tools, data) if arguments.only in (None, "growth") else None
    if arguments.charts:
        arguments.charts.mkdir(parents=True, exist_ok=True)
        if rows:
            (arguments.charts / "jobs.md").write_text(table(rows))
            draw_comparison(rows, arguments.charts / "jobs.svg")
        if curves:
            draw_growth(curves, arguments.charts / "growth.svg")


if __name__ == "__main__":
    main()
