"""The examples of docs/python.md do what they say."""

import csv
import os
import re
import subprocess
import sys
from pathlib import Path

import pytest

import nq360

PAGE = Path(os.environ["NQ360_SOURCE"], "docs/python.md")


def run(name, *arguments, blocked=""):
    """Runs the example whose first line names it, without the module that is blocked."""
    programs = re.findall(r"```python\n(.*?)```", PAGE.read_text(encoding="utf-8"), re.DOTALL)
    (program,) = [program for program in programs if f": {name} " in program.splitlines()[0]]
    if blocked:
        program = f"import sys; sys.modules[{blocked!r}] = None\n" + program
    command = [sys.executable, "-c", program, *arguments]
    return subprocess.run(command, capture_output=True, text=True, check=True, env=os.environ | {"MPLBACKEND": "Agg"})


def test_folder_becomes_a_table(still, tmp_path):
    (tmp_path / "a.jpg").symlink_to(still[0])
    (tmp_path / "b.mov").write_text("no movie")
    (tmp_path / "c.txt").write_text("no picture")
    result = run("table.py", tmp_path)
    assert list(csv.reader(result.stdout.splitlines()))[1:] == [
        ["a.jpg", "1440x1440", "", "2026-01-02 03:04:05", "MERIDAN OPTICS RT-KA500", "True", ""]
    ]
    assert "b.mov': Could Not open file" in result.stderr


@pytest.mark.parametrize("blocked, shown", [("", "30/30"), ("tqdm", "30 of 30 frames")])
def test_panorama_with_progress(blocked, shown, movie, tmp_path):
    result = run("stitch.py", *movie, tmp_path / "out.mov", blocked=blocked)
    assert shown in result.stderr
    assert nq360.analyze(tmp_path / "out.mov").is_360


def test_contact_sheet(movie, tmp_path):
    run("sheet.py", *movie, tmp_path / "sheet.png")
    assert (tmp_path / "sheet.png").read_bytes().startswith(b"\x89PNG")


def test_first_lines(still, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    for half in still:
        Path(half.name).symlink_to(half)
    lines = re.search(r"```python\n(import nq360\n.*?)```", PAGE.read_text(encoding="utf-8"), re.DOTALL).group(1)
    values = re.findall(r"^(nq360\..*?)  +# (.*)$", lines, re.MULTILINE)
    assert len(values) == 2
    for expression, value in values:
        assert repr(eval(expression)) == value
    exec(lines)
    assert Path("panorama.jpg").exists()


def test_page_names_all_of_the_package():
    page = PAGE.read_text(encoding="utf-8")
    jobs = {name for name in nq360.__all__ if not name.endswith(("Options", "version", "__", "Preview"))}
    assert {name for name in jobs if not re.search(rf"`(nq360\.)?{name}\b", page)} == set()
