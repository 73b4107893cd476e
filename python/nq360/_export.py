"""Panoramas and sound, written to files."""

from __future__ import annotations

import os
import tempfile
import warnings
from collections.abc import Callable, Generator, Iterable, Iterator, Mapping
from contextlib import closing
from dataclasses import dataclass
from pathlib import Path
from typing import Literal, Unpack

from ._analyze import analyze
from ._errors import Error, IncompleteInputWarning
from ._job import Progress, progress_of
from ._library import lib
from ._options import ExportOptions, check_keywords
from ._record import FilePath, Record
from ._replies import missing_in

OnProgress = Callable[[int, int], object]

_SHOWN_WIDTH = 1024


@dataclass(frozen=True)
class Panorama:
    """A panorama's file. A notebook shows it, of a movie its first frame."""

    path: Path

    def __fspath__(self) -> str:
        return os.fspath(self.path)

    def _repr_jpeg_(self) -> bytes | None:
        with tempfile.TemporaryDirectory() as folder:
            thumbnail = Path(folder) / "thumbnail.jpg"
            try:
                analyze(self.path, thumbnail, _SHOWN_WIDTH, thumbnail_always=True)
            except Error:
                return None
            return thumbnail.read_bytes()


class Export:
    """An export that runs while it is iterated over, and yields its Progress. It takes what export() takes.

    Leaving the loop early, by break or by an exception, cancels it: then the output is what it was before.
    """

    def __init__(self, lens1: FilePath, lens2: FilePath, output: FilePath, **options: Unpack[ExportOptions]) -> None:
        check_keywords("Export", options, ExportOptions)
        self._values = _values(lens1, lens2, output, options)

    def __iter__(self) -> Iterator[Progress]:
        return _export(Record("export", self._values), callers=1)


def export(
    lens1: FilePath,
    lens2: FilePath,
    output: FilePath,
    *,
    progress: OnProgress | None = None,
    **options: Unpack[ExportOptions],
) -> Panorama:
    """Stitches two halves, pictures or movies, into a panorama: a .jpg, or a .mov or .mp4.

    progress is called with the frames written and about how many there will be; what it raises ends the export. The
    other keywords are the record's fields (ExportOptions), as nq360.h describes them: width, height, angle, yaw, pitch,
    roll, turn1, turn2, correct1, correct2, gain1, gain2, band, feather, audio_source, sound_codec, start1, end1,
    start2, end2, datetime, quality, bit_rate, keep_metadata, web, filter, workers, part, parts,
    whole_inputs_only, cancel_path.
    """
    check_keywords("export", options, ExportOptions)
    record = Record("export", _values(lens1, lens2, output, options))
    _tell(_export(record, callers=3), progress)
    return Panorama(Path(os.fsdecode(output)))


def join(
    parts: Iterable[FilePath],
    output: FilePath,
    *,
    cancel_path: FilePath | None = None,
    progress: OnProgress | None = None,
) -> Panorama:
    """Puts together the files that export() made of all parts of a movie, in any order, without coding anything anew.

    The movie is that of one export() with workers other than 0, in every byte.
    """
    record = Record("join", {"output": output, "cancel_path": cancel_path})
    record.set_files(parts)
    _tell(progress_of(record, lib.NQ360_join), progress)
    return Panorama(Path(os.fsdecode(output)))


def extract_audio(
    movie: FilePath,
    output: FilePath,
    *,
    sound_codec: Literal["pcm", "aac"] = "pcm",
    bit_rate: int = 0,
    cancel_path: FilePath | None = None,
    progress: OnProgress | None = None,
) -> Path:
    """Writes a movie's sound to a file of its own, its kind taken from its name (.wav, .mov, .m4a, ...).

    bit_rate is that of AAC. progress counts packets of sound.
    """
    record = Record(
        "audio",
        {
            "movie": movie,
            "output": output,
            "sound_codec": sound_codec,
            "bit_rate": bit_rate,
            "cancel_path": cancel_path,
        },
    )
    _tell(progress_of(record, lib.NQ360_get_audio_with), progress)
    return Path(os.fsdecode(output))


def _values(lens1: FilePath, lens2: FilePath, output: FilePath, options: Mapping[str, object]) -> dict[str, object]:
    return {"lens1": lens1, "lens2": lens2, "output": output, **options}


def _export(record: Record, callers: int) -> Generator[Progress, None, None]:
    """The export; callers tells how many calls of ours lie between a warning and whom it is for."""
    reply = yield from progress_of(record, lib.NQ360_export_with)
    missing = missing_in(reply)
    if missing:
        output = os.fsdecode(record.paths["output"])
        warnings.warn(f"{output}: {missing}", IncompleteInputWarning, stacklevel=1 + callers)


def _tell(reports: Generator[Progress, None, object], progress: OnProgress | None) -> None:
    with closing(reports):  # an exception would keep it open as long as its traceback lives
        for report in reports:
            if progress:
                progress(report.done, report.total)
