"""Records of the C interface, filled from Python's values."""

from __future__ import annotations

import os
from collections.abc import Iterable, Mapping
from datetime import datetime, timedelta
from typing import Any, Union

from ._library import ffi, lib

FilePath = Union[str, bytes, "os.PathLike[str]", "os.PathLike[bytes]"]

_SOUND_CODECS = {"pcm": 0, "aac": 1}


class Record:
    """A record as its init fills it, but for the values that are given and not None; it owns its texts."""

    def __init__(self, kind: str, values: Mapping[str, object]) -> None:
        self.pointer: Any = ffi.new(f"NQ360_{kind.upper()}_OPTIONS*")
        getattr(lib, f"NQ360_{kind}_options_init")(self.pointer)
        self.paths: dict[str, str | bytes] = {}
        self._texts: list[Any] = []
        self._kinds = {name: field.type.kind for name, field in ffi.typeof(self.pointer).item.fields}
        for name, value in values.items():
            if value is not None:
                self.set(name, value)

    def set(self, name: str, value: Any) -> None:
        """Sets a field of this name."""
        kind = self._kinds[name]
        if name == "sound_codec":
            value = _sound_codec(value)
        elif name == "datetime":
            value = self._owned(name, _moment_text(value))
        elif kind == "pointer":
            self.paths[name] = os.fspath(value)
            value = self._owned(name, os.fsencode(value))
        elif kind == "array":
            value = _triple(name, value)
        elif isinstance(value, timedelta):
            value = value.total_seconds()
        try:
            setattr(self.pointer, name, value)
        except (TypeError, OverflowError) as error:
            raise type(error)(f"{name}: {error}") from None

    def set_files(self, files: Iterable[FilePath]) -> None:
        """Sets the list of files of a record that has one."""
        texts = [self._owned("files", os.fsencode(file)) for file in files]
        self._texts.append(ffi.new("char*[]", texts))
        self.pointer.files = self._texts[-1]
        self.pointer.file_count = len(texts)

    def _owned(self, name: str, text: bytes) -> Any:
        self._texts.append(c_text(name, text))
        return self._texts[-1]


def c_text(name: str, text: bytes) -> Any:
    """The text in memory of cffi's, zero-terminated."""
    if b"\0" in text:
        raise ValueError(f"{name}: embedded null byte")
    return ffi.new("char[]", text)


def _sound_codec(name: str) -> int:
    if name not in _SOUND_CODECS:
        raise ValueError(f"sound_codec: must be 'pcm' or 'aac', not {name!r}")
    return _SOUND_CODECS[name]


def _moment_text(moment: datetime | str) -> bytes:
    text = moment if isinstance(moment, str) else f"{moment:%Y:%m:%d %H:%M:%S}"
    return text.encode("utf-8", "surrogateescape")


def _triple(name: str, values: Any) -> list[Any]:
    triple = list(values)
    if len(triple) != 3:
        raise ValueError(f"{name}: must be three numbers, for Y, U and V, not {len(triple)}")
    return triple
