"""Calls of the library: their replies, their log lines, and how they are stopped."""

from __future__ import annotations

import logging
import os
import threading
from collections.abc import Callable, Generator
from queue import SimpleQueue
from typing import Any, NamedTuple

from ._errors import error_of
from ._library import ffi, lib
from ._record import Record
from ._replies import frame_count_of

_logger = logging.getLogger("nq360")
_logger.addHandler(logging.NullHandler())

# What the library calls information tells every step of a job: in Python's terms that is for debugging.
_LEVELS = {1: logging.DEBUG, 3: logging.ERROR}


class Progress(NamedTuple):
    """How far a job is: frames, or packets of sound, that were written, of about how many."""

    done: int
    total: int


class Job:
    """One call of a function that takes a record. What is raised in its callbacks stops it, and check() raises it."""

    def __init__(self, record: Record, on_progress: Callable[[Progress], None] = lambda progress: None) -> None:
        self.cancelled = False
        self._record = record
        self._on_progress = on_progress
        self._total = 0
        self._state: int | None = None
        self._last_reply = b""
        self._error: BaseException | None = None

    def run(self, function: Callable[..., Any], *arguments: Any) -> Any:
        """Calls the function with the record and the arguments."""
        record = self._record.pointer
        handle = ffi.new_handle(self)
        record.reply, record.log, record.user = _on_reply, _on_log, handle
        return function(record, *arguments)

    def check(self) -> bytes:
        """The last reply, unless the job has failed."""
        if self._error is not None:
            raise self._error
        if self._state in (lib.NQ360_CANCELLED, lib.NQ360_FAILED):
            raise error_of(self._last_reply, self._state == lib.NQ360_CANCELLED, self._record.paths)
        return self._last_reply

    def take_reply(self, state: int, reply: bytes) -> bool:
        """Whether the job is to stop."""
        try:
            self._read(state, reply)
        except BaseException as error:  # Ctrl-C too, which is raised wherever Python code runs
            self._error = error
        return self.cancelled or self._error is not None

    def take_log(self, level: int, line: bytes) -> None:
        """Hands the line to the logger "nq360"."""
        try:
            _logger.log(_LEVELS.get(level, logging.INFO), "%s", line.decode("utf-8", "replace"))
        except BaseException as error:
            self._error = error

    def _read(self, state: int, reply: bytes) -> None:
        if state == lib.NQ360_STARTED:
            self._total = frame_count_of(reply)
            self._on_progress(Progress(0, self._total))
        elif state == lib.NQ360_PROGRESS:
            self._on_progress(Progress(frame_count_of(reply), self._total))
        else:
            self._state, self._last_reply = state, reply


@ffi.callback("int(NQ360_STATE, const char*, void*)", error=1)  # type: ignore[misc]
def _on_reply(state: int, reply: Any, user: Any) -> int:
    job: Job = ffi.from_handle(user)
    return job.take_reply(state, ffi.string(reply))


@ffi.callback("void(int, const char*, void*)")  # type: ignore[misc]
def _on_log(level: int, line: Any, user: Any) -> None:
    job: Job = ffi.from_handle(user)
    job.take_log(level, ffi.string(line))


def progress_of(record: Record, function: Callable[[Any], int]) -> Generator[Progress, None, bytes]:
    """Runs the function on a thread of its own, yields how far it is, and returns its last reply.

    Leaving the generator cancels it.
    """
    reports: SimpleQueue[Progress | None] = SimpleQueue()
    job = Job(record, reports.put)
    with _CancelMarker(record) as marker:
        thread = threading.Thread(target=_run, args=(job, function, reports), name="nq360")
        try:
            thread.start()
            while (progress := reports.get()) is not None:
                yield progress
        finally:
            job.cancelled = True
            marker.set()
            thread.join()
    return job.check()


def _run(job: Job, function: Callable[[Any], int], reports: SimpleQueue[Progress | None]) -> None:
    try:
        job.run(function)
    finally:
        reports.put(None)


class _CancelMarker:
    """The record's cancel path, unless the caller has one: the library looks for it at every frame, while its replies
    may lie a hundred frames apart.

    The path leads through a descriptor of this process: first to a device, in which "." cannot be, then to a folder.
    """

    def __init__(self, record: Record) -> None:
        self._descriptor = os.open(os.devnull, os.O_RDONLY)
        if "cancel_path" not in record.paths:
            record.set("cancel_path", f"/proc/self/fd/{self._descriptor}/.")

    def __enter__(self) -> _CancelMarker:
        return self

    def __exit__(self, *error: object) -> None:
        os.close(self._descriptor)

    def set(self) -> None:
        """From now on the path is there."""
        folder = os.open("/", os.O_RDONLY)
        os.dup2(folder, self._descriptor, inheritable=False)
        os.close(folder)
