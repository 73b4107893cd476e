#!/usr/bin/env python3
"""Measures what the Python package costs beside the library, and how its memory grows.

Each call is made through the package and, in turn, with the same record straight to the library, without callbacks. A
line of the library's log costs about 2 microseconds, and it writes several for each packet of sound.
"""

import argparse
import os
import statistics
import subprocess
import threading
import time
from pathlib import Path

import nq360
from nq360._library import ffi, lib
from nq360._record import Record


def make(tool, kind, pair, *options):
    """Makes a pair of files, unless an earlier run has."""
    if not pair[1].exists():
        pair[1].parent.mkdir(parents=True, exist_ok=True)
        subprocess.run([tool, kind, *pair, "--size", "1440", *options], check=True)
    return pair


def on_a_thread(function, record):
    """As the package does: memory costs another time there. The thread itself counts in "export, refused"."""
    thread = threading.Thread(target=function, args=(record,))
    thread.start()
    thread.join()


def refused(output):
    try:
        nq360.export("", "", output)
    except FileNotFoundError:
        pass


def jobs(tool, folder):
    """Yields each call's name, the call through the package and that of the library."""
    lens1, lens2 = make(tool, "still", [folder / f"binding{lens}.jpg" for lens in (1, 2)])
    movie, _ = make(tool, "movie", [folder / f"binding{lens}.mov" for lens in (1, 2)], "--frames", "30")
    panorama, sound = folder / "binding.jpg", folder / "binding.wav"
    size = {"width": 64, "height": 32}

    analysis = Record("analyze", {"input": lens1})
    yield "analyze", lambda: nq360.analyze(lens1), lambda: lib.NQ360_analyze_with(analysis.pointer)

    export = Record("export", {"lens1": lens1, "lens2": lens2, "output": panorama, **size})
    yield (
        "export",
        lambda: nq360.export(lens1, lens2, panorama, **size),
        lambda: on_a_thread(lib.NQ360_export_with, export.pointer),
    )

    nothing = Record("export", {"lens1": "", "lens2": "", "output": panorama})
    yield "export, refused", lambda: refused(panorama), lambda: lib.NQ360_export_with(nothing.pointer)

    audio = Record("audio", {"movie": movie, "output": sound})
    yield (
        "extract_audio",
        lambda: nq360.extract_audio(movie, sound),
        lambda: on_a_thread(lib.NQ360_get_audio_with, audio.pointer),
    )

    shot = nq360.Shot(lens1, lens2)
    pixels, count = ffi.new("unsigned char**"), ffi.new("size_t*")

    def preview():
        lib.NQ360_preview_rgb(export.pointer, shot._shot, pixels, count)
        lib.NQ360_free(pixels[0])

    yield "Shot.preview", lambda: shot.preview(**size), preview

    yield "free_space", lambda: nq360.free_space(folder), lambda: lib.NQ360_freesize(os.fsencode(folder))


def milliseconds(call):
    """Of processor time, which other programs of the machine leave alone."""
    began = time.process_time()
    call()
    return (time.process_time() - began) * 1000


def measure(through, direct, rounds):
    """Medians of the call through the package, of the direct one, and of how much longer the first takes in a round."""
    times = [(milliseconds(through), milliseconds(direct)) for _ in range(rounds)]
    return (
        statistics.median(time[0] for time in times),
        statistics.median(time[1] for time in times),
        statistics.median(time[0] - time[1] for time in times),
    )


def resident_kib():
    pages = int(Path("/proc/self/statm").read_text(encoding="ascii").split()[1])
    return pages * os.sysconf("SC_PAGE_SIZE") // 1024


def growth(call, times):
    """KiB by which the process grows over so many calls, once it has made a few."""
    for _ in range(50):
        call()
    before = resident_kib()
    for _ in range(times):
        call()
    return resident_kib() - before


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--sample", type=Path, required=True, help="the sample tool")
    parser.add_argument("--data", type=Path, required=True, help="folder for the files of the jobs")
    parser.add_argument("--rounds", type=int, default=201)
    arguments = parser.parse_args()

    # Where the library's lines go when there is no callback for them.
    os.dup2(os.open(os.devnull, os.O_WRONLY), 2)
    print(f"ms of processor time, medians of {arguments.rounds} rounds")
    print("{:16} {:>10} {:>10} {:>10}".format("call", "package", "library", "overhead"))
    for name, through, direct in jobs(arguments.sample, arguments.data):
        print("{:16} {:10.3f} {:10.3f} {:10.3f}".format(name, *measure(through, direct, arguments.rounds)), flush=True)
    picture = arguments.data / "binding1.jpg"
    print(f"1000 analyses grow the process by {growth(lambda: nq360.analyze(picture), 1000)} KiB")


main()
