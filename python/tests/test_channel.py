"""Channels on all links, and what must not harm the interpreter."""

import contextlib
import gc
import math
import multiprocessing
import os
import signal
import socket
import time
import weakref
from collections.abc import Callable, Iterator
from concurrent.futures import ThreadPoolExecutor
from typing import Any, NoReturn

import pytest
from conftest import FLOOD, Peer, Simulated, until

import quorvio


def test_reading_and_writing(locator: str) -> None:
    with quorvio.open(locator, baudrate=115200) as device:
        assert device.query(b"*IDN?\n", b"\r\n").startswith(b"QUORVI")
        device.write(bytearray(b"POS?\n"))
        assert device.read_exactly(3) == b"0.0"
        assert device.read_until(b"\r\n") == b"00"
        device.write(memoryview(b"POS?\n"))
        until(lambda: device.in_waiting == 7)
        assert device.read(2) + device.read() == b"0.000\r\n"
        assert device.read(timeout=0) == device.read(timeout=-1) == device.read(0) == b""
        device.write(b"POS?\n")
        with pytest.raises(TimeoutError):
            device.read_until(b"no such end", timeout=0.2)
        assert device.in_waiting == 7
        device.discard()
        assert device.in_waiting == 0
        device.write(b"POS?\n")
        until(lambda: device.in_waiting == 7)
        assert device.query(b"MOV?\n") == b"0\r"
    assert device.closed
    with pytest.raises(quorvio.InvalidHandleError):
        device.write(b"POS?\n")


def until_full(device: quorvio.Channel) -> None:
    """Until the library waits for a reader: nothing more arrives."""
    before = -1
    while (now := device.in_waiting) != before or now < 1 << 17:
        before = now
        time.sleep(0.02)


def test_every_byte_comes_in_order(peer: Peer) -> None:
    with quorvio.open(peer.locator) as device:
        peer.flood()
        until_full(device)
        with pytest.raises(quorvio.BufferTooSmallError):
            device.read_until(b"no such end", timeout=10)
        parts = [device.read(), device.read(1), device.read_exactly(1000)]
        left = len(FLOOD) - sum(map(len, parts))
        assert b"".join((*parts, device.read_exactly(left))) == FLOOD


def test_a_loss_comes_after_the_last_bytes_and_once(peer: Peer) -> None:
    losses: list[quorvio.Error] = []
    with quorvio.open(peer.locator, on_lost=losses.append) as device:
        far = peer.accept()
        far.sendall(b"rest")
        far.close()
        until(lambda: losses)
        with pytest.raises(ConnectionResetError):
            device.read_exactly(5)
        assert device.read() == b"rest"
        for read in (device.read, device.read_until, lambda: device.query(b"x")):
            with pytest.raises(quorvio.Error) as caught:
                read()  # type: ignore[operator]
            assert isinstance(caught.value, (ConnectionError, quorvio.TransmitFailedError))
    assert [type(loss) for loss in losses] == [quorvio.ConnectionLostError]


def repeat(function: Callable[..., object], *arguments: object) -> NoReturn:
    while True:
        function(*arguments)


def queries_that_nobody_reads(device: quorvio.Channel, peer: Peer) -> None:
    peer.flood(times=1000)
    repeat(device.query, bytes(900), b"\0")


def blocked_open(device: quorvio.Channel, peer: Peer) -> None:
    with socket.create_server(("127.0.0.1", 0), backlog=0) as listener:
        address = listener.getsockname()
        with socket.create_connection(address):  # fills the queue, so that nobody answers
            quorvio.open("network:%s:%d" % address, connect_timeout=1000)


CALLS: dict[str, Callable[[quorvio.Channel, Peer], object]] = {  # nobody sends, nobody reads
    "read": lambda device, _: device.read(timeout=math.inf),
    "read_until": lambda device, _: device.read_until(timeout=1e6),
    "write": lambda device, _: repeat(device.write, bytes(1 << 20)),
    "small writes": lambda device, _: repeat(device.write, bytes(100)),
    "queries": queries_that_nobody_reads,
    "open": blocked_open,
    "list_devices": lambda *_: quorvio.list_devices("network:127.0.0.1", discovery_timeout=1000),
}
if "QUORVIO_PRIVATE_NETWORK" in os.environ:
    CALLS["watch"] = lambda *_: next(quorvio.watch("network:127.0.0.1"))


def is_in_use(device: quorvio.Channel) -> bool:
    if not device._link.reading.acquire(blocking=False):
        return True
    device._link.reading.release()
    return device._link._users > 0


@pytest.mark.parametrize("call", ["read", "read_until", "write"])
def test_close_wakes_other_threads(peer: Peer, call: str) -> None:
    with ThreadPoolExecutor() as pool, quorvio.open(peer.locator) as device:
        result = pool.submit(CALLS[call], device, peer)
        until(lambda: is_in_use(device))
        device.close()
        assert isinstance(result.exception(5), (quorvio.InvalidHandleError, quorvio.TransmitFailedError))


@contextlib.contextmanager
def in_signal_handler(action: Callable[[], object]) -> Iterator[None]:
    """Does it soon, while the main thread does something else, and again: Python drops an exception that a
    handler raises inside a finalizer."""
    before = signal.signal(signal.SIGALRM, lambda *_: action())
    signal.setitimer(signal.ITIMER_REAL, 0.2, 1)
    try:
        yield
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
        signal.signal(signal.SIGALRM, before)


