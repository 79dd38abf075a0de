#!/usr/bin/env python3
"""Runs an adapter's test program and its example on a screen in memory: a collector must see exactly the sessions that took
place.

    test_windows.py KITE PROGRAM EXAMPLE
"""

import pathlib
import sys
import tempfile
import unittest

from harness import Collector, Program, Screen, eventually

KITE, PROGRAM, EXAMPLE = sys.argv[1:4]


class OnAScreen(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.screen = Screen()
        self.addCleanup(self.screen.close)
        self.collector = Collector(KITE, self.folder)
        self.addCleanup(self.collector.close)

    def program(self, executable):
        program = Program(executable, self.screen, self.collector, self.folder)
        self.addCleanup(program.kill)
        return program


class Windows(OnAScreen):
    def launch(self, *lines):
        program = self.program(PROGRAM)
        self.assertEqual(program.answer(), "done")
        for line in lines:
            self.assertEqual(program.say(line), "done")
        return program

    def quit(self, program):
        self.assertEqual(program.quit(), 0)
        self.assertEqual(program.answer(), "delivered")

    def run_with(self, *lines):
        self.quit(self.launch(*lines))

    def test_a_launch_without_a_window_is_no_session(self):
        self.run_with()
        self.assertEqual(len(self.collector.events("Install")), 1)
        self.assertEqual(self.collector.sessions(), [])

    def test_a_window_that_is_open_at_the_end_is_a_session_that_ended(self):
        self.run_with("show")
        self.assertEqual(self.collector.sessions(), ["ended"])

    def test_a_window_that_was_closed_is_a_session_that_ended(self):
        self.run_with("show", "close")
        self.assertEqual(self.collector.sessions(), ["ended"])

    def test_dialogs_splash_screens_and_windows_that_belong_to_another_are_no_session(self):
        self.run_with("splash", "dialog", "others")
        self.assertEqual(self.collector.sessions(), [])

    def test_a_dialog_that_stays_does_not_keep_the_session_open(self):
        self.run_with("show", "dialog", "hide", "show")
        self.assertEqual(self.collector.sessions(), ["ended", "ended"])

    def test_hidden_windows_end_the_session_and_shown_ones_begin_another(self):
        self.run_with("show", "hide", "show", "hide", "show")
        self.assertEqual(self.collector.sessions(), ["ended"] * 3)

    def test_from_one_window_to_the_next_is_one_session(self):
        self.run_with("show", "swap", "swap later")
        self.assertEqual(self.collector.sessions(), ["ended"])

    def test_a_window_that_is_hidden_at_once_is_no_session(self):
        self.run_with("glimpse")
        self.assertEqual(self.collector.sessions(), [])

    def test_a_minimised_window_is_not_shown(self):
        program = self.launch()
        for line, is_visible in (("show", True), ("minimise", False), ("restore", True)):
            count = program.say("count")
            program.say(line)
            # The window manager is slower than the program, which knows only later what has become of its window.
            eventually(lambda: bool(self.screen.visible("first")) == is_visible, f"a window manager that has done {line}")
            eventually(lambda: program.say("count") != count, f"an end or a beginning after {line}")
        self.quit(program)
        self.assertEqual(self.collector.sessions(), ["ended", "ended"])

    def test_the_end_of_a_killed_session_comes_with_the_next_launch(self):
        program = self.launch("show")
        eventually(self.collector.sessions, "the start of a session")
        program.kill()
        self.run_with()
        self.assertEqual(self.collector.sessions(), ["crashed"])

    def test_twenty_launches_have_no_session_too_many_and_none_too_few(self):
        sessions = 0
        for lines in [(), ("dialog",), ("splash",), ("show",)] * 5:
            self.run_with(*lines)
            sessions += "show" in lines
            self.assertEqual(self.collector.sessions(), ["ended"] * sessions)

    def test_a_thread_that_tracks_all_the_time_does_not_stop_the_application_from_quitting(self):
        program = self.launch("show", "busy")
        eventually(lambda: int(program.say("count")) > 100, "events of a thread")
        self.quit(program)
        self.assertEqual(self.collector.sessions(), ["ended"])
        self.assertGreater(len(self.collector.events("Busy")), 50)


class Example(OnAScreen):
    def launch(self):
        program = self.program(EXAMPLE)
        self.window = eventually(lambda: self.active() == "Notes" and self.screen.visible("Notes"), "a window")
        return program

    def active(self):
        return self.screen.xdotool("getactivewindow", "getwindowname")

    def has_sessions(self, *expected):
        eventually(lambda: self.collector.sessions() == list(expected), f"the sessions {expected}")

    def test_it_is_launched_hidden_shown_and_quit(self):
        program = self.launch()
        self.has_sessions("open")
        self.screen.xdotool("windowminimize", self.window)
        self.has_sessions("ended")  # or the application might see both at once
        self.screen.xdotool("windowactivate", self.window)
        self.has_sessions("ended", "open")
        self.screen.xdotool("key", "alt+F4")
        self.assertEqual(program.wait(), 0)
        self.launch()  # delivers what the first left
        self.has_sessions("ended", "ended", "open")

    def test_it_is_killed(self):
        program = self.launch()
        self.has_sessions("open")
        program.kill()
        # The next window has the same number, and the window manager must not take it for this one.
        eventually(lambda: self.active() != "Notes", "a window manager that knows of the end")
        self.launch()
        self.has_sessions("crashed", "open")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[4:], verbosity=2)
