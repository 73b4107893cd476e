"""The room that is left."""

from __future__ import annotations

import os
from pathlib import Path

from ._library import lib
from ._record import FilePath, c_text


def free_space(path: FilePath | None = None) -> int:
    """Bytes free to an unprivileged user on the volume of a folder, of a file's folder, or of the current one."""
    name = os.fspath("." if path is None else path)
    free: int = lib.NQ360_freesize(c_text("path", os.fsencode(name)))
    if free == 0:
        os.statvfs(name if os.path.isdir(name) else Path(os.fsdecode(name)).parent)  # raises why it cannot be asked
    return free
