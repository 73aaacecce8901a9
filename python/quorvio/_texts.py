"""Bytes for the library, and texts that it writes into a buffer."""

import ctypes
from collections.abc import Callable
from typing import Any

from quorvio import _library
from quorvio._errors import check


Data = bytes | bytearray | memoryview


def bytes_of(data: Data) -> bytes:
    """The bytes to send. Raises TypeError for other types; bytes(5) would be five zero bytes."""
    return data if isinstance(data, bytes) else bytes(memoryview(data))


def text_out(what: str, write: Callable[[Any, Any], int], size: int = 4096) -> str:
    """The text. Asks again until it fits, since it may grow in between.

    `size`: for which there is room at first, in bytes.
    """
    while True:
        buffer, length = ctypes.create_string_buffer(size), ctypes.c_size_t(size)
        result = write(buffer, length)
        if result != _library.BUFFER_TOO_SMALL:
            check(result, what)
            return buffer.raw[: length.value].decode("utf-8", "surrogateescape")
        size = 2 * (length.value + 1)
