"""The disk is full, fails, is read-only or goes away while a host runs, and recovers."""

import contextlib
import functools
import json
import pathlib
import resource
import shutil
import time

from harness import (Collector, Failed, Host, Oracle, Run, case, check, disks, eventually, need,
                     need_root, stores, strace, survey)

SYNC_PERIOD = 2.0
FLUSH_PERIOD = 10.0
TRACKING_SECONDS = 2  # no tracking call waits for the disk
PATIENCE = 15  # for calls that do
REWRITTEN_FROM = 64 << 10  # bytes of a log of values
LONG_TEXT = "x" * 20_000
UNLIMITED = (resource.RLIM_INFINITY, resource.RLIM_INFINITY)


class Ordeal:
    """A host in the background whose disk fails for a while.

    `begin` and `end` are the fault; what is tracked in its midst stays in memory, goes out to the
    collector, and is on the disk within one write after the end."""

    def __init__(self, run: Run, folder, collector: Collector, state, prefix=()):
        self.run, self.folder, self.collector = run, pathlib.Path(folder), collector
        self.state = pathlib.Path(state)
        self.oracle = Oracle()
        self.host = Host(run.program("timed_host"), state, arguments=(), collector=collector,
                         start_in_background=1, sync_on_session_end=1, prefix=prefix,
                         seconds=PATIENCE)
        self._profile = 0
        self._begin = time.monotonic()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.host.close()

    def fill_logs(self):
        """Until little is left to the length from which on logs of values are rewritten."""
        values, secrets = (stores.values_file(self.state, secrets) for secrets in (False, True))
        self.host.call("willEnterForeground")
        while values.stat().st_size < REWRITTEN_FROM - 8000:
            self.host.call("addSessionData", key="proof", value=1)
        while secrets.stat().st_size < REWRITTEN_FROM - 8000:
            self.change_profile()
        self.host.call("didEnterBackground")
        self.host.call("settle")

    def change_values(self):
        """Some of each store, by a few thousand bytes."""
        self.host.call("willEnterForeground")
        for number in range(5):
            self.host.call("addSessionData", key="proof", value=number)
            self.change_profile()
        self.host.call("didEnterBackground")
        self.host.call("settle")

    def use(self, events: int = 5):
        """Events and the profile."""
        for _ in range(events):
            self.oracle.track(self.host, TRACKING_SECONDS)
        self.host.call("settle")
        self.change_profile()

    def play_session(self):
        """A session, with the uploads at its beginning and end."""
        self.host.call("willEnterForeground")
        self.oracle.track(self.host)
        self.host.call("addSessionData", key="proof", value=1)
        self.host.call("didEnterBackground")
        self.host.call("settle")

    def change_profile(self):
        self._profile += 1
        self.host.call("updateUserInfo", with_={"proof": self._profile})

    def queued(self) -> set[int]:
        return self.oracle.account(stores.queue_or_none(self.run.kite, self.state)).queued

    def collected(self) -> set[int]:
        return self.oracle.account([], self.collector.events()).collected

    def upload_all(self):
        """All that was tracked arrives, whatever the disk is like."""
        everything = set(range(self.oracle.tracked))
        self.host.call("fire", period=SYNC_PERIOD)
        check(eventually(lambda: everything <= self.collected(), 20),
              f"the host does not upload: {len(self.collected())} of {len(everything)} arrived")
        # The removal runs after the reply has been read.
        check(eventually(self._knows_removal, 5), "a delivered batch is sent again and again")

    def _knows_removal(self) -> bool:
        before = len(self.collector.requests)
        self.host.call("fire", period=SYNC_PERIOD)
        return not eventually(lambda: len(self.collector.requests) > before, 0.1)

    def check_saved(self, first: int):
        """After the end of the fault: the next write brings the disk to where memory is."""
        self.oracle.track(self.host)
        self.host.call("settle")
        found = self.queued()
        waiting = set(range(first, self.oracle.tracked)) - self.collected()
        check(waiting <= found, f"one write after the fault the queue on the disk has "
                                f"{len(found & waiting)} of {len(waiting)} events")
        check(min(found, default=first) >= first, "what was delivered is in the queue again")
        self.change_profile()
        text = stores.value(self.run.kite, self.state, "Kite-User-Info", secrets=True)
        found = json.loads(text)["data"].get("proof")
        check(found == self._profile, f"the profile on the disk is {found}, not {self._profile}")

    def check_unreadable(self):
        """The console is told that events which are on the disk alone cannot be uploaded."""
        words = "the pending events cannot be read"

        def is_told() -> bool:
            # An upload that begins before the flush finds the event in memory.
            self.oracle.track(self.host)
            for period in (FLUSH_PERIOD, SYNC_PERIOD):
                self.host.call("fire", period=period)
            return any(words in line for line in self.host.stderr)

        self.host.call("willEnterForeground")
        check(eventually(is_told, 20), f"nobody tells: {words}")
        self.host.call("didEnterBackground")
        self.host.call("settle")

    def check_console(self):
        """One line a minute on each store, and one when it is over."""
        minutes = 1 + int((time.monotonic() - self._begin) / 60)
        for title in ("key-value store", "secrets store"):
            lines = [line for line in self.host.stderr if title in line]
            troubles = [line for line in lines if "saved again" not in line]
            check(len(troubles) <= minutes, "\n".join(["the console is flooded:", *lines]))

    def finish(self):
        """Nothing is lost: all has arrived, or is found by the next run of the host."""
        self.upload_all()
        self.check_console()
        last = self.oracle.track(self.host)
        self.host.call("settle")
        self.host.kill()
        check(self.queued() == {last}, f"at the end the queue has {sorted(self.queued())}")


