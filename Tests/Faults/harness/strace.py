"""Injects faults into the system calls that touch the stores of one state folder."""

import collections
import os
import pathlib
import re
import signal
import subprocess

from .case import Failed, need
from .lines import Gathered, LineSource, Silence, eventually

CHANGES = ("write,pwrite64,pwritev,fsync,fdatasync,ftruncate,fallocate,"
           "rename,renameat,renameat2,unlink,unlinkat")
ALL = "%file,%desc"
CALL = re.compile(r"^(\d+) +(\w+)\(")


def paths(state) -> list[str]:
    """What the library may touch in a state folder, as options of strace."""
    state = pathlib.Path(state).resolve()
    names = [state, state / "app", state / "secrets"]
    logs = ["values.log", *(f"rows-{number}.log" for number in range(1, 9))]
    for begin, ends in (("app/kv.", ("lock", "state", *logs)),
                        ("secrets/secrets.", ("lock", "state", "values.log")),
                        ("secrets/", ("master.key",))):
        names += [state / (begin + end + new) for end in ends for new in ("", ".new")]
    return [option for name in names for option in ("-P", str(name))]


def options(state, log, inject: str = "", trace: str = CHANGES) -> list[str]:
    """`inject` as strace has it, such as "fsync:signal=SIGKILL:when=3"; without it, calls are only
    written down. Each thread counts its own."""
    struck = ["-e", f"inject={inject}"] if inject else []
    traced = trace + ("," + inject.split(":")[0] if inject else "")
    return ["-f", "-q", "-o", str(log), *paths(state), "-e", f"trace={traced}", *struck]


def prefix(state, log, inject: str = "", trace: str = CHANGES) -> list[str]:
    """Wraps a host from its first call, until `detach`; its process id stays."""
    need("strace")
    return ["strace", "-D", "-I", "2", *options(state, log, inject, trace)]


def detach(pid: int):
    """A process that `prefix` wraps goes on without faults."""
    os.kill(_tracer_of(pid), signal.SIGINT)
    if not eventually(lambda: _tracer_of(pid) == 0):
        raise Failed("strace does not detach")


def _tracer_of(pid: int) -> int:
    """0 when there is none."""
    status = pathlib.Path(f"/proc/{pid}/status").read_text()
    return int(re.search(r"^TracerPid:\s*(\d+)$", status, re.MULTILINE)[1])


class Strace:
    """Attached to a live process until `detach`."""

    def __init__(self, pid: int, state, log, inject: str = "", trace: str = CHANGES):
        need("strace")
        self.log = pathlib.Path(log)
        command = [word for word in options(state, log, inject, trace) if word != "-q"]
        self._process = subprocess.Popen(["strace", "-p", str(pid), *command],
                                         stdin=subprocess.DEVNULL, stderr=subprocess.PIPE)
        try:
            line = LineSource(self._process.stderr.fileno()).next(20)
        except Silence:
            line = None
        if not line or "attached" not in line:
            self._process.kill()
            self._process.wait()
            raise Failed(f"strace does not attach: {line}")
        self._errors = Gathered(self._process.stderr)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.detach()

    def detach(self):
        """The process goes on without faults."""
        if self._process.poll() is None:
            self._process.send_signal(signal.SIGINT)
        self._process.wait()
        self._errors.finish()


def text(log) -> str:
    return pathlib.Path(log).read_text(errors="replace") if pathlib.Path(log).exists() else ""


def injected(log) -> int:
    """How many calls were struck."""
    return text(log).count("(INJECTED)")


def calls(log) -> dict[str, int]:
    """How often each call was made by the thread that made it most: strace counts them so."""
    found = collections.Counter(match.groups() for line in text(log).splitlines()
                                if (match := CALL.match(line)))
    most: dict[str, int] = {}
    for (_, name), number in found.items():
        most[name] = max(most.get(name, 0), number)
    return most


def ended(log, seconds: float = 10) -> bool:
    """Whether a log that another process writes is complete."""
    return bool(eventually(lambda: "+++ " in text(log), seconds))
