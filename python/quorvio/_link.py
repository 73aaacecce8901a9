"""An open handle of the library, and the socket on which its received bytes arrive.

No Python code is on the way of the bytes. The library's receive callback is `write` of libc, its user data the
number of one end of a socket pair; the other end is for Python to read. When nobody reads, `write` blocks the
library's receive thread, which is the back-pressure that a device notices.
"""

import atexit
import ctypes
import os
import socket
import threading
import time
from _thread import start_new_thread
from collections.abc import Callable
from functools import partial
from typing import Any

from quorvio import _library
from quorvio._calls import Call, interruptible, is_main_thread
from quorvio._collection import without_collection
from quorvio._errors import Error, InvalidHandleError, InvalidLocatorError, check, error_of
from quorvio._options import Option, encoded, option_text

OnLost = Callable[[Error], object]

_OPENING, _OPEN, _CLOSED, _PARENTS = range(4)

_SOCKET_BUFFER = 1 << 20  # bytes; the system gives less
_SEND_BEGINS_WITHIN = 0.1  # seconds
_WAIT_AT_EXIT = 2.0  # seconds
_NEVER_BLOCKS = 1024  # bytes that every device driver and network stack buffers
_LEAST_COST = 128  # of these, for one send: drivers buffer few small ones

_links: dict[int, "Link"] = {}  # by the descriptor that the library writes to
_exiting = False


