"""Asks a device: ask_and_answer.py LOCATOR REQUEST [KEY=VALUE...]

ask_and_answer.py serial:/dev/ttyUSB0 "*IDN?" baudrate=115200
"""

import sys
from typing import Any

import quorvio


def main(locator: str, request: str, *arguments: str) -> None:
    options: dict[str, Any] = dict(argument.split("=", 1) for argument in arguments)
    with quorvio.open(locator, **options) as device:
        answer = device.query(request.encode() + b"\n")
    print(answer.decode().strip())


if __name__ == "__main__":
    try:
        main(*sys.argv[1:])
    except quorvio.Error as error:
        sys.exit(f"{sys.argv[1]}: {error}")
