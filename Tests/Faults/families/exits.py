"""Every way out of a host that was started in one call: what the last drain reports is true, and takes no longer
than it may; and what became of every event is known across kills, refusals, consents and damage."""

import dataclasses
import itertools
import json
import pathlib
import signal
import socket
import subprocess
import time

from harness import (KEY, NOWHERE, Collector, Failed, Oracle, Run, case, check, records, stores, total)
from harness.lines import Gathered, LineSource

PERSIST_WITHIN = 0.25
SLACK = 0.05  # of a way out, beyond the limits of its drain
SLOW_MACHINE = 1.0  # beyond that, as seen from another process
BATCH = 500
RUNS_OF_A_LIFE = 6


@dataclasses.dataclass
class Report:
    """What the host told of its last drain."""

    end: str
    delivered: int
    persisted: int
    inMemory: int
    ledger: dict[str, int]


class ExitHost:
    """One process; it has tracked when this is made."""

    def __init__(self, run: Run, folder: pathlib.Path, way: str, collector: Collector | None = None, endpoint=None,
                 **options):
        self.way, self._report = way, folder / "report"
        self._report.unlink(missing_ok=True)
        options |= {"state": folder / "state", "key": KEY, "way": way, "report": self._report,
                    "endpoint": collector.url if collector else endpoint or NOWHERE}
        if collector:
            options["ca_file"] = collector.ca
        command = [run.program("exit_host")]
        for name, value in options.items():
            command += ["--" + name.replace("_", "-"), str(value)]
        self.process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self._errors = Gathered(self.process.stderr)
        lines = LineSource(self.process.stdout.fileno())
        self.ledger = check_sum(json.loads(lines.next(30) or "null"), "at the start")
        check(lines.next(30) == "tracked", f"the host has not tracked: {self._errors.lines}")

    def leave(self) -> float:
        """Ends it in its way, and says how long that took at most."""
        begin = time.monotonic()
        if self.way == "signal":
            self.process.send_signal(signal.SIGTERM)
        try:
            status = self.process.wait(30)
        except subprocess.TimeoutExpired:
            self.kill()
            raise Failed(f"a host that leaves by {self.way} hangs: {self._errors.lines}") from None
        taken = time.monotonic() - begin
        self._release()
        expected = -signal.SIGTERM if self.way == "signal" else 0
        check(status == expected, f"a host that left by {self.way} ended with {status}: {self._errors.lines}")
        return taken

    def kill(self):
        self.process.kill()
        self.process.wait()
        self._release()

    def report(self) -> tuple[Report, float | None]:
        """With the time that the way out has taken, as measured within; nobody knows it of a signal."""
        lines = self._report.read_text().splitlines()
        check(len(lines) == (1 if self.way == "signal" else 2), f"the host reported {lines}")
        report = Report(**json.loads(lines[0]))
        check_sum(report.ledger, "after the last drain")
        return report, float(lines[1]) if len(lines) > 1 else None

    def _release(self):
        self.process.stdin.close()
        self._errors.finish()
        self.process.stdout.close()


def check_sum(ledger: dict[str, int], when: str) -> dict[str, int]:
    check(ledger["tracked"] == ledger["pending"] + ledger["delivered"] + ledger["dropped"],
          f"the ledger does not add up {when}: {ledger}")
    return ledger


def ids(events) -> set[str]:
    return {event["id"] for event in events}


def check_places(report: Report, queue: set[str], arrived: set[str]):
    """Where the report says that the events are, they are. What a batch under way at the end has delivered is in the
    queue all the same: its removal did not reach the disk."""
    both = len(queue & arrived)
    unremoved = len(queue) - report.persisted
    at_most = min(both, BATCH) if report.end == "deadline" else 0
    check(0 <= unremoved <= at_most, f"{len(queue)} are in the queue, {both} of which arrived: {report}")
    late = report.ledger["delivered"] - len(arrived - queue)
    at_most = both if report.end in ("persisted", "deadline") else 0
    check(0 <= late <= at_most, f"{len(arrived)} have arrived, {both} of which are in the queue: {report}")
    check(report.delivered <= report.ledger["delivered"], f"delivered more than ever: {report}")
    check(report.inMemory == 0, f"the disk is well, but not all is on it: {report}")


ENDS = {("up", 0): {"persisted"}, ("down", 0): {"persisted"}, ("silent", 0): {"persisted"},
        ("up", 0.1): {"delivered", "deadline"}, ("up", 1): {"delivered", "deadline"},
        ("down", 0.1): {"unreachable", "deadline"}, ("down", 1): {"unreachable", "deadline"},
        ("silent", 0.1): {"deadline"}, ("silent", 1): {"deadline"}}
WAYS = list(itertools.product(("return", "exit", "quick_exit", "signal"), ("up", "down", "silent"), (0, 0.1, 1)))


