"""Calls of the library that take long. Python runs signal handlers on the main thread only, and not while
that is inside C: such calls are made by another thread, so that Ctrl-C works."""

import os
import threading
from _thread import allocate_lock, get_ident, start_new_thread
from collections.abc import Callable
from typing import Generic, TypeVar

from quorvio._errors import TimedOutError

Result = TypeVar("Result")

_main = threading.main_thread().ident


class Call(Generic[Result]):
    """A call that a thread of its own makes."""

    _result: Result

    def __init__(self, function: Callable[[], Result], on_done: Callable[[], object] | None = None) -> None:
        """`on_done` runs on that thread, after the call."""
        self._function = function
        self._on_done = on_done
        self._error: BaseException | None = None
        self._running = allocate_lock()
        self._running.acquire()
        try:
            start_new_thread(self._run, ())
        except RuntimeError:  # no more threads, or the end of the process
            self._run()

    def _run(self) -> None:
        try:
            self._result = self._function()
        except BaseException as error:
            self._error = error
        finally:
            self._running.release()
        if self._on_done:
            self._on_done()

    def wait(self, timeout: float = -1) -> Result:
        """What the function returns or raises. Ctrl-C and the time-out, in seconds, end the wait and not the
        call. Raises TimedOutError."""
        if not self._running.acquire(timeout=timeout):
            raise TimedOutError()
        self._running.release()
        if self._error:
            raise self._error
        return self._result


def is_main_thread() -> bool:
    """Whether the caller runs signal handlers."""
    return get_ident() == _main


def interruptible(function: Callable[[], Result]) -> Result:
    """Calls the function. Ctrl-C ends the wait for it; the call itself goes on."""
    return Call(function).wait() if is_main_thread() else function()


def _in_child() -> None:
    global _main
    _main = get_ident()


os.register_at_fork(after_in_child=_in_child)
