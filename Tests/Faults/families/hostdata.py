"""Host data: whatever a host hands over, it lives, and what goes out is JSON."""

import json
import math
import random
import struct
from collections.abc import Iterable
from dataclasses import dataclass

from harness import Failed, Host, HostDied, HostHung, Run, case, check, eventually, stores
from harness.certificates import Authority
from harness.hostile import Hostile, accepting, over_https

DEEPEST = 512  # levels of nesting that an event may have
LINE_LIMIT = 1 << 20


@dataclass(frozen=True)
class Line:
    """A line for the host; what must arrive of its data, when it is taken."""
    name: str
    text: bytes
    is_taken: bool | None  # None: either, as long as the host lives
    data: object = None  # of the member "x"


def action(name: str, value: bytes, is_taken: bool | None = True, data: object = None) -> Line:
    """`value` is JSON text, or what claims to be."""
    text = b'{"op":"trackUserAction","name":"proof","data":{"x":' + value + b"}}"
    return Line(name, text, is_taken, data)


def same(found: object, sent: object) -> bool:
    """Equal, integers and doubles told apart, -0.0 and 0.0, too."""
    if isinstance(sent, float):
        return isinstance(found, float) and struct.pack("d", found) == struct.pack("d", sent)
    if isinstance(sent, dict):
        return isinstance(found, dict) and found.keys() == sent.keys() and all(
            same(found[key], sent[key]) for key in sent)
    if isinstance(sent, list):
        return isinstance(found, list) and len(found) == len(sent) and all(map(same, found, sent))
    return type(found) is type(sent) and found == sent


def numbers() -> Iterable[Line]:
    doubles = [-0.0, 0.0, 5e-324, -5e-324, 2.2250738585072014e-308, 1.7976931348623157e308,
               -1.7976931348623157e308, 0.1, 1 / 3, 1e22, 1e23, 9007199254740993.0, 1e-7, 123456.0]
    for number in doubles:
        yield action(f"the double {number!r}", repr(number).encode(), data=number)
    integers = [0, -1, 2 ** 31, -2 ** 31, 2 ** 53 + 1, 2 ** 63 - 1, -2 ** 63]
    for number in integers:
        yield action(f"the integer {number}", str(number).encode(), data=number)
    for text in (b"9223372036854775808", b"18446744073709551615", b"-9223372036854775809",
                 b"1e400", b"-1e400", b"NaN", b"Infinity", b"-Infinity", b"nan", b"01", b"1.",
                 b".5", b"+1", b"1e", b"0x1", b"9" * 5000):
        yield action(f"the number {text[:24].decode()}", text, is_taken=False)
    yield action("a double of 20,000 digits", b"0." + b"3" * 20_000, data=1 / 3)
    yield action("1e-400", b"1e-400", data=0.0)


def texts() -> Iterable[Line]:
    for name, text in {"NUL": "a\0b", "line breaks": "a\r\nb", "an escape": "\x1b[2J",
                       "DEL": "\x7f",
                       "separators": "\u2028\u2029", "beyond 16 bits": "\U0001f98a", "nothing": "",
                       "quotes": '"\\/\b\f', "a non-character": "\uffff\ufdd0", "U+FEFF": "\ufeff",
                       "combining marks": "e" + "\u0301" * 5000,
                       "1 MB": "x" * 1_000_000, "1 MB of quotes": '"' * 450_000,
                       "1 MB of U+0001": "\1" * 170_000}.items():
        yield action(f"a text of {name}", json.dumps(text).encode(), data=text)
    ill_formed = {"a lone byte": b"\x80", "a byte cut off": b"a\xe2\x82", "0xFF": b"\xff\xfe",
                  "an overlong NUL": b"\xc0\x80", "an overlong slash": b"\xe0\x80\xaf",
                  "a surrogate": b"\xed\xa0\x80", "beyond U+10FFFF": b"\xf4\x90\x80\x80",
                  "Latin-1": "Müller".encode("latin-1"), "all bytes": bytes(range(128, 256))}
    for name, text in ill_formed.items():
        yield action(f"UTF-8 with {name}", b'"' + text + b'"', is_taken=False)
        yield Line(f"a key with {name}", b'{"op":"trackUserAction","name":"proof","data":{"' + text
                   + b'":1}}', False)
    for name, text in {"a lone high surrogate": rb"\ud800", "a lone low surrogate": rb"\udc00",
                       "surrogates in the wrong order": rb"\udc00\ud800",
                       "a cut surrogate": rb"\ud800x"}.items():
        yield action(f"an escape of {name}", b'"' + text + b'"', is_taken=None)
    yield action("a raw NUL", b'"a\0b"', is_taken=False)
    yield action("a raw line end", b'"a\tb"', is_taken=False)