def leave(run: Run, item: int, silent: str) -> dict:
    way, network, deliver = WAYS[item % len(WAYS)]
    count, folder, oracle = run.random(item).randint(1, 500), run.folder(), Oracle()
    oracle.reserve(count)
    service = Collector(run.kite, folder) if network == "up" else None
    try:
        host = ExitHost(run, folder, way, service, silent if network == "silent" else None, events=count,
                        deliver=deliver)
        taken = host.leave()
        report, within = host.report()
        collected = service.events() if service else []
    finally:
        if service:
            service.close()
    limit = PERSIST_WITHIN + deliver + SLACK
    check(taken <= limit + SLOW_MACHINE, f"by {way}, service {network}: {taken:.3f} s instead of {limit}")
    check(within is None or within <= limit, f"by {way}, service {network}: {within} s instead of {limit}")
    check(report.end in ENDS[network, deliver], f"by {way}, service {network}, {deliver} s: {report}")
    queue = stores.queue(run.kite, folder / "state")
    check_places(report, ids(queue), ids(collected))
    oracle.demand_all(oracle.account(queue, collected))
    return {"exits": 1, "events": count}


@case("exits", "return, exit, quick_exit, SIGTERM", full=1000, smoke=40)
def ways_out(run: Run) -> dict:
    """Whether the service is up, down or silent: no event is lost, and the last drain tells the truth in time."""
    with socket.socket() as listener:  # the system accepts for it, and nobody answers
        listener.bind(("127.0.0.1", 0))
        listener.listen(4096)
        silent = f"https://127.0.0.1:{listener.getsockname()[1]}/v4/events"
        counts = total(run.each(range(run.count), lambda item: leave(run, item, silent)))
    return counts | {"events lost": 0}


class Life:
    """The runs over one folder, and what must have become of their events."""

    def __init__(self, run: Run, item: int):
        self.run, self.random, self.folder = run, run.random(item), run.folder()
        self.oracle = Oracle()
        self.collected: set[str] = set()
        self.lost: set[str] = set()
        self.forbidden = self.kills = 0

    def queue(self) -> set[str]:
        return ids(stores.queue(self.run.kite, self.folder / "state"))

    def live(self):
        """One run. Whoever is killed has sent nothing."""
        what = self.random.choice(("delivers", "refused", "without a service", "killed", "killed on disk"))
        options = {"from": self.oracle.tracked, "events": self.random.randint(0, 60),
                   "forbidden": self.random.randint(0, 5), "deliver": 20}
        is_killed = what.startswith("killed")
        service = self.service(what)
        try:
            if what == "killed on disk":
                options["drain_first"] = 1
            way = self.random.choice(("return", "exit", "quick_exit", "signal"))
            host = ExitHost(self.run, self.folder, "signal" if is_killed else way, service, **options)
            host.kill() if is_killed else host.leave()
            self.collected |= ids(service.events()) if service else set()
        finally:
            if service:
                service.close()
        self.kills += is_killed
        if what != "killed":
            self.oracle.reserve(options["events"])
            self.forbidden += options["forbidden"]
        if not is_killed:
            self.check_ledger(host.report()[0])

    def service(self, what: str) -> Collector | None:
        if what not in ("delivers", "refused"):
            return None
        return Collector(self.run.kite, self.folder, faults=["status:503x1000"] if what == "refused" else ())

    def check_ledger(self, report: Report):
        ledger, queue = report.ledger, self.queue()
        check(not queue & self.collected, "what was delivered is in the queue")
        own = {"tracked": len(queue) + len(self.collected) + len(self.lost) + self.forbidden,
               "delivered": len(self.collected), "noConsent": self.forbidden}
        check({name: ledger[name] for name in own} == own, f"the ledger is {ledger}, and it should be {own}")
        if report.end == "delivered":
            check(ledger["lostOnDisk"] == len(self.lost), f"{len(self.lost)} were lost on the disk: {ledger}")

    def damage(self):
        """A byte of an event that is in the queue."""
        before = self.queue()
        rows = [(file, row) for file in stores.segments(self.folder / "state") for row in records.records_of(file, may_be_cut=True)
                if row.kind == records.ROW]
        if not rows or self.random.random() < 0.6:
            return
        file, row = self.random.choice(rows)
        data = bytearray(file.read_bytes())
        data[row.begin + records.HEADER.size + self.random.randrange(len(row.payload))] ^= self.random.randint(1, 255)
        file.write_bytes(data)
        lost = before - self.queue()
        check(len(lost) <= 1, f"a byte has cost {len(lost)} events")
        self.lost |= lost

    def deliver_the_rest(self):
        with Collector(self.run.kite, self.folder) as service:
            host = ExitHost(self.run, self.folder, "return", service, deliver=20)
            host.leave()
            self.collected |= ids(service.events())
        report = host.report()[0]
        check(report.end == "delivered", f"the last run does not deliver: {report}")
        self.check_ledger(report)


@case("exits", "ledger", full=300, smoke=12)
def ledger(run: Run) -> dict:
    """The ledger knows to the event what became of each, whatever ends a run and whatever its disk loses."""
    runs = min(run.count, RUNS_OF_A_LIFE)

    def trial(item: int) -> dict:
        life = Life(run, item)
        for _ in range(runs - 1):
            life.live()
            life.damage()
            run.tick()
        life.deliver_the_rest()
        run.tick()
        return {"runs": runs, "SIGKILLs": life.kills, "events": len(life.collected) + len(life.lost),
                "damaged": len(life.lost), "forbidden": life.forbidden}

    return total(run.each(range(max(1, run.count // runs)), trial, ticks=False)) | {"events unaccounted for": 0}
