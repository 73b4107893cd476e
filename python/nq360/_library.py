"""The library: found, checked for its version, and called through cffi."""

from __future__ import annotations

import os
from pathlib import Path
from typing import Any

import cffi  # type: ignore[import]

from ._build import LIBRARY, VERSION
from ._interface import DECLARATIONS

ffi: Any = cffi.FFI()
ffi.cdef(DECLARATIONS)


def _file_name() -> str:
    chosen = os.environ.get("NQ360_LIBRARY")
    if chosen:
        return chosen
    if "/" not in LIBRARY:
        return LIBRARY
    return os.path.normpath(Path(__file__).parent / LIBRARY)


def _opened() -> Any:
    name = _file_name()
    advice = "install the library of the same release, or name its file in the environment variable NQ360_LIBRARY"
    try:
        library = ffi.dlopen(name)
    except OSError as error:
        raise ImportError(f"nq360 {VERSION} cannot load its library: {error}; {advice}") from None
    try:
        found: str = ffi.string(library.NQ360_version()).decode()
    except AttributeError:
        found = "1.0"  # which had no way to ask
    # A field may be added to a record with each minor release, and init fills what its own release has.
    if found.split(".")[:2] != VERSION.split(".")[:2]:
        raise ImportError(f"nq360 {VERSION} does not go with {name}, which is version {found}; {advice}")
    return library


lib: Any = _opened()


def library_version() -> str:
    """The version of the library that is used, as "1.1.0"."""
    version: str = ffi.string(lib.NQ360_version()).decode()
    return version
