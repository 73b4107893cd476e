"""Describes the files of a dual-lens 360-degree camera and stitches the halves of a shot into one panorama.

Log lines go to the logger "nq360" of the module logging.
"""

from ._analyze import Description, analyze
from ._build import VERSION as __version__
from ._errors import CancelledError, Error, IncompleteInputWarning, MissingFileError, OptionError
from ._export import Export, Panorama, export, extract_audio
from ._job import Progress
from ._library import library_version
from ._options import ExportOptions
from ._space import free_space

__all__ = [
    "CancelledError",
    "Description",
    "Error",
    "Export",
    "ExportOptions",
    "IncompleteInputWarning",
    "MissingFileError",
    "OptionError",
    "Panorama",
    "Progress",
    "__version__",
    "analyze",
    "export",
    "extract_audio",
    "free_space",
    "library_version",
]
