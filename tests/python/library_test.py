"""How the package finds its library, and what it says of one that does not go with it."""

import os
import subprocess
import sys

import pytest


def imported(library):
    environment = dict(os.environ, NQ360_LIBRARY=str(library))
    return subprocess.run([sys.executable, "-c", "import nq360"], env=environment, capture_output=True, text=True)


def build(folder, source):
    library = folder / "libother.so"
    subprocess.run(["cc", "-shared", "-fPIC", "-x", "c", "-", "-o", library], input=source, text=True, check=True)
    return library


def test_other_file_is_used(tmp_path):
    with open("/proc/self/maps", encoding="utf-8") as maps:
        import nq360  # noqa: F401

        own = next(line.split()[-1] for line in maps if "libnq360.so" in line)
    other = tmp_path / "libelsewhere.so"
    other.symlink_to(own)
    assert imported(other).returncode == 0


def test_missing_library_is_told(tmp_path):
    result = imported(tmp_path / "none.so")
    assert result.returncode == 1
    assert "ImportError: nq360 1." in result.stderr
    assert "none.so" in result.stderr
    assert "NQ360_LIBRARY" in result.stderr


@pytest.mark.parametrize(
    "source, version",
    [
        ('const char* NQ360_version(void) { return "1.2.0"; }', "1.2.0"),
        ('const char* NQ360_version(void) { return "2.1.0"; }', "2.1.0"),
        ("int NQ360_export(void) { return 0; }", "1.0"),
    ],
)
def test_other_release_is_refused(tmp_path, source, version):
    library = build(tmp_path, source)
    result = imported(library)
    assert result.returncode == 1
    assert f"does not go with {library}, which is version {version};" in result.stderr


def test_later_mending_release_is_taken(tmp_path):
    assert imported(build(tmp_path, 'const char* NQ360_version(void) { return "1.1.99"; }')).returncode == 0
