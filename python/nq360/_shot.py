"""Panoramas in memory, and what makes two lenses meet, of shots that may stay open."""

from __future__ import annotations

import threading
from collections.abc import Callable, Mapping
from dataclasses import dataclass
from typing import Any, Unpack

import numpy

from ._errors import Error
from ._job import Job
from ._library import ffi, lib
from ._options import LensOptions, MatchOptions, PreviewOptions, Seconds, check_keywords
from ._record import FilePath, Record
from ._replies import read_reply


class Preview(numpy.ndarray[Any, numpy.dtype[numpy.uint8]]):
    """A panorama's pixels, (height, width, 3): R, G and B. They cannot be written to; those of a copy() can.

    A notebook shows it as a picture; parts and copies of it are arrays like any other.
    """

    _jpeg: Callable[[], bytes] | None

    def __array_finalize__(self, source: object) -> None:
        self._jpeg = None

    def _repr_jpeg_(self) -> bytes | None:
        try:
            return self._jpeg() if self._jpeg else None
        except Error:  # the files are not there any more
            return None


@dataclass(frozen=True)
class Match:
    """What makes two lenses meet at the seam. Three numbers are for Y, U and V."""

    options: LensOptions  # the keywords for a panorama whose lenses meet: the turns and the factors
    turn: float  # degrees to be added to turn2
    gain1: tuple[float, ...]  # factors to be set: what two exposures need
    gain2: tuple[float, ...]
    correct1: tuple[int, ...]  # offsets to be set instead
    correct2: tuple[int, ...]
    step: tuple[float, ...]  # how far the lenses are apart along the seam
    step_turned: tuple[float, ...]  # the same after the turn,
    step_corrected: tuple[float, ...]  # after turn and offsets,
    step_gained: tuple[float, ...]  # after turn and factors
    compared: float  # the share of the seam that could be, 0 to 1
    confidence: float  # how much better the lenses fit with this turn than with any other, 0 to 1
    warning: str  # why it may be of no use, or the halves may not belong together; else empty


class Shot:
    """A shot whose halves stay decoded for whoever looks at it again and again, of movies the frames at start1, start2.

    A context manager, which frees its memory. Threads that share one take turns.
    """

    def __init__(self, lens1: FilePath, lens2: FilePath, *, start1: Seconds = 0.0, start2: Seconds = 0.0) -> None:
        self._values = {"lens1": lens1, "lens2": lens2, "start1": start1, "start2": start2}
        self._turn = threading.Lock()
        job = Job(Record("export", self._values))
        self._shot = ffi.gc(job.run(lib.NQ360_shot_open), lib.NQ360_shot_close)
        job.check()

    def __enter__(self) -> Shot:
        return self

    def __exit__(self, *error: object) -> None:
        self.close()

    def close(self) -> None:
        """Frees its memory; it cannot be looked at any more."""
        with self._turn:
            if self._shot is not None:
                ffi.release(self._shot)
                self._shot = None

    def preview(self, **options: Unpack[PreviewOptions]) -> Preview:
        """One panorama as its pixels. The keywords are the record's fields (PreviewOptions), as nq360.h describes them:
        width and height (1024 x 512 without them), angle, yaw, pitch, roll, turn1, turn2, correct1, correct2, gain1,
        gain2, band, feather, start1, start2 (for other frames of movies), filter; and quality, for what a notebook
        shows.
        """
        check_keywords("preview", options, PreviewOptions)
        reply, pixels = self._panorama(lib.NQ360_preview_rgb, options)
        size = read_reply(reply)
        array = numpy.frombuffer(pixels, numpy.uint8).reshape(size["height"], size["width"], 3)
        array.flags.writeable = False  # what a notebook shows is made anew
        preview = array.view(Preview)
        preview._jpeg = lambda: _jpeg(self._values, options)
        return preview

    def jpeg(self, **options: Unpack[PreviewOptions]) -> bytes:
        """The same panorama as the bytes of a JPEG, of quality 85 where none is given."""
        check_keywords("jpeg", options, PreviewOptions)
        return bytes(self._panorama(lib.NQ360_preview, options)[1])

    def match(self, **options: Unpack[MatchOptions]) -> Match:
        """What makes the lenses meet. The keywords tell what is there already (turn1, turn2, correct1, correct2, gain1,
        gain2), and which range of movies is looked at (start1, end1, start2, end2).
        """
        check_keywords("match", options, MatchOptions)
        found = read_reply(self._run(lib.NQ360_match, options).check())
        values = {key: tuple(value) if isinstance(value, list) else value for key, value in found.items()}
        return Match(options=_meeting(options, found), **values)

    def _repr_jpeg_(self) -> bytes | None:
        return None if self._shot is None else self.jpeg()

    def _panorama(self, function: Callable[..., int], options: Mapping[str, object]) -> tuple[bytes, Any]:
        """The reply, and the bytes that the function hands out."""
        start = ffi.new("unsigned char**")
        size = ffi.new("size_t*")
        job = self._run(function, options, start, size)
        memory = ffi.gc(start[0], lib.NQ360_free)
        return job.check(), ffi.buffer(memory, size[0])

    def _run(self, function: Callable[..., int], options: Mapping[str, object], *results: Any) -> Job:
        job = Job(Record("export", {**self._values, **options}))
        with self._turn:
            if self._shot is None:
                raise ValueError("the shot is closed")
            job.run(function, self._shot, *results)
        return job


def preview(lens1: FilePath, lens2: FilePath, **options: Unpack[PreviewOptions]) -> Preview:
    """One panorama as its pixels, without a file: Shot.preview() of a shot that is opened for it."""
    check_keywords("preview", options, PreviewOptions)
    with _opened(lens1, lens2, options) as shot:
        return shot.preview(**options)


def match(lens1: FilePath, lens2: FilePath, **options: Unpack[MatchOptions]) -> Match:
    """What makes two lenses meet: Shot.match() of a shot that is opened for it."""
    check_keywords("match", options, MatchOptions)
    with _opened(lens1, lens2, options) as shot:
        return shot.match(**options)


def _opened(lens1: FilePath, lens2: FilePath, options: LensOptions) -> Shot:
    return Shot(lens1, lens2, start1=options.get("start1", 0.0), start2=options.get("start2", 0.0))


def _jpeg(shot: Mapping[str, Any], options: PreviewOptions) -> bytes:
    with Shot(**shot) as again:
        return again.jpeg(**options)


def _meeting(options: MatchOptions, found: Mapping[str, Any]) -> LensOptions:
    return {
        "turn1": options.get("turn1", 0.0),
        "turn2": options.get("turn2", 0.0) + found["turn"],
        "gain1": found["gain1"],
        "gain2": found["gain2"],
    }
