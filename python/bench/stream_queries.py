"""Prints the seconds of one query through asyncio streams: stream_queries.py ours|asyncio ADDRESS"""

import asyncio
import sys
import time

QUERIES = 2000

Streams = tuple[asyncio.StreamReader, asyncio.StreamWriter]


async def opened(streams: str, address: str) -> Streams:
    if streams == "ours":
        import quorvio.aio  # here, since it would change the heap of the other

        return await quorvio.aio.open(f"network:{address}")
    host, port = address.split(":")
    return await asyncio.open_connection(host, int(port))


async def main(streams: str, address: str) -> None:
    reader, writer = await opened(streams, address)
    begin = time.perf_counter()
    for _ in range(QUERIES):
        writer.write(b"POS?\n")
        await reader.readline()
    print((time.perf_counter() - begin) / QUERIES)
    writer.close()
    await writer.wait_closed()


asyncio.run(main(sys.argv[1], sys.argv[2]))
