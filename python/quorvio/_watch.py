"""Watching network devices."""

import atexit
import math
import os
import select
import sys
import threading
import time
from collections import deque
from functools import partial
from types import TracebackType
from typing import Any

from quorvio import _library
from quorvio._calls import interruptible
from quorvio._collection import without_collection
from quorvio._errors import Error, EventsLostError, InvalidHandleError, WatchExistsError, check
from quorvio._listing import list_devices
from quorvio._options import option_text
from quorvio._records import device_of, records
from quorvio._settler import Event, Settler
from quorvio._texts import text_out

_MOST = 16384  # events that wait: one for each device that the library keeps
LONGEST_WAIT = 3600.0  # seconds

_os: Any = os  # mypy does not know eventfd yet
_NO_CALLBACK = _library.EventCallback()


class _Arrivals:
    """The events that nobody has asked for yet, as the texts that the library gives."""

    def __init__(self) -> None:
        self.texts: deque[tuple[bool, str]] = deque()  # the library adds on the right
        self.lost = False  # some are gone
        self.descriptor: int = _os.eventfd(0, _os.EFD_NONBLOCK | _os.EFD_CLOEXEC)  # readable: look

    def add(self, found: bool, event: int) -> None:
        """With the library's lock held: copies the event and nothing else."""
        try:
            text = text_out("event", partial(_library.event_data, event, b"include-all"))
            self.lost = self.lost or len(self.texts) >= _MOST
            if not self.lost:
                self.texts.append((found, text))
        except Exception:  # no memory
            self.lost = True
        _os.eventfd_write(self.descriptor, 1)


_arrivals: _Arrivals | None = None  # of the one watch; not the watch itself, which garbage collection may end
_changing = threading.RLock()  # guards whose they are


class Watch:
    """Events of network devices; made by `watch`. An iterator and a context manager. Any thread may close it,
    which ends the iteration in others; so does its collection as garbage."""

    def __init__(self, interfaces: tuple[str, ...], rescan: float, settle: float) -> None:
        options = option_text({"discovery-iface": interfaces})
        self._interfaces = interfaces
        self._rescan = rescan if rescan > 0 else math.inf
        self._next_scan = time.monotonic()
        self._settler = Settler(settle)
        self._ready: deque[Event] = deque()
        self._waiting = threading.RLock()  # held while somebody takes events
        self._closed = False
        self._process = os.getpid()
        self._arrivals = _Arrivals()
        try:
            self._begin()
            check(interruptible(partial(_library.set_global_options, options)), f"watch {interfaces}")
        except BaseException:
            self.close()
            raise

    def _begin(self) -> None:
        global _arrivals
        with _changing:
            if _arrivals:
                raise WatchExistsError()
            _arrivals = self._arrivals
        interruptible(partial(_library.set_event_callback, _on_event, None))

    def __enter__(self) -> "Watch":
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()

    def __del__(self) -> None:
        if hasattr(self, "_arrivals") and not sys.is_finalizing():
            self.close()

    def __iter__(self) -> "Watch":
        return self

    def __next__(self) -> Event:
        """The next event. Raises EventsLostError once if too many have waited; StopIteration when closed."""
        try:
            while True:
                event = self.get(LONGEST_WAIT)
                if event:
                    return event
        except InvalidHandleError:
            raise StopIteration from None

    def get(self, timeout: float) -> Event | None:
        """The next event, None after the time-out in seconds. A search takes 0.1 s of it.

        Raises EventsLostError once if too many have waited; InvalidHandleError when the watch is closed."""
        self._require_open()
        deadline = time.monotonic() + timeout
        if not self._waiting.acquire(timeout=min(max(0.0, timeout), threading.TIMEOUT_MAX)):
            return None
        try:
            return self._next(deadline)
        finally:
            self._waiting.release()

    def _next(self, deadline: float) -> Event | None:
        poll = select.poll()
        poll.register(self.fileno(), select.POLLIN)
        while True:
            if self.scan_is_due():
                self.scan()
            event = self.take()
            now = time.monotonic()
            if event or now >= deadline:
                return event
            wait = min(deadline, self.next_change()) - now
            poll.poll(1e3 * max(0.0, min(wait, LONGEST_WAIT)))

    # For `get` and the asynchronous watch.

    def fileno(self) -> int:
        """Readable when an event or the end has come; `take` makes it unreadable."""
        self._require_open()
        return self._arrivals.descriptor

    def scan_is_due(self) -> bool:
        """Whether it is time for a search."""
        return time.monotonic() >= self._next_scan

    def scan(self) -> None:
        """Searches, which raises the events of devices that do not answer."""
        self._next_scan = time.monotonic() + self._rescan
        try:
            list_devices(*self._interfaces, keys=("device-sn",))
        except Error:
            pass  # an interface may be away for a while

    def next_change(self) -> float:
        """When `get` has to look although nothing arrives, in the time of the monotonic clock."""
        return min(self._next_scan, self._settler.next_due())

    def take(self) -> Event | None:
        """An event that is there."""
        self._require_open()
        try:
            _os.eventfd_read(self._arrivals.descriptor)
        except BlockingIOError:
            pass
        if self._arrivals.lost:
            self._arrivals.lost = False
            raise EventsLostError()
        now = time.monotonic()
        while self._arrivals.texts:
            found, text = self._arrivals.texts.popleft()
            for record in records(text):
                self._ready += self._settler.add(Event(found, device_of(record)), now)
        self._ready += self._settler.due(now)
        return self._ready.popleft() if self._ready else None

    def _require_open(self) -> None:
        if self._process != os.getpid():
            raise InvalidHandleError("the watch of the parent process; make another one in this one")
        if self._closed:
            raise InvalidHandleError("the watch is closed")

    def close(self) -> None:
        """Watches nothing from now on, and ends iterations in other threads."""
        with _changing:
            if self._closed or self._process != os.getpid():
                return
            self._closed = True
            if _arrivals is self._arrivals:
                interruptible(_watch_nothing)
        _os.eventfd_write(self._arrivals.descriptor, 1)
        with self._waiting:
            os.close(self._arrivals.descriptor)


def _watch_nothing() -> None:
    global _arrivals
    _library.set_event_callback(_NO_CALLBACK, None)  # on return none runs
    _library.set_global_options(b"discovery-iface network:none")
    _arrivals = None


@without_collection
def _add_event(_: object, kind: int, event: int) -> None:
    arrivals = _arrivals
    if arrivals and kind in (_library.DEVICE_FOUND, _library.DEVICE_LOST):
        arrivals.add(kind == _library.DEVICE_FOUND, event)


_on_event = _library.EventCallback(_add_event)


def _in_child() -> None:
    global _arrivals, _changing
    _changing = threading.RLock()
    arrivals, _arrivals = _arrivals, None
    if arrivals:
        os.close(arrivals.descriptor)


atexit.register(_watch_nothing)
os.register_at_fork(after_in_child=_in_child)
