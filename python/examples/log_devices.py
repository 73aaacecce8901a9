"""Logs the position of several devices, and opens again those that are lost: log_devices.py LOCATOR...

Ends with Ctrl-C.
"""

import sys
import threading
import time

import quorvio

PERIOD = 0.5  # seconds between two values
LONGEST_DELAY = 5.0  # seconds between two attempts to open

ended = threading.Event()


def log(locator: str) -> None:
    """Runs on a thread for each device."""
    delay = 0.1
    while not ended.wait(delay):
        try:
            with quorvio.open(locator, connect_timeout=1000, baudrate=115200) as device:
                report(locator, "opened")
                delay = 0.1
                while not ended.wait(PERIOD):
                    report(locator, device.query(b"POS?\n").decode().strip())
        except quorvio.Error as error:  # not there, lost, or no answer in time
            report(locator, str(error))
            delay = min(2 * delay, LONGEST_DELAY)


def report(locator: str, text: str) -> None:
    print(f"{time.strftime('%H:%M:%S')}  {locator}  {text}", flush=True)


def main() -> None:
    threads = [threading.Thread(target=log, args=[locator]) for locator in sys.argv[1:]]
    for thread in threads:
        thread.start()
    try:
        for thread in threads:
            thread.join()
    except KeyboardInterrupt:
        ended.set()


if __name__ == "__main__":
    main()
