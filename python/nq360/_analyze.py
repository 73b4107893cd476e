"""What a file is."""

from __future__ import annotations

import os
from dataclasses import dataclass
from datetime import datetime as Datetime
from datetime import timedelta
from typing import Any

from ._job import Job
from ._library import lib
from ._record import FilePath, Record
from ._replies import read_reply


@dataclass(frozen=True)
class Description:
    """What a picture or movie tells of itself. None: it does not tell."""

    path: str | bytes  # as it was given
    is_picture: bool  # a JPEG; else a movie
    width: int  # pixels as they are stored, the orientation not applied
    height: int
    duration: timedelta | None  # of a movie
    frame_count: int | None  # of a movie
    datetime: Datetime | None  # when it was shot, by the camera's clock
    maker: str  # the camera's; empty where it is not told, as are the next two
    model: str
    software: str  # what stitched it
    is_360: bool  # the camera's own 360-degree file, or the stitching software's
    orientation: int | None  # of EXIF, 1 to 8
    capture_mode: int | None  # the camera's own numbers
    multi_capture: int | None
    camera_orientation: int | None
    has_thumbnail: bool  # whether this call wrote one
    unread: tuple[str, ...]  # what it should hold and could not be read: "exif", "xmp", "picture", "movie"


def analyze(
    path: FilePath,
    thumbnail: FilePath | None = None,
    width: int = 320,
    *,
    thumbnail_always: bool = False,
    quick: bool = False,
) -> Description:
    """Describes a picture (.jpg, .jpeg) or movie (.mov, .mp4), and writes a thumbnail where a path for it is given.

    The thumbnail is a JPEG of the given width, of files of the camera or of the stitching software; with
    thumbnail_always of every file. With quick, for whoever lists a folder, a JPEG is decoded no further than its
    thumbnail needs, and without one not at all: then of damage it is only told whether the picture was cut off.
    """
    record = Record(
        "analyze",
        {
            "input": path,
            "thumbnail": thumbnail,
            "thumbnail_width": width,
            "thumbnail_always": thumbnail_always,
            "quick": quick,
        },
    )
    job = Job(record)
    job.run(lib.NQ360_analyze_with)
    return _description(os.fspath(path), read_reply(job.check()))


def _description(path: str | bytes, keys: dict[str, Any]) -> Description:
    is_picture = keys["type"] == "JPEG"
    return Description(
        path=path,
        is_picture=is_picture,
        width=keys["width"],
        height=keys["height"],
        duration=None if is_picture or keys["duration"] < 0 else timedelta(seconds=keys["duration"]),
        frame_count=keys["frame_count"] or None,
        datetime=_moment(keys["datetime"]),
        maker=keys["maker"],
        model=keys["model"],
        software=keys["youtube360_maker"],
        is_360=keys["isTarget"],
        orientation=_known(keys["orientaion"]),
        capture_mode=_known(keys["capture_mode"]),
        multi_capture=_known(keys["multi_capture"]),
        camera_orientation=_known(keys["camera_orientation"]),
        has_thumbnail=keys["createdThumbnail"],
        unread=tuple(keys["unread"]),
    )


def _known(number: int) -> int | None:
    return None if number == -1 else number


def _moment(text: str) -> Datetime | None:
    try:
        return Datetime.strptime(text, "%Y:%m:%d %H:%M:%S")
    except ValueError:
        return None
