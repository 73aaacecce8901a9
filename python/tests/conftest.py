"""Simulated devices, and waiting for a condition."""

import contextlib
import os
import socket
import subprocess
import threading
import time
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any

import pytest

socket.setdefaulttimeout(10)  # holds for the tests, and must not make dropping descriptors of the package's
BUILD = Path(os.environ["QUORVIO_BUILD"])
FLOOD = b"".join(i.to_bytes(4, "big") for i in range(1 << 21))  # 8 MiB

needs_private_network = pytest.mark.skipif(
    "QUORVIO_PRIVATE_NETWORK" not in os.environ, reason="this system forbids private network namespaces"
)


def until(condition: Callable[[], Any], seconds: float = 10) -> None:
    deadline = time.monotonic() + seconds
    while not condition():
        assert time.monotonic() < deadline, "the condition did not come true"
        time.sleep(0.002)


class Simulated:
    """A running qvio-sim; `lines` are what it prints at first."""

    def __init__(self, *arguments: str, lines: int = 1) -> None:
        self._process = subprocess.Popen(
            [BUILD / "bin/qvio-sim", *arguments], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True
        )
        assert self._process.stdout
        self.lines = [self._process.stdout.readline().strip() for _ in range(lines)]

    def tell(self, command: str) -> None:
        assert self._process.stdin
        print(command, file=self._process.stdin, flush=True)

    def end(self) -> None:
        self._process.terminate()
        self._process.communicate()


@pytest.fixture
def simulated() -> Iterator[Callable[..., Simulated]]:
    """Starts simulated devices that end with the test."""
    with contextlib.ExitStack() as running:

        def start(*arguments: str, lines: int = 1) -> Simulated:
            device = Simulated(*arguments, lines=lines)
            running.callback(device.end)
            return device

        yield start


@pytest.fixture(params=["serial", "network", "usb"])
def locator(request: pytest.FixtureRequest, simulated: Callable[..., Simulated]) -> str:
    """A device on each kind of link; options: baudrate=115200."""
    if request.param == "usb":
        return "usb:sn:QV100001"
    return f"{request.param}:{simulated(request.param).lines[0]}"


@pytest.fixture
def controller(simulated: Callable[..., Simulated]) -> str:
    return f"network:{simulated('network').lines[0]}"


class Peer:
    """The far end of TCP links, in this process."""

    def __init__(self, until_end: contextlib.ExitStack) -> None:
        self._until_end = until_end
        self._listener = until_end.enter_context(socket.create_server(("127.0.0.1", 0)))
        self.locator = "network:127.0.0.1:%d" % self._listener.getsockname()[1]

    def accept(self) -> socket.socket:
        return self._until_end.enter_context(self._listener.accept()[0])

    def flood(self, times: int = 1) -> socket.socket:
        """Accepts a link and sends FLOOD on a thread, unless the link ends before."""
        link = self.accept()

        def send() -> None:
            with contextlib.suppress(OSError):
                for _ in range(times):
                    link.sendall(FLOOD)

        thread = threading.Thread(target=send)
        thread.start()
        self._until_end.callback(thread.join)
        return link


@pytest.fixture
def peer() -> Iterator[Peer]:
    with contextlib.ExitStack() as until_end:
        yield Peer(until_end)