def while_running(run: Run, state_of, begin, end, may_be_absent: bool = False, events: int = 5,
                  are_logs_long: bool = False, is_readable: bool = True) -> dict:
    """The fault strikes a host that has begun. Where nothing can be read, what is on the disk arrives
    after the end of the fault, and the console is told of it."""
    folder = run.folder()
    with contextlib.ExitStack() as stack:
        collector = stack.enter_context(Collector(run.kite, folder))
        state = state_of(stack, folder)
        ordeal = stack.enter_context(Ordeal(run, folder, collector, state))
        ordeal.host.start()
        ordeal.use()
        ordeal.upload_all()
        if are_logs_long:
            ordeal.fill_logs()
        ordeal.use()
        good = ordeal.queued()
        begin(ordeal)
        ordeal.use(events)
        for _ in range(3 if are_logs_long else 0):
            ordeal.change_values()
        if not may_be_absent:
            kept = ordeal.queued() | ordeal.collected()
            check(good <= kept, "the last good value of the queue is gone")
        ordeal.play_session()
        if is_readable:
            ordeal.upload_all()
        else:
            ordeal.check_unreadable()
        first = ordeal.oracle.tracked if is_readable else 0
        ordeal.use()
        end(ordeal)
        ordeal.check_saved(first)
        ordeal.finish()
        return {"events": ordeal.oracle.tracked}


def from_the_start(run: Run, state_of, end=None, prefix=()) -> dict:
    """The fault is there before the host; without an `end` it stays."""
    folder = run.folder()
    with contextlib.ExitStack() as stack:
        collector = stack.enter_context(Collector(run.kite, folder))
        state = state_of(stack, folder)
        prefix = prefix(state) if callable(prefix) else prefix
        ordeal = stack.enter_context(Ordeal(run, folder, collector, state, prefix))
        ordeal.host.start()
        ordeal.use()
        ordeal.play_session()
        ordeal.upload_all()
        first = ordeal.oracle.tracked
        ordeal.use()
        if end:
            end(ordeal)
            ordeal.check_saved(first)
            ordeal.finish()
        else:
            ordeal.upload_all()
            ordeal.check_console()
        return {"events": ordeal.oracle.tracked}


def plain_folder(stack, folder):
    return folder / "state"


def memory_disk(size: str):
    def state_of(stack, folder):
        return stack.enter_context(disks.in_memory(folder / "state", size))
    return state_of


