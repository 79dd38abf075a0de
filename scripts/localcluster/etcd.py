"""Three members of etcd, which keep who is the primary."""

import json
import urllib.error
import urllib.request

from . import processes
from .layout import NUMBERS, Layout


def start(layout: Layout, number: int):
    address, name = layout.etcd(number), f"etcd{number}"
    members = ",".join(f"etcd{each}=http://{layout.etcd(each)}:2380" for each in NUMBERS)
    processes.start(layout, name, [
        "etcd", "--name", name, "--data-dir", layout.member(name) / "data",
        "--listen-client-urls", f"http://{address}:2379", "--advertise-client-urls", f"http://{address}:2379",
        "--listen-peer-urls", f"http://{address}:2380", "--initial-advertise-peer-urls", f"http://{address}:2380",
        "--initial-cluster", members, "--initial-cluster-state", "new", "--initial-cluster-token", "kite",
        "--heartbeat-interval", "150", "--election-timeout", "1500", "--logger", "zap", "--log-level", "warn",
        "--auto-compaction-retention", "1", "--enable-v2"])


def ask(layout: Layout, number: int, path: str, body: dict | None = None) -> dict | None:
    """Nothing where nobody answers."""
    data = None if body is None else json.dumps(body).encode()
    try:
        with urllib.request.urlopen(f"http://{layout.etcd(number)}:2379{path}", data, timeout=1) as reply:
            return json.load(reply)
    except (OSError, ValueError):
        return None


def state(layout: Layout, number: int) -> str:
    """"leader", "follower", or nothing."""
    found = ask(layout, number, "/v3/maintenance/status", {})
    if not found or found.get("leader", "0") == "0":
        return ""
    return "leader" if found["leader"] == found["header"]["member_id"] else "follower"


def leader(layout: Layout) -> int | None:
    return next((number for number in NUMBERS if state(layout, number) == "leader"), None)
