"""The streams of a link for asyncio."""

import asyncio
import sys
import threading
import warnings
import weakref
from collections.abc import Callable, Iterable
from functools import partial
from typing import Any

from quorvio._calls import Call
from quorvio._errors import Error, InvalidHandleError
from quorvio._link import Link
from quorvio._texts import bytes_of

_MOST_UNSENT = 1 << 16  # bytes; above, drain waits
_PIECE = 1 << 16
_LONGEST_FLUSH = 5.0  # seconds


class Reader(asyncio.StreamReader):
    """Raises a loss where the bytes end."""

    def __init__(self, link: Link, limit: int) -> None:
        super().__init__(limit, asyncio.get_running_loop())
        self._link = link

    def _raise_loss(self) -> None:
        if self._link.is_open and self._link.loss:
            raise self._link.loss

    async def read(self, n: int = -1) -> bytes:
        if n < 0:
            return await self._read_all()
        data = await super().read(n)
        if n and not data:
            self._raise_loss()
        return data

    async def _read_all(self) -> bytes:
        pieces = []
        while piece := await super().read(_PIECE):
            pieces.append(piece)
        if not pieces:
            self._raise_loss()
        return b"".join(pieces)

    async def readuntil(self, separator: bytes = b"\n") -> bytes:
        return await self._whole(super().readuntil(separator))

    async def readexactly(self, n: int) -> bytes:
        return await self._whole(super().readexactly(n))

    async def _whole(self, reading: Any) -> bytes:
        try:
            data: bytes = await reading
            return data
        except asyncio.IncompleteReadError as error:
            if not error.partial:
                self._raise_loss()
            raise


class Protocol(asyncio.StreamReaderProtocol, asyncio.BufferedProtocol):
    """Receives into a buffer of its own: memory for each piece costs more than all the rest."""

    def __init__(self, link: Link, reader: Reader) -> None:
        super().__init__(reader, loop=asyncio.get_running_loop())
        self._link = link
        self._reader = weakref.ref(reader)  # as asyncio's, so that a forgotten reader is noticed
        self._piece = memoryview(bytearray(_PIECE))

    def get_buffer(self, sizehint: int) -> memoryview:
        return self._piece

    def buffer_updated(self, nbytes: int) -> None:
        self._link.heard()
        reader = self._reader()
        if reader:
            reader.feed_data(self._piece[:nbytes])


class Sender(asyncio.Transport):
    """What the writer writes to. Sends that may take long are made by a thread."""

    def __init__(
        self,
        loop: asyncio.AbstractEventLoop,
        link: Link,
        protocol: asyncio.StreamReaderProtocol,
        received: asyncio.BaseTransport,
    ) -> None:
        super().__init__()
        self._loop = loop
        self._link = link
        self._protocol = protocol
        self._received = received
        self._closing = False
        self._lock = threading.Lock()  # guards what follows
        self._sent = threading.Condition(self._lock)
        self._unsent = bytearray()
        self._sending = False  # by a thread
        self._paused = False
        self._failure: Error | None = None

    def __del__(self) -> None:
        if self._link.is_open and not sys.is_finalizing():
            warnings.warn(f"unclosed {self!r}", ResourceWarning, stacklevel=2, source=self)
            Call(self._link.close)

    def write(self, data: Any) -> None:
        self.raise_failure()
        if self.is_closing():
            raise InvalidHandleError("the channel is closed")
        piece = bytes_of(data)
        with self._lock:
            if not self._sending and self._link.try_send(piece):
                return
            self._unsent += piece
            start, self._sending = not self._sending, True
            pause = len(self._unsent) > _MOST_UNSENT and not self._paused
            self._paused = self._paused or pause
        if start:
            Call(self._send_all)
        if pause:
            self._protocol.pause_writing()

    def _send_all(self) -> None:
        failure = None
        while piece := self._next_piece(failure):
            try:
                self._link.send(piece)
            except Error as error:
                failure = error

    def _next_piece(self, failure: Error | None) -> bytes:
        """The next bytes to send; none after a failure."""
        with self._lock:
            if failure:
                self._failure = failure
                self._unsent.clear()
            piece = bytes(self._unsent[:_PIECE])
            del self._unsent[:_PIECE]
            if not piece:
                self._sending = False
                self._sent.notify_all()
            resume = self._paused and len(self._unsent) <= _MOST_UNSENT // 4
        if resume:
            self._in_loop(self._resume)
        return piece

    def _in_loop(self, action: Callable[[], object]) -> None:
        try:
            self._loop.call_soon_threadsafe(action)
        except RuntimeError:
            pass  # the loop is closed: nobody waits

    def _resume(self) -> None:
        if self._paused:
            self._paused = False
            self._protocol.resume_writing()

    def raise_failure(self) -> None:
        """Raises why a send has failed, once."""
        with self._lock:
            failure, self._failure = self._failure, None
        if failure:
            raise failure

    def writelines(self, list_of_data: Iterable[Any]) -> None:
        self.write(b"".join(list_of_data))

    def can_write_eof(self) -> bool:
        return False

    def is_closing(self) -> bool:
        return self._closing or not self._link.is_open

    def close(self) -> None:
        self._end(after=_LONGEST_FLUSH)

    def abort(self) -> None:
        self._end(after=0)

    def _end(self, after: float) -> None:
        self._closing = True

        def end() -> None:
            with self._lock:
                self._sent.wait_for(lambda: not self._sending, after)
            self._link.close()

        Call(end, partial(self._in_loop, self._received.close))

    def get_write_buffer_size(self) -> int:
        return len(self._unsent)

    def get_extra_info(self, name: str, default: Any = None) -> Any:
        return default


class Writer(asyncio.StreamWriter):
    """Raises failed sends."""

    async def drain(self) -> None:
        await super().drain()
        sender = self.transport
        assert isinstance(sender, Sender)
        sender.raise_failure()
