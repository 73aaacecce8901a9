"""Exchange bytes with motion controllers and sensors over USB (FTDI chip), a serial port or TCP.

    with quorvio.open("network:192.168.0.10:5000") as device:
        print(device.query(b"*IDN?\\n"))

Locators: "serial:PATH", "network:HOST:PORT", "network:sn:SERIAL", "usb:sn:SERIAL", "usb:id:NUMBER",
"usb:ix:INDEX". Options of a link are arguments: `quorvio.open("serial:/dev/ttyUSB0", baudrate=115200)`.
Unknown options are ignored unless `strict=True` is given. docs/python.md is the guide.
"""

from quorvio import _library, _pyserial
from quorvio._channel import Channel
from quorvio._errors import (
    BufferTooSmallError,
    ConnectionLostError,
    DeviceNotFoundError,
    DriverFailureError,
    DriverUnavailableError,
    Error,
    EventsLostError,
    InvalidArgumentError,
    InvalidHandleError,
    InvalidLocatorError,
    NoFreeHandleError,
    NotSupportedError,
    PropertyUnavailableError,
    QueryFailedError,
    ReceiveFailedError,
    TimedOutError,
    TransmitFailedError,
    WatchExistsError,
)
from quorvio._link import OnLost
from quorvio._listing import list_devices, list_interfaces
from quorvio._options import Option
from quorvio._records import Device, Interface
from quorvio._settler import Event
from quorvio._watch import Watch

__version__ = "2.1.2"
library_version = _library.version  #: major, minor and update number of the loaded library

__all__ = [
    "BufferTooSmallError",
    "Channel",
    "ConnectionLostError",
    "Device",
    "DeviceNotFoundError",
    "DriverFailureError",
    "DriverUnavailableError",
    "Error",
    "Event",
    "EventsLostError",
    "Interface",
    "InvalidArgumentError",
    "InvalidHandleError",
    "InvalidLocatorError",
    "NoFreeHandleError",
    "NotSupportedError",
    "OnLost",
    "Option",
    "PropertyUnavailableError",
    "QueryFailedError",
    "ReceiveFailedError",
    "TimedOutError",
    "TransmitFailedError",
    "Watch",
    "WatchExistsError",
    "__version__",
    "library_version",
    "list_devices",
    "list_interfaces",
    "open",
    "watch",
]


def open(
    locator: str, *, timeout: float | None = 1.0, on_lost: OnLost | None = None, **options: Option
) -> Channel:
    """Opens a device.

    `timeout`: how long reading methods wait unless the call names another time, in seconds; None: without
    limit.
    `on_lost`: called once, on a thread of its own, when the link is lost; its argument is the exception that
    reading raises then.
    `options`: those of the link in quorvio.h, with underscores for hyphens: `baudrate=115200`,
    `connect_timeout=500` (ms). A list repeats an option.

    Raises InvalidLocatorError, DeviceNotFoundError, InvalidArgumentError, DriverFailureError,
    DriverUnavailableError, NoFreeHandleError.
    """
    return Channel(locator, timeout=timeout, on_lost=on_lost, **options)


def watch(*interfaces: str, rescan: float = 5, settle: float = 0) -> Watch:
    """Watches network devices appear and disappear, as an iterator of events. One in a process.

    `interfaces`: "network:ADDRESS" of local interfaces, or "network:all"; none: "network:all".
    `rescan`: seconds between searches, which notice devices that vanished without a goodbye; they run while
    somebody waits for an event. 0: one search at the start.
    `settle`: seconds for which a loss is held back; if the device is found again in that time, neither is
    reported.

    Raises WatchExistsError, and InvalidArgumentError: an interface cannot be watched.
    """
    return Watch(interfaces or ("network:all",), rescan, settle)


_pyserial.install()
