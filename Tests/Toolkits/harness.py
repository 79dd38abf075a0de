"""What the tests of windows stand on: a screen in memory with a window manager, a collector, and programs on the screen."""

import json
import os
import pathlib
import sqlite3
import subprocess
import tempfile
import time

DEADLINE = 30


def eventually(condition, what):
    """The first value of `condition` that is true."""
    until = time.monotonic() + DEADLINE
    while time.monotonic() < until:
        if value := condition():
            return value
        time.sleep(0.02)
    raise AssertionError(f"in {DEADLINE} seconds: {what}")


class Screen:
    def __init__(self):
        readable, writable = os.pipe()
        self._server = subprocess.Popen(["Xvfb", "-displayfd", str(writable), "-screen", "0", "800x600x24", "-nolisten", "tcp"],
                                        pass_fds=[writable], stderr=subprocess.DEVNULL)
        os.close(writable)
        with os.fdopen(readable) as number:
            display = ":" + number.readline().strip()
        # No desktop beside it: neither its bus nor its graphics card.
        self.environment = {**os.environ, "DISPLAY": display, "DBUS_SESSION_BUS_ADDRESS": "disabled:", "NO_AT_BRIDGE": "1",
                            "GTK_A11Y": "none", "GDK_BACKEND": "x11", "GSK_RENDERER": "cairo", "QT_QPA_PLATFORM": "xcb"}
        with tempfile.TemporaryDirectory() as folder:
            ready = pathlib.Path(folder, "ready")
            self._manager = subprocess.Popen(["openbox", "--startup", f"touch {ready}"], env=self.environment,
                                             stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            eventually(ready.exists, "a window manager")

    def xdotool(self, *words):
        """What it prints, or nothing when it fails."""
        return subprocess.run(["xdotool", *words], env=self.environment, capture_output=True, text=True).stdout.strip()

    def visible(self, name):
        """The number of a window."""
        return self.xdotool("search", "--onlyvisible", "--name", f"^{name}$")

    def close(self):
        for process in (self._manager, self._server):
            process.terminate()
            process.wait()


class Collector:
    def __init__(self, kite, folder):
        self._database = folder / "events.db"
        self._process = subprocess.Popen(
            [kite, "collect", "--key", "secret", "--db", self._database, "--self-signed", folder / "tls"],
            stdout=subprocess.PIPE, text=True)
        self.url = json.loads(self._process.stdout.readline())["url"]
        self.authority = folder / "tls" / "ca.pem"

    def events(self, kind):
        """The identifier and the data of each, in the order of their arrival."""
        with sqlite3.connect(f"file:{self._database}?mode=ro", uri=True) as database:
            rows = database.execute("SELECT id, data FROM events WHERE type = ? ORDER BY rowid", [kind])
            return [(identifier, json.loads(data)) for identifier, data in rows]

    def sessions(self):
        """Each as "ended", "crashed" or "open"; fails when an end belongs to no session that is open."""
        sessions = {}
        for identifier, data in self.events("Session"):
            if data["subtype"] == "session_start":
                sessions[identifier] = "open"
            else:
                assert sessions.get(data["session_start_id"]) == "open", f"an end without a start: {data}"
                sessions[data["session_start_id"]] = "crashed" if data["crashed"] else "ended"
        return list(sessions.values())

    def close(self):
        self._process.terminate()
        self._process.wait()
        self._process.stdout.close()


class Program:
    """A program on a screen that sends to a collector; its data are in the folder."""

    def __init__(self, executable, screen, collector, folder):
        environment = {**screen.environment, "KITE_ENDPOINT": collector.url, "KITE_KEY": "secret",
                       "KITE_CA_FILE": str(collector.authority),
                       "KITE_TEST_FOLDER": str(folder), "XDG_DATA_HOME": str(folder / "home"), "XDG_RUNTIME_DIR": str(folder)}
        self._process = subprocess.Popen([executable], env=environment, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)

    def answer(self):
        return self._process.stdout.readline().strip()

    def say(self, line):
        self._process.stdin.write(line + "\n")
        self._process.stdin.flush()
        return self.answer()

    def quit(self):
        """Closes its input, and says with which status it ends."""
        self._process.stdin.close()
        return self.wait()

    def wait(self):
        return self._process.wait(DEADLINE)

    def kill(self):
        self._process.kill()
        self._process.wait()
        self._process.stdin.close()
        self._process.stdout.close()
