"""How near movies come to the panorama that went into their encoder: the PSNR of their luma.

A movie is held against what the same tool has stitched: the figure is the encoder's, not that of two ways to sample.
"""

import math
import re
import statistics
import subprocess
import tempfile

# Pairs of frames in a part of a movie, which begins with an encoder of its own.
PART = 120
# Frames in which that encoder finds its way, those that show whether it has, and those on each side of such a frame
# that it is held against.
SETTLING = 3
SETTLED = 30
NEIGHBOURS = 6

# Both movies' luma, as the bytes are, frame by frame whatever their times.
_FRAME_BY_FRAME = "settb=1/30,setpts=N"
_LUMA = f"extractplanes=y,{_FRAME_BY_FRAME}"


def psnr(errors):
    """Of mean squared errors, dB."""
    return 10 * math.log10(255**2 / max(statistics.mean(errors), 1e-9))


def _errors(arguments, graph, stitched=None):
    """The mean squared error of each frame's luma."""
    with tempfile.NamedTemporaryFile("r") as frames:
        graph = f"{graph};[made][stitched]psnr=shortest=1:stats_file={frames.name}"
        command = ["ffmpeg", "-v", "error", *map(str, arguments), "-filter_complex", graph, "-f", "null", "-"]
        subprocess.run(command, stdin=stitched or subprocess.DEVNULL, check=True)
        return [float(error) for error in re.findall(r"mse_y:([\d.]+)", frames.read())]


def of_stitcher(tools, pair, lens, movie):
    """The errors of each frame of a panorama of the library's."""
    columns, rows = lens.panorama
    raw = ["-f", "rawvideo", "-pixel_format", "gray", "-video_size", lens.size, "-i", "-"]
    with subprocess.Popen(
        [str(word) for word in (tools.stitched_luma, *pair, columns, rows)], stdout=subprocess.PIPE
    ) as stitcher:
        graph = f"[0:v]{_LUMA}[made];[1:v]{_FRAME_BY_FRAME}[stitched]"
        return _errors(["-i", movie, *raw], graph, stitcher.stdout)


def of_filter(pair, graph, movie):
    """Those of a panorama that ffmpeg has stitched with this graph of filters."""
    graph = f"{graph},{_LUMA}[stitched];[2:v]{_LUMA}[made]"
    return _errors(["-i", pair[0], "-i", pair[1], "-i", movie], graph)


def pulse(errors):
    """How the parts after the first one show: the mean PSNR of their first, second and third frames, and the most by
    which one of the next is above or below the mean of those around it."""
    frames = [psnr([error]) for error in errors]
    firsts = [statistics.mean(frames[PART + n :: PART]) for n in range(SETTLING)]
    most = 0
    for n in range(PART, len(frames)):
        if SETTLING <= n % PART < SETTLED:
            around = [m for m in range(n - NEIGHBOURS, n + NEIGHBOURS + 1) if m != n and m % PART >= SETTLING]
            most = max(most, abs(frames[n] - statistics.mean(frames[m] for m in around if m < len(frames))))
    return firsts, most
