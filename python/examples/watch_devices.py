"""Reports network devices that appear and disappear: watch_devices.py [network:ADDRESS...]

Ends with Ctrl-C.
"""

import asyncio
import sys

import quorvio.aio


async def main() -> None:
    async with quorvio.aio.watch(*sys.argv[1:], rescan=2, settle=0.5) as events:
        async for found, device in events:
            print("found" if found else "lost ", device.locator, device.info, flush=True)


if __name__ == "__main__":
    try:
        asyncio.run(main())
    except KeyboardInterrupt:
        pass