def fill_up(ordeal: Ordeal):
    """Somebody else takes all the space that is left."""
    with open(ordeal.state / "filler", "wb", buffering=0) as filler, contextlib.suppress(OSError):
        while filler.write(bytes(4096)):
            pass


def make_space(ordeal: Ordeal):
    (ordeal.state / "filler").unlink()


def track_until_full(ordeal: Ordeal):
    """The host's own events take the space."""
    for _ in range(200):
        ordeal.oracle.track(ordeal.host, padding=LONG_TEXT)
        ordeal.host.call("settle")
        if any("cannot be saved" in line for line in ordeal.host.stderr):
            return
    raise Failed("a small disk never got full")


def enlarge(ordeal: Ordeal):
    disks.remount(ordeal.state, "size=64m")


@case("disk", "full, then space again", full=5, smoke=5)
def full(run: Run) -> dict:
    need_root()
    filled = functools.partial(while_running, run, begin=fill_up, end=make_space)
    return survey(run, {
        "64 kB from the start": lambda: from_the_start(run, memory_disk("64k"), enlarge),
        "96 kB from the start": lambda: from_the_start(run, memory_disk("96k"), enlarge),
        "1 MB filled by its own events": lambda: while_running(
            run, memory_disk("1m"), track_until_full, enlarge),
        "1 MB filled by others": lambda: filled(state_of=memory_disk("1m")),
        "64 MB filled by others": lambda: filled(state_of=memory_disk("64m")),
    })


def limit_files(size: int, ordeal: Ordeal):
    resource.prlimit(ordeal.host.pid, resource.RLIMIT_FSIZE, (size, resource.RLIM_INFINITY))


def unlimit_files(ordeal: Ordeal):
    resource.prlimit(ordeal.host.pid, resource.RLIMIT_FSIZE, UNLIMITED)


@case("disk", "RLIMIT_FSIZE", full=6, smoke=6)
def file_size(run: Run) -> dict:
    """The signal that comes with the error is none of the host's business."""
    need("prlimit")
    faults = {}
    for size in (0, 4096, 60_000):
        faults[f"{size} bytes while running"] = functools.partial(
            while_running, run, plain_folder, functools.partial(limit_files, size), unlimit_files)
        faults[f"{size} bytes from the start"] = functools.partial(
            from_the_start, run, plain_folder, unlimit_files,
            prefix=["prlimit", f"--fsize={size}:"])
    return survey(run, faults)


ERRORS = ("EIO", "ENOSPC", "EINTR", "EROFS", "EDQUOT")


class Injection:
    """Errors of calls that touch the stores of a running host, until the end."""

    def __init__(self, inject: str, trace: str = strace.CHANGES):
        self._inject, self._trace = inject, trace
        self._strace = None

    def begin(self, ordeal: Ordeal):
        self._strace = strace.Strace(ordeal.host.pid, ordeal.state, ordeal.folder / "strace",
                                     self._inject, self._trace)

    def end(self, _):
        self._strace.detach()

    @property
    def log(self) -> pathlib.Path:
        return self._strace.log


# The logs of values are rewritten in the midst of it.
MUCH = {"events": 10, "are_logs_long": True}


def calls_while_running(run: Run) -> dict[str, int]:
    """Every call that touches the stores while the disk is well, and how often it is made."""
    listening = Injection("", strace.ALL)
    while_running(run, plain_folder, listening.begin, listening.end, **MUCH)
    return strace.calls(listening.log)


def is_unreadable(inject: str) -> bool:
    """Even an interrupted call is made again only a thousand times."""
    return inject.startswith("pread64:") and inject.endswith("when=1+")


def strike_running(run: Run, inject: str, **more) -> dict:
    injection = Injection(inject)
    counts = while_running(run, plain_folder, injection.begin, injection.end,
                           is_readable=not is_unreadable(inject), **more)
    return counts | {"calls struck": strace.injected(injection.log)}


