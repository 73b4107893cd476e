"""nq360.export, nq360.Export"""

import logging
import os
import shutil
import signal
import subprocess
import sys
import threading

import pytest

import nq360
from nq360._job import _CancelMarker
from nq360._library import ffi
from nq360._record import Record


def names(folder):
    return sorted(os.listdir(folder))


class Stop(BaseException):
    """What no handler on the way would take for its own."""


def test_stills(still, tmp_path):
    reports = []
    panorama = nq360.export(*still, tmp_path / "out.jpg", width=640, height=320, progress=lambda *r: reports.append(r))
    description = nq360.analyze(panorama)
    assert (description.width, description.height) == (640, 320)
    assert len(reports) == 1
    assert names(tmp_path) == ["out.jpg"]


def test_movies_tell_how_far_they_are(movie, tmp_path):
    reports = []
    nq360.export(*movie, tmp_path / "out.mov", width=640, height=320, progress=lambda *r: reports.append(r))
    assert reports == [(0, 30), (10, 30), (20, 30), (30, 30)]
    assert nq360.analyze(tmp_path / "out.mov").frame_count == 30


def test_keywords_reach_the_library(movie, tmp_path):
    nq360.export(*movie, tmp_path / "out.mp4", width=640, height=320, start1=0.5, start2=0.5, audio_source=-1)
    assert nq360.analyze(tmp_path / "out.mp4").frame_count == pytest.approx(15, abs=1)
    with pytest.raises(nq360.Error, match="Movie Has No Audio Stream") as caught:
        nq360.extract_audio(tmp_path / "out.mp4", tmp_path / "sound.wav")
    assert (caught.value.number, caught.value.path) == (20001, str(tmp_path / "out.mp4"))


def test_parts_are_joined(movie, tmp_path):
    whole = nq360.export(*movie, tmp_path / "whole.mov", width=640, height=320, workers=1).path.read_bytes()
    parts = [tmp_path / f"{part}.part" for part in (1, 2)]
    for number, part in enumerate(parts, 1):
        nq360.export(*movie, part, width=640, height=320, part=number, parts=2)
    reports = []
    joined = nq360.join(reversed(parts), tmp_path / "joined.mov", progress=lambda *r: reports.append(r))
    assert joined.path.read_bytes() == whole
    assert reports == [(0, 30), (10, 30), (20, 30), (30, 30)]
    with pytest.raises(nq360.Error, match="of its 2 parts these are missing: 1") as failure:
        nq360.join([parts[1]], tmp_path / "half.mov")
    assert failure.value.path == os.fspath(parts[1])
    with pytest.raises(FileNotFoundError) as missing:
        nq360.join([parts[0], tmp_path / "none"], tmp_path / "half.mov")
    assert missing.value.filename == os.fspath(tmp_path / "none")
    with pytest.raises(ValueError, match="part"):
        nq360.export(*movie, tmp_path / "x.part", part=3, parts=2)


def test_iterator_tells_how_far_it_is(movie, tmp_path):
    job = nq360.Export(*movie, tmp_path / "out.mov", width=640, height=320)
    assert names(tmp_path) == []
    for _ in range(2):  # each loop is an export
        assert list(job) == [(0, 30), (10, 30), (20, 30), (30, 30)]
    assert names(tmp_path) == ["out.mov"]


def test_leaving_the_iterator_cancels(movie, tmp_path):
    (tmp_path / "out.mov").write_text("the old one")
    for progress in nq360.Export(*movie, tmp_path / "out.mov"):
        assert progress.done in (0, 10, 20)
        if progress.done == 20:
            break
    assert names(tmp_path) == ["out.mov"]
    assert (tmp_path / "out.mov").read_text() == "the old one"


def test_export_waits_while_a_report_is_looked_at(movie, tmp_path):
    reports = iter(nq360.Export(*movie, tmp_path / "out.mov", width=640, height=320))
    next(reports)
    nq360.export(*movie, tmp_path / "other.mov", width=640, height=320)  # long enough for the first one to end
    reports.close()
    assert names(tmp_path) == ["other.mov"]