@pytest.mark.parametrize("call", CALLS)
def test_ctrl_c_works_in_blocking_calls(peer: Peer, call: str) -> None:
    def interrupt() -> None:
        raise KeyboardInterrupt

    with quorvio.open(peer.locator) as device:
        with in_signal_handler(interrupt), pytest.raises(KeyboardInterrupt):
            CALLS[call](device, peer)


def test_a_signal_handler_may_close_the_channel(controller: str) -> None:
    device = quorvio.open(controller)
    with in_signal_handler(device.close), pytest.raises(quorvio.InvalidHandleError):
        device.read(timeout=math.inf)


def test_close_is_quick_when_nobody_reads(peer: Peer) -> None:
    seconds = []
    for _ in range(3):
        with quorvio.open(peer.locator) as device:
            peer.flood()
            until_full(device)
            begin = time.monotonic()
        seconds.append(time.monotonic() - begin)
    assert min(seconds) < 1


def test_a_forgotten_channel_is_closed(controller: str) -> None:
    device = quorvio.open(controller)
    forgotten = weakref.ref(device)
    with pytest.warns(ResourceWarning):
        del device
        gc.collect()
    assert forgotten() is None
    until(lambda: not quorvio._link._links)


def test_a_forked_child_starts_afresh(controller: str) -> None:
    def child() -> None:
        with pytest.raises(quorvio.InvalidHandleError, match="parent"):
            device.read()
        device.close()
        with quorvio.open(controller) as own:
            assert own.query(b"POS?\n") == b"0.000\r"

    with quorvio.open(controller) as device, ThreadPoolExecutor() as pool:
        first = pool.submit(device.read, 1, math.inf)  # holds a lock during the fork
        until(lambda: is_in_use(device))
        process = multiprocessing.get_context("fork").Process(target=child)
        process.start()
        process.join(10)
        device.write(b"POS?\n")
        assert (process.exitcode, first.result(), device.read_until()) == (0, b"0", b".000\r")


def test_queries_of_several_threads_do_not_mix(controller: str) -> None:
    def are_right(request: bytes, begin: bytes) -> bool:
        return all(device.query(request).startswith(begin) for _ in range(300))

    with quorvio.open(controller) as device, ThreadPoolExecutor() as pool:
        assert all(pool.map(are_right, [b"*IDN?\n", b"POS?\n", b"MOV?\n"], [b"QUORVI", b"0.000", b"0\r"]))


FAILURES: list[tuple[str, dict[str, Any], type[Exception]]] = [
    ("nothing", {}, quorvio.InvalidLocatorError),
    ("serial:/dev/zero byte\0", {}, quorvio.InvalidLocatorError),
    ("serial:/dev/null", {}, quorvio.InvalidArgumentError),
    ("serial:/dev/none", {"baudrate": 9600}, quorvio.DriverFailureError),
    ("usb:sn:NONE", {}, quorvio.DeviceNotFoundError),
    ("network:127.0.0.1:1", {"port": "1\nstrict"}, quorvio.InvalidArgumentError),
    ("network:127.0.0.1:1", {"port": 1.5}, quorvio.InvalidArgumentError),
    ("network:127.0.0.1:1", {"no_option": 1, "strict": True}, quorvio.InvalidArgumentError),
]


@pytest.mark.parametrize(("locator", "options", "error"), FAILURES)
def test_failures(locator: str, options: dict[str, Any], error: type[Exception]) -> None:
    with pytest.raises(error) as caught:
        quorvio.open(locator, **options)
    assert isinstance(caught.value, ValueError) == error.__name__.startswith("Invalid")


def test_properties_and_arguments(controller: str) -> None:
    with quorvio.open("usb:sn:QV100001", baudrate=115200) as device:
        assert device.property("ftdi-id").isdigit()
    with quorvio.open(controller) as device:
        calls: list[tuple[Callable[[Any], object], object, type[Exception]]] = [
            (device.property, "ftdi-id", quorvio.PropertyUnavailableError),
            (device.read, -1, ValueError),
            (device.read_exactly, -1, ValueError),
            (device.read_until, b"", ValueError),
            (device.write, 5, TypeError),
            (device.write, "text", TypeError),
        ]
        for function, argument, error in calls:
            with pytest.raises(error):
                function(argument)


def test_pyserial(locator: str) -> None:
    import serial

    port = serial.serial_for_url(f"quorvio://{locator}", baudrate=57600, timeout=2)
    port.write(b"POS?\n")
    assert port.readline() == b"0.000\r\n"
    assert port.in_waiting == 0
    port.timeout = 0.05
    port.baudrate = 115200
    assert port.read(10) == b""
    if locator.startswith("serial:"):
        with pytest.raises(ValueError):
            port.baudrate = 500000
    port.close()
    with pytest.raises(serial.SerialException):
        port.read()


def test_a_lost_serial_device(simulated: Callable[..., Simulated]) -> None:
    simulation = simulated("serial")
    with quorvio.open(f"serial:{simulation.lines[0]}", baudrate=9600, timeout=10) as device:
        simulation.end()
        with pytest.raises(ConnectionError):
            device.read()
