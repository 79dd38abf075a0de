"""The rows of the table: which figure of which benchmark, the limit beside it, and what is to be reached."""

from dataclasses import dataclass, field
from typing import Callable, Optional


@dataclass(frozen=True)
class Source:
    """A counter of a benchmark, or of several runs of it the median."""

    benchmark: str
    counter: str
    scale: float = 1


@dataclass(frozen=True)
class Bar:
    text: str
    is_reached: Callable


@dataclass(frozen=True)
class Row:
    name: str
    unit: str
    figure: Source
    limit: Optional[Source] = None
    bars: tuple = field(default=())


def at_most(bound):
    return Bar(f"at most {bound:,g}", lambda figure, limit, value: figure <= bound)


def at_least(bound):
    return Bar(f"at least {bound:,g}", lambda figure, limit, value: figure >= bound)


def times_the_limit(factor):
    return Bar(f"at most {factor:g}x", lambda figure, limit, value: figure <= factor * limit)


def share_of_the_limit(share):
    return Bar(f"at least {share:g}x", lambda figure, limit, value: figure >= share * limit)


# Where the limit itself is beyond a bound, on a slow machine or a slow disk, the distance to the limit decides.
NEAR = 1.25


def at_most_or_times(bound, factor):
    return Bar(f"at most {bound:,g} or {factor:g}x", lambda figure, limit, value: figure <= max(bound, factor * limit))


def at_most_or_near(bound):
    return Bar(f"at most {bound:,g}, or {NEAR:g}x of a limit above it",
               lambda figure, limit, value: figure <= (NEAR * limit if limit > bound else bound))


def at_least_or_near(bound):
    return Bar(f"at least {bound:,g}, or {1 / NEAR:g}x of a limit below it",
               lambda figure, limit, value: figure >= (limit / NEAR if limit < bound else bound))


def times(factor, source, words):
    return Bar(f"at most {factor:g}x of {words}", lambda figure, limit, value: figure <= factor * value(source))


def at_least_times(factor, source, words):
    return Bar(f"at least {factor:g}x of {words}", lambda figure, limit, value: figure >= factor * value(source))


NOTHING = at_most(0)
ONE, TWO = "track/threads:1", "track/threads:2"


TRACK_NAMES = {"p50_us": "p50", "p99_us": "p99", "p999_us": "p99.9", "items_per_second": "rate"}


def track(threads, counter, unit, *bars):
    return Row(f"track/threads:{threads} {TRACK_NAMES[counter]}", unit, Source(f"track/threads:{threads}", counter),
               Source(f"track/limit/threads:{threads}", counter), bars)


def compared(name, benchmark, counter, unit, *bars, scale=1.0):
    """A figure and the limit that was measured in turn with it."""
    return Row(name, unit, Source(benchmark, counter, scale), Source(benchmark, f"limit_{counter}", scale), bars)


def median_of(benchmark, *bars):
    return compared(benchmark, benchmark, "p50_us", "us", *bars)


# A group is what runs in one process: its name begins the names of its benchmarks. With it, how often it is repeated.
GROUPS = {
    "track": 5,
    "track_paced": 3,
    "track_during_flush": 3,
    "background_insert": 3,
    "flush": 3,
    "accept": 3,
    "snapshot": 3,
    "body": 3,
    "upload": 5,
    "record_to_delivered": 5,
    "batch": 3,
    "start": 3,
    "collect": 3,
    "memory": 1,
    "idle": 1,
    "offline": 1,
    "size": 1,
    "header": 5,
}

ROWS = [
    track(1, "p50_us", "us", at_most_or_times(0.5, 2.5)),
    track(1, "p99_us", "us", at_most_or_near(2)),
    track(1, "p999_us", "us", at_most_or_near(10)),
    track(1, "items_per_second", "1/s", at_least(600_000)),
    track(2, "p50_us", "us"),
    track(2, "p99_us", "us"),
    track(2, "items_per_second", "1/s", at_least_times(1.2, Source(ONE, "items_per_second"), "one thread")),
    compared("track/threads:2 until encoded", "track/until_encoded/2", "events_per_second", "1/s", share_of_the_limit(0.9)),
    Row("track/threads:2 lost", "events", Source("track/lost", "lost"), None, (NOTHING,)),
    compared("track_paced/2ms p50", "track_paced/2ms", "p50_us", "us", at_most_or_near(4)),
    compared("track_paced/2ms p99", "track_paced/2ms", "p99_us", "us", at_most_or_near(12)),
    Row("track_during_flush p99.9", "us", Source("track_during_flush/100000", "p999_us"), Source(ONE, "p999_us"),
        (times_the_limit(3),)),
    median_of("background_insert/0"),
    median_of("background_insert/1000"),
    median_of("background_insert/10000"),
    median_of("background_insert/100000", times(1.25, Source("background_insert/0", "p50_us"), "empty"),
              times_the_limit(1.5)),
    median_of("flush/1000"),
    median_of("flush/10000"),
    median_of("flush/100000", times_the_limit(1.5)),
    median_of("accept/1000"),
    median_of("accept/10000"),
    median_of("accept/100000", times_the_limit(1.5)),
    median_of("snapshot/1000"),
    median_of("snapshot/10000"),
    median_of("snapshot/100000", at_most(20)),
    median_of("body/500", times_the_limit(1.12)),
    compared("upload/10000 rate", "upload/10000", "events_per_second", "1/s", at_least_or_near(160_000)),
    compared("upload/10000 CPU an event", "upload/10000", "cpu_us_per_event", "us", at_most_or_near(6)),
    compared("record_to_delivered CPU an event", "record_to_delivered/20000", "cpu_us_per_event", "us",
             at_most_or_near(10)),
    median_of("batch/500"),
    compared("collect/50000 rate", "collect/50000", "events_per_second", "1/s", at_least_or_near(60_000)),
    compared("collect/50000 CPU an event", "collect/50000", "cpu_us_per_event", "us", at_most_or_near(16.7)),
    Row("start/first", "ms", Source("start/first", "p50_us", 1e-3), None, (at_most(3),)),
    *(Row(f"start/{count}", "ms", Source(f"start/{count}", "p50_us", 1e-3), None, bars)
      for count, bars in ((0, ()), (10_000, (at_most(5),)), (100_000, (at_most(8),)))),
    Row("start/10000 caller", "ms", Source("start/10000", "caller_p50_us", 1e-3), None, (at_most(1),)),
    Row("memory/100000 an event, not saved", "bytes", Source("memory/100000", "unsaved_bytes_per_event"),
        Source("memory/100000", "text_bytes"), (times_the_limit(0.65),)),
    Row("memory/100000 an event, saved", "bytes", Source("memory/100000", "bytes_per_event"), None, (at_most(64),)),
    compared("idle wake-ups a minute", "idle", "wakeups_per_minute", "", at_most_or_near(90)),
    compared("idle CPU a minute", "idle", "cpu_ms_per_minute", "ms", times_the_limit(1.5)),
    compared("offline/1000 CPU a minute", "offline/1000", "cpu_ms_per_minute", "ms", at_most_or_near(90)),
    compared("header", "header", "seconds", "s", times_the_limit(1.25)),
    Row("size of the library", "kB", Source("size", "library_kilobytes"), None, (at_most(400),)),
    Row("size of a small static host", "kB", Source("size", "host_kilobytes"), None, (at_most(600),)),
]