def test_iterator_that_is_left_alone_does_not_hold_up_the_end(movie, tmp_path):
    program = "import nq360, sys; reports = iter(nq360.Export(*sys.argv[1:])); next(reports)"
    subprocess.run([sys.executable, "-c", program, *movie, tmp_path / "out.mov"], check=True)
    assert names(tmp_path) == []


def test_exception_in_the_loop_cancels(movie, tmp_path):
    with pytest.raises(Stop):
        for _ in nq360.Export(*movie, tmp_path / "out.mov"):
            raise Stop
    assert names(tmp_path) == []
    assert threading.active_count() == 1


def test_callback_that_raises_ends_the_export_with_that_exception(movie, tmp_path):
    error = Stop()

    def stop(done, total):
        if done == 10:
            raise error

    with pytest.raises(Stop) as caught:
        nq360.export(*movie, tmp_path / "out.mov", progress=stop)
    assert caught.value is error
    assert names(tmp_path) == []
    with pytest.raises(Stop):
        nq360.extract_audio(movie[0], tmp_path / "out.wav", progress=stop)
    assert names(tmp_path) == []


def test_errors_of_the_iterator(still, tmp_path):
    with pytest.raises(FileNotFoundError):
        list(nq360.Export(still[0], "none.jpg", tmp_path / "out.jpg"))
    with pytest.raises(TypeError, match="width: "):
        iter(nq360.Export(*still, tmp_path / "out.jpg", width="wide"))


def test_errors(still, movie, tmp_path):
    lens1, lens2 = still
    out = tmp_path / "out.jpg"
    for number, path, arguments in [
        (30000, "none.jpg", ("none.jpg", lens2, out)),
        (30001, __file__, (lens1, __file__, out)),
        (30003, lens1, (lens1, lens2, lens1)),
        (30003, tmp_path / "none/out.jpg", (lens1, lens2, tmp_path / "none/out.jpg")),
        (39999, tmp_path / "out.mov", (lens1, lens2, tmp_path / "out.mov")),
    ]:
        with pytest.raises(nq360.Error) as caught:
            nq360.export(*arguments)
        assert (caught.value.number, caught.value.path) == (number, str(path))
    with pytest.raises(ValueError, match=r"bad option: feather: must be 0 to 5.5, not 9 \(30005\)"):
        nq360.export(*still, out, feather=9)
    assert names(tmp_path) == []


def test_cancel_marker_of_the_caller(movie, tmp_path):
    marker = tmp_path / "stop"
    marker.touch()
    with pytest.raises(nq360.CancelledError):
        nq360.export(*movie, tmp_path / "out.mov", cancel_path=marker)
    assert names(tmp_path) == ["stop"]


def test_own_cancel_marker_is_there_when_set():
    record = Record("export", {})
    before = names("/proc/self/fd")
    with _CancelMarker(record) as marker:
        path = ffi.string(record.pointer.cancel_path)
        assert not os.path.exists(path)
        marker.set()
        assert os.path.exists(path)
    assert names("/proc/self/fd") == before


def test_incomplete_input_is_warned_of(still, tmp_path):
    cut = tmp_path / "cut.jpg"
    cut.write_bytes(still[0].read_bytes()[:40000])
    with pytest.warns(nq360.IncompleteInputWarning, match="out.jpg: input 1: ") as caught:
        nq360.export(cut, still[1], tmp_path / "out.jpg")
    assert caught[0].filename == __file__
    with pytest.raises(nq360.Error):
        nq360.export(cut, still[1], tmp_path / "out.jpg", whole_inputs_only=True)


def test_name_may_be_any_bytes(still, tmp_path):
    folder = os.fsencode(tmp_path) + b'/caf\xe9\n"'
    os.mkdir(folder)
    halves = [shutil.copy(os.fsencode(half), folder) for half in still]
    panorama = nq360.export(*halves, folder + b"/out.jpg")
    assert os.fsencode(panorama) == folder + b"/out.jpg"
    assert panorama.path.exists()


