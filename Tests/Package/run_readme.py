#!/usr/bin/env python3
"""Runs the commands of README.md as they stand there, in an empty folder, and looks for the event in the database.

  run_readme.py SOURCE_FOLDER [BUILD_FOLDER]

With a build folder, what that holds is run. Without one, a copy of the tree is made and built as the page says.
"""

import os
import pathlib
import re
import shutil
import signal
import socket
import sqlite3
import subprocess
import sys
import tempfile
import time

BLOCK = re.compile(r"<!-- commands -->\n```sh\n(.*?)```", re.DOTALL)
EXPECTATION = re.compile(r"<!-- expectation -->\n```sh\n(.*?)```", re.DOTALL)
PORTS = ("8443", "8444", "8445")
LONGEST_RUN = 1.0  # seconds, of a program that has the event on the disk and delivers it


def commands(readme, block=BLOCK):
    """The three, each as one text."""
    block = block.search(readme).group(1)
    found = re.split(r"\n(?=\S)", block.strip())
    assert len(found) == 3, f"the page has {len(found)} commands"
    return found


def prepare(source, folder, build):
    if build:
        (folder / "build").mkdir()
        (folder / "build" / "demo").symlink_to(build)
    else:
        def made_here(path, _):
            return {"build", ".git"} if pathlib.Path(path) == source else ()
        shutil.copytree(source, folder, dirs_exist_ok=True, ignore=made_here)


def is_free(port):
    with socket.socket() as probe:
        try:
            probe.bind(("127.0.0.1", int(port)))
            return True
        except OSError:
            return False


def with_free_ports(text):
    """The page's ports, unless somebody has one: then another."""
    for port in PORTS:
        if not is_free(port):
            with socket.socket() as probe:
                probe.bind(("127.0.0.1", 0))
                text = text.replace(port, str(probe.getsockname()[1]))
    return text


def run_expectation(readme, shell):
    """The commands of a CI: what is expected arrives, and something else does not."""
    collect, run, expect = commands(readme, EXPECTATION)
    collector = subprocess.Popen("exec " + collect.split("&")[0], stdout=subprocess.PIPE, text=True, **shell)
    try:
        assert "listening" in collector.stdout.readline(), "the collector does not listen"
        assert "inspector" in collector.stdout.readline(), "the inspector does not listen"
        subprocess.run(run, check=True, **shell)
        subprocess.run(expect, check=True, **shell)
        other = expect.replace("checkout", "check-out").replace("--within 10", "--within 0")
        missed = subprocess.run(other, capture_output=True, text=True, **shell)
        assert missed.returncode == 1 and "checkout" in missed.stdout, f"another event is not missed: {missed}"
    finally:
        collector.send_signal(signal.SIGTERM)
        collector.wait()


def compiled_before():
    """Where ccache keeps it, which is not in the home of who tries the page."""
    return os.environ.get("CCACHE_DIR") or str(pathlib.Path.home() / ".cache" / "ccache")


def main():
    source = pathlib.Path(sys.argv[1]).resolve()
    build = pathlib.Path(sys.argv[2]).resolve() if len(sys.argv) > 2 else None
    readme = with_free_ports((source / "README.md").read_text())
    build_it, collect, run = commands(readme)
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        prepare(source, folder, build)
        environment = {"PATH": "/usr/bin:/bin:/usr/sbin:/sbin", "HOME": str(folder / "home"), "CCACHE_DIR": compiled_before()}
        shell = {"cwd": folder, "env": environment, "executable": "/bin/bash", "shell": True}
        if not build:
            subprocess.run(build_it, check=True, **shell)
        collector = subprocess.Popen("exec " + collect.split("&")[0], stdout=subprocess.PIPE, text=True, **shell)
        try:
            assert "listening" in collector.stdout.readline(), "the collector does not listen"
            begin = time.monotonic()
            shown = subprocess.run(run, check=True, capture_output=True, text=True, **shell).stdout
            seconds = time.monotonic() - begin
            run_expectation(readme, shell)  # as for a reader, whose first collector still runs
        finally:
            collector.send_signal(signal.SIGTERM)
            collector.wait()
        rows = sqlite3.connect(folder / "events.db").execute(
            "SELECT data FROM events WHERE type = 'UserAction'").fetchall()
        assert len(rows) == 1 and '"action_kind":"checkout"' in rows[0][0], f"the database has {rows}"
        assert '"action_kind":"checkout"' in shown, f"the page's query shows {shown}"
        assert seconds < LONGEST_RUN, f"the program took {seconds:.2f} s"
        print(f"readme: its event arrived in {seconds:.2f} s")


if __name__ == "__main__":
    sys.exit(main())
