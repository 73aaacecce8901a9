"""Writes a device's answers to a CSV file: csv_logger.py LOCATOR FILE REQUEST... [--count N]

csv_logger.py network:192.168.0.10:5000 run.csv POS? MOV?
A line holds the time and an answer to each request; one that did not come in time is empty. Ends with Ctrl-C.
"""

import argparse
import csv
import itertools
import time
from datetime import datetime

import quorvio

PERIOD = 0.1  # seconds between two lines


def answer(device: quorvio.Channel, request: str) -> str:
    try:
        return device.query(request.encode() + b"\n").decode().strip()
    except quorvio.TimedOutError:
        return ""


def main() -> None:
    parser = argparse.ArgumentParser(description="Writes a device's answers to a CSV file.")
    parser.add_argument("locator")
    parser.add_argument("file")
    parser.add_argument("requests", nargs="+", metavar="request")
    parser.add_argument("--count", type=int, help="lines; without it until Ctrl-C")
    arguments = parser.parse_args()
    with (
        quorvio.open(arguments.locator, baudrate=115200) as device,
        open(arguments.file, "w", newline="", encoding="utf-8") as file,
    ):
        table = csv.writer(file)
        table.writerow(["time", *arguments.requests])
        for _ in range(arguments.count) if arguments.count else itertools.count():
            row = [answer(device, request) for request in arguments.requests]
            table.writerow([datetime.now().isoformat(timespec="milliseconds"), *row])
            file.flush()
            time.sleep(PERIOD)


if __name__ == "__main__":
    try:
        main()
    except KeyboardInterrupt:
        pass
