"""Three collectors over the one database."""

import socket
import ssl
import urllib.parse

from . import processes
from .layout import COLLECTOR, Layout


def start(layout: Layout, number: int, ahead: int = 0):
    """With a clock that is so many hours ahead."""
    prefix = ["faketime", "-f", f"+{ahead}h"] if ahead else []
    processes.start(layout, f"collector{number}", [
        *prefix, layout.kite, "collect", "--listen", f"{layout.collector(number)}:8443", "--key", layout.key,
        "--cert", layout.tls / "server.pem", "--cert-key", layout.tls / "server.key",
        "--db", layout.database_address(COLLECTOR)])


def is_up(layout: Layout, number: int) -> bool:
    """Whether it greets who calls."""
    address = urllib.parse.urlsplit(layout.endpoint(number))
    context = ssl.create_default_context(cafile=str(layout.ca))
    try:
        with socket.create_connection((address.hostname, address.port), 1) as plain:
            with context.wrap_socket(plain, server_hostname=address.hostname):
                return True
    except OSError:
        return False
