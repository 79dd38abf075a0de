"""The processes of a member, found by what they are and not by a list, so that none is ever forgotten."""

import os
import pathlib
import pwd
import signal
import subprocess
import time

from .layout import Layout, user_of_processes
from .problem import Problem

MARK = "KITE_CLUSTER_MEMBER"


def start(layout: Layout, name: str, command: list, **environment: str):
    """Starts a member that outlives this command; what it says goes to the file "log" in its folder."""
    folder = layout.member(name)
    folder.mkdir(exist_ok=True)
    give_away(folder)
    user = user_of_processes()
    identity = {"user": user, "group": pwd.getpwnam(user).pw_gid, "extra_groups": []} if user else {}
    within = []
    if layout.has_namespaces and name.startswith("db"):
        within, identity = within_namespace(layout, name, user), {}
    with open(folder / "log", "ab") as log:
        subprocess.Popen([*within, *map(str, command)], cwd=folder, stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                         start_new_session=True, **identity,
                         env={"PATH": os.environ["PATH"], "LC_ALL": "C.UTF-8", MARK: str(folder)} | environment)


def within_namespace(layout: Layout, name: str, user: str) -> list[str]:
    group = str(pwd.getpwnam(user).pw_gid)
    return ["ip", "netns", "exec", layout.namespace(int(name[-1])),
            "setpriv", f"--reuid={user}", f"--regid={group}", "--clear-groups"]


def give_away(path: pathlib.Path):
    """To the user of the processes."""
    user = user_of_processes()
    if user:
        found = pwd.getpwnam(user)
        os.chown(path, found.pw_uid, found.pw_gid)


def all_of(layout: Layout, name: str = "") -> list[int]:
    """Of a member, or of the whole cluster: by the environment that they inherited, or as a server by its folder."""
    mark = f"{MARK}={layout.member(name) if name else layout.folder}"
    found = []
    for process in pathlib.Path("/proc").glob("[0-9]*"):
        try:
            marked = (process / "environ").read_bytes().split(b"\0")
            if is_server(int(process.name)):
                marked.append(f"{MARK}={os.path.dirname(os.readlink(process / 'cwd'))}".encode())
            state = (process / "stat").read_text().rpartition(")")[2].split()[0]
        except OSError:
            continue
        is_ours = any(is_within(text.decode("utf-8", "replace"), mark) for text in marked)
        if is_ours and state != "Z" and int(process.name) != os.getpid():
            found.append(int(process.name))
    return found


def is_within(text: str, mark: str) -> bool:
    return text == mark or text.startswith(mark + "/")


def is_server(process: int) -> bool:
    try:
        return os.path.basename(os.readlink(f"/proc/{process}/exe")) == "postgres"
    except OSError:
        return False


def strike(layout: Layout, name: str, number: signal.Signals, seconds: float = 20, leaves_server: bool = False):
    """Sends all processes of a member the signal, until it has struck those that were just being made."""
    for _ in range(int(seconds / 0.02)):
        missed = [process for process in all_of(layout, name) if not is_struck(process, number)]
        if leaves_server:
            missed = [process for process in missed if not is_server(process)]
        if not missed:
            return
        for process in missed:
            try:
                os.kill(process, number)
            except ProcessLookupError:
                pass
        time.sleep(0.02)
    raise Problem(f"{name or 'the cluster'} outlives {number.name}")


def end(layout: Layout, name: str, seconds: float = 60):
    """As an operator would: only what was started is told, and what it started follows."""
    for process in all_of(layout, name):
        try:
            if os.getsid(process) == process and not is_server(process):
                os.kill(process, signal.SIGTERM)
        except OSError:
            pass
    if not eventually(lambda: not all_of(layout, name), seconds):
        raise Problem(f"{name} does not end")


def is_struck(process: int, number: signal.Signals) -> bool:
    """A process that has ended is none of those that are looked at."""
    if number not in (signal.SIGSTOP, signal.SIGCONT):
        return False
    try:
        stat = pathlib.Path(f"/proc/{process}/stat").read_text()
    except OSError:
        return True
    is_stopped = stat.rpartition(")")[2].split()[0] in "Tt"
    return is_stopped == (number == signal.SIGSTOP)


def is_running(layout: Layout, name: str) -> bool:
    return bool(all_of(layout, name))


def is_stopped(layout: Layout, name: str) -> bool:
    found = all_of(layout, name)
    return bool(found) and all(is_struck(process, signal.SIGSTOP) for process in found)


def last_words(layout: Layout, name: str) -> str:
    try:
        lines = (layout.member(name) / "log").read_text(errors="replace").strip().splitlines()
    except OSError:
        lines = []
    return lines[-1] if lines else "it said nothing"


def eventually(condition, seconds: float, pause: float = 0.1):
    """Polls; the condition's value, or a false one when it did not come true in time."""
    deadline = time.monotonic() + seconds
    while not (value := condition()):
        if time.monotonic() > deadline:
            return value
        time.sleep(pause)
    return value
