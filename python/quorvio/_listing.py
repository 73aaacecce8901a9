"""Lists of devices and of local interfaces."""

from collections.abc import Callable, Iterable
from functools import partial

from quorvio import _library
from quorvio._calls import interruptible
from quorvio._errors import InvalidArgumentError
from quorvio._options import Option, option_text
from quorvio._records import Device, Interface, device_of, interface_of, records
from quorvio._texts import text_out

_USUAL_SIZE = 1 << 20  # bytes; a thousand devices: a second call would search again


def list_devices(*interfaces: str, keys: Iterable[str] = (), **options: Option) -> list[Device]:
    """Lists the devices that are there now.

    `interfaces`: "usb", "network:ADDRESS" of a local interface, "network:all"; "network:all" if there are
    none. Serial ports cannot be listed.
    `keys`: the properties to ask for, such as "device-sn"; all if there are none, which opens USB devices
    for a moment.
    `options`: filters such as `find_device_sn="QV1"`; `find_only_available=False` lists devices in use as
    well; `discovery_timeout` is the ms that a search of the network takes (100). A datagram can get lost:
    ask again where that matters.

    Raises InvalidArgumentError; for USB also QueryFailedError and DriverUnavailableError.
    """
    text = option_text({**options, **_selection(interfaces or ("network:all",), tuple(keys))})
    return [device_of(record) for record in _records_of("devices", partial(_enumerate_all, text), _USUAL_SIZE)]


def list_interfaces() -> list[Interface]:
    """The local network interfaces. Raises DriverFailureError."""
    text = b"iface-type network\ninclude-all"
    found = _records_of("interfaces", lambda *room: _library.enumerate_interfaces(text, *room))
    return [interface_of(record) for record in found]


def _selection(interfaces: tuple[str, ...], keys: tuple[str, ...]) -> dict[str, Option]:
    networks = tuple(text for text in interfaces if text.startswith("network:"))
    kinds = ("usb",) * ("usb" in interfaces) + ("network",) * bool(networks)
    if len(networks) + interfaces.count("usb") < len(interfaces):
        raise InvalidArgumentError(f"{interfaces}: not usb, network:ADDRESS or network:all")
    includes = [f"include-{key}" for key in ("iface-type", *keys)] if keys else ["include-all"]
    return {"iface-type": kinds, "iface": networks, **{include: True for include in includes}}


def _enumerate_all(options: bytes, buffer: object, size: object) -> int:
    result: int = _library.enumerate_devices(_library.INTERFACE_ALL, options, buffer, size)
    return result


def _records_of(
    what: str, write: Callable[[object, object], int], size: int = 4096
) -> Iterable[dict[str, str]]:
    return records(interruptible(lambda: text_out(f"list {what}", write, size)))
