"""The tools that are measured, and the files they work on, which the sample tool makes once."""

import os
import shutil
import subprocess
from dataclasses import dataclass

# The pictures of a folder are of this lens width.
FOLDER_WIDTH = 3888


@dataclass(frozen=True)
class Lens:
    """A lens picture of the camera: its width, that of its circle of 180 degrees, and a movie's bits per second."""

    width: int
    circle: int
    bit_rate: int

    @property
    def panorama(self):
        """Columns and rows of the usual panorama."""
        return {1440: (2880, 1440), 1936: (3840, 1920), 3888: (7680, 3840)}[self.width]

    @property
    def size(self):
        return "{}x{}".format(*self.panorama)

    @property
    def angle(self):
        """The full angle that the picture's width spans: the circle is smaller than the picture."""
        return 180 * self.width / self.circle

    @property
    def panorama_bit_rate(self):
        """The bit rate that the library takes: the movie's, scaled by the area."""
        columns, rows = self.panorama
        return round(self.bit_rate * columns * rows / self.width**2)


LENSES = {
    lens.width: lens for lens in (Lens(1440, 1350, 18_000_000), Lens(1936, 1814, 30_000_000), Lens(3888, 3642, 0))
}


class Tools:
    """Where the programs of the build lie, and the ffmpeg command that has the library's codecs."""

    def __init__(self, build, command_prefix):
        self.sample = build / "sample/nq360-sample"
        self.nq360 = build / "cli/nq360"
        self.stitched_luma = build / "bench/stitched_luma"
        self.ffmpeg = command_prefix / "bin/ffmpeg"
        self.ffprobe = command_prefix / "bin/ffprobe"
        self.environment = dict(os.environ, LD_LIBRARY_PATH=str(command_prefix / "lib"))

    def make(self, path, *arguments):
        """Makes a file with the sample tool, unless an earlier run has."""
        if not path.exists():
            subprocess.run([str(word) for word in (self.sample, *arguments)], check=True, stdout=subprocess.DEVNULL)


def still_pair(tools, data, width):
    pair = [data / f"still{width}-{lens}.jpg" for lens in (1, 2)]
    tools.make(pair[1], "still", *pair, "--size", width)
    return pair


def movie_pair(tools, data, width, frames):
    pair = [data / f"movie{width}-{frames}-{lens}.mov" for lens in (1, 2)]
    tools.make(pair[1], "movie", *pair, "--size", width, "--frames", frames)
    return pair


def picture_folder(tools, data, files):
    folder = data / f"folder{files}"
    if not folder.exists():
        pair = still_pair(tools, data, FOLDER_WIDTH)
        folder.mkdir()
        for number in range(files):
            shutil.copy(pair[number % 2], folder / f"shot{number:04}.jpg")
    return folder


def empty_folder(path):
    shutil.rmtree(path, ignore_errors=True)
    path.mkdir()
    return path