class Link:
    """Any thread may use it. `near` is the end to read; its owner closes it after `close`. `reading` is a
    lock for the threads that read it."""

    def __init__(self, locator: str, options: dict[str, Option], on_lost: OnLost | None = None) -> None:
        if _exiting:
            raise InvalidHandleError("the interpreter is ending")
        text = encoded(locator, error=InvalidLocatorError), option_text(options)
        self.loss: Error | None = None
        self._on_lost = on_lost
        self._handle = ctypes.c_uint32()
        self._state = _OPENING
        self._users = 0  # threads that use the handle
        self._unanswered = 0  # bytes that the device may not have taken yet
        self._awaits_answer = self._speaks_unasked = False
        self._make_locks()
        self.near, self._far = _socket_pair()
        _links[self._far] = self
        try:
            check(interruptible(partial(self._open, *text)), f"cannot open {locator}")
        except BaseException:
            self.close()
            self.near.close()
            raise

    def _make_locks(self) -> None:
        # Reentrant, since a signal handler may close what the code that it interrupts is using.
        self._lock = threading.RLock()  # guards the state and users
        self._unused = threading.Condition(self._lock)
        self._closing = threading.RLock()  # held by the thread that closes; others wait for it
        self.reading = threading.RLock()

    def _open(self, locator: bytes, options: bytes) -> int:
        result: int = _library.open_handle(
            self._handle, locator, options, self._far, _library.WRITE, _LOSS_CALLBACK
        )
        with self._lock:
            wanted = self._state == _OPENING  # Ctrl-C and the end of the process give it up
            self._state = _OPEN if wanted and result == _library.OK else _CLOSED
        if self._state == _CLOSED:
            self._release(close=result == _library.OK)
        return result

    def close(self) -> None:
        """Ends all calls in progress and releases the device; nothing if that was done before. If the link
        is just being opened, the opening thread closes it."""
        with self._closing:
            with self._lock:
                state = self._state
                if state != _PARENTS:
                    self._state = _CLOSED
            if state == _OPEN:
                interruptible(partial(self._release, close=True))

    def _release(self, close: bool) -> None:
        if close:
            self._wake()
            with self._lock:
                # The number of the handle is free once it is closed, and a send that is about to begin would
                # reach the next link with that number. One that takes longer than this has long begun.
                self._unused.wait_for(lambda: self._users == 0, _SEND_BEGINS_WITHIN)
            _library.close_handle(self._handle, 1)
        del _links[self._far]
        os.close(self._far)

    def _wake(self) -> None:
        """Wakes the threads that read and the receive thread, which may be blocked in `write`."""
        try:
            self.near.shutdown(socket.SHUT_RDWR)
        except OSError:  # it was closed, which wakes them too
            pass

    @property
    def is_open(self) -> bool:
        """False also in a forked child."""
        return self._state == _OPEN

    def why_not(self) -> Error:
        """Why there is nothing more to read."""
        if self._state == _PARENTS:
            return InvalidHandleError("the channel of the parent process; open the device again in this one")
        return self.loss or InvalidHandleError("the channel is closed")

    def require_open(self) -> None:
        """Raises InvalidHandleError if it is not."""
        if self._state != _OPEN:
            raise self.why_not() if self._state == _PARENTS else InvalidHandleError("the channel is closed")

    def use(self, function: Any, *arguments: Any) -> int:
        """Calls a function of the library with the handle before the arguments."""
        with self._lock:
            self.require_open()
            self._users += 1
        try:
            result: int = function(self._handle, *arguments)
            return result
        finally:
            with self._lock:
                self._users -= 1
                if self._state == _CLOSED:
                    self._unused.notify_all()

    def send(self, data: bytes) -> None:
        """Returns when the system has taken all bytes. Ctrl-C ends the wait; the bytes may still be sent."""
        self._sending(data)
        direct = not is_main_thread() or self._unanswered <= _NEVER_BLOCKS
        check(self._send(data) if direct else interruptible(partial(self._send, data)), "send")

    def try_send(self, data: bytes) -> bool:
        """Sends if that takes no time; else False, and nothing is sent."""
        if self._unanswered + max(len(data), _LEAST_COST) > _NEVER_BLOCKS:
            return False
        self._sending(data)
        check(self._send(data), "send")
        return True

    def _send(self, data: bytes) -> int:
        return self.use(_library.send, data, len(data))

    # As long as a device has little left to take, a send to it returns at once, and needs no other thread for
    # the sake of Ctrl-C. An answer proves that it has taken all, unless the device speaks unasked as well.

    def _sending(self, data: bytes) -> None:
        self._unanswered += max(len(data), _LEAST_COST)
        self._awaits_answer = True

    def heard(self) -> None:
        """Whoever reads `near` reports each piece here."""
        if not self._awaits_answer:
            self._speaks_unasked = True
            return
        self._awaits_answer = False
        if not self._speaks_unasked:
            self._unanswered = 0
        self._speaks_unasked = False

    def lose(self, result: int) -> None:
        """Whoever reads gets the rest of the bytes, then the loss, which is final."""
        if self.loss:
            return  # the library reports it again and again
        self.loss = error_of(result, "receive")
        _library.shutdown(self._far, socket.SHUT_WR)
        if self._on_lost:
            start_new_thread(self._on_lost, (self.loss,))

    def forget(self) -> None:
        """In a forked child, which has copies of the parent's descriptors, and perhaps locked locks."""
        self._state = _PARENTS
        self._make_locks()
        self.near.close()
        os.close(self._far)


def _socket_pair() -> tuple[socket.socket, int]:
    near, far = socket.socketpair()
    far.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, _SOCKET_BUFFER)
    for end in near, far:
        end.setblocking(True)  # whatever socket.setdefaulttimeout says, or bytes would be dropped
    return near, far.detach()


@without_collection
def _report_loss(far: int, result: int) -> None:
    link = _links.get(far)
    if link:
        link.lose(result)


_LOSS_CALLBACK = _library.ErrorCallback(_report_loss)


def _at_exit() -> None:
    """No callback may come once the interpreter is gone."""
    global _exiting
    _exiting = True
    deadline = time.monotonic() + _WAIT_AT_EXIT
    while _links and time.monotonic() < deadline:
        for call in [Call(link.close) for link in list(_links.values())]:
            call.wait()
        time.sleep(0.01 if _links else 0)  # an open that was given up goes on until it fails


def _in_child() -> None:
    for link in _links.values():
        link.forget()
    _links.clear()


atexit.register(_at_exit)
os.register_at_fork(after_in_child=_in_child)
