"""Channels."""

import fcntl
import math
import select
import sys
import termios
import threading
import time
import warnings
from collections.abc import Callable
from types import TracebackType
from typing import TypeVar

from quorvio import _library
from quorvio._errors import BufferTooSmallError, InvalidArgumentError, InvalidHandleError, TimedOutError
from quorvio._link import Link, OnLost
from quorvio._options import Option, encoded
from quorvio._texts import Data, bytes_of, text_out

_PIECE = 1 << 16
_LONGEST_POLL = 1000  # ms; then `_wait` looks whether a signal handler has closed the channel under it
_LIMIT = 1 << 20  # bytes without a terminator, and that discard discards at most

Result = TypeVar("Result")


class Channel:
    """An open device; made by `open`. A context manager, closed at its end.

    Received bytes wait until they are read. When nobody reads, receiving pauses after some hundred kilobytes;
    how that reaches the device depends on its link (TCP: it cannot send more).

    Time-outs are seconds; None means the channel's own time-out, `math.inf` waits without limit, 0 or less
    looks once. Ctrl-C works in every call. Several threads may use a channel at a time, `close` included,
    which wakes those that wait.

    A lost link is reported after the bytes that came before it: then every reading method raises
    ConnectionLostError or ReceiveFailedError. Close the channel and open the device again.

    Every method but `close` raises InvalidHandleError on a closed channel, and in a forked child on those of
    its parent, which does not notice it.
    """

    def __init__(
        self, locator: str, *, timeout: float | None = 1.0, on_lost: OnLost | None = None, **options: Option
    ) -> None:
        self.locator = locator
        self.timeout = timeout  #: seconds; None: without limit
        self._link = Link(locator, options, on_lost)  # its lock `reading` guards what follows
        self._socket = self._link.near
        self._buffer = bytearray()  # bytes that were received beyond those asked for
        self._readable = select.poll()
        self._readable.register(self._socket, select.POLLIN)

    def __enter__(self) -> "Channel":
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()

    def __del__(self) -> None:
        if sys.is_finalizing() or not hasattr(self, "_link") or self.closed:
            return
        warnings.warn(f"unclosed {self!r}", ResourceWarning, stacklevel=2, source=self)
        self.close()

    def __repr__(self) -> str:
        return f"<quorvio.Channel {self.locator}{' (closed)' if self.closed else ''}>"

    def close(self) -> None:
        """Closes the channel; nothing if it is closed. On return the device is released and nothing is
        received any more. What was sent still goes out, as long as the device takes bytes, for at most 5 s.
        """
        try:
            self._link.close()
        finally:
            with self._link.reading:
                self._link.near.close()

    @property
    def closed(self) -> bool:
        """Whether the channel is closed, or the parent's in a forked child."""
        return not self._link.is_open

    def fileno(self) -> int:
        """For `select` and the like: readable when bytes or a loss have come. Bytes that `read_until` and
        `read_exactly` have received beyond those returned do not count; `in_waiting` counts them."""
        self._link.require_open()
        return self._socket.fileno()

    @property
    def in_waiting(self) -> int:
        """Bytes that have been received and not read."""
        self._link.require_open()
        try:
            count = fcntl.ioctl(self._socket, termios.FIONREAD, b"\0\0\0\0")
        except (OSError, ValueError) as error:  # another thread has just closed the channel
            raise self._link.why_not() from error
        return len(self._buffer) + int.from_bytes(count, sys.byteorder)

    def write(self, data: Data) -> int:
        """Sends all bytes; returns their number when the system has them. Blocks while the device takes no
        more. Raises ConnectionLostError, TransmitFailedError; some bytes may have been sent."""
        sent = bytes_of(data)
        self._link.send(sent)
        return len(sent)

    def read(self, size: int = _PIECE, timeout: float | None = None) -> bytes:
        """At most `size` bytes: those that are there, else those that come next. Empty after the time-out."""
        if size < 0:
            raise InvalidArgumentError(f"read {size} bytes")
        deadline = self._deadline(timeout)

        def some() -> bytes:
            if self._buffer or not size:
                return self._take(size)
            return self._receive(size, deadline)

        return self._locked(deadline, some, b"")

    def read_exactly(self, size: int, timeout: float | None = None) -> bytes:
        """The next `size` bytes. Raises TimedOutError; the bytes that have come can still be read."""
        if size < 0:
            raise InvalidArgumentError(f"read {size} bytes")
        deadline = self._deadline(timeout)

        def exactly() -> bytes:
            while len(self._buffer) < size:
                self._fetch(deadline)
            return self._take(size)

        return self._locked(deadline, exactly)

    def read_until(self, end: bytes = b"\n", timeout: float | None = None) -> bytes:
        """The bytes before the next `end`, which is taken but not returned. Raises TimedOutError, and
        BufferTooSmallError when 1 MiB has come without it; the bytes can still be read."""
        deadline = self._deadline(timeout)
        return self._locked(deadline, lambda: self._until(end, deadline))

    def query(self, request: Data, end: bytes = b"\n", timeout: float | None = None) -> bytes:
        """Discards what was received, sends the request, and returns its answer, the bytes before `end`.

        `timeout` counts from the moment the request is sent. Queries of several threads follow each other.
        An answer to an earlier request is not returned if it arrived before this request is sent; if it may
        arrive later, close the channel after a time-out and open it again. Raises as `write` and
        `read_until`.
        """

        def answer() -> bytes:
            self._drop()
            self.write(request)
            return self._until(end, self._deadline(timeout))

        return self._locked(self._deadline(timeout), answer)

    def discard(self) -> None:
        """Discards the bytes that were received and not read; a loss stays."""
        self._locked(math.inf, self._drop)

    # Each of these is called with the lock held.

    def _until(self, end: bytes, deadline: float) -> bytes:
        if not end:
            raise InvalidArgumentError("an empty end")
        searched = 0
        while True:
            at = self._buffer.find(end, searched)
            if at >= 0:
                return self._take(at + len(end))[:at]
            if len(self._buffer) >= _LIMIT:
                raise BufferTooSmallError(f"no {end!r} in {len(self._buffer)} bytes")
            searched = max(0, len(self._buffer) - len(end) + 1)
            self._fetch(deadline)

    def _take(self, size: int) -> bytes:
        taken = bytes(self._buffer[:size])
        del self._buffer[:size]
        return taken

    def _drop(self) -> None:
        self._link.require_open()
        self._buffer.clear()
        dropped = 0
        while self._readable.poll(0) and dropped < _LIMIT:
            piece = self._socket.recv(_PIECE)
            if not piece:
                return
            self._link.heard()
            dropped += len(piece)

    def _fetch(self, deadline: float) -> None:
        piece = self._receive(_PIECE, deadline)
        if not piece:
            raise TimedOutError()
        self._buffer += piece

    def _receive(self, size: int, deadline: float) -> bytes:
        """The next bytes; empty after the deadline."""
        if not self._wait(deadline):
            return b""
        try:
            piece = self._socket.recv(size)
        except OSError as error:  # a signal handler has closed the channel
            raise self._link.why_not() from error
        if not piece:
            raise self._link.why_not()
        self._link.heard()
        return piece

    def _wait(self, deadline: float) -> bool:
        """Whether the socket is readable before the deadline."""
        while True:
            left = 1e3 * (deadline - time.monotonic())
            if self._readable.poll(min(max(0, left), _LONGEST_POLL)):
                return True
            if left <= _LONGEST_POLL:
                return False
            if not self._link.is_open:  # the descriptor that is polled may be another file's by now
                raise self._link.why_not()

    def _deadline(self, timeout: float | None) -> float:
        if timeout is None:
            timeout = math.inf if self.timeout is None else self.timeout
        return time.monotonic() + timeout

    def _locked(self, deadline: float, action: Callable[[], Result], late: Result | None = None) -> Result:
        """Runs an action that reads, when no other thread does."""
        self._link.require_open()
        reading = self._link.reading
        if not reading.acquire(timeout=min(max(0.0, deadline - time.monotonic()), threading.TIMEOUT_MAX)):
            if late is None:
                raise TimedOutError()
            return late
        try:
            self._link.require_open()
            return action()
        finally:
            reading.release()

    # Last, since its name hides the builtin one.
    def property(self, key: str) -> str:
        """A property of the device: "ftdi-id" of a USB link, the chip's id. Raises
        PropertyUnavailableError."""
        name = encoded(key)
        return text_out(
            f"property {key}",
            lambda buffer, size: self._link.use(_library.get_property, name, buffer, size),
        )
