"""nq360.preview, nq360.match, nq360.Shot"""

import gc
import os
import shutil
import subprocess
import threading

import numpy
import pytest

import nq360
from nq360._library import ffi, lib
from nq360._record import Record


def pixels_of(jpeg, width, height):
    """A JPEG's pixels as another program decodes them."""
    command = [
        "ffmpeg",
        "-v",
        "error",
        "-f",
        "jpeg_pipe",
        "-i",
        "-",
        "-sws_flags",
        "accurate_rnd+full_chroma_int",
        "-pix_fmt",
        "rgb24",
        "-f",
        "rawvideo",
        "-",
    ]
    data = subprocess.run(command, input=jpeg, stdout=subprocess.PIPE, check=True).stdout
    return numpy.frombuffer(data, numpy.uint8).reshape(height, width, 3)


def difference(one, other):
    """The mean of what two pictures differ by."""
    return numpy.abs(one.astype(int) - other).mean()


@pytest.fixture(scope="module")
def unlike(tmp_path_factory):
    """A picture whose lens 2 is brighter by a factor, and turned."""
    folder = tmp_path_factory.mktemp("unlike")
    pair = [folder / f"lens{lens}.jpg" for lens in (1, 2)]
    subprocess.run([os.environ["NQ360_SAMPLE"], "still", *pair, "--size", "1440", *UNLIKE], check=True)
    return pair


UNLIKE = ["--factor", "1.25", "--turn2", "2"]


def library_pixels(pair, **values):
    """What the library hands out, without the package's own calls."""
    record = Record("export", {"lens1": pair[0], "lens2": pair[1], **values})
    start, size = ffi.new("unsigned char**"), ffi.new("size_t*")
    assert lib.NQ360_preview_rgb(record.pointer, ffi.NULL, start, size) == lib.NQ360_FINISHED
    pixels = ffi.buffer(start[0], size[0])[:]
    lib.NQ360_free(start[0])
    return pixels


def test_preview_is_the_librarys_panorama(still, movie):
    look = {"width": 101, "height": 51, "yaw": 30, "pitch": -10, "feather": 3, "gain1": (0.5, 1, 1)}
    for pair, moments in [(still, {}), (movie, {"start1": 0.5, "start2": 0.5})]:
        array = nq360.preview(*pair, **look, **moments)
        assert array.shape == (51, 101, 3)
        assert array.tobytes() == library_pixels(pair, **look, **moments)


def test_preview_is_the_panorama_before_its_jpeg(still):
    with nq360.Shot(*still) as shot:
        array = shot.preview()
        assert (array.shape, array.dtype) == ((512, 1024, 3), numpy.uint8)
        assert difference(array, pixels_of(shot.jpeg(quality=100), 1024, 512)) < 1.5
        assert difference(array[:, :, ::-1], pixels_of(shot.jpeg(quality=100), 1024, 512)) > 5


def test_preview_is_what_an_export_shows(still, tmp_path):
    look = {"width": 640, "height": 320, "yaw": 25, "roll": -5.5, "gain1": (0.8, 1, 1), "feather": 2, "filter": True}
    nq360.export(*still, tmp_path / "out.jpg", quality=100, **look)
    exported = pixels_of((tmp_path / "out.jpg").read_bytes(), 640, 320)
    assert difference(nq360.preview(*still, **look), exported) < 1.5


def test_yaw_turns_the_columns(still):
    with nq360.Shot(*still) as shot:
        array = shot.preview(angle=90)
        assert difference(numpy.roll(array, 512, axis=1), shot.preview(angle=90, yaw=180)) < 2


def test_frames_are_those_at_the_starts(movie):
    size = {"width": 320, "height": 160}
    first = nq360.preview(*movie, **size)
    last = nq360.preview(*movie, start1=0.9, start2=0.9, **size)
    assert difference(first, last) > 2
    with nq360.Shot(*movie, start1=0.9, start2=0.9) as shot:
        assert numpy.array_equal(shot.preview(**size), last)
        assert numpy.array_equal(shot.preview(start1=0, start2=0, **size), first)
        assert numpy.array_equal(shot.preview(**size), last)


def test_array_outlives_its_shot(still):
    array = nq360.preview(*still, width=64, height=32)
    before = array.tobytes()
    gc.collect()
    nq360.preview(*still, width=64, height=32, yaw=90)
    assert array.tobytes() == before


class CountedLibrary:
    """The library, and how often it was given memory back."""

    def __init__(self):
        self.freed = 0

    def __getattr__(self, name):
        return getattr(lib, name)

    def NQ360_free(self, memory):
        self.freed += 1
        lib.NQ360_free(memory)


def test_memory_is_given_back_once(still, monkeypatch):
    counted = CountedLibrary()
    monkeypatch.setattr("nq360._shot.lib", counted)
    with nq360.Shot(*still) as shot:
        part = shot.preview(width=64, height=32)[:16]
        gc.collect()
        assert counted.freed == 0
        del part
        gc.collect()
        assert counted.freed == 1
        shot.jpeg(width=64, height=32)
        assert counted.freed == 2


