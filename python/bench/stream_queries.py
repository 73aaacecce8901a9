"""Prints the seconds of one query through asyncio streams: stream_queries.py ours|asyncio ADDRESS"""

import asyncio
import sys
import time

import quorvio.aio

QUERIES = 2000


async def main(streams: str, address: str) -> None:
    host, port = address.split(":")
    if streams == "ours":
        reader, writer = await quorvio.aio.open(f"network:{address}")
    else:
        reader, writer = await asyncio.open_connection(host, int(port))
    begin = time.perf_counter()
    for _ in range(QUERIES):
        writer.write(b"POS?\n")
        await reader.readline()
    print((time.perf_counter() - begin) / QUERIES)
    writer.close()
    await writer.wait_closed()


asyncio.run(main(sys.argv[1], sys.argv[2]))
