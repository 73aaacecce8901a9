"""`serial.serial_for_url("quorvio://LOCATOR")`: a device behind the interface of pyserial."""

from typing import Any

from serial.serialutil import PortNotOpenError, SerialBase, SerialException, SerialTimeoutException

import quorvio
from quorvio._calls import Call
from quorvio._texts import Data, bytes_of

_PREFIX = "quorvio://"


class Serial(SerialBase):
    """The settings are those of the link: a network device has none, a serial port and a USB link have 8 data
    bits, no parity and 1 stop bit, a USB link has flow control, and a new speed opens the device again. Modem
    lines are not there."""

    BAUDRATES = tuple(rate for rate in SerialBase.BAUDRATES if 50 <= rate <= 230400)

    is_open: bool = False
    _channel: quorvio.Channel | None = None

    def open(self) -> None:
        """Opens the port with the settings that it has now."""
        if self._port is None:
            raise SerialException("the port has no name")
        if self.is_open:
            raise SerialException("the port is open already")
        options = self._options()
        self._opened_with = self._settings()
        try:
            self._channel = quorvio.open(self._port.removeprefix(_PREFIX), **options)
        except quorvio.Error as error:
            raise SerialException(str(error)) from error
        self.is_open = True

    def _settings(self) -> tuple[object, ...]:
        return self._baudrate, self._bytesize, self._parity, self._stopbits, self._rtscts, self._dsrdtr

    def _options(self) -> dict[str, Any]:
        """Those of the link. Raises ValueError for settings that it cannot have."""
        kind = self._port.removeprefix(_PREFIX).partition(":")[0]
        if kind == "network":
            return {}
        if (self._bytesize, self._parity, self._stopbits) != (8, "N", 1) or self._xonxoff:
            raise ValueError("only 8 data bits, no parity, 1 stop bit, no software flow control")
        flow_control = "rtscts" if self._rtscts else "dtrdsr" if self._dsrdtr else None
        if kind == "serial" and flow_control:
            raise ValueError("a serial port has no flow control here")
        if kind == "serial" and self._baudrate not in self.BAUDRATES:
            raise ValueError(f"a serial port has no speed of {self._baudrate} baud here")
        options = {"baudrate": self._baudrate}
        return {**options, "ftdi-flow-control": flow_control} if flow_control else options

    def _reconfigure_port(self) -> None:
        if self.is_open and self._settings() != self._opened_with:
            self._options()  # raises before anything is closed
            self.close()
            self.open()

    def close(self) -> None:
        """Closes the port; nothing if it is closed. Wakes a thread that reads."""
        self.is_open = False
        channel, self._channel = self._channel, None
        if channel:
            channel.close()

    @property
    def _open_channel(self) -> quorvio.Channel:
        if self._channel is None:
            raise PortNotOpenError()
        return self._channel

    def fileno(self) -> int:
        """For `select`."""
        return self._open_channel.fileno()

    @property
    def in_waiting(self) -> int:
        """Bytes that have been received and not read."""
        return self._open_channel.in_waiting

    def read(self, size: int = 1) -> bytes:
        """`size` bytes, fewer after the time-out; None as time-out: without limit."""
        channel = self._open_channel
        timeout = float("inf") if self._timeout is None else self._timeout
        try:
            return channel.read_exactly(size, timeout)
        except quorvio.TimedOutError:
            return channel.read(size, 0)
        except quorvio.Error as error:
            left = channel.read(size, 0) if not channel.closed and channel.in_waiting else b""
            if left:
                return left
            raise SerialException(str(error)) from error

    def write(self, data: Data) -> int:
        """Sends all bytes. Raises SerialTimeoutException; they may still be sent then."""
        channel = self._open_channel
        sent = bytes_of(data)
        try:
            if self._write_timeout is None:
                return channel.write(sent)
            return Call(lambda: channel.write(sent)).wait(self._write_timeout)
        except quorvio.TimedOutError as error:
            raise SerialTimeoutException("Write timeout") from error
        except quorvio.Error as error:
            raise SerialException(str(error)) from error

    def reset_input_buffer(self) -> None:
        """Discards what was received."""
        self._open_channel.discard()

    def reset_output_buffer(self) -> None:
        """Nothing: a write has sent its bytes when it returns."""

    def _update_nothing(self) -> None:
        pass

    _update_break_state = _update_rts_state = _update_dtr_state = _update_nothing

    cts = dsr = cd = True
    ri = False
