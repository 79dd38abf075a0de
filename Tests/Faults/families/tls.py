"""TLS: to a server that cannot prove who it is, not one request goes out, and the batch is kept."""

import ssl
from collections.abc import Callable
from dataclasses import dataclass
from functools import partial

from harness import Host, Run, case, check, eventually, stores
from harness.case import survey
from harness.certificates import Authority, Certificate, self_signed
from harness.hostile import Connection, Hostile, Script, accepting, old_context, over_https


@dataclass(frozen=True)
class Impostor:
    """A server that must not be trusted."""
    name: str
    certificate: Callable[["Papers"], Certificate | None]
    context: Callable[[Certificate], ssl.SSLContext] | None = None
    script: Script = over_https(accepting)
    host: str = "127.0.0.1"


class Papers:
    """Authorities and what they issued; made once, handed out by name."""

    def __init__(self, run: Run):
        self.authority = Authority(run.folder(), "The right authority")
        self.namesake = Authority(run.folder(), "The right authority")  # of the same name
        self._folder = run.folder
        self._made: dict[str, Certificate] = {}

    def issued(self, name: str, **options) -> Certificate:
        if name not in self._made:
            self._made[name] = self.authority.issue(name, **options)
        return self._made[name]

    def good(self) -> Certificate:
        return self.issued("good")

    def foreign(self) -> Certificate:
        return self.namesake.issue("foreign")

    def own(self) -> Certificate:
        return self_signed(self._folder(), self.authority.certificate)

    def below_leaf(self) -> Certificate:
        return self.authority.issue_below(self.good(), "below")


def weak_key(certificate: Certificate) -> ssl.SSLContext:
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.set_ciphers("ALL:@SECLEVEL=0")
    context.load_cert_chain(certificate.chain, certificate.key)
    return context


def anonymous(certificate: Certificate) -> ssl.SSLContext:
    """Ciphers that need no certificate at all."""
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.maximum_version = ssl.TLSVersion.TLSv1_2
    context.set_ciphers("aNULL:@SECLEVEL=0")
    return context


def without_encryption(certificate: Certificate) -> ssl.SSLContext:
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.maximum_version = ssl.TLSVersion.TLSv1_2
    context.set_ciphers("eNULL:@SECLEVEL=0")
    context.load_cert_chain(certificate.chain, certificate.key)
    return context


def old(version: str) -> Callable[[Certificate], ssl.SSLContext]:
    return lambda certificate: old_context(certificate, ssl.TLSVersion[version])


def answering_in_the_clear(connection: Connection) -> None:
    connection.read_raw(4096)
    connection.send_raw(b"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n")


def asking_to_go_plain(connection: Connection) -> None:
    connection.read_raw(4096)
    connection.send_raw(b"HTTP/1.1 426 Upgrade Required\r\nUpgrade: TLS/1.0\r\n"
                        b"Location: http://127.0.0.1/\r\nContent-Length: 0\r\n\r\n")


def impostors() -> list[Impostor]:
    def issued(name: str, **options) -> Callable[[Papers], Certificate]:
        return lambda papers: papers.issued(name, **options)

    good = Papers.good
    return [
        Impostor("self-signed", Papers.own),
        Impostor("an unknown authority of the right name", Papers.foreign),
        Impostor("signed by a certificate that is no authority's", Papers.below_leaf),
        Impostor("another host", issued("other-host", hosts="DNS:example.com,IP:127.0.0.2")),
        Impostor("a name where the URL has an address", issued("names", hosts="DNS:localhost")),
        Impostor("an address where the URL has a name", issued("addresses", hosts="IP:127.0.0.1"),
                 host="localhost"),
        Impostor("the address as a name", issued("as-name", hosts="DNS:127.0.0.1")),
        Impostor("a wildcard for everything", issued("wild", hosts="DNS:*"), host="localhost"),
        Impostor("the name within another", issued("within", hosts="DNS:localhost.example.com"),
                 host="localhost"),
        Impostor("expired", issued("expired", begins=-30, ends=-1)),
        Impostor("expired a moment ago", issued("just", begins=-30, ends=-0.0001)),
        Impostor("not yet valid", issued("future", begins=1)),
        Impostor("for clients", issued("client", purpose="client")),
        Impostor("an RSA key of 1024 bits", issued("weak", key="rsa:1024"), weak_key),
        Impostor("signed over SHA-1", issued("sha1", digest="sha1"), weak_key),
        Impostor("no certificate", good, anonymous),
        Impostor("no encryption", good, without_encryption),
        Impostor("TLS 1.1", good, old("TLSv1_1")),
        Impostor("TLS 1.0", good, old("TLSv1")),
        Impostor("plain HTTP", lambda papers: None, script=answering_in_the_clear),
        Impostor("plain HTTP that asks for plain HTTP", lambda papers: None,
                 script=asking_to_go_plain),
    ]


def refuse(run: Run, papers: Papers, impostor: Impostor) -> None:
    certificate = impostor.certificate(papers)
    context = impostor.context(certificate) if impostor.context else None
    state = run.folder() / "state"
    with Hostile(impostor.script, certificate, context) as server:
        url = server.url(host=impostor.host).replace("http:", "https:")
        with Host(run.kite, state, endpoint=url, ca=papers.authority.certificate,
                  start_in_background=True) as host:
            host.start()
            host.call("trackUserAction", name="kept", data={"serial": 1})
            check(eventually(lambda: any("ERROR" in line for line in host.stderr), 20),
                  f"no attempt has failed: {host.stderr}")
            check(eventually(lambda: actions(run, state) == 1, 5), "the batch was not kept")
            host.kill()
        check(server.visits, "nobody came to the port")
        for visit in server.visits:
            check(not visit.requests and visit.bytes_read == 0,
                  f"{visit.bytes_read} bytes of a request went out")
    deliver_afterwards(run, papers, state)


def actions(run: Run, state) -> int:
    return sum(event["type"] == "UserAction" for event in stores.queue(run.kite, state))


def deliver_afterwards(run: Run, papers: Papers, state) -> None:
    """What was kept goes to a server that is the right one: the authority is trusted."""
    with Hostile(over_https(accepting), papers.good()) as server, \
            Host(run.kite, state, endpoint=server.url(), ca=papers.authority.certificate,
                 start_in_background=True) as host:
        host.start()
        check(server.wait_for_event(1), f"the batch does not arrive: {host.stderr[-5:]}")


@case("tls", "servers that are not who they should be", full=21, smoke=21)
def impostor_servers(run: Run) -> dict:
    papers = Papers(run)
    papers.good()

    return survey(run, {impostor.name: partial(refuse, run, papers, impostor)
                        for impostor in impostors()}) | {"requests that reached one": 0}
