"""Devices and interfaces, read from the texts in which the library lists them."""

from collections.abc import Iterator
from typing import NamedTuple

_CODES = (("%0A", "\n"), ("%7C", "|"), ("%3D", "="), ("%25", "%"))  # the sign of all codes comes last


class Device(NamedTuple):
    """A device as a listing gives it. Numbers are 0 and texts empty where a device has none."""

    kind: str  #: "usb" or "network"
    locator: str  #: for `open`; empty: the device cannot be named
    serial_number: str
    available: bool  #: not in use by somebody else
    protocol_id: int
    info: str  #: network: what the device says of itself; USB: the product's description
    device_type: int  #: network
    interface: str  #: network: the local interface, "network:ADDRESS"
    host: str  #: network
    port: int  #: network
    chip_id: int  #: USB, as are the next two
    vendor_id: int
    product_id: int
    properties: dict[str, str]  #: all of the above as text, and whatever else the library gives


class Interface(NamedTuple):
    """A local network interface."""

    name: str
    address: str  #: dotted; "network:" + address is what `list_devices` and `watch` take
    subnet_mask: str
    properties: dict[str, str]


def unescaped(value: str) -> str:
    """The plain text of a value in a record."""
    for code, character in _CODES:
        value = value.replace(code, character)
    return value


def records(text: str) -> Iterator[dict[str, str]]:
    """The records of a list, one a line: items KEY=VALUE joined by "|"."""
    for line in text.split("\n") if text else ():
        items = (item.partition("=") for item in line.split("|") if item)
        yield {key: unescaped(value) for key, _, value in items}


def device_of(record: dict[str, str]) -> Device:
    """The device that a record describes."""
    text = record.get
    usb = text("iface-type") == "usb"
    return Device(
        kind="usb" if usb else "network",
        locator=text("locator", ""),
        serial_number=text("device-sn", ""),
        available=text("available") == "1",
        protocol_id=_number(record, "protocol-id"),
        info=text("usb-desc" if usb else "device-info", ""),
        device_type=_number(record, "device-type"),
        interface=text("iface", ""),
        host=text("network-host", ""),
        port=_number(record, "network-port"),
        chip_id=_number(record, "usb-id"),
        vendor_id=_number(record, "usb-vid"),
        product_id=_number(record, "usb-pid"),
        properties=record,
    )


def interface_of(record: dict[str, str]) -> Interface:
    """The interface that a record describes."""
    text = record.get
    return Interface(text("name", ""), text("network-host", ""), text("network-subnet-mask", ""), record)


def _number(record: dict[str, str], key: str) -> int:
    text = record.get(key, "")
    return int(text) if text.isascii() and text.isdigit() else 0
