"""Calls of the library: their replies, their log lines, and how they are stopped."""

from __future__ import annotations

import atexit
import logging
import os
import threading
from collections.abc import Callable, Generator
from queue import SimpleQueue
from types import TracebackType
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
        self.error: BaseException | None = None
        self._record = record
        self._on_progress = on_progress
        self._total = 0
        self._state: int | None = None
        self._last_reply = b""

    def run(self, function: Callable[..., Any], *arguments: Any) -> Any:
        """Calls the function with the record and the arguments."""
        record = self._record.pointer
        handle = ffi.new_handle(self)
        record.reply, record.log, record.user = _on_reply, _on_log, handle
        return function(record, *arguments)

    def check(self) -> bytes:
        """The last reply, unless the job has failed."""
        if self.error is not None:
            raise self.error
        if self._state in (lib.NQ360_CANCELLED, lib.NQ360_FAILED):
            raise error_of(self._last_reply, self._state == lib.NQ360_CANCELLED, self._record.paths)
        return self._last_reply

    def take_reply(self, state: int, reply: bytes) -> bool:
        """Whether the job is to stop."""
        if state == lib.NQ360_STARTED:
            self._total = frame_count_of(reply)
            self._on_progress(Progress(0, self._total))
        elif state == lib.NQ360_PROGRESS:
            self._on_progress(Progress(frame_count_of(reply), self._total))
        else:
            self._state, self._last_reply = state, reply
        return self.cancelled or self.error is not None


def _keep_error(kind: type[BaseException], error: BaseException, traceback: TracebackType) -> None:
    """What a callback raises is the job's end; Ctrl-C too is raised wherever Python code runs."""
    job: Job = ffi.from_handle(traceback.tb_frame.f_locals["user"])
    job.error = error


@ffi.callback("int(NQ360_STATE, const char*, void*)", error=1, onerror=_keep_error)  # type: ignore[misc]
def _on_reply(state: int, reply: Any, user: Any) -> int:
    job: Job = ffi.from_handle(user)
    return job.take_reply(state, ffi.string(reply))


@ffi.callback("void(int, const char*, void*)", onerror=_keep_error)  # type: ignore[misc]
def _on_log(level: int, line: Any, user: Any) -> None:
    here = _LEVELS.get(level, logging.INFO)
    if _logger.isEnabledFor(here):
        _logger.log(here, "%s", ffi.string(line).decode("utf-8", "replace"))


def progress_of(record: Record, function: Callable[[Any], int]) -> Generator[Progress, None, bytes]:
    """Runs the function on a thread of its own, yields how far it is, and returns its last reply.

    The function waits while a report is looked at. Leaving the generator cancels it.
    """
    reports: SimpleQueue[Progress | None] = SimpleQueue()
    go_on = threading.Semaphore(0)

    def report(progress: Progress) -> None:
        reports.put(progress)
        go_on.acquire()

    def run() -> None:
        try:
            job.run(function)
        finally:
            reports.put(None)

    def stop() -> None:
        job.cancelled = True
        marker.set()
        go_on.release()
        if thread.ident is not None:
            thread.join()

    job = Job(record, report)
    with _CancelMarker(record) as marker:
        # A daemon, which the interpreter does not wait for at its end before it runs what atexit has.
        thread = threading.Thread(target=run, name="nq360", daemon=True)
        atexit.register(stop)
        try:
            thread.start()
            while (progress := reports.get()) is not None:
                yield progress
                go_on.release()
        finally:
            stop()
            atexit.unregister(stop)
    return job.check()


class _CancelMarker:
    """The record's cancel path, unless the caller has one: the library looks for it at every frame, while its replies
    may lie a hundred frames apart.

    The path leads through a descriptor of this process: first to a device, in which "." cannot be, then to a folder.
    """

    def __init__(self, record: Record) -> None:
        self._descriptor = os.open(os.devnull, os.O_RDONLY)
        self._is_set = False
        if "cancel_path" not in record.paths:
            record.set("cancel_path", f"/proc/self/fd/{self._descriptor}/.")

    def __enter__(self) -> _CancelMarker:
        return self

    def __exit__(self, *error: object) -> None:
        os.close(self._descriptor)

    def set(self) -> None:
        """From now on the path is there."""
        if self._is_set:  # the descriptor may have been closed since
            return
        self._is_set = True
        folder = os.open("/", os.O_RDONLY)
        os.dup2(folder, self._descriptor, inheritable=False)
        os.close(folder)
