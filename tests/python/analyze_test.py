"""nq360.analyze"""

import gc
import logging
import os
import shutil
import struct
import threading
from datetime import datetime, timedelta
from pathlib import Path

import pytest

import nq360


def jpeg_size(data):
    """Columns and rows, from the frame header."""
    at = 2
    while data[at + 1] not in (0xC0, 0xC2):
        at += 2 + struct.unpack(">H", data[at + 2 : at + 4])[0]
    rows, columns = struct.unpack(">HH", data[at + 5 : at + 9])
    return columns, rows


def test_picture(still):
    description = nq360.analyze(still[0])
    assert description == nq360.Description(
        path=str(still[0]),
        is_picture=True,
        width=1440,
        height=1440,
        duration=None,
        frame_count=None,
        datetime=datetime(2026, 1, 2, 3, 4, 5),
        maker="MERIDAN OPTICS",
        model="RT-KA500",
        software="",
        is_360=True,
        orientation=1,
        capture_mode=129,
        multi_capture=0,
        camera_orientation=0,
        has_thumbnail=False,
        unread=(),
    )


def test_movie(movie):
    description = nq360.analyze(movie[1])
    assert not description.is_picture
    assert description.frame_count == 30
    assert description.duration == timedelta(seconds=1.001)


def test_panorama(still, tmp_path):
    nq360.export(*still, tmp_path / "out.jpg")
    description = nq360.analyze(tmp_path / "out.jpg")
    assert (description.width, description.height) == (2880, 1440)
    assert description.software.startswith("TALUMO360Viewer")
    assert description.is_360
    assert description.orientation is None
    assert description.datetime is None


def test_thumbnail(still, tmp_path):
    assert nq360.analyze(still[0], tmp_path / "usual.jpg").has_thumbnail
    assert nq360.analyze(still[0], tmp_path / "small.jpg", 100).has_thumbnail
    assert jpeg_size((tmp_path / "usual.jpg").read_bytes()) == (320, 320)
    assert jpeg_size((tmp_path / "small.jpg").read_bytes()) == (100, 100)


def test_thumbnail_of_another_camera_is_made_when_asked_for(still, tmp_path):
    plain = tmp_path / "plain.jpg"
    nq360.analyze(still[0], plain)
    assert not nq360.analyze(plain, tmp_path / "none.jpg").has_thumbnail
    assert nq360.analyze(plain, tmp_path / "one.jpg", thumbnail_always=True).has_thumbnail
    assert sorted(file.name for file in tmp_path.iterdir()) == ["one.jpg", "plain.jpg"]


def test_unread_part_is_named(still, tmp_path):
    data = still[0].read_bytes()
    (tmp_path / "cut.jpg").write_bytes(data[: len(data) // 2])
    assert nq360.analyze(tmp_path / "cut.jpg").unread == ("picture",)
    (tmp_path / "none.jpg").write_text("no picture")
    assert nq360.analyze(tmp_path / "none.jpg").unread == ("picture",)


def test_quick_tells_the_same_of_a_whole_file_and_less_of_a_damaged_one(still, tmp_path):
    assert nq360.analyze(still[0], quick=True) == nq360.analyze(still[0])
    data = still[0].read_bytes()
    (tmp_path / "damaged.jpg").write_bytes(data[: len(data) * 7 // 10] + b"\xff" * 9999 + b"\xff\xd9")
    assert nq360.analyze(tmp_path / "damaged.jpg").unread == ("picture",)
    assert nq360.analyze(tmp_path / "damaged.jpg", quick=True).unread == ()
    assert nq360.analyze(tmp_path / "damaged.jpg", tmp_path / "small.jpg", 80, quick=True).unread == ("picture",)


@pytest.mark.parametrize("name", [b"caf\xe9.jpg", b'q"uo\\te.jpg', b"line\nend.jpg", "gr\xfc\xdf.jpg".encode()])
def test_name_may_be_any_bytes(name, still, tmp_path):
    path = os.path.join(os.fsencode(tmp_path), name)
    thumbnail = path[:-4] + b"-small.jpg"
    shutil.copy(still[0], path)
    assert nq360.analyze(path, thumbnail).path == path
    assert nq360.analyze(os.fsdecode(path)).path == os.fsdecode(path)
    assert os.path.exists(thumbnail)


def test_missing_file():
    with pytest.raises(FileNotFoundError) as caught:
        nq360.analyze(Path("no/such.jpg"))
    assert caught.value.number == 10000
    assert caught.value.filename == "no/such.jpg"


def test_errors(still, tmp_path):
    other = tmp_path / "other.txt"
    broken = tmp_path / "broken.mov"
    for file in (other, broken):
        file.write_text("not a picture")
    for number, path, arguments in [
        (10001, other, (other,)),
        (10001, broken, (broken,)),
        (10003, still[0], (still[0], still[0])),
        (10003, tmp_path / "none/t.jpg", (still[0], tmp_path / "none/t.jpg")),
    ]:
        with pytest.raises(nq360.Error) as caught:
            nq360.analyze(*arguments)
        assert (caught.value.number, caught.value.path) == (number, str(path))


def test_width_out_of_range(still, tmp_path):
    with pytest.raises(ValueError, match="thumbnail_width: must be 0 to 32766, not -1") as caught:
        nq360.analyze(still[0], tmp_path / "t.jpg", -1)
    assert caught.value.number == 10005


def test_log_goes_to_the_logger(still, tmp_path, caplog, capfd):
    with caplog.at_level(logging.DEBUG, "nq360"):
        nq360.analyze(still[0])
        with pytest.raises(nq360.Error):
            nq360.analyze(tmp_path / "none.jpg")
    levels = {record.levelno for record in caplog.records}
    assert logging.DEBUG in levels
    assert any(str(still[0]) in record.getMessage() for record in caplog.records)
    assert capfd.readouterr() == ("", "")


class Stop(BaseException):
    """What no handler on the way would take for its own."""


def test_what_is_raised_in_a_callback_comes_out(still, movie, tmp_path, monkeypatch, caplog):
    def refuse(record):
        raise error

    error = Stop()
    monkeypatch.setattr(logging.getLogger("nq360"), "filters", [refuse])
    with caplog.at_level(logging.DEBUG, "nq360"):
        for job in (
            lambda: nq360.analyze(still[0]),
            lambda: nq360.match(*still),
            lambda: nq360.export(*movie, tmp_path / "out.mov"),
        ):
            with pytest.raises(Stop) as caught:
                job()
            assert caught.value is error
    assert list(tmp_path.iterdir()) == []


def test_thousand_analyses_leave_nothing_behind(still, tmp_path):
    def analyze_often(times):
        for _ in range(times):
            nq360.analyze(still[0])
            with pytest.raises(nq360.Error):
                nq360.analyze(tmp_path / "none.jpg")
        gc.collect()
        return len(gc.get_objects()), len(os.listdir("/proc/self/fd")), threading.active_count()

    before = analyze_often(5)
    assert analyze_often(1000) == pytest.approx(before, abs=20)