def test_panorama_shows_itself(still, movie, tmp_path):
    for panorama in [
        nq360.export(*still, tmp_path / "out.jpg"),
        nq360.export(*movie, tmp_path / "out.mov", width=640, height=320),
    ]:
        assert panorama._repr_jpeg_().startswith(b"\xff\xd8\xff")
    panorama.path.unlink()
    assert panorama._repr_jpeg_() is None


def test_two_threads_export_at_once(movie, tmp_path):
    failures = []

    def export(name):
        try:
            nq360.export(*movie, tmp_path / name, width=640, height=320)
        except BaseException as error:
            failures.append(error)

    threads = [threading.Thread(target=export, args=(f"{number}.mov",)) for number in range(2)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert failures == []
    assert (tmp_path / "0.mov").read_bytes() == (tmp_path / "1.mov").read_bytes()


def test_interpreter_runs_on_beside_the_library(movie, tmp_path):
    interval = sys.getswitchinterval()
    sys.setswitchinterval(1000)  # so that only who gives the interpreter's lock away lets others run
    try:
        reports = iter(nq360.Export(*movie, tmp_path / "out.mov"))
        next(reports)
        assert not (tmp_path / "out.mov").exists()
        list(reports)
    finally:
        sys.setswitchinterval(interval)
    assert (tmp_path / "out.mov").exists()


@pytest.mark.parametrize("before", [{}, {"out.mov": b"the old one"}])
def test_interrupt_cancels_and_leaves_what_was_there(before, movie, tmp_path):
    for name, content in before.items():
        (tmp_path / name).write_bytes(content)
    program = "import nq360, sys; nq360.export(*sys.argv[1:], progress=lambda done, total: print(done, flush=True))"
    command = [sys.executable, "-c", program, *movie, tmp_path / "out.mov"]
    with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True) as child:
        assert child.stdout.readline() == "0\n"
        child.send_signal(signal.SIGINT)
        errors = child.communicate()[1]
    assert child.returncode == -signal.SIGINT
    assert errors.splitlines()[-1] == "KeyboardInterrupt"
    assert {path.name: path.read_bytes() for path in tmp_path.iterdir()} == before


def test_interrupt_between_two_reports_sets_the_marker(movie, tmp_path, monkeypatch, caplog):
    class Marker(_CancelMarker):
        def set(self):
            super().set()
            is_set.set()

    def interrupt(record):
        if reports == [0] and not sent.is_set():
            sent.set()
            signal.pthread_kill(threading.main_thread().ident, signal.SIGINT)
            is_set.wait(10)  # the library goes on when it is there
        return True

    sent, is_set, reports = threading.Event(), threading.Event(), []
    monkeypatch.setattr("nq360._job._CancelMarker", Marker)
    monkeypatch.setattr(logging.getLogger("nq360"), "filters", [interrupt])
    with caplog.at_level(logging.DEBUG, "nq360"), pytest.raises(KeyboardInterrupt):
        nq360.export(*movie, tmp_path / "out.mov", progress=lambda done, total: reports.append(done))
    assert is_set.is_set()
    assert reports == [0]
    assert names(tmp_path) == []


def test_interrupt_ends_a_match(movie):
    program = (
        "import logging, nq360, sys\n"
        "logging.basicConfig(level=logging.DEBUG, stream=sys.stdout, format='%(message)s')\n"
        "nq360.match(*sys.argv[1:])\n"
    )
    command = [sys.executable, "-u", "-c", program, *movie]
    with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True) as child:
        child.stdout.readline()
        child.send_signal(signal.SIGINT)
        errors = child.communicate()[1]
    assert child.returncode == -signal.SIGINT
    assert errors.splitlines()[-1] == "KeyboardInterrupt"