def shapes() -> Iterable[Line]:
    key = "k" * 65_536
    yield action("a key of 64 kB", json.dumps({key: 1}).encode(), data={key: 1})
    yield action("an empty key", b'{"":1}', data={"": 1})
    yield action("a key with NUL", rb'{"a\u0000b":1,"a":2}', data={"a\0b": 1, "a": 2})
    yield action("a key twice", b'{"a":1,"a":2}', is_taken=False)
    many = {f"{number:x}": 0 for number in range(100_000)}
    yield action("100,000 keys", json.dumps(many, separators=(",", ":")).encode(), data=many)
    yield action("400,000 elements", b"[" + b",".join([b"1"] * 400_000) + b"]", data=[1] * 400_000)
    yield action("empty containers", b'{"a":{},"b":[],"c":[[],{}]}',
                 data={"a": {}, "b": [], "c": [[], {}]})
    for depth in (400, DEEPEST - 20):
        nested: object = 1
        for _ in range(depth):
            nested = [nested]
        yield action(f"{depth} levels", b"[" * depth + b"1" + b"]" * depth, data=nested)
    for depth in (DEEPEST, DEEPEST + 1, 1000, 1024, 1025, 10_000, 500_000):
        yield action(f"{depth} levels of arrays", b"[" * depth + b"]" * depth, is_taken=None)
        if depth <= 100_000:
            yield action(f"{depth} levels of objects", b'{"a":' * depth + b"1" + b"}" * depth,
                         is_taken=None)
    yield action("10,000 levels that do not end", b"[" * 10_000, is_taken=False)
    yield Line("a line over 1 MiB", b'{"op":"x' + b"y" * LINE_LIMIT + b'"}', False)
    yield Line("a line of 16 MiB", b"[" * (16 << 20), False)
    for name, text in {"no object": b"[]", "nothing": b"", "blanks": b"  ", "half": b'{"op":',
                       "no operation": b"{}", "a number as operation": b'{"op":1}',
                       "UTF-16": '{"op":"start"}'.encode("utf-16"), "zero bytes": b"\0" * 100,
                       "a byte-order mark": b'\xef\xbb\xbf{"op":"nothing"}'}.items():
        yield Line(f"a line of {name}", text, False)


def all_lines() -> list[Line]:
    return [*numbers(), *texts(), *shapes()]


class RawHost(Host):
    """Takes lines of any bytes."""

    def say(self, line: bytes) -> dict:
        data = memoryview(line + b"\n")
        while data:
            data = data[self.process.stdin.write(data):]
        self._owed += 1
        return self.receive()


class Arrivals:
    """A host whose events a strict parser of another make reads."""

    def __init__(self, run: Run, **options):
        certificate = Authority(run.folder()).issue("service")
        self._kite = run.kite
        self.state = run.folder() / "state"
        self.server = Hostile(over_https(accepting), certificate)
        self.host = RawHost(run.kite, self.state, endpoint=self.server.url(),
                            ca=certificate.ca, start_in_background=True, sessions="manual",
                            **options)
        self.host.start()

    def __enter__(self) -> "Arrivals":
        return self

    def __exit__(self, *_: object) -> None:
        self.host.close()
        self.server.close()

    def settle(self, marker: str) -> None:
        """Waits until all that was tracked so far has arrived."""
        self.host.call("trackUserAction", name="proof", data={"serial": marker})
        self.host.call("triggerSessionStart")
        check(self.server.wait_for_event(marker, 30), f"no upload: {self.host.stderr[-5:]}")

    def values(self) -> list[object]:
        """Of the member "x", in the order of the events; each event once."""
        seen: dict[str, object] = {}
        for request in self.server.requests():
            check(not request.is_whole or request.json() is not None,
                  "a body is not JSON in UTF-8, packed by gzip")
            for event in request.events():
                info = (event.get("data") or {}).get("action_info")
                if isinstance(info, dict) and "x" in info:
                    seen[event["id"]] = info["x"]
        return list(seen.values())


