"""A client of the collection service that signs its requests by itself."""

from __future__ import annotations

import copy
import gzip
import hashlib
import hmac
import http.client
import json
import ssl
import time
import urllib.parse
import uuid

from .case import KEY, Run, check
from .certificates import Authority
from .host import Host
from .hostile import Hostile, accepting, over_https


def upper_uuid() -> str:
    return str(uuid.uuid4()).upper()


def sample(run: Run) -> tuple[dict, dict[str, str]]:
    """An event as a host sends it, and the headers that go with it."""
    certificate = Authority(run.folder()).issue("service")
    with Hostile(over_https(accepting), certificate) as server, \
            Host(run.kite, run.folder() / "state", endpoint=server.url(), ca=certificate.ca,
                 start_in_background=True) as host:
        host.start()
        host.call("trackUserAction", name="proof", data={"serial": 0})
        check(server.wait_for_event(0), f"no upload: {host.stderr}")
        for request in server.requests():
            for event in request.events():
                if event["type"] == "UserAction":
                    return event, dict(request.headers)
    raise AssertionError("unreachable")


class Client:
    """Its batches hold copies of one event, each with an identifier of its own."""

    def __init__(self, url: str, ca, event: dict, headers: dict[str, str], seconds: float = 30):
        self._url = urllib.parse.urlsplit(url)
        self._context = ssl.create_default_context(cafile=str(ca))
        self._event, self._headers, self._seconds = event, headers, seconds
        self._connection: http.client.HTTPSConnection | None = None

    def batch(self, size: int, padding: str = "") -> tuple[list[str], bytes]:
        """Identifiers, and a body."""
        moment = time.time()
        events = []
        for _ in range(size):
            event = copy.deepcopy(self._event)
            event |= {"id": upper_uuid(), "request_timestamp": moment, "timestamp": moment - 1.5}
            event["data"]["action_info"]["padding"] = padding
            events.append(event)
        return [event["id"] for event in events], gzip.compress(
            json.dumps({"events": events}).encode(), 1)

    def headers(self, body: bytes, ahead: float = 0, **changed: str) -> dict[str, str]:
        """Of a new request, so many seconds from now."""
        stamp, request = str(int((time.time() + ahead) * 1000)), upper_uuid()
        text = f"http://{self._url.netloc}{self._url.path}:{body.hex()}:{stamp}:{request}"
        signature = hmac.new(KEY.encode(), text.encode(), hashlib.sha512).hexdigest()
        kept = {name: self._headers[name] for name in
                ("Content-Type", "Content-Encoding", "Lumo-Id", "Kite-Client-ID", "Kite-Tester",
                 "Kite-Version", "Wicket-Protocol")}
        return kept | {"Host": self._url.netloc, "Wicket-Timestamp": stamp,
                       "Wicket-Request-Id": request, "Wicket-Signature": signature} | changed

    def post(self, body: bytes, headers: dict[str, str] | None = None) -> tuple[int, bytes]:
        """Status and reply; OSError or HTTPException when there is none."""
        try:
            if not self._connection:
                self._connection = http.client.HTTPSConnection(
                    self._url.hostname, self._url.port, timeout=self._seconds,
                    context=self._context)
            self._connection.request("POST", self._url.path, body,
                                     headers or self.headers(body))
            reply = self._connection.getresponse()
            return reply.status, reply.read()
        except (OSError, http.client.HTTPException):
            self.close()
            raise

    def socket(self) -> ssl.SSLSocket:
        """A connection of its own, after the handshake, for requests of any form."""
        import socket
        plain = socket.create_connection((self._url.hostname, self._url.port), self._seconds)
        return self._context.wrap_socket(plain, server_hostname=self._url.hostname)

    def close(self) -> None:
        if self._connection:
            self._connection.close()
        self._connection = None
