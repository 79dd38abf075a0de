"""A hundred thousand events wait, for a day; and a day of use."""

import pathlib
import struct
import time

from harness import Collector, Host, Oracle, Run, case, check, eventually, stores

DAY = 86_400.0
SYNC_PERIOD = 2.0
PADDING = "x" * 200
START_SECONDS = 2.0
MEGABYTE = 1 << 20


def timed_host(run: Run, state, **options) -> Host:
    return Host(run.program("timed_host"), state, arguments=(), **options)


class Usage:
    """Memory and descriptors of a process, now."""

    def __init__(self, pid: int):
        status = pathlib.Path(f"/proc/{pid}/status").read_text()
        self.memory = next(int(line.split()[1]) * 1024 for line in status.splitlines()
                           if line.startswith("VmRSS:"))
        self.descriptors = len(list(pathlib.Path(f"/proc/{pid}/fd").iterdir()))

    def check_level(self, before: "Usage", megabytes: float):
        more = (self.memory - before.memory) / MEGABYTE
        check(more <= megabytes, f"memory grew by {more:.1f} MB")
        check(self.descriptors <= before.descriptors + 2,
              f"descriptors grew from {before.descriptors} to {self.descriptors}")


def simulated(clock: pathlib.Path) -> float:
    """Seconds of a host's fast time that have passed."""
    data = clock.read_bytes() if clock.exists() else b""
    return struct.unpack("d", data)[0] if len(data) == 8 else 0.0


def start_seconds(run: Run, state) -> float:
    """From the beginning of the process until the library has started; the best of three."""
    best = float("inf")
    for _ in range(3):
        begin = time.monotonic()
        with Host(run.kite, state, start_in_background=True) as host:
            host.start()
            best = min(best, time.monotonic() - begin)
            host.quit()
    return best


def fill(run: Run, state, oracle: Oracle):
    with timed_host(run, state, seconds=120).start() as host:
        host.call("fill", from_=oracle.reserve(run.count), count=run.count, padding=PADDING)
        host.call("didEnterBackground")
        host.call("settle")
        host.kill()
    check(len(oracle.account(stores.queue(run.kite, state)).queued) == run.count,
          "not all events are in the queue")


@case("backlog", "100,000 events, a day without the collector", full=100_000, smoke=5_000)
def no_collector(run: Run) -> dict:
    """Every sync of a simulated day fails; then everything is delivered, once. (Smoke: a fiftieth
    of the day.)"""
    folder, state, oracle = run.folder(), None, Oracle()
    state, clock = folder / "state", folder / "clock"
    day = DAY / 50 if run.is_smoke else DAY
    fill(run, state, oracle)
    seconds = start_seconds(run, state)
    check(seconds < START_SECONDS, f"the start takes {seconds:.1f} s")
    with Collector(run.kite, folder) as collector:
        address, certificate = collector.address, collector.ca
    endpoint = f"https://{address}/v4/events"
    host = timed_host(run, state, endpoint=endpoint, ca=certificate, divide=200, clock=clock)
    with host:
        host.start()
        usage, failures = None, 0
        while (now := simulated(clock)) < day or failures < 0.9 * day / SYNC_PERIOD:
            oracle.track(host)
            failures = sum("ERROR" in line for line in host.stderr)
            if usage is None and now > day / 10:
                usage = Usage(host.pid)
            run.progress(int(now), int(day))
            time.sleep(0.5)
        Usage(host.pid).check_level(usage, 8)
        with Collector(run.kite, folder, listen=address) as collector:
            check(eventually(lambda: collector.count() >= oracle.tracked and
                             not stores.queue(run.kite, state), 300, 0.5),
                  f"only {collector.count()} of {oracle.tracked} events arrive")
            rows = collector.events()
        Usage(host.pid).check_level(usage, 8)
        host.kill()
    oracle.demand_all(oracle.account([], rows))
    return {"events": oracle.tracked, "failed syncs": failures,
            "start in ms": round(seconds * 1000),
            "duplicates": sum(row["duplicates"] for row in rows)}


@case("backlog", "24 hours of use", full=8_640, smoke=170)
def use(run: Run) -> dict:
    """An event every ten simulated seconds, half an hour in the foreground, half in the
    background."""
    folder, oracle = run.folder(), Oracle()
    state, clock = folder / "state", folder / "clock"
    divisor = 480
    day = run.count * 10.0
    with Collector(run.kite, folder) as collector:
        host = timed_host(run, state, collector=collector, divide=divisor, clock=clock,
                          sync_on_session_end=1)
        with host:
            host.start()
            usage, half_hours, begin = None, 0, time.monotonic()
            while oracle.tracked < run.count or simulated(clock) < day:
                ahead = oracle.tracked * 10.0 / divisor - (time.monotonic() - begin)
                time.sleep(max(0.001, ahead))
                if oracle.tracked < run.count:
                    oracle.track(host)
                if oracle.tracked * 10 // 1800 > half_hours:
                    half_hours += 1
                    host.call("didEnterBackground" if half_hours % 2 else "willEnterForeground")
                if usage is None and oracle.tracked > run.count / 10:
                    usage = Usage(host.pid)
                run.progress(oracle.tracked, run.count)
            check(eventually(lambda: not stores.queue(run.kite, state), 30, 0.1),
                  "the queue does not get empty")
            Usage(host.pid).check_level(usage, 4)
            trouble = [line for line in host.stderr if "cannot be" in line]
            check(not trouble, "\n".join(trouble))
            host.kill()
        rows = collector.events()
    oracle.demand_all(oracle.account([], rows))
    return {"simulated hours": round(day / 3600, 1), "events": oracle.tracked, "rows": len(rows),
            "duplicates": sum(row["duplicates"] for row in rows)}
