"""Listings and watches of simulated controllers, in a private network."""

import asyncio
import os
import subprocess
import time
from collections.abc import Callable, Iterator
from concurrent.futures import ThreadPoolExecutor

import pytest
from conftest import Simulated, needs_private_network, until

import quorvio
import quorvio.aio
from quorvio._settler import Event, Settler

IFACE = "network:127.0.0.1"


def device(serial_number: str, available: bool = True) -> quorvio.Device:
    record = {"iface-type": "network", "device-sn": serial_number, "available": str(int(available))}
    return quorvio._records.device_of(record)


def test_usb_devices() -> None:
    first = quorvio.list_devices("usb", find_device_sn="QV100001")[0]
    assert first.kind == "usb" and first.locator == "usb:sn:QV100001" and first.available
    assert first.vendor_id == 0x0403 and first.chip_id and first.properties["usb-desc"] == first.info
    with pytest.raises(ValueError):
        quorvio.list_devices("serial")


@needs_private_network
def test_interfaces() -> None:
    for command in ("link add card type veth peer name far", "addr add 192.0.2.5/24 dev card", "link set card up"):
        subprocess.run(["ip", *command.split()], check=True)
    assert [interface[:3] for interface in quorvio.list_interfaces()] == [("card", "192.0.2.5", "255.255.255.0")]
    subprocess.run(["ip", "link", "del", "card"], check=True)


@pytest.fixture
def controllers(simulated: Callable[..., Simulated]) -> Iterator[Simulated]:
    yield simulated("network", "--iface", "127.0.0.1", "--count", "2", "--info", "a|b=c%", lines=2)


@needs_private_network
def test_network_devices(controllers: Simulated) -> None:
    found = quorvio.list_devices(IFACE, discovery_timeout=300)
    assert sorted(one.serial_number for one in found) == ["SIM-0001-0001", "SIM-0001-0002"]
    assert all(one.info == "a|b=c%" and one.host and one.port and one.interface == IFACE for one in found)
    with quorvio.open(found[1].locator, iface=IFACE) as channel:
        assert found[1].serial_number.encode() in channel.query(b"*IDN?\n")


@needs_private_network
def test_watch(controllers: Simulated) -> None:
    with quorvio.watch(IFACE, rescan=0.3) as events:
        with pytest.raises(quorvio.WatchExistsError):
            quorvio.watch(IFACE)
        assert {next(events).device.serial_number for _ in range(2)} == {"SIM-0001-0001", "SIM-0001-0002"}
        for command in "leave", "return", "vanish":
            controllers.tell(f"{command} SIM-0001-0001")
            event = next(events)
            assert (event.found, event.device.serial_number) == (command == "return", "SIM-0001-0001")
        controllers.tell("available SIM-0001-0002 off")
        assert not next(events).found
        assert events.get(0) is None
    assert list(events) == []
    with pytest.raises(quorvio.InvalidArgumentError):
        quorvio.watch("network:192.0.2.1")
    controllers.tell("return SIM-0001-0001")
    for _ in quorvio.watch(IFACE):
        break  # the watch ends here
    quorvio.watch(IFACE).close()


@needs_private_network
def test_asynchronous_watch(controllers: Simulated) -> None:
    async def rest(events: quorvio.aio.Watch) -> list[Event]:
        return [event async for event in events]

    async def main() -> None:
        async with quorvio.aio.watch(IFACE, rescan=0.3) as events:
            for _ in range(2):
                assert (await anext(events)).found
            controllers.tell("vanish SIM-0001-0002")
            event = await anext(events)
            assert (event.found, event.device.serial_number) == (False, "SIM-0001-0002")
        assert await rest(events) == []
        async with quorvio.aio.watch(IFACE, rescan=0) as events:
            ending = asyncio.ensure_future(rest(events))
            await asyncio.wait([ending], timeout=0.5)
        async with asyncio.timeout(5):
            assert all(event.found for event in await ending)

    asyncio.run(main())


@needs_private_network
def test_a_watch_is_closed_from_another_thread_and_not_by_a_child() -> None:
    with quorvio.watch(IFACE, rescan=0) as events:
        child = os.fork()
        if child == 0:
            events.close()
            os._exit(list(events) != [] or bool(quorvio._watch._arrivals))
        assert os.waitpid(child, 0)[1] == 0
        assert events.get(0) is None
        with ThreadPoolExecutor() as pool:
            left = pool.submit(lambda: list(events))
            until(lambda: not events.scan_is_due())
            events.close()
        assert left.result() == []


LOSS, FIND, FIND_BUSY = Event(False, device("A")), Event(True, device("A")), Event(True, device("A", False))
OTHER = Event(False, device("B"))


@pytest.mark.parametrize(
    ("settle", "events", "reported"),
    [
        (0, [(0, LOSS), (1, FIND)], [LOSS, FIND]),
        (2, [(0, LOSS), (1, FIND)], []),
        (2, [(0, LOSS), (1, OTHER), (2.5, FIND)], [LOSS, FIND, OTHER]),
        (2, [(0, LOSS), (1, FIND_BUSY)], [FIND_BUSY._replace(found=False)]),
        (2, [(0, FIND), (1, LOSS), (1.5, LOSS)], [FIND, LOSS]),
    ],
)
def test_settling(settle: float, events: list[tuple[float, Event]], reported: list[Event]) -> None:
    settler, seen = Settler(settle), []
    for now, event in events:
        seen += settler.due(now) + settler.add(event, now)
    assert seen + settler.due(time.monotonic() + 1e9) == reported
    assert settler.next_due() == float("inf")
