"""Python programs that use the library and end in the middle of things.

CPython ends a thread that enters a callback while the interpreter shuts down, by pthread_exit. Such a program must
end with status 0 and without a word all the same.
"""

import ctypes
import socket
import subprocess
import sys
import threading

ROUNDS = 5

RECEIVE = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_void_p, ctypes.c_size_t)
ERROR = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_uint32)


def use_and_end(library, port):
    """Opens a device, and returns while callbacks are arriving."""
    called = threading.Event()
    global callbacks  # pylint: disable=global-variable-undefined
    callbacks = [RECEIVE(lambda *_: called.set()), ERROR(lambda *_: called.set())]
    quorvio = ctypes.CDLL(library)
    handle = ctypes.c_uint32()
    locator = b"network:127.0.0.1:%d" % port
    assert quorvio.QV_IO_Open(ctypes.byref(handle), locator, None, None, *callbacks) == 0
    assert called.wait(20)


def serve(mode, listener):
    """A device that talks without a pause, or one that leaves at once."""
    while True:
        try:
            peer, _ = listener.accept()
        except OSError:
            return  # closed: the test is over
        with peer:
            try:
                while mode == "talks":
                    peer.sendall(b"x" * 1000)
            except OSError:
                continue


def run(library, mode):
    """The complaints of ROUNDS programs that end."""
    with socket.create_server(("127.0.0.1", 0)) as listener:
        threading.Thread(target=serve, args=(mode, listener), daemon=True).start()
        port = listener.getsockname()[1]
        for _ in range(ROUNDS):
            command = [sys.executable, __file__, library, str(port)]
            program = subprocess.run(command, capture_output=True, text=True, timeout=60)
            if program.returncode != 0 or program.stderr:
                yield f"{mode}: status {program.returncode}: {program.stderr.strip()}"


def main():
    if len(sys.argv) > 2:
        return use_and_end(sys.argv[1], int(sys.argv[2]))
    return "\n".join(complaint for mode in ("talks", "gone") for complaint in run(sys.argv[1], mode))


if __name__ == "__main__":
    sys.exit(main() or 0)
