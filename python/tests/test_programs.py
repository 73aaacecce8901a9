"""Whole programs: how they end, and the examples."""

import contextlib
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

ENDS = """
import itertools, signal, socket, sys, threading, time, quorvio
signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # as programs that embed Python may have it
threading.excepthook = lambda _: None
_, network, serial, how = sys.argv
listener = socket.create_server(("127.0.0.1", 0))
flooded = quorvio.open("network:127.0.0.1:%d" % listener.getsockname()[1])
far = listener.accept()[0]
lost = [quorvio.open(flooded.locator, on_lost=lambda _: None) for _ in range(8)]
for _ in lost:
    listener.accept()[0].close()  # reported a hundred times a second, also while the interpreter ends
idle = quorvio.open(serial, baudrate=115200, timeout=None)
usb = quorvio.open("usb:sn:QV100001", baudrate=115200)
def work(function):
    threading.Thread(target=lambda: [function() for _ in itertools.count()], daemon=True).start()
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
time.sleep(0.02)
"""


@pytest.fixture
def devices(simulated: Callable[..., Simulated]) -> tuple[str, str]:
    network, serial = simulated("network", "--iface", "127.0.0.1"), simulated("serial")
    return f"network:{network.lines[0].split()[-1]}", f"serial:{serial.lines[0]}"


@pytest.mark.parametrize("how", ["channels", pytest.param("watch", marks=needs_private_network)])
def test_a_program_may_end_with_everything_open(devices: tuple[str, str], how: str) -> None:
    for _ in range(int(os.environ.get("QUORVIO_EXIT_RUNS", "4"))):
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
    resident = int(open("/proc/self/statm").read().split()[1]) * os.sysconf("SC_PAGESIZE")
    return resident, os.listdir("/proc/self/fd")
memory, descriptors = open_and_close(100)
memory_after, descriptors_after = open_and_close(int(sys.argv[2]))
assert descriptors_after == descriptors
assert memory_after - memory < 1 << 18, memory_after - memory
"""


def test_nothing_is_left_of_closed_channels(controller: str) -> None:
    times = os.environ.get("QUORVIO_OPEN_RUNS", "500")
    subprocess.run([sys.executable, "-W", "ignore", "-c", MANY, controller, times], check=True, timeout=90)


def run_example(name: str, *arguments: object) -> str:
    command = [sys.executable, str(EXAMPLES / name), *map(str, arguments)]
    return subprocess.check_output(command, text=True, timeout=20)


@contextlib.contextmanager
def following(name: str, *arguments: str) -> Iterator[Callable[..., None]]:
    """Runs an example that Ctrl-C ends. The function waits until its output has had all those texts."""
    example = subprocess.Popen([sys.executable, EXAMPLES / name, *arguments], stdout=subprocess.PIPE, text=True)
    assert example.stdout
    output = example.stdout

    def expect(*texts: str) -> None:
        missing = list(texts)
        while missing:
            line = output.readline()
            assert line, f"ended without {missing}"
            missing = [text for text in missing if text not in line]

    with example:
        yield expect
        example.send_signal(signal.SIGINT)
    assert example.returncode == 0


def test_examples_that_end(devices: tuple[str, str], tmp_path: Path) -> None:
    assert "SIM-0001" in run_example("ask_and_answer.py", devices[1], "*IDN?", "baudrate=115200")
    run_example("csv_logger.py", devices[0], tmp_path / "log.csv", "POS?", "MOV?", "--count", 2)
    rows = list(csv.reader((tmp_path / "log.csv").read_text().splitlines()))
    assert [row[1:] for row in rows] == [["POS?", "MOV?"], ["0.000", "0"], ["0.000", "0"]]


def test_example_logs_and_opens_again(simulated: Callable[..., Simulated]) -> None:
    devices = [simulated("network") for _ in range(4)]
    locators = [f"network:{device.lines[0]}" for device in devices]
    with following("log_devices.py", *locators) as expect:
        expect(*(f"{locator}  0.000" for locator in locators))
        devices[0].end()
        expect(f"{locators[0]}  receive: connection lost")
        simulated("network", "--port", locators[0].split(":")[-1], "--serial", "AGAIN")
        expect(f"{locators[0]}  opened")


@needs_private_network
def test_example_watches(simulated: Callable[..., Simulated]) -> None:
    device = simulated("network", "--iface", "127.0.0.1")
    with following("watch_devices.py", "network:127.0.0.1") as expect:
        expect("found network:sn:SIM-0001")
        device.tell("leave SIM-0001")
        expect("lost  network:sn:SIM-0001")


@pytest.fixture
def broker(tmp_path: Path) -> Iterator[str]:
    with socket.create_server(("127.0.0.1", 0)) as free:
        port = free.getsockname()[1]
    settings = tmp_path / "mosquitto.conf"
    settings.write_text(f"listener {port} 127.0.0.1\nallow_anonymous true\nuser root\n")
    with subprocess.Popen(["mosquitto", "-c", settings], stderr=subprocess.DEVNULL) as process:
        with socket.socket() as client:
            until(lambda: client.connect_ex(("127.0.0.1", port)) == 0)
        yield str(port)
        process.terminate()


SUBSCRIBE = """
import sys, paho.mqtt.subscribe
print(paho.mqtt.subscribe.simple("stage/position", hostname="127.0.0.1", port=int(sys.argv[1])).payload)
"""


def test_example_publishes(controller: str, broker: str) -> None:
    run_example("to_mqtt.py", controller, f"127.0.0.1:{broker}", "stage/position", 3)
    assert subprocess.check_output([sys.executable, "-c", SUBSCRIBE, broker], timeout=20) == b"b'0.000'\n"