def judge_reply(line: Line, reply: dict) -> None:
    if line.is_taken is not None:
        check(reply["ok"] is line.is_taken, f"it was answered {str(reply)[:200]}")


@case("data", "lines with hostile data", full=len(all_lines()), smoke=60)
def hostile_lines(run: Run) -> dict:
    lines = all_lines()
    lines = lines[:: max(1, len(lines) // run.count)][:run.count]
    arrived = 0
    with Arrivals(run) as subject:
        for number, line in enumerate(lines):
            run.tick()
            try:
                before = len(subject.values())
                reply = subject.host.say(line.text)
                judge_reply(line, reply)
                subject.settle(f"after {number}")
                new = subject.values()[before:]
                if line.is_taken:
                    check(len(new) == 1, f"{len(new)} events came instead of one")
                    check(same(new[0], line.data), f"what came is {str(new[0])[:200]}")
                arrived += len(new)
            except (Failed, HostDied, HostHung) as failure:
                raise Failed(f"{line.name}: {failure}") from None
    return {"lines": len(lines), "events with such data": arrived}


def random_value(random_: random.Random, depth: int) -> object:
    kind = random_.randrange(8 if depth else 6)
    if kind == 0:
        return struct.unpack("d", random_.randbytes(8))[0]
    if kind == 1:
        return struct.unpack("q", random_.randbytes(8))[0]
    if kind == 2:
        return "".join(chr(random_.choice([random_.randrange(0xd800), random_.randrange(128),
                                           random_.randrange(0xe000, 0x110000)]))
                       for _ in range(random_.randrange(20)))
    if kind < 6:
        return random_.choice([True, False, 0, -1, "", 1.5, "x"])
    size = random_.randrange(5)
    if kind == 6:
        return [random_value(random_, depth - 1) for _ in range(size)]
    return {random_value(random_, 0).__str__(): random_value(random_, depth - 1)
            for _ in range(size)}


def is_finite(value: object) -> bool:
    if isinstance(value, float):
        return math.isfinite(value)
    if isinstance(value, dict):
        value = list(value.values())
    return not isinstance(value, list) or all(map(is_finite, value))


@case("data", "random values, there and back", full=5000, smoke=500)
def random_values(run: Run) -> dict:
    random_ = run.random()
    sent = []
    with Arrivals(run) as subject:
        while len(sent) < run.count:
            for _ in range(250):
                value = random_value(random_, 4)
                if not is_finite(value):  # JSON has no word for it
                    continue
                sent.append(value)
                subject.host.post("trackUserAction", name="proof", data={"x": value})
            for reply in subject.host.drain():
                check(reply["ok"], f"refused: {reply}")
            subject.settle(f"after {len(sent)}")
            run.tick(250)
        found = subject.values()
    check(len(found) == len(sent), f"{len(found)} of {len(sent)} events came")
    for came, value in zip(found, sent):
        check(same(came, value), f"{value!r} came as {came!r}")
    return {"values": len(sent)}


@case("data", "10,000 levels on a stack of 512 kB", full=1, smoke=1)
def small_stack(run: Run) -> dict:
    depths = (512, 513, 1000, 1024, 10_000, 100_000)
    with Arrivals(run, prefix=["prlimit", f"--stack={512 * 1024}"]) as subject:
        for depth in depths:
            for text in (b"[" * depth + b"]" * depth, b'{"a":' * depth + b"1" + b"}" * depth):
                subject.host.say(action("", text).text)
                subject.settle(f"{depth} {text[:1]!r}")
        check(subject.host.call("userInfo") is not None, "it does not answer")
        check(eventually(lambda: not stores.queue(run.kite, subject.state), 10), "not all is sent")
    return {"values": 2 * len(depths)}
