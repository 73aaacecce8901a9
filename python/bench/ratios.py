"""Compares the package with plain alternatives, by turns in one run: python/bench/ratios.py BUILD-FOLDER

A ctypes callback does the usual thing with the same library: Python code takes the bytes and wakes the reader.
Only the ratios count; absolute times of a shared machine say little. Requests and answers are exchanged on one core: in a
virtual machine, waking a thread on another core takes 20 to 40 µs, which hides the rest. Whether that happens is up to the
system, and with QUORVIO_ALL_CORES=1 it may.

asyncio's own streams are measured in processes of their own, as in a plain program. asyncio asks for 256 KiB for each
piece that they receive, which costs a mapping of about 15 µs each time. In a process whose heap happens to have such a
gap it costs nothing, and they are faster than ours then (1.3 to 1.5), since ours have one more thread on the way.
"""

import ctypes
import os
import socket
import subprocess
import sys
import threading
import time
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from pathlib import Path
from statistics import median
from typing import Any

ROOT = Path(__file__).resolve().parents[2]
BUILD = Path(sys.argv[1] if len(sys.argv) > 1 else ROOT / "build")
if str(BUILD / "lib") not in os.environ.get("LD_LIBRARY_PATH", ""):
    environment = {**os.environ, "LD_LIBRARY_PATH": str(BUILD / "lib"), "PYTHONPATH": str(ROOT / "python")}
    os.execve(sys.executable, [sys.executable, *sys.argv], environment)

import quorvio  # noqa: E402
import quorvio.aio  # noqa: E402

TURNS = 11
QUERIES = 2000
FLOOD = 32 << 20  # bytes
REQUEST, ANSWER = b"POS?\n", b"\n"

Seconds = float


class CallbackChannel:
    """A channel whose receive callback is Python code."""

    def __init__(self, locator: str) -> None:
        library = ctypes.CDLL("libquorvio.so.2")
        self._buffer = bytearray()
        self._arrived = threading.Condition()
        callback = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_void_p, ctypes.c_size_t)
        self._callback = callback(self._receive)
        self._library = library
        self._handle = ctypes.c_uint32()
        opened = library.QV_IO_Open(
            ctypes.byref(self._handle), locator.encode(), None, None, self._callback, None
        )
        assert opened == 0

    def _receive(self, _: int, data: int, length: int) -> None:
        with self._arrived:
            self._buffer += ctypes.string_at(data, length)
            self._arrived.notify()

    def query(self, request: bytes, end: bytes) -> bytes:
        with self._arrived:
            self._buffer.clear()
        self._library.QV_IO_Send(self._handle, request, len(request))
        with self._arrived:
            self._arrived.wait_for(lambda: end in self._buffer, 1.0)
            answer, _, rest = self._buffer.partition(end)
            self._buffer = rest
            return bytes(answer)

    def drain(self, size: int) -> None:
        while size > 0:
            with self._arrived:
                self._arrived.wait_for(lambda: self._buffer, 1.0)
                size -= len(self._buffer)
                self._buffer.clear()

    def close(self) -> None:
        self._library.QV_IO_Close(self._handle, 1)


def timed(work: Callable[[], object]) -> Seconds:
    begin = time.perf_counter()
    work()
    return time.perf_counter() - begin


def by_turns(ours: Callable[[], Seconds], theirs: Callable[[], Seconds]) -> tuple[Seconds, Seconds]:
    """The medians of both, which meet the same machine."""
    times = [(ours(), theirs()) for _ in range(TURNS)]
    return median(mine for mine, _ in times), median(other for _, other in times)


def queries(channel: Any) -> Seconds:
    return timed(lambda: [channel.query(REQUEST, ANSWER) for _ in range(QUERIES)]) / QUERIES


def flood(open_channel: Callable[[str], Any]) -> Seconds:
    """The time to receive FLOOD bytes, which a thread of another process sends."""
    sender = subprocess.Popen([sys.executable, "-c", _FLOODER, str(FLOOD)], stdout=subprocess.PIPE, text=True)
    assert sender.stdout
    with sender, sender.stdout:
        channel = open_channel(f"network:127.0.0.1:{sender.stdout.readline().strip()}")
        taken = timed(lambda: drain(channel))
        channel.close()
    return taken


_FLOODER = """
import socket, sys
size = int(sys.argv[1])
listener = socket.create_server(("127.0.0.1", 0))
print(listener.getsockname()[1], flush=True)
peer = listener.accept()[0]
peer.sendall(bytes(size))
peer.recv(1)
"""


def drain(channel: Any) -> None:
    if isinstance(channel, CallbackChannel):
        return channel.drain(FLOOD)
    left = FLOOD
    while left > 0:
        left -= len(channel.read(1 << 18))


def stream_query(streams: str, address: str) -> Seconds:
    script = Path(__file__).with_name("stream_queries.py")
    return float(subprocess.check_output([sys.executable, script, streams, address]))


def bare_socket(address: str) -> Seconds:
    host, port = address.split(":")
    with socket.create_connection((host, int(port))) as peer:

        def ask() -> None:
            for _ in range(QUERIES):
                peer.sendall(REQUEST)
                peer.recv(100)

        return timed(ask) / QUERIES


def import_time() -> Seconds:
    code = "import time; t = time.perf_counter(); import quorvio; print(time.perf_counter() - t)"
    return median(float(subprocess.check_output([sys.executable, "-c", code])) for _ in range(TURNS))


@contextmanager
def one_core() -> Iterator[None]:
    """Keeps this process and those that it starts on one core."""
    cores = os.sched_getaffinity(0)
    if "QUORVIO_ALL_CORES" not in os.environ:
        os.sched_setaffinity(0, {max(cores)})
    yield
    os.sched_setaffinity(0, cores)


def row(name: str, ratio: float, wanted: str, detail: str) -> None:
    print(f"{name:<46} {ratio:6.2f}   {wanted:<14} {detail}")


def compare_requests() -> None:
    device = subprocess.Popen([BUILD / "bin/qvio-sim", "network"], stdout=subprocess.PIPE, text=True)
    assert device.stdout
    with device, device.stdout:
        address = device.stdout.readline().strip()
        mine, other = by_turns(
            lambda: stream_query("ours", address), lambda: stream_query("asyncio", address)
        )
        detail = f"{mine * 1e6:.1f} µs against {other * 1e6:.1f} µs"
        row("asyncio streams / asyncio's own over TCP", mine / other, "at most 0.8", detail)
        ours, theirs = quorvio.open(f"network:{address}"), CallbackChannel(f"network:{address}")
        mine, other = by_turns(lambda: queries(ours), lambda: queries(theirs))
        bare = bare_socket(address)
        detail = f"{mine * 1e6:.1f} µs against {other * 1e6:.1f} µs; bare socket {bare * 1e6:.1f} µs"
        row("query / ctypes callback", mine / other, "at most 0.7", detail)
        ours.close()
        theirs.close()
        device.terminate()


def main() -> None:
    with one_core():
        compare_requests()
    mine, other = by_turns(lambda: flood(quorvio.open), lambda: flood(CallbackChannel))
    detail = f"{FLOOD / mine / 1e6:.0f} MB/s against {FLOOD / other / 1e6:.0f} MB/s"
    row("rate of receiving / ctypes callback", other / mine, "at least 5", detail)
    row("import, ms", import_time() * 1e3, "at most 60", "")


main()
