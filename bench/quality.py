"""How near movies come to the panorama that went into their encoder: the PSNR of their luma.

A movie is held against what the same tool has stitched: the figure is the encoder's, not that of two ways to sample.
"""

import re
import subprocess

# Both movies' luma, as the bytes are, frame by frame whatever their times.
_FRAME_BY_FRAME = "settb=1/30,setpts=N"
_LUMA = f"extractplanes=y,{_FRAME_BY_FRAME}"


def _psnr(arguments, graph, stitched=None):
    command = ["ffmpeg", "-hide_banner", "-nostats", *map(str, arguments), "-filter_complex", graph, "-f", "null", "-"]
    result = subprocess.run(command, stdin=stitched or subprocess.DEVNULL, capture_output=True, text=True, check=True)
    return float(re.search(r"PSNR y:([\d.]+|inf)", result.stderr).group(1))


def of_stitcher(tools, pair, lens, movie):
    """That of a panorama of the library's."""
    columns, rows = lens.panorama
    raw = ["-f", "rawvideo", "-pixel_format", "gray", "-video_size", lens.size, "-i", "-"]
    with subprocess.Popen(
        [str(word) for word in (tools.stitched_luma, *pair, columns, rows)], stdout=subprocess.PIPE
    ) as stitcher:
        graph = f"[0:v]{_LUMA}[made];[1:v]{_FRAME_BY_FRAME}[stitched];[made][stitched]psnr=shortest=1"
        return _psnr(["-i", movie, *raw], graph, stitcher.stdout)


def of_filter(pair, graph, movie):
    """That of a panorama that ffmpeg has stitched with this graph of filters."""
    graph = f"{graph},{_LUMA}[stitched];[2:v]{_LUMA}[made];[made][stitched]psnr=shortest=1"
    return _psnr(["-i", pair[0], "-i", pair[1], "-i", movie], graph)
