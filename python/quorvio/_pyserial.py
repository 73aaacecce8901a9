"""Lets pyserial find the protocol "quorvio" without importing pyserial."""

import sys
from collections.abc import Sequence
from importlib.machinery import ModuleSpec
from importlib.util import spec_from_file_location
from pathlib import Path
from types import ModuleType

_NAME = "serial.urlhandler.protocol_quorvio"  # where serial.serial_for_url looks


class _Finder:
    @staticmethod
    def find_spec(
        name: str, path: Sequence[str] | None = None, target: ModuleType | None = None
    ) -> ModuleSpec | None:
        if name != _NAME:
            return None
        return spec_from_file_location(name, Path(__file__).with_name("_serial_port.py"))


def install() -> None:
    """From now on `serial.serial_for_url("quorvio://LOCATOR")` works where pyserial is installed."""
    sys.meta_path.append(_Finder)
