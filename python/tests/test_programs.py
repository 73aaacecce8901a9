"""Whole programs: how they end, and the examples."""

import csv
import os
import signal
import socket
import subprocess
import sys
from collections.abc import Callable, Iterator
from pathlib import Path

import pytest
from conftest import Simulated, needs_private_network, until

EXAMPLES = Path(__file__).resolve().parents[1] / "examples"
RUNS = int(os.environ.get("QUORVIO_EXIT_RUNS", "4"))

ENDS = """
import signal, socket, sys, threading, time, quorvio
signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # as programs that embed Python may have it
_, network, serial, how = sys.argv
listener = socket.create_server(("127.0.0.1", 0))
flooded = quorvio.open("network:127.0.0.1:%d" % listener.getsockname()[1])
far = listener.accept()[0]
lost = [quorvio.open(flooded.locator, on_lost=lambda _: None) for _ in range(8)]
for _ in lost:
    listener.accept()[0].close()  # reported a hundred times a second, also while the interpreter ends
idle = quorvio.open(serial, baudrate=115200, timeout=None)
usb = quorvio.open("usb:sn:QV100001", baudrate=115200)
def repeat(function):
    try:
        while True:
            function()
    except Exception:
        pass
def work(function):
    threading.Thread(target=repeat, args=[function], daemon=True).start()
far.setblocking(False)
try:
    while not time.sleep(0.002):  # until the library waits for a reader, too
        far.send(bytes(1 << 20))
except BlockingIOError:
    pass
work(lambda: quorvio.open(network).query(b"POS?\\n"))
work(idle.read)
work(lambda: usb.query(b"POS?\\n"))
if how == "watch":
    watch = quorvio.watch("network:127.0.0.1", rescan=0.01)
    next(watch)
    work(lambda: next(watch))
far.shutdown(socket.SHUT_RD)
time.sleep(0.02)
"""


@pytest.fixture
def devices(simulated: Callable[..., Simulated]) -> tuple[str, str]:
    network, serial = simulated("network", "--iface", "127.0.0.1"), simulated("serial")
    return f"network:{network.lines[0].split()[-1]}", f"serial:{serial.lines[0]}"


@pytest.mark.parametrize("how", ["channels", pytest.param("watch", marks=needs_private_network)])
def test_a_program_may_end_with_everything_open(devices: tuple[str, str], how: str) -> None:
    for _ in range(RUNS):
        program = [sys.executable, "-W", "ignore", "-c", ENDS, *devices, how]
        run = subprocess.run(program, capture_output=True, text=True, timeout=20)
        assert (run.returncode, run.stderr) == (0, "")


MANY = """
import os, sys, time, quorvio
def open_and_close(times):
    for _ in range(times):
        with quorvio.open(sys.argv[1]) as device:
            device.query(b"POS?\\n")
    while len(os.listdir("/proc/self/task")) > 1:
        time.sleep(0.01)
def resident():
    return int(open("/proc/self/statm").read().split()[1]) * os.sysconf("SC_PAGESIZE")
open_and_close(100)
before, descriptors = resident(), os.listdir("/proc/self/fd")
open_and_close(int(sys.argv[2]))
assert os.listdir("/proc/self/fd") == descriptors
assert resident() - before < 1 << 18, resident() - before
"""


def test_nothing_is_left_of_closed_channels(controller: str) -> None:
    times = os.environ.get("QUORVIO_OPEN_RUNS", "1000")
    subprocess.run([sys.executable, "-W", "ignore", "-c", MANY, controller, times], check=True, timeout=90)


def test_multiprocessing_with_a_channel_open(controller: str) -> None:
    code = """
import multiprocessing, sys, quorvio
device = quorvio.open(sys.argv[1])
def ask(_):
    with quorvio.open(sys.argv[1]) as own:
        return own.query(b"POS?\\n")
with multiprocessing.get_context("fork").Pool(2) as pool:
    assert pool.map(ask, range(8)) == 8 * [b"0.000\\r"]
assert device.query(b"POS?\\n") == b"0.000\\r"
"""
    subprocess.run([sys.executable, "-c", code, controller], check=True, timeout=20)


