"""nq360.extract_audio, nq360.free_space"""

import os
import shutil
import wave

import pytest

import nq360


def test_sound_of_a_movie(movie, tmp_path):
    reports = []
    path = nq360.extract_audio(movie[0], tmp_path / "out.wav", progress=lambda *report: reports.append(report))
    assert path == tmp_path / "out.wav"
    with wave.open(str(path)) as sound:
        assert (sound.getnchannels(), sound.getsampwidth(), sound.getframerate()) == (2, 2, 48000)
        assert sound.getnframes() == pytest.approx(48048, abs=2000)
    assert reports[0][0] == 0
    assert [done for done, _ in reports[1:]] == list(range(10, len(reports) * 10, 10))


def test_codec_and_rate_reach_the_library(movie, tmp_path):
    low, high = (
        nq360.extract_audio(movie[0], tmp_path / f"{rate}.m4a", sound_codec="aac", bit_rate=rate)
        for rate in (32000, 256000)
    )
    assert low.stat().st_size < high.stat().st_size / 2


def test_errors(movie, still, tmp_path):
    for number, path, arguments in [
        (20000, "none.mov", ("none.mov", tmp_path / "out.wav")),
        (20001, still[0], (still[0], tmp_path / "out.wav")),
        (20003, movie[0], (movie[0], movie[0])),
        (29999, tmp_path / "out.txt", (movie[0], tmp_path / "out.txt")),
    ]:
        with pytest.raises(nq360.Error) as caught:
            nq360.extract_audio(*arguments)
        assert (caught.value.number, caught.value.path) == (number, str(path))
    with pytest.raises(ValueError, match="bit_rate: must be 8000 to 512000, not 7 "):
        nq360.extract_audio(movie[0], tmp_path / "out.m4a", sound_codec="aac", bit_rate=7)
    assert list(tmp_path.iterdir()) == []


def test_names_may_be_any_bytes(movie, tmp_path):
    folder = os.fsencode(tmp_path)
    lens1 = shutil.copy(os.fsencode(movie[0]), folder + b"/caf\xe9.mov")
    assert os.fsencode(nq360.extract_audio(lens1, folder + b"/caf\xe9.wav")) == folder + b"/caf\xe9.wav"
    assert os.path.getsize(folder + b"/caf\xe9.wav") > 100000


def test_cancel_marker(movie, tmp_path):
    marker = tmp_path / "stop"
    marker.touch()
    with pytest.raises(nq360.CancelledError):
        nq360.extract_audio(movie[0], tmp_path / "out.wav", cancel_path=marker)
    assert list(tmp_path.iterdir()) == [marker]


def test_free_space_is_that_of_the_volume(tmp_path):
    volume = os.statvfs("/dev/shm")
    for path in ["/dev/shm", b"/dev/shm", "/dev/shm/no-such-file"]:
        assert nq360.free_space(path) == pytest.approx(volume.f_bavail * volume.f_frsize, rel=0.05)
    assert nq360.free_space() > 0


@pytest.mark.parametrize("path", ["/no/such/file", b"/no/such/file"])
def test_free_space_of_nowhere(path):
    with pytest.raises(FileNotFoundError):
        nq360.free_space(path)
