"""An HTTPS server whose every connection follows a script, however rude, and logs what it read."""

from __future__ import annotations

import gzip
import json
import socket
import ssl
import struct
import threading
import time
import zlib
from collections.abc import Callable, Iterator
from dataclasses import dataclass, field

from harness.certificates import Certificate

GOOD_REPLY = b'{"delta":0.25,"last_event_timestamp":1700000000.5}'


@dataclass
class Request:
    """A request as far as it was read."""
    method: str
    path: str
    headers: list[tuple[str, str]]
    head: bytes
    body: bytes = b""
    is_whole: bool = False  # every byte that was announced has been read
    _json: dict | None = None

    def header(self, name: str) -> str | None:
        return next((value for key, value in self.headers if key.lower() == name.lower()), None)

    def json(self) -> dict | None:
        """What the body says, when all of it is there."""
        if self._json is None and self.is_whole:
            try:
                self._json = strict_json(gzip.decompress(self.body))
            except (OSError, EOFError, zlib.error, ValueError):
                return None
        return self._json

    def events(self) -> list[dict]:
        body = self.json()
        return body["events"] if body else []

    def serials(self) -> set[object]:
        """Of the actions in it."""
        return {serial_of(event) for event in self.events()} - {None}


def strict_json(text: bytes) -> dict:
    """Without the numbers that Python adds to JSON."""

    def refuse(name: str) -> float:
        raise ValueError(f"{name} is not JSON")

    return json.loads(text, parse_constant=refuse)


def serial_of(event: dict) -> object:
    info = (event.get("data") or {}).get("action_info")
    return info.get("serial") if isinstance(info, dict) else None


@dataclass
class Visit:
    """One connection: what came of it."""
    began: float
    ended: float | None = None
    tls: str | None = None  # the protocol's version once the handshake is done
    bytes_read: int = 0  # after the handshake
    requests: list[Request] = field(default_factory=list)
    error: str | None = None

    @property
    def seconds(self) -> float:
        return (self.ended or time.monotonic()) - self.began


class Gone(Exception):
    """The client has left, or the server is being closed."""


class Connection:
    """What a script has in hand. Everything that fails because the client is gone raises Gone."""

    def __init__(self, plain: socket.socket, context: ssl.SSLContext | None, visit: Visit,
                 tell: Callable[[], None]):
        self._plain = plain
        self._tell = tell
        self._stream: socket.socket = plain
        self._context = context
        self._is_ending = threading.Event()
        self._ahead = b""
        self.visit = visit

    # -- before HTTP

    def handshake(self) -> None:
        if self._context is None:
            return
        self._plain.settimeout(90)
        try:
            self._stream = self._context.wrap_socket(self._plain, server_side=True)
        except (OSError, ValueError) as error:
            self.visit.error = f"handshake: {error}"
            raise Gone from error
        self.visit.tls = self._stream.version()

    def read_raw(self, size: int) -> bytes:
        """Bytes below TLS; only before the handshake."""
        return self._guarded(lambda: self._plain.recv(size))

    def send_raw(self, data: bytes) -> None:
        self._guarded(lambda: self._plain.sendall(data))

    def pour_raw(self, pieces: Iterator[bytes]) -> None:
        for piece in pieces:
            self.send_raw(piece)

    # -- reading

    def read(self, size: int = 65536) -> bytes:
        data = self._guarded(lambda: self._stream.recv(size))
        self.visit.bytes_read += len(data)
        return data

    def read_head(self) -> Request | None:
        """The request line and the headers; nothing when the client hangs up before."""
        while b"\r\n\r\n" not in self._ahead:
            piece = self.read()
            if not piece:
                return None
            self._ahead += piece
        head, _, self._ahead = self._ahead.partition(b"\r\n\r\n")
        lines = head.decode("latin-1").split("\r\n")
        method, path, _ = (lines[0].split(" ") + ["", ""])[:3]
        headers = [(name, value.strip()) for name, _, value in
                   (line.partition(":") for line in lines[1:])]
        request = Request(method, path, headers, head)
        self.visit.requests.append(request)
        return request

    def read_body(self, request: Request, at_most: int | None = None) -> None:
        announced = int(request.header("Content-Length") or 0)
        wanted = announced if at_most is None else min(announced, at_most)
        while len(request.body) < wanted:
            piece = self._ahead or self.read(min(1 << 20, wanted - len(request.body)))
            if not piece:
                return
            taken = piece[:wanted - len(request.body)]
            self._ahead = piece[len(taken):]
            request.body += taken
        request.is_whole = len(request.body) == announced
        self._tell()

    def read_request(self) -> Request | None:
        request = self.read_head()
        if request:
            self.read_body(request)
        return request

    # -- answering

    def send(self, data: bytes) -> None:
        self._guarded(lambda: self._stream.sendall(data))

    def reply(self, status: int | str = 200, body: bytes = b"",
              headers: tuple[tuple[str, str], ...] = (), length: int | None = None) -> None:
        self.send(head(status, (("Content-Length", str(len(body) if length is None else length)),
                                *headers)) + body)

    def pour(self, pieces: Iterator[bytes]) -> int:
        """Sends until the pieces or the client's patience end; how many bytes went out."""
        sent = 0
        try:
            for piece in pieces:
                self.send(piece)
                sent += len(piece)
        except Gone:
            pass
        return sent

    # -- waiting and leaving

    def pause(self, seconds: float) -> None:
        if self._is_ending.wait(seconds):
            raise Gone

    def wait_until_left(self) -> None:
        """Says nothing more until the client hangs up."""
        while self.read():
            pass

    def reset(self) -> None:
        """Leaves with a reset instead of an orderly end."""
        self._plain_of_stream().setsockopt(socket.SOL_SOCKET, socket.SO_LINGER,
                                           struct.pack("ii", 1, 0))
        self.close()

    def close_orderly(self) -> None:
        """Ends TLS with its closing message, then the connection."""
        try:
            if isinstance(self._stream, ssl.SSLSocket):
                self._stream.settimeout(1)
                self._stream.unwrap()
        except (OSError, ValueError):
            pass
        self.close()

    def close(self) -> None:
        for each in (self._stream, self._plain):
            try:
                each.close()
            except OSError:
                pass

    def abort(self) -> None:
        """From another thread: ends the script."""
        self._is_ending.set()
        try:
            self._plain_of_stream().shutdown(socket.SHUT_RDWR)
        except OSError:
            pass

    def _plain_of_stream(self) -> socket.socket:
        return self._stream if self._stream.fileno() >= 0 else self._plain

    def _guarded(self, work: Callable):
        try:
            return work()
        except (OSError, ValueError) as error:
            raise Gone(str(error)) from error


