"""What a case is, what it gets, and what comes out of it."""

import concurrent.futures
import dataclasses
import os
import pathlib
import random
import shutil
import threading
import typing

KEY = "a key that only this proof knows"


class Failed(Exception):
    """The promise under proof was broken; the text says how."""


class NotRun(Exception):
    """This machine cannot make the fault; the text says what is missing."""


@dataclasses.dataclass
class Outcome:
    family: str
    name: str
    status: str  # "passed", "failed" or "not run"
    counts: dict[str, int | float] = dataclasses.field(default_factory=dict)
    seconds: float = 0.0
    detail: str = ""


@dataclasses.dataclass
class Case:
    family: str
    name: str
    body: typing.Callable[["Run"], dict | None]
    full: int
    smoke: int | None  # None: not among the smoke cases
    asan: bool


CASES: list[Case] = []


def case(family: str, name: str, full: int, smoke: int | None = None, asan: bool = False):
    """Registers a function `body(run) -> counts`; with `asan` it needs the tool under the address
    sanitizer as well (`run.asan`)."""

    def register(body):
        CASES.append(Case(family, name, body, full, smoke, asan))
        return body

    return register


@dataclasses.dataclass
class Run:
    """What a case works with."""

    kite: pathlib.Path
    build: pathlib.Path  # holds a folder for each preset
    scratch: pathlib.Path  # a new, empty folder of the case's own
    count: int
    is_smoke: bool
    progress: typing.Callable[[int, int], None]
    seed: int = 0

    def __post_init__(self):
        self._folders = self._done = 0
        self._mutex = threading.Lock()

    @property
    def asan(self) -> pathlib.Path:
        """The tool under the address sanitizer."""
        tool = self.build / "asan" / "kite"
        if not tool.exists():
            raise NotRun(f"{tool} is not built")
        return tool

    def program(self, name: str) -> pathlib.Path:
        """A host of Tests/Faults/programs."""
        folder = self.kite.parent / "Tests" / "Faults"
        if not (folder / name).exists():
            raise Failed(f"{folder / name} is not built")
        return folder / name

    def folder(self) -> pathlib.Path:
        """A new folder within the scratch folder."""
        with self._mutex:
            self._folders += 1
            made = self.scratch / str(self._folders)
        made.mkdir()
        return made

    def random(self, item: int = 0) -> random.Random:
        return random.Random(self.seed * 1_000_003 + item)

    def tick(self, more: int = 1):
        """So much more of `count` is done."""
        with self._mutex:
            self._done += more
            done = self._done
        self.progress(done, self.count)

    def each(self, items: typing.Iterable, body: typing.Callable, workers: int = 2,
             ticks: bool = True) -> list:
        """Runs `body(item)` for all, `workers` at once; the first failure ends it. With `ticks`
        each is one of `count`, otherwise the bodies call `tick`.

        Results come in the order of the items."""
        items = list(items)
        results: list = [None] * len(items)
        pool = concurrent.futures.ThreadPoolExecutor(workers)
        try:
            futures = {pool.submit(body, item): at for at, item in enumerate(items)}
            for future in concurrent.futures.as_completed(futures):
                results[futures[future]] = future.result()
                if ticks:
                    self.tick()
        finally:
            pool.shutdown(wait=True, cancel_futures=True)
        return results


def survey(run: Run, faults: dict[str, typing.Callable], workers: int = 2) -> dict:
    """Runs `body() -> counts` for every fault by name, and fails with all that failed."""
    failures: dict[str, str] = {}

    def strike(name: str) -> dict:
        try:
            return faults[name]() or {}
        except Failed as failure:
            failures[name] = str(failure)
            return {}

    run.count = len(faults)
    counts = {"faults": len(faults)} | total(run.each(faults, strike, workers))
    if failures:
        told = [f"{name}: {failures[name]}" for name in faults if name in failures][:40]
        raise Failed("\n".join([f"{len(failures)} of {len(faults)} faults failed", *told]))
    return counts


def need(*tools: str):
    """The fault needs these programs."""
    for tool in tools:
        if not shutil.which(tool, path=os.environ.get("PATH", "") + ":/usr/sbin:/sbin"):
            raise NotRun(f"{tool} is not installed (scripts/setup --prove)")


def need_root():
    if os.geteuid() != 0:
        raise NotRun("needs root")


def check(condition, detail: str):
    if not condition:
        raise Failed(detail)


def total(results: typing.Iterable[dict]) -> dict:
    """Adds up the counts of many trials."""
    sums: dict = {}
    for counts in results:
        for name, number in (counts or {}).items():
            sums[name] = sums.get(name, 0) + number
    return sums
