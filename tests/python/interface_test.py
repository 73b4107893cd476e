"""What the package declares of the C interface is what nq360.h declares."""

import os
import re
from pathlib import Path

import pytest

import nq360
from nq360._interface import DECLARATIONS
from nq360._library import ffi
from nq360._options import ExportOptions

HEADER = Path(os.environ["NQ360_SOURCE"], "include/nq360.h")


def declarations(text):
    """Each declaration without comments, as its words."""
    text = re.sub(r"/\*.*?\*/|^#.*?$|extern \"C\" {", " ", text, flags=re.DOTALL | re.MULTILINE)
    ends = re.sub(r"{[^{}]*}", lambda record: record.group().replace(";", "\0"), text).split(";")
    return [tuple(re.findall(r"\w+|[^\w\s]", end.replace("\0", ";"))) for end in ends if end.strip()]


def fields(kind):
    return {name for name, _ in ffi.typeof(f"NQ360_{kind}_OPTIONS").fields}


def test_declarations_are_those_of_the_header():
    header = declarations(HEADER.read_text(encoding="utf-8"))
    ours = declarations(DECLARATIONS)
    assert len(ours) > 10
    assert [words for words in ours if words not in header] == []


def test_declares_every_function_with_options():
    interface = HEADER.read_text(encoding="utf-8").split("The interface with options")[1]
    names = set(re.findall(r"^\w.*?\b(NQ360_[a-z_0-9]+)\(", interface, re.MULTILINE))
    assert names == set(re.findall(r"^\w.*?\b(NQ360_[a-z_0-9]+)\(", DECLARATIONS, re.MULTILINE)) - {"NQ360_freesize"}


def test_every_field_of_the_record_is_a_keyword():
    handled = {"size", "lens1", "lens2", "output", "reply", "log", "user"}
    assert set(ExportOptions.__annotations__) == fields("EXPORT") - handled


def test_help_names_every_keyword():
    keywords = re.search(r"\(ExportOptions\).*", nq360.export.__doc__, re.DOTALL).group()
    assert set(ExportOptions.__annotations__) <= set(re.findall(r"\w+", keywords))


def test_version_is_the_librarys():
    assert nq360.__version__ == nq360.library_version()


@pytest.mark.parametrize("job", [nq360.export, nq360.Export])
def test_unknown_keyword_is_refused(job, still, tmp_path):
    with pytest.raises(TypeError, match=r"xport\(\) got an unexpected keyword argument 'fether'"):
        job(*still, tmp_path / "out.jpg", fether=1.5)
    assert not list(tmp_path.iterdir())
