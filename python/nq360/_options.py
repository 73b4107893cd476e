"""The keywords of the jobs: the fields of the C interface's record, by their names.

One that is not given, or None, keeps the record's default. nq360.h tells each one's range.
"""

from __future__ import annotations

from collections.abc import Mapping, Sequence
from datetime import datetime as Datetime
from datetime import timedelta
from typing import Literal, TypedDict, Union

from ._record import FilePath

Seconds = Union[float, timedelta]


class LensOptions(TypedDict, total=False):
    """How the lens pictures are taken. Triples are for Y, U and V."""

    turn1: float  # of each lens picture about its centre, degrees
    turn2: float
    correct1: Sequence[int]  # added to each value
    correct2: Sequence[int]
    gain1: Sequence[float]  # factors, applied before: 0 to 16
    gain2: Sequence[float]
    start1: Seconds  # of a movie: the first instant
    start2: Seconds


class MatchOptions(LensOptions, total=False):
    """What is there already when lenses are to be matched, and where they are looked at."""

    end1: Seconds  # of a movie: the last instant
    end2: Seconds


class PreviewOptions(LensOptions, total=False):
    """How one panorama is to look."""

    width: int  # of the panorama, pixels
    height: int
    angle: float  # turn of the panorama about its y axis, degrees
    yaw: float  # then the look is turned to the right, degrees,
    pitch: float  # up,
    roll: float  # and its horizon clockwise
    band: FilePath | None  # a picture to lay over the seam
    feather: float  # degrees on each side of the seam, over which both lenses are mixed: 0 to 5.5
    quality: int  # of a JPEG: 1 to 100
    filter: bool  # of a panorama much smaller than the lenses' own scale


class ExportOptions(PreviewOptions, total=False):
    """What becomes of two halves."""

    end1: Seconds  # of a movie: the last instant
    end2: Seconds
    audio_source: int  # 0: sound of lens1; 1: of lens2; -1: none
    sound_codec: Literal["pcm", "aac"]
    datetime: Datetime | str | None  # capture date and time for the metadata
    bit_rate: int  # of a movie's pictures, bits per second
    keep_metadata: bool  # what lens 1's file tells of the shot
    web: bool  # a movie's index in front, so that it plays while it loads
    workers: int  # parts of a movie made at a time, -1 for one per core; 0: one encoder for all of it
    part: int  # of a movie that several machines make: 1 to parts; the output is then a file for join()
    parts: int  # how many such files there will be; 0: the whole movie
    whole_inputs_only: bool  # refuse an input that cannot be read whole
    cancel_path: FilePath | None  # a file that stops the export once it is there


def check_keywords(function: str, options: Mapping[str, object], known: type) -> None:
    """Raises what Python raises for a keyword that a function does not have."""
    for name in options:
        if name not in known.__annotations__:
            raise TypeError(f"{function}() got an unexpected keyword argument {name!r}")