Script = Callable[[Connection], None]


def head(status: int | str, headers: tuple[tuple[str, str], ...] = ()) -> bytes:
    lines = [f"HTTP/1.1 {status} Whatever"] if isinstance(status, int) else [status]
    lines += [f"{name}: {value}" for name, value in headers]
    return "\r\n".join(lines).encode("latin-1") + b"\r\n\r\n"


class Hostile:
    """Listens on a port of this machine; every connection gets a thread that runs the script."""

    def __init__(self, script: Script, certificate: Certificate | None,
                 context: ssl.SSLContext | None = None):
        """Without a certificate the port speaks no TLS."""
        self.script = script  # of the connections to come
        self._context = context or (server_context(certificate) if certificate else None)
        self._scheme = "https" if certificate else "http"
        self._listener = socket.create_server(("127.0.0.1", 0), backlog=512)
        self.port: int = self._listener.getsockname()[1]
        self.visits: list[Visit] = []
        self._open: set[Connection] = set()
        self._is_closing = threading.Event()
        self._changed = threading.Condition()
        threading.Thread(target=self._accept, daemon=True).start()

    def become(self, script: Script) -> None:
        """Ends the connections there are; those to come follow another script."""
        self.script = script
        with self._changed:
            connections = list(self._open)
        for connection in connections:
            connection.abort()

    def url(self, path: str = "/v4/events", host: str = "127.0.0.1") -> str:
        return f"{self._scheme}://{host}:{self.port}{path}"

    def __enter__(self) -> Hostile:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def close(self) -> None:
        self._is_closing.set()
        try:
            self._listener.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass
        self._listener.close()
        self.become(self.script)

    # -- the log

    def requests(self) -> list[Request]:
        with self._changed:
            return [request for visit in self.visits for request in visit.requests]

    def bodies(self) -> list[dict]:
        """Those that were read to their end."""
        return [body for request in self.requests() if (body := request.json())]

    def read_serials(self) -> set[object]:
        return {serial for request in self.requests() for serial in request.serials()}

    def wait_for(self, condition: Callable[[], bool], seconds: float) -> bool:
        """Whether the condition, which is asked whenever something happens, holds in time."""
        deadline = time.monotonic() + seconds
        with self._changed:
            while not condition():
                left = deadline - time.monotonic()
                if left <= 0:
                    return False
                self._changed.wait(min(left, 0.05))
        return True

    def wait_for_event(self, serial: object, seconds: float = 20) -> bool:
        """Whether an action with this serial number comes in a body that is read to its end."""
        return self.wait_for(lambda: serial in self.read_serials(), seconds)

    # -- the connections

    def _tell(self) -> None:
        with self._changed:
            self._changed.notify_all()

    def _accept(self) -> None:
        while not self._is_closing.is_set():
            try:
                plain, _ = self._listener.accept()
            except OSError:
                return
            plain.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            threading.Thread(target=self._serve, args=(plain,), daemon=True).start()

    def _serve(self, plain: socket.socket) -> None:
        visit = Visit(time.monotonic())
        connection = Connection(plain, self._context, visit, self._tell)
        with self._changed:
            self.visits.append(visit)
            self._open.add(connection)
            self._changed.notify_all()
        try:
            self.script(connection)
        except Gone as gone:
            visit.error = visit.error or str(gone)
        finally:
            connection.close()
            with self._changed:
                visit.ended = time.monotonic()
                self._open.discard(connection)
                self._changed.notify_all()


def server_context(certificate: Certificate) -> ssl.SSLContext:
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.minimum_version = ssl.TLSVersion.TLSv1_2
    context.load_cert_chain(certificate.chain, certificate.key)
    return context


def old_context(certificate: Certificate, version: ssl.TLSVersion) -> ssl.SSLContext:
    """One that speaks nothing but an old version of the protocol."""
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.set_ciphers("ALL:@SECLEVEL=0")
    context.load_cert_chain(certificate.chain, certificate.key)
    context.minimum_version = version
    context.maximum_version = version
    return context


def over_https(answer: Callable[[Connection, Request], None]) -> Script:
    """A script that reads whole requests, one after the other, and has each of them answered."""

    def script(connection: Connection) -> None:
        connection.handshake()
        while request := connection.read_request():
            answer(connection, request)

    return script


def accepting(connection: Connection, request: Request) -> None:
    """What a well-meaning service answers."""
    connection.reply(200, GOOD_REPLY)