def test_names_may_be_any_bytes(still, tmp_path):
    folder = os.fsencode(tmp_path) + b"/caf\xe9"
    os.mkdir(folder)
    halves = [shutil.copy(os.fsencode(half), folder) for half in still]
    expected = nq360.preview(*still, width=64, height=32)
    assert numpy.array_equal(nq360.preview(*halves, width=64, height=32), expected)
    assert nq360.match(*halves) == nq360.match(*still)
    with pytest.raises(nq360.MissingFileError) as caught:
        nq360.Shot(halves[0], folder + b"/none.jpg")
    assert caught.value.path == folder + b"/none.jpg"


def test_notebook_shows_the_whole_picture_alone(still, tmp_path):
    pair = [shutil.copy(half, tmp_path) for half in still]
    array = nq360.preview(*pair, width=64, height=32, yaw=90, quality=70)
    with nq360.Shot(*pair) as shot:
        jpeg = shot.jpeg(width=64, height=32, yaw=90, quality=70)
        assert array._repr_jpeg_() == jpeg
        assert shot._repr_jpeg_().startswith(b"\xff\xd8\xff")
    assert shot._repr_jpeg_() is None
    assert array[:16]._repr_jpeg_() is None
    assert array.copy()._repr_jpeg_() is None
    os.remove(pair[0])
    assert array._repr_jpeg_() is None


def test_copy_alone_can_be_drawn_on(still):
    array = nq360.preview(*still, width=64, height=32)
    with pytest.raises(ValueError, match="read-only"):
        array[0] = 0
    array.copy()[0] = 0


def test_match_finds_what_the_lenses_differ_by(unlike):
    match = nq360.match(*unlike)
    assert match.turn == pytest.approx(2, abs=0.1)
    assert (match.gain1[0], match.gain2[0]) == pytest.approx((1, 0.8), rel=0.03)
    assert abs(match.step[0]) > 5 * abs(match.step_gained[0])
    assert match.confidence > 0.5
    assert match.warning == ""


def test_options_of_a_match_make_the_lenses_meet(unlike):
    with nq360.Shot(*unlike) as shot:
        before = shot.match(turn2=0.5)
        after = shot.match(**before.options)
        assert abs(after.step[0]) < abs(before.step[0]) / 5
        assert after.turn == pytest.approx(0, abs=0.1)
        assert shot.preview(**before.options, width=64, height=32).shape == (32, 64, 3)


def test_match_warns_of_halves_that_do_not_belong_together(still):
    assert "same" in nq360.match(still[0], still[0]).warning


def test_errors(still, movie, tmp_path):
    for number, path, pair in [
        (30000, "none.jpg", (still[0], "none.jpg")),
        (30001, __file__, (__file__, still[1])),
    ]:
        for job in (nq360.Shot, nq360.preview, nq360.match):
            with pytest.raises(nq360.Error) as caught:
                job(*pair)
            assert (caught.value.number, caught.value.path) == (number, str(path))
    with pytest.raises(FileNotFoundError):
        nq360.Shot("none.jpg", still[1])
    with nq360.Shot(*movie) as shot:
        with pytest.raises(nq360.Error, match="input 1 has no picture at that time"):
            shot.preview(start1=100)
        with pytest.raises(ValueError, match="quality: must be 0 to 100, not 101"):
            shot.jpeg(quality=101)
        with pytest.raises(nq360.Error, match="the band picture cannot be read"):
            shot.preview(band=tmp_path / "none.png")


@pytest.mark.parametrize("job", ["preview", "jpeg", "match"])
def test_unknown_keyword_is_refused(job, still):
    with nq360.Shot(*still) as shot:
        with pytest.raises(TypeError, match=rf"{job}\(\) got an unexpected keyword argument 'web'"):
            getattr(shot, job)(web=True)


@pytest.mark.parametrize("job", ["preview", "jpeg", "match"])
def test_closed_shot_is_refused(job, still):
    shot = nq360.Shot(*still)
    shot.close()
    shot.close()
    with pytest.raises(ValueError, match="the shot is closed"):
        getattr(shot, job)()


def test_shot_is_used_by_one_thread_at_a_time(still):
    with nq360.Shot(*still) as shot:
        thread = threading.Thread(target=shot.preview)
        with shot._turn:
            thread.start()
            thread.join(0.5)
            assert thread.is_alive()
        thread.join()


def test_threads_may_share_a_shot(movie):
    with nq360.Shot(*movie) as shot:
        starts = [0.1 * number for number in range(8)]
        expected = [shot.jpeg(width=64, height=32, start1=start).hex() for start in starts]
        found = [""] * len(starts)

        def look(number):
            found[number] = shot.jpeg(width=64, height=32, start1=starts[number]).hex()

        threads = [threading.Thread(target=look, args=(number,)) for number in range(len(starts))]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
    assert found == expected