def run_example(name: str, *arguments: object) -> str:
    command = [sys.executable, str(EXAMPLES / name), *map(str, arguments)]
    return subprocess.check_output(command, text=True, timeout=20)


class Following:
    """A program that runs until Ctrl-C."""

    def __init__(self, name: str, *arguments: str, output: Path) -> None:
        self._output = output
        with output.open("w") as file:
            self._process = subprocess.Popen([sys.executable, EXAMPLES / name, *arguments], stdout=file)

    def await_output(self, *texts: str) -> None:
        until(lambda: all(text in self._output.read_text() for text in texts))

    def interrupt(self) -> None:
        self._process.send_signal(signal.SIGINT)
        assert self._process.wait(10) == 0


def test_example_asks(devices: tuple[str, str]) -> None:
    assert "SIM-0001" in run_example("ask_and_answer.py", devices[1], "*IDN?", "baudrate=115200")


def test_example_writes_csv(controller: str, tmp_path: Path) -> None:
    run_example("csv_logger.py", controller, tmp_path / "log.csv", "POS?", "MOV?", "--count", 2)
    rows = list(csv.reader((tmp_path / "log.csv").read_text().splitlines()))
    assert [row[1:] for row in rows] == [["POS?", "MOV?"], ["0.000", "0"], ["0.000", "0"]]


def test_example_logs_and_opens_again(simulated: Callable[..., Simulated], tmp_path: Path) -> None:
    device = simulated("network")
    others = [f"network:{simulated('network').lines[0]}" for _ in range(3)]
    address = device.lines[0]
    log = Following("log_devices.py", f"network:{address}", *others, output=tmp_path / "log")
    log.await_output(*(f"{one}  0.000" for one in (f"network:{address}", *others)))
    device.end()
    log.await_output("connection lost")
    simulated("network", "--port", address.split(":")[1], "--serial", "AGAIN")
    until(lambda: (tmp_path / "log").read_text().count(f"{address}  opened") == 2)
    log.interrupt()


@needs_private_network
def test_example_watches(simulated: Callable[..., Simulated], tmp_path: Path) -> None:
    device = simulated("network", "--iface", "127.0.0.1")
    watch = Following("watch_devices.py", "network:127.0.0.1", output=tmp_path / "watch")
    watch.await_output("found network:sn:SIM-0001")
    device.tell("leave SIM-0001")
    watch.await_output("lost  network:sn:SIM-0001")
    watch.interrupt()


@pytest.fixture
def broker(tmp_path: Path) -> Iterator[str]:
    with socket.create_server(("127.0.0.1", 0)) as free:
        port = free.getsockname()[1]
    settings = tmp_path / "mosquitto.conf"
    settings.write_text(f"listener {port} 127.0.0.1\nallow_anonymous true\nuser root\n")
    process = subprocess.Popen(["mosquitto", "-c", settings], stderr=subprocess.DEVNULL)

    def answers() -> bool:
        with socket.socket() as client:
            return client.connect_ex(("127.0.0.1", port)) == 0

    until(answers)
    yield f"127.0.0.1:{port}"
    process.terminate()
    process.wait()


def test_example_publishes(controller: str, broker: str) -> None:
    import paho.mqtt.client as mqtt

    received: list[bytes] = []
    host, port = broker.split(":")
    client = mqtt.Client()
    client.on_message = lambda _client, _data, message: received.append(message.payload)
    subscribed: list[object] = []
    client.on_subscribe = lambda *arguments: subscribed.append(arguments)
    client.connect(host, int(port))
    client.subscribe("stage/position", qos=1)
    client.loop_start()
    until(lambda: subscribed)
    run_example("to_mqtt.py", controller, broker, "stage/position", 3)
    until(lambda: len(received) == 3)
    assert set(received) == {b"0.000"}
    client.disconnect()
    client.loop_stop()
