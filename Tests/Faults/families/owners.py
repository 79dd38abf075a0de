"""Owners: one store has one owner, beside other processes, other facades and forked children."""

import itertools
import pathlib

from harness import (Collector, Host, Oracle, Run, case, check, eventually, stores)
from harness.certificates import Authority
from harness.hostile import GOOD_REPLY, Connection, Hostile, Request, over_https


def complaints(lines: list[str], store: str) -> list[str]:
    return [line for line in lines if store in line]


def check_second(lines: list[str]) -> None:
    """One clear line about each store."""
    for store in ("key-value store", "secrets store"):
        about = complaints(lines, store)
        check(len(about) == 1 and "memory only" in about[0] and "in use" in about[0],
              f"about the {store} it said {about}")


def streams_of(queue: list[dict]) -> set[str]:
    infos = ((event.get("data") or {}).get("action_info") for event in queue)
    return {info.get("stream", "") for info in infos if isinstance(info, dict)}


@case("owners", "two processes over one folder", full=40, smoke=4)
def two_processes(run: Run) -> dict:
    """The owner loses nothing; the second works in memory, and delivers what it recorded."""

    def trial(item: int) -> dict:
        state, mine, other = run.folder() / "state", Oracle("owner"), Oracle("second")
        with Collector(run.kite, run.folder()) as service, \
                Host(run.kite, state, start_in_background=True) as owner:
            owner.start()
            mine.post(owner, 10)
            owner.drain()
            with Host(run.kite, state, collector=service, start_in_background=True) as second:
                second.start()
                mine.post(owner, 10)
                other.post(second, 10)
                owner.drain(), second.drain()
                check(service.wait_for(10), "the second delivers nothing")
                check(eventually(lambda: len(other.account((), service.events()).collected) == 10),
                      "the second has not delivered what it recorded")
                second.kill() if item % 2 else second.quit()
                check_second(second.stderr)
            mine.post(owner, 10)
            owner.drain()
            check(eventually(lambda: not mine.account(stores.queue(run.kite, state)).lost, 10),
                  "the owner has lost events")
            owner.kill() if item % 4 > 1 else owner.quit()
            check(not complaints(owner.stderr, "store"), f"the owner said {owner.stderr}")
            queue = stores.queue(run.kite, state)
            mine.demand_all(mine.account(queue, service.events()))
            check("second" not in streams_of(queue), "the second wrote into the owner's store")
        with Host(run.kite, state) as heir:  # the lock went with the process
            heir.start()
            check(not complaints(heir.stderr, "store"), f"the next owner said {heir.stderr}")
        return {}

    run.each(range(run.count), trial)
    return {"pairs": run.count, "events": 40 * run.count, "events lost": 0}


def owners_host(run: Run, state: pathlib.Path, **options) -> Host:
    return Host(run.program("owners_host"), state, arguments=(), **options)


@case("owners", "two facades in one process", full=100, smoke=8)
def two_facades(run: Run) -> dict:
    def trial(_: int) -> None:
        state, first, second = run.folder() / "state", Oracle("first"), Oracle("second")
        with owners_host(run, state) as host:
            for facade in (0, 1):
                host.call("start", facade=facade)
            for oracle, facade in itertools.product((first, second), range(1)):
                number = 0 if oracle is first else 1
                host.call("track", facade=number, stream=oracle.stream, **{"from": 0}, count=30)
                for _ in range(30):
                    oracle.action()
            host.call("settle")
            host.kill()
        check_second(host.stderr)
        queue = stores.queue(run.kite, state)
        first.demand_all(first.account(queue))
        check("second" not in streams_of(queue), "the second wrote into the first one's store")

    run.each(range(run.count), trial)
    return {"pairs": run.count, "events": 60 * run.count, "events lost": 0}


def slow(connection: Connection, request: Request) -> None:
    connection.pause(0.02)
    connection.reply(200, GOOD_REPLY)


WAYS = list(itertools.product(("track", "destroy", "nothing"), ("_exit", "exit"), (0, 4)))


@case("owners", "forked children, with and without a flush under way", full=240, smoke=24)
def forks(run: Run) -> dict:
    """The child neither writes nor uploads nor hangs, whatever it does and however it ends."""
    certificate = Authority(run.folder()).issue("service")
    rounds = 12

    def trial(item: int) -> int:
        state, mine = run.folder() / "state", Oracle("parent")
        with Hostile(over_https(slow), certificate) as server, \
                owners_host(run, state, endpoint=server.url(), ca=certificate.ca) as host:
            host.call("start", facade=0)
            for at in range(rounds):
                does, ends, busy = WAYS[(item * rounds + at) % len(WAYS)]
                host.call("track", facade=0, stream="parent", count=10, **{"from": mine.tracked})
                for _ in range(10):
                    mine.action()
                fate = host.call("fork", facade=0, does=does, ends=ends, busy=busy)
                check(fate == "exit 0", f"a child that does {does!r} and leaves by {ends}, {busy} "
                      f"threads being busy: {fate}")
            host.call("settle")
            check(host.call("userInfo", facade=0) > 0, "the parent has no profile any more")
            host.kill()
            queue = stores.queue(run.kite, state)
            events = {event["id"]: event for request in server.requests()
                      for event in request.events()}
            check("child" not in streams_of([*queue, *events.values()]),
                  "an event of a child's was written or uploaded")
            in_order = [event for event in events.values() if event["id"] not in
                        {queued["id"] for queued in queue}]
            mine.demand_all(mine.account(queue, in_order))
            values = stores.keys(run.kite, state, secrets=True)
            check(all("child" not in stores.value(run.kite, state, key, True) for key in values),
                  "a child changed the profile on the disk")
        return rounds

    done = run.each(range(max(1, run.count // rounds)), trial)
    return {"children": sum(done), "events lost": 0}
