"""A network of its own for each database, which can be cut off. Needs root."""

import subprocess

from .case import NotRun, need, need_root


def ip(*arguments: str, must: bool = True):
    done = subprocess.run(["ip", *arguments], capture_output=True, text=True)
    if must and done.returncode != 0:
        raise NotRun(f"ip {' '.join(arguments)}: {done.stderr.strip()}")


class Networks:
    """A bridge that has the addresses of all others, and a namespace behind it for each database."""

    def __init__(self, layout, numbers):
        need_root()
        need("ip")
        self._bridge = layout.namespace(0)
        self._spaces = [layout.namespace(number) for number in numbers]
        self.close()
        try:
            ip("link", "add", self._bridge, "type", "bridge")
            for number in numbers:
                for address in (layout.etcd(number), layout.collector(number)):
                    ip("addr", "add", f"{address}/16", "dev", self._bridge)
            ip("link", "set", self._bridge, "up")
            for number in numbers:
                self._join(layout.namespace(number), layout.database(number))
        except BaseException:
            self.close()
            raise

    def _join(self, space: str, address: str):
        ip("netns", "add", space)
        ip("link", "add", space, "type", "veth", "peer", "name", "eth0", "netns", space)
        ip("link", "set", space, "master", self._bridge, "up")
        ip("-n", space, "addr", "add", f"{address}/16", "dev", "eth0")
        for device in ("eth0", "lo"):
            ip("-n", space, "link", "set", device, "up")

    def cut_off(self, space: str):
        ip("link", "set", space, "down")

    def let_in(self, space: str):
        ip("link", "set", space, "up")

    def close(self):
        for space in self._spaces:
            ip("link", "del", space, must=False)
            ip("netns", "del", space, must=False)
        ip("link", "del", self._bridge, must=False)
