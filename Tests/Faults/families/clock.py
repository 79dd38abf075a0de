"""The wall clock jumps or stands still, and a process is stopped for a while."""

import collections
import dataclasses
import math
import os
import pathlib
import signal
import subprocess
import time

from harness import (Collector, Host, NotRun, Oracle, Run, case, check, eventually, need,
                     stores, survey)
from harness.certificates import Certificate

SYNC_PERIOD = 2.0
FLUSH_PERIOD = 10.0
TEN_YEARS = 10 * 365 * 86_400
LIBRARY = pathlib.Path("/usr/lib/x86_64-linux-gnu/faketime/libfaketimeMT.so.1")
REFUSALS = ["status:500x1000000"]


class WallClock:
    """The time of day of some processes. What measures durations goes on as it does."""

    def __init__(self, folder: pathlib.Path):
        libraries = [LIBRARY, *pathlib.Path("/usr/lib").glob("*/faketime/libfaketimeMT.so.1")]
        library = next((path for path in libraries if path.exists()), None)
        if library is None:
            raise NotRun("faketime is not installed (scripts/setup --prove)")
        self._file = folder / "clock"
        self.environment = {"LD_PRELOAD": str(library), "FAKETIME_NO_CACHE": "1",
                            "FAKETIME_TIMESTAMP_FILE": str(self._file),
                            "FAKETIME_DONT_FAKE_MONOTONIC": "1", "DONT_FAKE_MONOTONIC": "1"}
        self.shift(0)

    def shift(self, seconds: int):
        """From now on it is off by so much."""
        self._write(f"{seconds:+d}")

    def stand_still(self):
        self._write(time.strftime("%Y-%m-%d %H:%M:%S"))

    def _write(self, text: str):
        fresh = self._file.with_suffix(".new")
        fresh.write_text(text + "\n")
        os.replace(fresh, self._file)


def lasting_certificate(folder: pathlib.Path) -> Certificate:
    """One that is valid at all the times that the clocks here show."""
    need("faketime", "openssl")
    chain, key = folder / "lasting.pem", folder / "lasting.key"
    subprocess.run(["faketime", "2010-01-01", "openssl", "req", "-x509", "-newkey", "rsa:2048",
                    "-nodes", "-keyout", key, "-out", chain, "-days", "20000",
                    "-subj", "/CN=localhost", "-addext", "subjectAltName=IP:127.0.0.1"],
                   check=True, capture_output=True)
    return Certificate(chain, key, chain)


@dataclasses.dataclass
class Rate:
    """When requests came: a host with a pending event tries every two seconds."""

    collector: Collector
    moments: list[float] = dataclasses.field(default_factory=list)

    def watch(self, seconds: float, what: str):
        """The timer keeps its rate for so long."""
        self.moments = []
        before, end = self.collector.request_count, time.monotonic() + seconds
        while time.monotonic() < end:
            found = self.collector.request_count
            self.moments += [time.monotonic()] * (found - before)
            before = found
            time.sleep(0.02)
        expected = seconds / SYNC_PERIOD
        check(expected - 1.5 <= len(self.moments) <= expected + 1.5,
              f"{what}: {len(self.moments)} requests in {seconds} s, not {expected:.0f}")
        gaps = [later - earlier for earlier, later in zip(self.moments, self.moments[1:])]
        check(min(gaps, default=SYNC_PERIOD) > SYNC_PERIOD / 4,
              f"{what}: two requests within {min(gaps, default=0):.2f} s")


def check_flush(run: Run, host: Host, oracle: Oracle):
    """The timer that writes the queue goes on, too."""
    serial = oracle.track(host)

    def is_queued() -> bool:
        return serial in oracle.account(stores.queue(run.kite, host.state)).queued

    check(eventually(is_queued, FLUSH_PERIOD + 2, 0.2), "the queue is not written any more")


def deliver(run: Run, folder: pathlib.Path, oracle: Oracle) -> float:
    """With the clock right again, all that is left arrives and is accepted. The years between the
    first and the last event, by their timestamps."""
    folder = folder / "after"
    folder.mkdir()
    with Collector(run.kite, folder) as collector:
        with Host(run.kite, folder.parent / "state", collector=collector).start() as host:
            everything = set(range(oracle.tracked))
            check(eventually(lambda: everything <= oracle.account([], collector.events()).collected,
                             20), "\n".join(["not all is delivered:", *host.stderr[-4:]]))
        check_numbers(collector.events())
        return years_between(collector.events())


def years_between(rows: list[dict]) -> float:
    moments = [row["timestamp"] for row in rows]
    return (max(moments) - min(moments)) / TEN_YEARS * 10


