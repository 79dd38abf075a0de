"""A host application: `kite host`, or a program that speaks the same lines."""

import json
import os
import pathlib
import subprocess
from signal import SIGKILL

from .case import KEY, Failed
from .lines import Gathered, LineSource, Silence

NOWHERE = "https://127.0.0.1:1/v4/events"  # nobody listens there


class HostHung(Failed):
    """No reply came in time."""


class HostDied(Failed):
    """The output ended where a reply was due."""


def _flags(options: dict) -> list[str]:
    """`start_in_background=True, locale="en_NZ"` as options of a command line."""
    flags = []
    for name, value in options.items():
        flag = "--" + name.replace("_", "-")
        for one in value if isinstance(value, list | tuple) else [value]:
            if one is True:
                flags.append(flag)
            elif one is not None and one is not False:
                flags += [flag, str(one)]
    return flags


class Host:
    """One process. Keyword arguments are its options, as in `Host(kite, state, locale="en_NZ")`.

    `prefix` wraps it (prlimit, unshare, faketime, `strace -D`, all of which leave its process id
    alone); `arguments` replaces `["host"]` for programs other than the tool. Replies come in the
    order of the lines sent."""

    def __init__(self, kite, state, *, collector=None, endpoint: str | None = None, ca=None,
                 key: str | None = KEY, prefix=(), environment: dict | None = None,
                 arguments=("host",), seconds: float = 30, cwd=None, **options):
        self.state = pathlib.Path(state)
        self.seconds = seconds
        if collector is not None:
            endpoint, ca = endpoint or collector.url, ca or collector.ca
        command = [*map(str, prefix), str(kite), *arguments, "--state", str(state),
                   "--endpoint", endpoint or NOWHERE]
        if ca:
            command += ["--ca-file", str(ca)]
        if key is not None:
            command += ["--key", key]
        self.process = subprocess.Popen(
            command + _flags(options), stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            stderr=subprocess.PIPE, bufsize=0, cwd=cwd, env=dict(os.environ, **(environment or {})))
        self._replies = LineSource(self.process.stdout.fileno())
        self._errors = Gathered(self.process.stderr)
        self._owed = 0

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    @property
    def pid(self) -> int:
        return self.process.pid

    @property
    def stderr(self) -> list[str]:
        """The console's lines so far; all of them after the end."""
        return self._errors.lines

    @property
    def owed(self) -> int:
        """Lines sent whose replies were not received."""
        return self._owed

    def post(self, op: str, **members):
        """Sends a line; its reply stays owed. A member that is a word of Python's ends in `_`."""
        line = {"op": op} | {name.rstrip("_"): value for name, value in members.items()}
        self.post_text(json.dumps(line))

    def post_text(self, text: str):
        """Sends lines as they are."""
        text = text if text.endswith("\n") else text + "\n"
        data = memoryview(text.encode())
        try:
            while data:
                data = data[self.process.stdin.write(data):]
        except BrokenPipeError:
            raise HostDied(self._story("does not read its input any more")) from None
        self._owed += text.count("\n")

    def receive(self, seconds: float | None = None) -> dict:
        """The reply to the oldest line that has none."""
        try:
            line = self._replies.next(self.seconds if seconds is None else seconds)
        except Silence:
            raise HostHung(self._story("does not answer")) from None
        if line is None:
            raise HostDied(self._story("ended without an answer"))
        self._owed -= 1
        return json.loads(line)

    def drain(self, seconds: float | None = None) -> list[dict]:
        """All replies that are owed."""
        return [self.receive(seconds) for _ in range(self._owed)]

    def send(self, op: str, seconds: float | None = None, **members) -> dict:
        """Sends a line and returns its reply, after those owed. Takes errors for an answer."""
        self.post(op, **members)
        return self.drain(seconds)[-1]

    def call(self, op: str, seconds: float | None = None, **members):
        """`send` that must succeed; the value of a read."""
        reply = self.send(op, seconds, **members)
        if reply.get("ok") is not True:
            raise Failed(f"{op} {members} was answered {reply}")
        return reply.get("value")

    def start(self):
        """Starts the library."""
        self.call("start")
        return self

    def signal(self, number: int):
        os.kill(self.pid, number)

    def kill(self, number: int = SIGKILL) -> int:
        """Sends a signal that ends the process and waits for the end: its status, as `wait`."""
        if self.process.poll() is None:
            self.signal(number)
        return self.wait()

    def quit(self, seconds: float | None = None) -> int:
        """Leaves as a host does, without any flush: its status, as `wait`."""
        self.send("quit", seconds)
        return self.wait(seconds)

    def wait(self, seconds: float | None = None) -> int:
        """Waits for the end: the exit status, or the signal's number negated."""
        try:
            status = self.process.wait(self.seconds if seconds is None else seconds)
        except subprocess.TimeoutExpired:
            raise HostHung(self._story("does not end")) from None
        self._release()
        return status

    def close(self):
        """Kills what is left of it."""
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        self._release()

    def _release(self):
        self.process.stdin.close()
        self._errors.finish()
        self.process.stdout.close()

    def _story(self, what: str) -> str:
        if self.process.poll() is not None:
            self._errors.finish(1)
        status = self.process.poll()
        end = "" if status is None else f" (status {status})"
        return "\n".join([f"the host {what}{end}", *self.stderr[-12:]])
