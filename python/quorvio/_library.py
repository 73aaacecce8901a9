"""The shared library: loaded by its SONAME, its version checked, its functions declared."""

import ctypes
from ctypes import POINTER, c_char_p, c_size_t, c_uint32, c_void_p
from typing import Any

SONAME = "libquorvio.so.2"
OLDEST = (2, 1, 2)

OK = 0
BUFFER_TOO_SMALL = 12
INTERFACE_ALL = 9999
DEVICE_FOUND = 1
DEVICE_LOST = 2

# User data is a number here, never an address.
ErrorCallback: Any = ctypes.CFUNCTYPE(None, c_size_t, c_uint32)
EventCallback: Any = ctypes.CFUNCTYPE(None, c_void_p, c_uint32, c_void_p)


def load() -> ctypes.CDLL:
    """The library; raises ImportError if it cannot be loaded or is too old."""
    try:
        library = ctypes.CDLL(SONAME)
    except OSError as error:
        raise ImportError(
            f"quorvio needs the shared library {SONAME}, which cannot be loaded: {error}. "
            "Install libquorvio, or name its folder in LD_LIBRARY_PATH."
        ) from error
    check_version(version_of(library))
    return library


def version_of(library: ctypes.CDLL) -> tuple[int, int, int]:
    """Major, minor and update number."""
    parts = (c_uint32 * 3)()
    addresses = (ctypes.byref(parts, i * ctypes.sizeof(c_uint32)) for i in range(3))
    library.QV_IO_GetVersion(*addresses)
    return (parts[0], parts[1], parts[2])


def check_version(version: tuple[int, int, int]) -> None:
    """Raises ImportError if this package cannot work with that version."""
    if version[0] != OLDEST[0] or version < OLDEST:
        found, oldest = (".".join(map(str, numbers)) for numbers in (version, OLDEST))
        raise ImportError(
            f"quorvio needs {SONAME} of version {oldest} or later of {OLDEST[0]}.x; found {found}"
        )


_library = load()
version = version_of(_library)
_libc = ctypes.CDLL(None)


def _declared(name: str, *arguments: Any) -> Any:
    function = getattr(_library, name)
    function.argtypes = arguments
    function.restype = c_uint32
    return function


_Size = POINTER(c_size_t)

open_handle = _declared(
    "QV_IO_Open", POINTER(c_uint32), c_char_p, c_char_p, c_size_t, c_void_p, ErrorCallback
)
close_handle = _declared("QV_IO_Close", c_uint32, c_uint32)
send = _declared("QV_IO_Send", c_uint32, c_char_p, c_size_t)
get_property = _declared("QV_IO_GetProperty", c_uint32, c_char_p, c_char_p, _Size)
enumerate_devices = _declared("QV_IO_EnumerateDevices", c_uint32, c_char_p, c_char_p, _Size)
enumerate_interfaces = _declared("QV_IO_EnumerateInterfaces", c_char_p, c_char_p, _Size)
set_global_options = _declared("QV_IO_SetGlobalOptions", c_char_p)
set_event_callback = _declared("QV_IO_SetEventCallback", EventCallback, c_void_p)
event_data = _declared("QV_IO_GetDiscoveryEventData", c_void_p, c_char_p, c_char_p, _Size)

# The receive callback: write(descriptor, data, length) has its shape, with the descriptor as user data.
WRITE = ctypes.cast(_libc.write, c_void_p).value
shutdown = _libc.shutdown
