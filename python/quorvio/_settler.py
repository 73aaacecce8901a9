"""Holding losses back."""

from typing import NamedTuple

from quorvio._records import Device


class Event(NamedTuple):
    """Something about a network device has changed."""

    found: bool  #: it has appeared or become available; else it is gone or busy
    device: Device


class Settler:
    """Drops a loss whose device is found again within `settle` seconds, and that event. Times are those of
    the monotonic clock, in seconds."""

    def __init__(self, settle: float) -> None:
        self._settle = settle
        self._held: dict[object, tuple[float, Event]] = {}  # losses by device, in the order of their time

    def add(self, event: Event, now: float) -> list[Event]:
        """The events to report at once."""
        if self._settle <= 0:
            return [event]
        device = _identity(event.device)
        if not event.found:
            self._held.setdefault(device, (now + self._settle, event))
            return []
        if self._held.pop(device, None) is None:
            return [event]
        return [] if event.device.available else [event._replace(found=False)]  # back, but busy

    def due(self, now: float) -> list[Event]:
        """The losses that have been held back long enough."""
        ready = [device for device, (time, _) in self._held.items() if time <= now]
        return [self._held.pop(device)[1] for device in ready]

    def next_due(self) -> float:
        """When the next loss is reported; infinity: none is held back."""
        return min((time for time, _ in self._held.values()), default=float("inf"))


def _identity(device: Device) -> object:
    """Distinguishes devices; their other fields are their state."""
    return (
        device.serial_number,
        device.host,
        device.port,
        device.device_type,
        device.protocol_id,
        device.interface,
    )
