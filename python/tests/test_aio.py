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
        await writer.wait_closed()
        with pytest.raises(quorvio.InvalidHandleError):
            writer.write(b"POS?\n")
        assert await reader.read() == b""

    asyncio.run(main())


def test_many_bytes_both_ways(peer: Peer) -> None:
    async def main() -> None:
        reader, writer = await quorvio.aio.open(peer.locator)
        flooding = peer.flood()
        assert await reader.readexactly(len(FLOOD)) == FLOOD
        flooding.join()
        got = asyncio.to_thread(peer.take, len(FLOOD))
        taking = asyncio.ensure_future(got)
        for at in range(0, len(FLOOD), 100000):
            writer.write(FLOOD[at : at + 100000])
            await writer.drain()
        assert await taking == FLOOD
        writer.close()
        await writer.wait_closed()

    asyncio.run(main())


@pytest.mark.parametrize(
    "read",
    [
        lambda reader: reader.read(100),
        lambda reader: reader.read(),
        lambda reader: reader.readline(),
    ],
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
        with pytest.raises(ConnectionResetError):
            await read(reader)
        with pytest.raises(ConnectionResetError):
            await reader.readexactly(1)
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
        writer.close()
        await writer.wait_closed()

    asyncio.run(main())
    until(lambda: not quorvio._link._links)


def test_a_forgotten_stream_is_closed(peer: Peer) -> None:
    async def main() -> None:
        streams = await quorvio.aio.open(peer.locator)
        with pytest.warns(ResourceWarning):
            del streams
            gc.collect()
            await asyncio.sleep(0.05)

    asyncio.run(main())
    until(lambda: not quorvio._link._links)