def moments(run: Run, most: int) -> list[str]:
    """`count` of the calls one by one, and all of them."""
    if run.is_smoke:
        return ["1+"]
    return [*(str(number) for number in range(1, most + 1, max(1, most // run.count))), "1+"]


@case("disk", "errors of each call while running", full=10, smoke=1)
def errors_while_running(run: Run) -> dict:
    """Once, at `count` of the calls of each kind, and for ever."""
    need("strace")
    strike = functools.partial(strike_running, **MUCH)
    return survey(run, faults_of(run, calls_while_running(run), strike,
                                 ERRORS[: 3 if run.is_smoke else None]))


def calls_from_the_start(run: Run) -> dict[str, int]:
    logs = []

    def prefix(state):
        logs.append(state.parent / "strace")
        return strace.prefix(state, logs[0], trace=strace.ALL)

    from_the_start(run, plain_folder, prefix=prefix)
    strace.ended(logs[0])
    return strace.calls(logs[0])


def strike_start(run: Run, inject: str) -> dict:
    logs = []

    def prefix(state):
        logs.append(state.parent / "strace")
        return strace.prefix(state, logs[0], inject)

    def end(ordeal: Ordeal):
        strace.detach(ordeal.host.pid)

    counts = from_the_start(run, plain_folder, end, prefix)
    return counts | {"calls struck": strace.injected(logs[0])}


def faults_of(run: Run, calls: dict[str, int], strike, errors) -> dict:
    faults = {}
    for call, most in calls.items():
        for error in errors:
            for when in moments(run, most):
                name = f"{call}:error={error}:when={when}"
                faults[name] = functools.partial(strike, run, name)
    return faults


@case("disk", "errors of each call from the start", full=10, smoke=1)
def errors_from_the_start(run: Run) -> dict:
    """As above, from the first call of all: the host works without its disk."""
    need("strace")
    return survey(run, faults_of(run, calls_from_the_start(run), strike_start,
                                 ERRORS[: 1 if run.is_smoke else 3]))


class Legacy:
    """What a run leaves to the next one."""

    def __init__(self, run: Run, folder, collector: Collector, state):
        self._run, self._collector, self._state = run, collector, state
        with Ordeal(run, folder, collector, state) as ordeal:
            ordeal.host.start()
            ordeal.use()
            self.oracle, self._queued = ordeal.oracle, ordeal.queued()
            ordeal.host.kill()
        self._identifier = self._read_identifier()

    def check_found(self):
        """By the next run."""
        with Host(self._run.kite, self._state, start_in_background=True) as host:
            host.start()
            profile = host.call("userInfo").get("proof")
        check(profile == 1, f"the profile of the earlier run is gone: {profile}")
        check(self._read_identifier() == self._identifier,
              "the identifier of the earlier run is gone")
        queue = stores.queue(self._run.kite, self._state)
        self.oracle.demand(self.oracle.account(queue, self._collector.events()), self._queued)
        aside = stores.set_aside(self._state)
        check(not aside, f"sound files were set aside: {aside}")

    def _read_identifier(self) -> str:
        return stores.value(self._run.kite, self._state, "Kite-Keychain-Id", secrets=True)


def over_a_store(run: Run, inject: str = "", trace: str = strace.CHANGES) -> pathlib.Path:
    """A run that fails over the stores of an earlier one: the next run finds what they held."""
    folder = run.folder()
    state, log = folder / "state", folder / "strace"
    with Collector(run.kite, folder) as collector:
        legacy = Legacy(run, folder, collector, state)
        prefix = strace.prefix(state, log, inject, trace)
        with Ordeal(run, folder, collector, state, prefix) as ordeal:
            ordeal.oracle = legacy.oracle
            ordeal.host.start()
            for _ in range(5):
                legacy.oracle.track(ordeal.host)
            ordeal.host.call("settle")
            ordeal.host.kill()
        strace.ended(log)
        legacy.check_found()
    return log


def strike_over_a_store(run: Run, inject: str) -> dict:
    log = over_a_store(run, inject)
    return {"calls struck": strace.injected(log)}


@case("disk", "errors of each call over an earlier store", full=10, smoke=1)
def errors_over_a_store(run: Run) -> dict:
    """An error is not damage: what the stores held is not given up."""
    need("strace")
    calls = strace.calls(over_a_store(run, trace=strace.ALL))
    return survey(run, faults_of(run, calls, strike_over_a_store,
                                 ERRORS[: 1 if run.is_smoke else 3]))


class ReadOnly:
    """A state folder seen through a mount that allows no writing."""

    def __init__(self):
        self._view: pathlib.Path | None = None

    def state_of(self, stack, folder):
        disk, self._view = folder / "disk", folder / "view"
        disk.mkdir(exist_ok=True)
        stack.enter_context(disks.mounted(self._view, "--bind", disk))
        disks.remount(self._view, "bind,ro")
        return self._view / "state"

    def end(self, _):
        disks.remount(self._view, "bind,rw")


def read_only_without_a_store(run: Run) -> dict:
    disk = ReadOnly()
    return from_the_start(run, disk.state_of, disk.end)


def read_only_with_a_store(run: Run) -> dict:
    """What an earlier run has left waits for the next start, and the host lives in memory."""
    folder = run.folder()
    disk = ReadOnly()
    with contextlib.ExitStack() as stack:
        collector = stack.enter_context(Collector(run.kite, folder))
        legacy = Legacy(run, folder, collector, folder / "disk" / "state")
        state = disk.state_of(stack, folder)
        ordeal = stack.enter_context(Ordeal(run, folder, collector, state))
        ordeal.oracle = Oracle("later")
        ordeal.host.start()
        ordeal.use()
        ordeal.play_session()
        disk.end(ordeal)
        ordeal.use()
        ordeal.play_session()
        ordeal.upload_all()
        ordeal.check_console()
        check(not ordeal.queued(), "the queue on the disk is not the earlier run's alone")
        ordeal.host.kill()
        legacy.check_found()
        return {"events": legacy.oracle.tracked + ordeal.oracle.tracked}


@case("disk", "read-only, then writable", full=2, smoke=2)
def read_only(run: Run) -> dict:
    need_root()
    return survey(run, {
        "without a store": lambda: read_only_without_a_store(run),
        "with a store of an earlier run": lambda: read_only_with_a_store(run),
    })


def remove_folders(*names):
    def begin(ordeal: Ordeal):
        for name in names:
            shutil.rmtree(ordeal.state / name if name else ordeal.state)
    return begin


def nothing(_):
    """The fault is over as soon as it has happened."""


def missing(stack, folder):
    return folder / "one" / "after" / "another"


def a_file(stack, folder):
    """Where the folders should be, there are files."""
    state = folder / "state"
    state.mkdir()
    for name in ("app", "secrets"):
        (state / name).write_text("not a folder")
    return state


def clear_files(ordeal: Ordeal):
    for name in ("app", "secrets"):
        (ordeal.state / name).unlink()


def too_long(parts: int, length: int):
    def state_of(stack, folder):
        return folder.joinpath(*["x" * length] * parts)
    return state_of


@case("disk", "folders missing, removed, no folders, too long", full=9, smoke=9)
def folders(run: Run) -> dict:
    removed = functools.partial(while_running, run, plain_folder, end=nothing, may_be_absent=True)
    return survey(run, {
        "missing with its parents": lambda: from_the_start(run, missing, nothing),
        "the application's removed while running": lambda: removed(begin=remove_folders("app")),
        "the secrets' removed while running": lambda: removed(begin=remove_folders("secrets")),
        "all removed while running": lambda: removed(begin=remove_folders("")),
        "files in their place": lambda: from_the_start(run, a_file, clear_files),
        "a name too long": lambda: from_the_start(run, too_long(1, 300)),
        "a path of 600 bytes": lambda: from_the_start(run, too_long(3, 200)),
        "a path of 3,000 bytes": lambda: from_the_start(run, too_long(15, 200)),
        "a path of 6,000 bytes": lambda: from_the_start(run, too_long(30, 200)),
    })
