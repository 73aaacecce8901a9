"""asyncio: devices as streams, events as an asynchronous iterator.

    reader, writer = await quorvio.aio.open("network:192.168.0.10:5000")
    writer.write(b"*IDN?\\n")
    print(await reader.readline())
"""

import asyncio
import os
import time
from collections.abc import Callable
from types import TracebackType
from typing import TypeVar

from quorvio import _watch
from quorvio._calls import Call
from quorvio._errors import InvalidHandleError
from quorvio._link import Link
from quorvio._options import Option
from quorvio._settler import Event
from quorvio._streams import Protocol, Reader, Sender, Writer

Result = TypeVar("Result")


async def open(
    locator: str, *, limit: int = 1 << 16, **options: Option
) -> tuple[asyncio.StreamReader, asyncio.StreamWriter]:
    """Opens a device as a pair of streams.

    They are asyncio's, with these differences: at a loss of the link the reader gives the bytes that came
    before it, then raises ConnectionLostError or ReceiveFailedError, where it would return b"" or raise an
    IncompleteReadError without bytes. The writer's next `write` or `drain` raises why a send has failed, and
    `write` raises InvalidHandleError after `close`. `close` sends what was written before, for at most 5 s;
    `transport.abort()` drops it.

    `limit`: bytes that wait in the reader, as for `asyncio.open_connection`.
    `options`, exceptions: those of `quorvio.open`.
    """
    loop = asyncio.get_running_loop()
    link = await _called(lambda: Link(locator, options), on_late=Link.close)
    reader = Reader(link, limit)
    try:
        received, protocol = await loop.create_unix_connection(lambda: Protocol(link, reader), sock=link.near)
    except BaseException:  # cancelled
        Call(link.close)
        raise
    sender = Sender(loop, link, protocol, received)
    return reader, Writer(sender, protocol, reader, loop)


class Watch:
    """An asynchronous iterator of events, and a context manager; made by `watch`."""

    def __init__(self, interfaces: tuple[str, ...], rescan: float, settle: float) -> None:
        self._arguments = interfaces or ("network:all",), rescan, settle
        self._watch: _watch.Watch | None = None

    async def __aenter__(self) -> "Watch":
        watch = await _called(lambda: _watch.Watch(*self._arguments), on_late=_watch.Watch.close)
        self._watch = watch
        return self

    async def __aexit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        await self.aclose()

    async def aclose(self) -> None:
        """Watches nothing from now on."""
        if self._watch:
            await _called(self._watch.close)

    def __aiter__(self) -> "Watch":
        return self

    async def __anext__(self) -> Event:
        """The next event. Raises EventsLostError once if too many have waited; ends when closed."""
        if not self._watch:
            await self.__aenter__()
        assert self._watch
        try:
            while True:
                if self._watch.scan_is_due():
                    await _called(self._watch.scan)
                event = self._watch.take()
                if event:
                    return event
                await self._change(self._watch)
        except InvalidHandleError:
            raise StopAsyncIteration from None

    @staticmethod
    async def _change(watch: _watch.Watch) -> None:
        loop = asyncio.get_running_loop()
        arrived = asyncio.Event()
        # A copy, since the watch's own vanishes from the loop when another task closes the watch.
        descriptor = os.dup(watch.fileno())
        loop.add_reader(descriptor, arrived.set)
        try:
            wait = min(watch.next_change() - time.monotonic(), _watch.LONGEST_WAIT)
            await asyncio.wait_for(arrived.wait(), max(0.0, wait))
        except TimeoutError:
            pass
        finally:
            loop.remove_reader(descriptor)
            os.close(descriptor)


def watch(*interfaces: str, rescan: float = 5, settle: float = 0) -> Watch:
    """As `quorvio.watch`, with `async for`. `async with` closes it at once where the loop is left early."""
    return Watch(interfaces, rescan, settle)


async def _called(function: Callable[[], Result], on_late: Callable[[Result], object] | None = None) -> Result:
    """Makes a call in a thread. `on_late` takes a result that nobody waits for any more."""
    loop = asyncio.get_running_loop()
    done = asyncio.Event()

    def report() -> None:
        try:
            loop.call_soon_threadsafe(done.set)
        except RuntimeError:
            pass  # the loop is closed

    call = Call(function, report)
    try:
        await done.wait()
    except asyncio.CancelledError:
        if on_late:
            dispose = on_late
            Call(lambda: dispose(call.wait()))
        raise
    return call.wait()
