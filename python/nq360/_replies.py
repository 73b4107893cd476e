"""The library's replies: JSON, but for the camera's own texts, which stand in them as they are."""

from __future__ import annotations

import json
import re
from typing import Any

# Each text that is not escaped, and the key behind it, which tells where it ends.
_RAW = (("maker", "model"), ("model", "orientaion"), ("api_errstr", "movie_path1"), ("api_errstr", "movie_path"))
_FRAME_COUNT = re.compile(rb'"frame_count":(-?\d+)')
_MISSING = re.compile(rb',"missing":"(.*)"\}$', re.DOTALL)


def _escaped(reply: str, key: str, next_key: str) -> str:
    opening = f'"{key}":"'
    start = reply.find(opening) + len(opening)
    end = reply.rfind(f'","{next_key}":', start)
    if start < len(opening) or end < 0:
        return reply
    return reply[:start] + json.dumps(reply[start:end])[1:-1] + reply[end:]


def read_reply(reply: bytes) -> dict[str, Any]:
    """The keys of a reply; bytes that are not UTF-8 are replaced."""
    text = reply.decode("utf-8", "replace")
    for key, next_key in _RAW:
        text = _escaped(text, key, next_key)
    keys: dict[str, Any] = json.loads(text, strict=False)
    return keys


def frame_count_of(reply: bytes) -> int:
    """What a started or progress reply counts; -1 where a long name has left no room for it."""
    found = _FRAME_COUNT.search(reply)
    return int(found.group(1)) if found else -1


def missing_in(reply: bytes) -> str:
    """What an export could not read of its inputs, in words; else empty."""
    found = _MISSING.search(reply)
    return found.group(1).decode("utf-8", "replace") if found else ""
