"""What the library reports, as exceptions."""

from __future__ import annotations

import errno
import json
import re
from typing import Any

from ._replies import read_reply

# "Input file1 not exiists", "Analyze Error InputFile2"
_LENS = re.compile(r"[Ff]ile([12])\b")


class Error(Exception):
    """A job that failed. The numbers and texts are those of docs/replies.md.

    number: five digits; the thousands tell the job, the end the reason
    text:   what went wrong
    detail: more about it; may be empty
    path:   the file that it is about, as it was given; None where it is about several or none
    """

    def __init__(self, number: int, text: str, detail: str = "", path: str | bytes | None = None) -> None:
        super().__init__(number, text, detail, path)
        self.number = number
        self.text = text
        self.detail = detail
        self.path = path

    def __str__(self) -> str:
        where = "" if self.path is None else f"{self.path!r}: "
        more = f": {self.detail}" if self.detail else ""
        return f"{where}{self.text}{more} ({self.number})"

    def __reduce__(self) -> tuple[Any, ...]:
        return type(self), (self.number, self.text, self.detail, self.path)


class MissingFileError(Error, FileNotFoundError):
    """An input is not there."""

    def __init__(self, number: int, text: str, detail: str = "", path: str | bytes | None = None) -> None:
        super().__init__(number, text, detail, path)
        self.errno = errno.ENOENT
        self.strerror = text
        self.filename = path


class OptionError(Error, ValueError):
    """A value is out of its range; detail begins with the keyword's name."""


class CancelledError(Error):
    """The cancel marker was seen, and no file is left."""


class IncompleteInputWarning(UserWarning):
    """A part of an input could not be read; the panorama was made of the rest."""


def error_of(reply: bytes, cancelled: bool, paths: dict[str, str | bytes]) -> Error:
    """The exception for the last reply of a job; paths: those of its files by the names of the record's fields."""
    try:
        keys = read_reply(reply)
    except json.JSONDecodeError:
        return Error(0, "the library's reply was cut; a name is too long")
    number = int(keys["errnum"])
    path = paths.get(_field_to_blame(number, keys["errstr"]))
    if number in (30000, 30001) and "lens1" not in paths:
        path = keys["movie_path1"]  # of the many that are joined, the one at fault
    kind = CancelledError if cancelled else {0: MissingFileError, 5: OptionError}.get(number % 10000, Error)
    return kind(number, keys["errstr"], keys["api_errstr"], path)


def _field_to_blame(number: int, text: str) -> str:
    """The record's field whose file an error is about."""
    reason = number % 10000
    if reason == 5:
        return ""
    if number < 20000:
        return "thumbnail" if reason in (3, 4) else "input"
    if number < 30000:
        return "movie" if reason in (0, 1) else "output"
    if reason in (0, 1):
        lens = _LENS.search(text)
        return f"lens{lens.group(1)}" if lens else ""
    return "output"
