"""Knows every event that was tracked, and adds up where each of them is."""

import dataclasses
import threading
import typing

from .case import Failed

ACTION = "proof"


def serial_of(event: dict) -> tuple[str, int] | None:
    """Stream and serial number of an event of an oracle's, queued or collected."""
    info = (event.get("data") or {}).get("action_info")
    if not isinstance(info, dict) or "serial" not in info:
        return None
    return info.get("stream", ""), info["serial"]


@dataclasses.dataclass
class Account:
    """Where the tracked events of one stream are."""

    tracked: int
    collected: set[int]
    queued: set[int]

    @property
    def kept(self) -> set[int]:
        return self.collected | self.queued

    @property
    def lost(self) -> set[int]:
        return set(range(self.tracked)) - self.kept


class Oracle:
    """The events of one stream: serial numbers from 0 in the order of tracking, as the property
    "serial" of user actions. Several streams (threads, hosts) may share a state folder."""

    def __init__(self, stream: str = ""):
        self.stream = stream
        self._next = 0
        self._ids: dict[int, str] = {}
        self._mutex = threading.Lock()

    @property
    def tracked(self) -> int:
        return self._next

    def action(self, **more) -> dict:
        """The members of the next `trackUserAction`; `more` goes into its data."""
        with self._mutex:
            serial, self._next = self._next, self._next + 1
        data = {"serial": serial} | ({"stream": self.stream} if self.stream else {}) | more
        return {"name": ACTION, "data": data}

    def reserve(self, count: int) -> int:
        """The first of so many serial numbers for a host that makes its events itself."""
        with self._mutex:
            first, self._next = self._next, self._next + count
        return first

    def track(self, host, seconds: float | None = None, **more) -> int:
        """Tracks one event and waits for the answer: its serial number."""
        action = self.action(**more)
        host.call("trackUserAction", seconds, **action)
        return action["data"]["serial"]

    def post(self, host, count: int = 1, **more):
        """Tracks events without waiting."""
        for _ in range(count):
            host.post("trackUserAction", **self.action(**more))

    def account(self, queue: typing.Iterable[dict] = (),
                collected: typing.Iterable[dict] = ()) -> Account:
        """Adds up. Fails when an event has two identifiers, or one that it had not before, is twice
        in one place, was never tracked, or is out of order."""
        queued = self._serials("queue", queue)
        arrived = self._serials("collector", collected)
        return Account(self._next, set(arrived), set(queued))

    def demand(self, account: Account, safe: typing.Iterable[int]):
        """Fails when one of these is neither at the collector nor in the queue."""
        lost = sorted(set(safe) - account.kept)
        if lost:
            raise Failed(f"{len(lost)} events are lost that must not be: {_some(lost)}; "
                         f"{account.tracked} tracked, {len(account.collected)} collected, "
                         f"{len(account.queued)} queued")

    def demand_all(self, account: Account):
        self.demand(account, range(self._next))

    def demand_prefix(self, account: Account):
        """Fails when a later event outlived an earlier one."""
        gap = sorted(account.lost - set(range(max(account.kept, default=-1), account.tracked)))
        if gap:
            raise Failed(f"later events outlived earlier ones, which are lost: {_some(gap)}")

    def _serials(self, place: str, events: typing.Iterable[dict]) -> list[int]:
        serials = []
        for event in events:
            found = serial_of(event)
            if found is None or found[0] != self.stream:
                continue
            serial = found[1]
            if not isinstance(serial, int) or not 0 <= serial < self._next:
                raise Failed(f"the {place} holds event {serial!r}, which was never tracked")
            if self._ids.setdefault(serial, event["id"]) != event["id"]:
                raise Failed(f"event {serial} has two identifiers: {self._ids[serial]} and, in the "
                             f"{place}, {event['id']}")
            serials.append(serial)
        if any(later <= earlier for earlier, later in zip(serials, serials[1:])):
            raise Failed(f"events in the {place} are out of order or doubled: {_some(serials)}")
        return serials


def _some(serials: list[int]) -> str:
    text = ", ".join(map(str, serials[:12]))
    return text + (", …" if len(serials) > 12 else "")
