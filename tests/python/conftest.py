"""The files that the tests share, made by the sample tool as the camera would make them."""

import os
import subprocess

import pytest

SAMPLE = os.environ["NQ360_SAMPLE"]


def _make(kind, folder, *options):
    extension = {"still": "jpg", "movie": "mov"}[kind]
    pair = [folder / f"lens{lens}.{extension}" for lens in (1, 2)]
    subprocess.run([SAMPLE, kind, *pair, "--size", "1440", *options], check=True)
    return pair


@pytest.fixture(scope="session")
def still(tmp_path_factory):
    """Both halves of a picture of 1440 x 1440."""
    return _make("still", tmp_path_factory.mktemp("still"))


@pytest.fixture(scope="session")
def movie(tmp_path_factory):
    """Both halves of a movie of 30 frames with sound."""
    return _make("movie", tmp_path_factory.mktemp("movie"), "--frames", "30", "--sound", "both")
