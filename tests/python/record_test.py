"""How Python's values come into a record."""

from datetime import datetime, timedelta
from pathlib import Path

import numpy
import pytest

from nq360._library import ffi
from nq360._record import Record

NONE = -99999999


def test_begins_as_init_has_it():
    record = Record("export", {}).pointer
    assert record.size == ffi.sizeof("NQ360_EXPORT_OPTIONS")
    assert list(record.correct1) == [NONE] * 3
    assert list(record.gain2) == [1] * 3
    assert (record.end1, record.feather, record.lens1) == (3600, 0, ffi.NULL)


@pytest.mark.parametrize(
    "name, value, expected",
    [
        ("width", 4096, 4096),
        ("width", numpy.int64(4096), 4096),
        ("angle", 22.5, 22.5),
        ("yaw", numpy.float32(0.5), 0.5),
        ("pitch", 3, 3.0),
        ("correct1", (6, -3, 2), [6, -3, 2]),
        ("gain2", numpy.array([1.25, 1, 0.5]), [1.25, 1, 0.5]),
        ("band", Path("a/b.png"), b"a/b.png"),
        ("band", "caf\xe9.png", "caf\xe9.png".encode()),
        ("band", b"\xff.png", b"\xff.png"),
        ("band", "\udcff.png", b"\xff.png"),
        ("band", None, ffi.NULL),
        ("correct2", None, [NONE] * 3),
        ("audio_source", -1, -1),
        ("sound_codec", "pcm", 0),
        ("sound_codec", "aac", 1),
        ("start1", 1.5, 1.5),
        ("end2", timedelta(minutes=1, milliseconds=250), 60.25),
        ("datetime", "as it is", b"as it is"),
        ("datetime", datetime(2026, 1, 2, 3, 4, 5, 999999), b"2026:01:02 03:04:05"),
        ("bit_rate", 288000000, 288000000),
        ("web", True, 1),
        ("workers", -1, -1),
        ("filter", False, 0),
    ],
)
def test_value_becomes_a_field(name, value, expected):
    record = Record("export", {name: value})
    found = getattr(record.pointer, name)
    if isinstance(expected, bytes):
        found = ffi.string(found)
    elif isinstance(expected, list):
        found = list(found)
    assert found == expected


@pytest.mark.parametrize(
    "name, value, error, text",
    [
        ("width", 9.5, TypeError, "width: "),
        ("width", "9", TypeError, "width: "),
        ("width", 2**31, OverflowError, "width: "),
        ("bit_rate", 2**63, OverflowError, "bit_rate: "),
        ("angle", "up", TypeError, "angle: "),
        ("correct1", [1, 2], ValueError, "correct1: must be three numbers, for Y, U and V, not 2"),
        ("gain1", [1, 2, 3, 4], ValueError, "gain1: .* not 4"),
        ("gain1", 1.5, TypeError, "not iterable"),
        ("correct1", [1, 2.5, 3], TypeError, "correct1: "),
        ("band", 3, TypeError, "int"),
        ("band", "a\0b", ValueError, "band: embedded null byte"),
        ("datetime", "2026\0", ValueError, "datetime: embedded null byte"),
        ("sound_codec", "mp3", ValueError, "sound_codec: must be 'pcm' or 'aac', not 'mp3'"),
    ],
)
def test_wrong_value_is_told_by_its_name(name, value, error, text):
    with pytest.raises(error, match=text):
        Record("export", {name: value})
