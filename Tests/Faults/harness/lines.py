"""Reads lines of a child process with a deadline."""

import os
import select
import subprocess
import threading
import time


class Silence(Exception):
    """No line came in time."""


class LineSource:
    """The lines of a pipe, one by one."""

    def __init__(self, descriptor: int):
        self._descriptor = descriptor
        self._unread = bytearray()

    def next(self, seconds: float) -> str | None:
        """The next line without its end, or None at the end of the stream."""
        deadline = time.monotonic() + seconds
        while (end := self._unread.find(b"\n")) < 0:
            left = deadline - time.monotonic()
            if left <= 0 or not select.select([self._descriptor], [], [], left)[0]:
                raise Silence()
            piece = os.read(self._descriptor, 1 << 16)
            if not piece:
                return None
            self._unread += piece
        line = bytes(self._unread[:end])
        del self._unread[: end + 1]
        return line.decode("utf-8", "replace")


class Gathered:
    """Keeps all that comes out of a pipe, read by a thread of its own."""

    def __init__(self, stream):
        self._stream = stream
        self._bytes = bytearray()
        self._thread = threading.Thread(target=self._read, daemon=True)
        self._thread.start()

    def _read(self):
        while piece := os.read(self._stream.fileno(), 1 << 16):
            self._bytes += piece

    @property
    def text(self) -> str:
        return bytes(self._bytes).decode("utf-8", "replace")

    @property
    def lines(self) -> list[str]:
        return self.text.splitlines()

    def finish(self, seconds: float = 5):
        self._thread.join(seconds)
        if not self._thread.is_alive():
            self._stream.close()


def eventually(condition, seconds: float = 20, pause: float = 0.01):
    """Polls until `condition()` is true; its value, or a false one after the deadline."""
    deadline = time.monotonic() + seconds
    while not (value := condition()):
        if time.monotonic() > deadline:
            return value
        time.sleep(pause)
    return value


def run(arguments, seconds: float = 60, **options) -> subprocess.CompletedProcess:
    """A command that ends by itself; its output is text."""
    return subprocess.run([str(argument) for argument in arguments], capture_output=True, text=True,
                          timeout=seconds, **options)
