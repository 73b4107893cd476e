"""Replies whose texts are not escaped are read all the same."""

import pickle

import pytest

import nq360
from nq360._errors import error_of
from nq360._replies import frame_count_of, missing_in, read_reply

DESCRIPTION = b'{"width":7,"maker":"%s","model":"%s","orientaion":1,"movie_path":"a\\\\b\\"c\n","type":"JPEG"}'
PATHS = {"lens1": "a.jpg", "lens2": b"b.jpg", "output": "o.jpg"}


@pytest.mark.parametrize(
    "maker, model",
    [
        (b"plain", b"plain"),
        (b'17" screen', b'"'),
        (b"back\\slash", b"\\"),
        (b"line\nend", b"\x01\x1f"),
        (b"", b'x","orientaion":8,"y":"'),
        (b'","width":8,"x":"', b""),
    ],
)
def test_camera_texts_are_taken_as_they_are(maker, model):
    keys = read_reply(DESCRIPTION % (maker, model))
    assert (keys["maker"], keys["model"]) == (maker.decode(), model.decode())
    assert (keys["width"], keys["orientaion"], keys["movie_path"]) == (7, 1, 'a\\b"c\n')


def test_bytes_that_are_not_utf8_are_replaced():
    assert read_reply(DESCRIPTION % (b"\xe9t\xe9", b""))["maker"] == "\ufffdt\ufffd"


def test_frame_count_is_the_librarys_own_not_one_in_a_name():
    assert frame_count_of(b'{"export_path":"\\"frame_count\\":7","frame_count":20}') == 20
    assert frame_count_of(b'{"export_path":"cut off here') == -1


def test_missing_part_is_found():
    assert missing_in(b'{"export_path":"o.jpg","missing":"input 1: 40 % of it"}') == "input 1: 40 % of it"
    assert missing_in(b'{"export_path":"o.jpg"}') == ""


def export_error(number, text, detail=b"", cancelled=False):
    reply = b'{"errnum":"%d","errstr":"%s","api_errnum":-1,"api_errstr":"%s","movie_path1":"","movie_path2":"x"}'
    return error_of(reply % (number, text, detail), cancelled, PATHS)


@pytest.mark.parametrize(
    "number, text, kind, path",
    [
        (30000, b"Input file1 not exiists", nq360.MissingFileError, "a.jpg"),
        (30000, b"Input file2 not exiists", FileNotFoundError, b"b.jpg"),
        (30001, b"Analyze Error InputFile2", nq360.Error, b"b.jpg"),
        (30001, b"Could not open file", nq360.Error, None),
        (30003, b"export file not writable", nq360.Error, "o.jpg"),
        (30004, b"disk is full", nq360.Error, "o.jpg"),
        (30005, b"bad option", nq360.OptionError, None),
        (30005, b"bad option", ValueError, None),
        (39999, b"Could not write video", nq360.Error, "o.jpg"),
    ],
)
def test_error_has_its_kind_number_and_file(number, text, kind, path):
    error = export_error(number, text, b'it says "no"\\')
    assert isinstance(error, kind)
    assert (error.number, error.text, error.detail, error.path) == (number, text.decode(), 'it says "no"\\', path)


def test_error_reads_well():
    assert str(export_error(30003, b"export file not writable", b"why")) == (
        "'o.jpg': export file not writable: why (30003)"
    )
    assert str(export_error(30005, b"bad option", b"yaw: 3")) == "bad option: yaw: 3 (30005)"


def test_missing_file_is_one_to_python():
    error = export_error(30000, b"Input file1 not exiists")
    assert (error.errno, error.filename) == (2, "a.jpg")


def test_cancel_is_of_its_own_kind():
    assert type(export_error(39999, b"Canceled", cancelled=True)) is nq360.CancelledError


@pytest.mark.parametrize("number, text", [(30000, b"Input file2 not exiists"), (30005, b"bad option"), (39999, b"x")])
def test_error_travels_between_processes(number, text):
    error = export_error(number, text, b"why")
    copy = pickle.loads(pickle.dumps(error))
    assert type(copy) is type(error)
    assert vars(copy) == vars(error)
    assert str(copy) == str(error)


def test_reply_that_was_cut_is_an_error():
    assert error_of(b'{"errnum":"10000","errstr":"Input', False, {}).number == 0
