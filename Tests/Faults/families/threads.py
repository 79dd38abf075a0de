"""Threads: many at once, an end at any moment, none to be had, and memory that runs out."""

import collections
import json
import pathlib
import signal
import subprocess
import time

from harness import Failed, Run, case, check, stores
from harness.case import KEY
from harness.certificates import Authority
from harness.hostile import Connection, Hostile, Request, over_https
from harness.oracle import serial_of

LONGEST = 2.0  # seconds that the end of a host may take


class ThreadsHost:
    """One scenario of the program threads_host."""

    def __init__(self, run: Run, state: pathlib.Path, does: str, **options):
        command = [str(run.program("threads_host")), "--state", str(state), "--key", KEY,
                   "--does", does]
        for name, value in options.items():
            command += ["--" + name.replace("_", "-"), str(value)]
        self._process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                         stderr=subprocess.PIPE, text=True)

    def answer(self) -> dict:
        line = self._process.stdout.readline()
        if not line:
            errors = self._process.communicate()[1]
            raise Failed(f"the host ended with {self._process.returncode}: {errors}")
        return json.loads(line)

    def end(self, seconds: float) -> int:
        """Its status, when it ends in time."""
        begin = time.monotonic()
        try:
            self._process.communicate("\n", timeout=60)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.communicate()
            check(False, "the host hangs")
        took = time.monotonic() - begin
        check(took < seconds, f"the host took {took:.1f} s to end")
        return self._process.returncode


def is_session_start(event: dict) -> bool:
    return event["type"] == "Session" and event["data"]["subtype"] == "session_start"


def streams(queue: list[dict], many_signals: bool = False) -> dict[str, list[int]]:
    """The serial numbers of each stream in the order of the queue; every identifier is there once.

    A session start has its session's identifier. Where several threads give session signals at
    once, two of them may announce the same session.
    """
    identifiers = [event["id"] for event in queue if not (many_signals and is_session_start(event))]
    check(len(set(identifiers)) == len(identifiers), "an identifier is there twice")
    found = collections.defaultdict(list)
    for event in queue:
        if (where := serial_of(event)) is not None:
            found[where[0]].append(where[1])
    return found


def check_whole(found: dict[str, list[int]], threads: int, events: int) -> None:
    for thread in range(threads):
        check(found[str(thread)] == list(range(events)),
              f"thread {thread} left {found[str(thread)][:20]} of {events} events")


@case("threads", "threads that track at the same time", full=2000, smoke=200)
def crowd(run: Run) -> dict:
    events, state = 100, run.folder() / "state"
    host = ThreadsHost(run, state, "crowd", threads=run.count, events=events)
    host.answer()
    check(host.end(LONGEST) == 0, "the host did not end well")
    check_whole(streams(stores.queue(run.kite, state)), run.count, events)
    run.tick(run.count)
    return {"threads": run.count, "events": run.count * events, "events lost": 0}


@case("threads", "64 threads over all operations", full=20, smoke=1)
def everything(run: Run) -> dict:
    threads, rounds = 64, 24

    def trial(_: int) -> None:
        state = run.folder() / "state"
        host = ThreadsHost(run, state, "everything", threads=threads, rounds=rounds)
        host.answer()
        check(host.end(LONGEST) == 0, "the host did not end well")
        check_whole(streams(stores.queue(run.kite, state), many_signals=True), threads, rounds)

    run.each(range(run.count), trial)
    return {"runs": run.count, "operations": run.count * threads * rounds, "events lost": 0}


ENDS = {"destroy": 0, "exit": 0, "quick_exit": 0, "abort": -signal.SIGABRT,
        "throw": -signal.SIGABRT}


def holds(connection: Connection, request: Request) -> None:
    connection.wait_until_left()


@case("threads", "ends of the host while an upload is under way", full=200, smoke=10)
def ends(run: Run) -> dict:
    """Nothing that had settled is lost, and the end waits for no network."""
    certificate = Authority(run.folder()).issue("service")

    def trial(item: int) -> None:
        how = list(ENDS)[item % len(ENDS)]
        state = run.folder() / "state"
        with Hostile(over_https(holds), certificate) as server:
            host = ThreadsHost(run, state, "end", ends=how, endpoint=server.url(),
                               ca_file=certificate.ca)
            host.answer()
            check(server.wait_for(lambda: bool(server.requests()), 10), "no upload began")
            status = host.end(LONGEST)
        check(status == ENDS[how], f"{how}: status {status}")
        check(streams(stores.queue(run.kite, state))["end"] == list(range(20)),
              f"{how}: events are lost")

    run.each(range(run.count), trial)
    return {"ends": run.count, "events lost": 0}


@case("threads", "threads that cannot be made", full=8, smoke=4)
def without_threads(run: Run) -> dict:
    """Work waits until a thread can be had."""

    def trial(first: int) -> None:
        state = run.folder() / "state"
        host = ThreadsHost(run, state, "without-threads", first=first)
        host.answer()
        check(host.end(LONGEST) == 0, "the host did not end well")
        check(streams(stores.queue(run.kite, state))["few"] == list(range(40)), "events are lost")

    run.each(range(run.count), trial)
    return {"hosts": run.count, "events lost": 0}


def check_memory(run: Run, item: int, **options) -> int:
    state = run.folder() / "state"
    host = ThreadsHost(run, state, "without-memory", at=item, **options)
    answer = host.answer()
    check(host.end(LONGEST) == 0, "the host did not end well")
    found = streams(stores.queue(run.kite, state))
    check(found["after"] == list(range(5)), f"allocation {item}: later events are lost")
    missing = 20 - len(found["memory"])
    check(found["memory"] == sorted(found["memory"]), "events are out of order")
    check(missing <= answer["refused"], f"allocation {item}: {missing} events are lost, "
          f"{answer['refused']} calls said so")
    return 1 if answer["struck"] else 0


@case("threads", "an allocation of the host's thread that fails", full=500, smoke=20)
def without_memory(run: Run) -> dict:
    """The call says so by std::bad_alloc, or does what it was asked."""
    struck = run.each(range(run.count), lambda item: check_memory(run, item))
    return {"hosts": run.count, "allocations failed": sum(struck)}


@case("threads", "any allocation that fails", full=5000, smoke=20)
def without_memory_anywhere(run: Run) -> dict:
    struck = run.each(range(run.count), lambda item: check_memory(run, item, anywhere=1))
    return {"hosts": run.count, "allocations failed": sum(struck)}
