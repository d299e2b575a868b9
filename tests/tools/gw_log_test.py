#!/usr/bin/env python3
"""Runs gw-log against the machine's marker files, which are put back.

  gw_log_test.py COMMAND...   the program, run by an emulator if it needs one

SPDX-License-Identifier: MIT
"""

import fcntl
import os
import signal
import subprocess
import sys
import unittest

PROGRAM = []
PATIENCE = 120  # seconds for a run of the program
NAMES = ["debug", "message", "information", "warning", "error"]
MARKERS = [f"/tmp/vk_{name}" for name in NAMES]


def run(*arguments, stdout=subprocess.PIPE):
    """Exit status, standard output, standard error."""
    done = subprocess.run(PROGRAM + list(arguments), stdin=subprocess.DEVNULL, stdout=stdout,
                          stderr=subprocess.PIPE, timeout=PATIENCE, text=True)
    return done.returncode, done.stdout, done.stderr


class Markers(unittest.TestCase):
    """The marker files are the machine's: the tests take turns, and put back what was there."""

    def setUp(self):
        lock = os.open("/tmp/groundwork-marker-test.lock", os.O_RDWR | os.O_CREAT, 0o666)
        self.addCleanup(os.close, lock)
        fcntl.flock(lock, fcntl.LOCK_EX)
        for marker in MARKERS:
            if os.path.lexists(marker):
                os.rename(marker, marker + ".saved")
                self.addCleanup(os.rename, marker + ".saved", marker)
        self.addCleanup(self.clear)

    def clear(self):
        for marker in MARKERS:
            if os.path.isdir(marker) and not os.path.islink(marker):
                os.rmdir(marker)
            elif os.path.lexists(marker):
                os.unlink(marker)

    def create(self, *names):
        for name in names:
            with open(f"/tmp/vk_{name}", "w", encoding="ascii"):
                pass

    def present(self):
        return [name for name, marker in zip(NAMES, MARKERS) if os.path.lexists(marker)]

    def shown(self):
        """The level, and the state of each marker."""
        status, out, error = run()
        self.assertEqual((status, error), (0, ""))
        level, *lines = out.splitlines()
        states = []
        for number, (name, marker, line) in enumerate(zip(NAMES, MARKERS, lines)):
            fields = line.split(maxsplit=3)
            self.assertEqual(fields[:3], [str(number), name, marker])
            states.append(fields[3])
        self.assertEqual(len(lines), len(NAMES))
        return level, states

    def test_without_markers_the_level_is_silent(self):
        self.assertEqual(self.shown(), ("silent", ["absent"] * 5))

    def test_the_most_verbose_marker_is_the_level(self):
        for i in range(4, -1, -1):
            self.create(NAMES[i])
            self.assertEqual(self.shown(),
                             (NAMES[i], ["absent"] * i + ["present"] * (5 - i)))

    def test_a_directory_and_a_link_to_nothing_do_not_count(self):
        os.mkdir(MARKERS[0])
        os.symlink("/nowhere", MARKERS[1])
        self.create("error")
        other = "not a regular file, ignored"
        self.assertEqual(self.shown(), ("error", [other, other, "absent", "absent", "present"]))

    def test_each_level_is_chosen_by_name_and_by_number(self):
        self.create("message", "error")
        for number, name in enumerate(NAMES):
            for argument in (name, str(number)):
                self.assertEqual(run(argument), (0, "", ""))
                self.assertEqual(self.present(), [name])
        for argument in ("silent", "99"):
            self.create("debug", "error")
            self.assertEqual(run(argument), (0, "", ""))
            self.assertEqual(self.present(), [])

    def test_a_marker_that_exists_is_kept(self):
        with open(MARKERS[2], "w", encoding="ascii") as marker:
            marker.write("mine")
        self.assertEqual(run("information"), (0, "", ""))
        with open(MARKERS[2], encoding="ascii") as marker:
            self.assertEqual(marker.read(), "mine")

    def test_what_is_not_a_regular_file_is_left_alone(self):
        os.mkdir(MARKERS[0])
        self.create("error")
        self.assertEqual(run("debug"), (1, "", "gw-log: /tmp/vk_debug: not a regular file\n"))
        self.assertEqual(self.present(), ["debug", "error"], "nothing is removed after a failure")
        self.assertEqual(run("warning"), (0, "", ""))
        self.assertEqual(self.present(), ["debug", "warning"])

    def test_a_link_to_nothing_is_not_followed(self):
        target = f"/tmp/groundwork-link-target.{os.getpid()}"
        os.symlink(target, MARKERS[3])
        self.assertEqual(run("warning"), (1, "", "gw-log: /tmp/vk_warning: not a regular file\n"))
        self.assertFalse(os.path.lexists(target))

    def test_a_full_disk_is_told(self):
        with open("/dev/full", "w", encoding="ascii") as full:
            for arguments in ([], ["--help"], ["--version"]):
                self.assertEqual(run(*arguments, stdout=full), (
                    1, None, "gw-log: standard output: No space left on device\n"))

    def test_a_wrong_command_line_changes_nothing(self):
        self.create("warning")
        for arguments in (["5"], ["loud"], [""], ["debug", "error"], ["00"], ["--nonsense"]):
            status, out, error = run(*arguments)
            self.assertEqual((status, out), (2, ""), arguments)
            self.assertRegex(error, r"\A[^\n]+\n\Z")
            self.assertEqual(self.present(), ["warning"])


class Help(unittest.TestCase):
    def test_help_and_version(self):
        status, out, error = run("--help")
        self.assertEqual((status, error), (0, ""))
        for word in NAMES + ["silent", "--help", "--version", "Exit status"]:
            self.assertIn(word, out)
        status, out, error = run("--version")
        self.assertEqual((status, error), (0, ""))
        self.assertRegex(out, r"\Agw-log \(groundwork\) \d+\.\d+\.\d+\n\Z")

    def test_a_closed_pipe_ends_it_silently(self):
        for disposition, statuses in ((signal.SIG_IGN, (1,)),
                                      (signal.SIG_DFL, (-signal.SIGPIPE,
                                                        128 + signal.SIGPIPE))):
            read_end, write_end = os.pipe()
            os.close(read_end)
            with os.fdopen(write_end, "wb") as out:
                done = subprocess.run(
                    PROGRAM + ["--help"], stdout=out, stderr=subprocess.PIPE,
                    timeout=PATIENCE, restore_signals=False,
                    preexec_fn=lambda: signal.signal(signal.SIGPIPE, disposition))
            self.assertEqual(done.stderr, b"")
            self.assertIn(done.returncode, statuses)


if __name__ == "__main__":
    PROGRAM = sys.argv[1:]
    if not PROGRAM:
        sys.exit("usage: gw_log_test.py COMMAND...")
    os.environ["LC_ALL"] = "C"
    unittest.main(argv=sys.argv[:1])
