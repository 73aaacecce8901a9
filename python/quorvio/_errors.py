"""Exceptions, one for each result of the library that means a failure."""

from typing import ClassVar

from quorvio import _library


class Error(OSError):
    """Every failure that this package raises. `code` is the result of the library, from 100 on one of
    this package; 0: none of them. The classes below also are the builtin exceptions that they resemble."""

    code: ClassVar[int] = 0
    meaning: ClassVar[str] = "failed"

    def __init__(self, text: str = "") -> None:
        super().__init__(text or self.meaning)


class NoFreeHandleError(Error):
    """All 64 handles of the process are in use."""

    code, meaning = 1, "no free handle"


class InvalidLocatorError(Error, ValueError):
    """The locator has no known interface word, or fields that do not fit its kind."""

    code, meaning = 2, "invalid locator"


class DeviceNotFoundError(Error):
    """Not attached, not discovered, host unknown or unreachable."""

    code, meaning = 3, "device not found"


class InvalidArgumentError(Error, ValueError):
    """An option or argument was rejected."""

    code, meaning = 4, "invalid argument"


class DriverFailureError(Error):
    """A driver or system call failed."""

    code, meaning = 5, "driver or system failure"


class InvalidHandleError(Error):
    """Not open: closed, also by another thread during the call, or opened by the parent process."""

    code, meaning = 6, "invalid handle"


class ConnectionLostError(Error, ConnectionResetError):
    """The peer closed or reset the link, or the USB chip is gone."""

    code, meaning = 7, "connection lost"


class ReceiveFailedError(Error, ConnectionError):
    """Reading from the device failed."""

    code, meaning = 8, "receive failed"


class TransmitFailedError(Error):
    """Not all bytes could be written."""

    code, meaning = 9, "transmit failed"


class NotSupportedError(Error):
    """The operation does not exist for this kind of interface."""

    code, meaning = 10, "not supported"


class PropertyUnavailableError(Error):
    """The channel has no such property."""

    code, meaning = 11, "property unavailable"


class BufferTooSmallError(Error):
    """Too many bytes have come without the end that is waited for."""

    code, meaning = _library.BUFFER_TOO_SMALL, "buffer too small"


class QueryFailedError(Error):
    """FTDI's driver could not list its devices."""

    code, meaning = 13, "query failed"


class DriverUnavailableError(Error):
    """FTDI's driver libraries could not be loaded."""

    code, meaning = 14, "driver unavailable"


class TimedOutError(Error, TimeoutError):
    """Nothing, or not enough, has come in time."""

    code, meaning = 100, "timed out"


class EventsLostError(Error):
    """Too many events have waited in a watch, and some are gone: list the devices afresh."""

    code, meaning = 101, "events lost"


class WatchExistsError(Error):
    """The process has a watch already."""

    code, meaning = 102, "devices are watched already"


_CLASSES = {cls.code: cls for cls in Error.__subclasses__()}


def error_of(result: int, what: str) -> Error:
    """The exception for a result other than OK."""
    cls = _CLASSES.get(result)
    return cls(f"{what}: {cls.meaning}") if cls else Error(f"{what}: result {result}")


def check(result: int, what: str) -> None:
    """Raises the exception of a result."""
    if result != _library.OK:
        raise error_of(result, what)
