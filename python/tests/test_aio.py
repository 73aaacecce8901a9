"""asyncio streams."""

import asyncio
import gc
from collections.abc import Awaitable, Callable

import pytest
from conftest import FLOOD, Peer, until

import quorvio
import quorvio.aio


def test_streams(locator: str) -> None:
    async def main() -> None:
        reader, writer = await quorvio.aio.open(locator, baudrate=115200)
        for _ in range(20):
            writer.write(b"POS?\n")
            assert await reader.readuntil(b"\r\n") == b"0.000\r\n"
        with pytest.raises(TimeoutError):
            async with asyncio.timeout(0.05):
                await reader.read(1)
        writer.close()
        with pytest.raises(quorvio.InvalidHandleError):
            writer.write(b"POS?\n")
        await writer.wait_closed()
        assert await reader.read() == b""

    asyncio.run(main())


def test_many_bytes_both_ways(peer: Peer) -> None:
    async def main() -> None:
        reader, writer = await quorvio.aio.open(peer.locator)
        taking = asyncio.ensure_future(asyncio.to_thread(peer.flood().makefile("rb").read, len(FLOOD)))
        assert await reader.readexactly(len(FLOOD)) == FLOOD
        half = len(FLOOD) // 2
        for at in range(0, half, 100000):
            writer.write(FLOOD[at : min(at + 100000, half)])
            await writer.drain()
        writer.write(FLOOD[half:])
        writer.close()  # and what was written goes out
        await writer.wait_closed()
        assert await taking == FLOOD

    asyncio.run(main())


@pytest.mark.parametrize(
    "read", [lambda reader: reader.read(100), lambda reader: reader.read(), lambda reader: reader.readline()]
)
def test_a_loss_comes_after_the_last_bytes(
    peer: Peer, read: Callable[[asyncio.StreamReader], Awaitable[bytes]]
) -> None:
    async def main() -> None:
        reader, writer = await quorvio.aio.open(peer.locator)
        far = peer.accept()
        far.sendall(b"rest")
        far.close()
        assert await read(reader) == b"rest"
        for again in read(reader), reader.readexactly(1):
            with pytest.raises(ConnectionResetError):
                await again
        with pytest.raises(quorvio.Error):
            while True:
                writer.write(bytes(1000))
                await writer.drain()
                await asyncio.sleep(0.001)
        writer.close()
        await writer.wait_closed()

    asyncio.run(main())


def test_a_stalled_device_does_not_stop_the_loop(peer: Peer) -> None:
    async def main() -> None:
        _, writer = await quorvio.aio.open(peer.locator)
        with pytest.raises(TimeoutError):
            async with asyncio.timeout(0.2):
                while True:
                    writer.write(bytes(100))
                    await writer.drain()
        writer.transport.abort()
        await writer.wait_closed()

    asyncio.run(main())
    until(lambda: not quorvio._link._links)


def test_a_forgotten_stream_is_closed(peer: Peer) -> None:
    async def main() -> None:
        streams = await quorvio.aio.open(peer.locator)
        with pytest.warns(ResourceWarning):
            del streams
            while quorvio._link._links:
                gc.collect()
                await asyncio.sleep(0.01)

    asyncio.run(main())