def check_numbers(rows: list[dict]):
    """Every number that arrived is finite."""
    for row in rows:
        for name in ("timestamp", "request_timestamp", "received_at"):
            check(math.isfinite(row[name]), f"{name} is {row[name]}")
        waiting = collections.deque([row["data"], row["user_info"]])
        while waiting:
            value = waiting.popleft()
            if isinstance(value, dict):
                waiting.extend(value.values())
            elif isinstance(value, list):
                waiting.extend(value)
            elif isinstance(value, float):
                check(math.isfinite(value), f"{row['type']} holds {value}")


def keeps_rate(run: Run, changes: list) -> dict:
    """A host whose uploads fail, while the clock goes through `changes`."""
    folder, oracle, seconds = run.folder(), Oracle(), 4 if run.is_smoke else 10
    clock = WallClock(folder)
    with Collector(run.kite, folder, faults=REFUSALS, certificate=lasting_certificate(folder),
                   environment=clock.environment) as collector:
        state = folder / "state"
        with Host(run.kite, state, collector=collector, environment=clock.environment) as host:
            host.start()
            oracle.track(host)
            rate = Rate(collector)
            eventually(lambda: collector.request_count)
            rate.watch(seconds, "before")
            for name, change in changes:
                change(clock)
                oracle.track(host)
                rate.watch(seconds, name)
            check_flush(run, host, oracle)
            check(collector.process.poll() is None, "the collector ended")
            trouble = [line for line in host.stderr if "cannot be" in line]
            check(not trouble, "\n".join(trouble))
            host.kill()
    years = deliver(run, folder, oracle)
    check((years > 9.9) == any(change in (AHEAD, BEHIND) for change in changes),
          f"the clock did not jump: {years:.1f} years between the events")
    return {"jumps": len(changes), "events": oracle.tracked}


def delivers(run: Run, changes: list) -> dict:
    """A host whose uploads succeed, with the collector's clock jumping along."""
    folder, oracle = run.folder(), Oracle()
    clock = WallClock(folder)
    with Collector(run.kite, folder, certificate=lasting_certificate(folder),
                   environment=clock.environment) as collector:
        with Host(run.kite, folder / "state", collector=collector,
                  environment=clock.environment) as host:
            host.start()
            for _, change in [("", lambda _: None), *changes]:
                change(clock)
                oracle.post(host, 20)
                host.drain()
                host.call("willEnterForeground")
                everything = set(range(oracle.tracked))
                arrived = eventually(
                    lambda: everything <= oracle.account([], collector.events()).collected, 20)
                check(arrived, "\n".join(["events do not arrive:", *host.stderr[-4:]]))
                host.call("didEnterBackground")
            check(host.quit() == 0, "the host does not leave")
        rows = collector.events()
    check_numbers(rows)
    check(years_between(rows) > 19.9, "the clock did not jump")
    return {"jumps": len(changes), "events": oracle.tracked}


AHEAD = ("ten years ahead", lambda clock: clock.shift(TEN_YEARS))
BEHIND = ("ten years behind", lambda clock: clock.shift(-TEN_YEARS))
RIGHT = ("right again", lambda clock: clock.shift(0))
STILL = ("standing still", lambda clock: clock.stand_still())


@case("clock", "jumps of ten years, a clock that stands still", full=5, smoke=5)
def jumps(run: Run) -> dict:
    return survey(run, {
        "ahead and back": lambda: keeps_rate(run, [AHEAD, RIGHT]),
        "behind and back": lambda: keeps_rate(run, [BEHIND, RIGHT]),
        "ahead, then behind": lambda: keeps_rate(run, [AHEAD, BEHIND, AHEAD]),
        "standing still": lambda: keeps_rate(run, [STILL, RIGHT]),
        "delivering all the while": lambda: delivers(run, [AHEAD, BEHIND, STILL, RIGHT]),
    }, workers=5)


@case("clock", "SIGSTOP for a minute", full=60, smoke=6)
def stopped(run: Run) -> dict:
    """`count` is for how many seconds. What was due meanwhile is not made up for."""
    folder, oracle = run.folder(), Oracle()
    with Collector(run.kite, folder, faults=REFUSALS) as collector:
        with Host(run.kite, folder / "state", collector=collector).start() as host:
            oracle.track(host)
            rate = Rate(collector)
            eventually(lambda: collector.request_count)
            rate.watch(6, "before")
            # A request that the stop caught on its way would come just before the next one.
            time.sleep(SYNC_PERIOD / 2)
            host.signal(signal.SIGSTOP)
            for _ in range(run.count):
                time.sleep(1)
                run.tick()
            host.signal(signal.SIGCONT)
            rate.watch(6, "afterwards")
            if run.count >= FLUSH_PERIOD:
                check_flush(run, host, oracle)
            else:
                host.call("didEnterBackground")
            check(host.send("sessionData")["ok"], "the host does not answer")
            host.kill()
    deliver(run, folder, oracle)
    return {"seconds stopped": run.count, "events": oracle.tracked}
