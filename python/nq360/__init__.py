"""Describes the files of a dual-lens 360-degree camera and stitches the halves of a shot into one panorama.

Log lines go to the logger "nq360" of the module logging.
"""

from ._analyze import Description, analyze
from ._build import VERSION as __version__
from ._errors import CancelledError, Error, IncompleteInputWarning, MissingFileError, OptionError
from ._export import Export, Panorama, export, extract_audio, join
from ._job import Progress
from ._library import library_version
from ._options import ExportOptions, LensOptions, MatchOptions, PreviewOptions
from ._shot import Match, Preview, Shot, match, preview
from ._space import free_space

__all__ = [
    "CancelledError",
    "Description",
    "Error",
    "Export",
    "ExportOptions",
    "IncompleteInputWarning",
    "LensOptions",
    "Match",
    "MatchOptions",
    "MissingFileError",
    "OptionError",
    "Panorama",
    "Preview",
    "PreviewOptions",
    "Progress",
    "Shot",
    "__version__",
    "analyze",
    "export",
    "extract_audio",
    "free_space",
    "join",
    "library_version",
    "match",
    "preview",
]
