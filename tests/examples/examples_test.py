#!/usr/bin/env python3
"""Runs the example of a subsystem and looks at all that it prints.

  examples_test.py NAME COMMAND...   the example, and its program, behind an emulator if it
                                     needs one

SPDX-License-Identifier: MIT
"""

import os
import re
import subprocess
import sys
import tempfile
import unittest

PROGRAM = []
PATIENCE = 120  # seconds for a run


class Case(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def run_program(self, *arguments, stdin="", status=0):
        """Standard output and standard error."""
        done = subprocess.run(PROGRAM + list(arguments), input=stdin, cwd=self.folder,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              timeout=PATIENCE, text=True)
        self.assertEqual(done.returncode, status, done.stderr)
        return done.stdout, done.stderr

    def lines(self, *arguments, **options):
        out, error = self.run_program(*arguments, **options)
        self.assertEqual(error, "")
        return out.splitlines()


class Logging(Case):
    WARNING = r"waterworks: logging:\d+: \[WARNING\] 400 litres are too many, the tank holds 100\n"
    CHECK = r"waterworks: g_str:\d+: \[CRITICAL\] 'str != NULL' FAILED\.\n"

    def test_level_0_shows_everything(self):
        out, error = self.run_program("0")
        self.assertRegex(error, re.compile(
            r"\Awaterworks: good morning\n"
            r"waterworks: logging:\d+: pump\(40\)\n"
            r"waterworks: logging:\d+: pumped 40 litres\n"
            r"waterworks: logging:\d+: pump\(400\)\n" + self.WARNING + self.CHECK +
            r"waterworks: logging:\d+: a copy of nothing is nothing\n\Z"))
        self.assertRegex(out, re.compile(
            r"\Ajournal: waterworks: logging:\d+: pump\(400\)\njournal: " + self.WARNING +
            r"journal: 2 lines so far\n\Z"))

    def test_level_3_shows_warnings_and_errors(self):
        out, error = self.run_program("3")
        self.assertRegex(error, r"\A" + self.WARNING + self.CHECK + r"\Z")
        self.assertRegex(out, r"\Ajournal: " + self.WARNING + r"journal: 1 lines so far\n\Z")

    def test_level_99_shows_what_is_printed_regardless(self):
        self.assertEqual(self.lines("99"), ["journal: 0 lines so far"])

    def test_without_a_level_the_markers_choose(self):
        _, error = self.run_program()
        self.assertRegex(error, r"\A\[g_debug_init\]: USING DEBUGLEVEL : \d+\n")


class Configuration(Case):
    def test_callbacks_follow_each_change_and_the_file_keeps_it(self):
        changes = ['heating.degrees is now "45": 45 degrees, off',
                   'heating.degrees is now "30": 30 degrees, off',
                   'heating.on is now "TRUE": 30 degrees, on',
                   'heating.on is now "yes": 30 degrees, off',
                   "room: (not given)"]
        first = ['heating.degrees is now "22": 22 degrees, off']
        stored = ["  heating.degrees = 30", "  heating.on = yes", "  count.runs = 1"]
        self.assertEqual(self.lines("a.conf"),
                         ["found:", *first, *changes, "stored:", *stored])
        with open(f"{self.folder}/a.conf", encoding="ascii") as conf:
            self.assertEqual(conf.read(),
                             "[heating]\ndegrees=30\non=yes\n\n[count]\nruns=1\n\n")
        self.assertEqual(self.lines("a.conf"),
                         ["found:", *stored, *first, *changes, "stored:", *stored[:2],
                          "  count.runs = 2"])

    def test_a_file_that_was_edited_is_read(self):
        with open(f"{self.folder}/a.conf", "w", encoding="ascii") as conf:
            conf.write("# mine\n[Heating]\n On = true\n[Place]\nRoom = kitchen\n")
        lines = self.lines("a.conf")
        self.assertEqual(lines[:4], ["found:", "  Heating.On = true", "  Place.Room = kitchen",
                                     'heating.degrees is now "22": 22 degrees, on'])
        self.assertIn("room: kitchen", lines)

    def test_wrong_arguments_are_a_usage_error(self):
        _, error = self.run_program(status=2)
        self.assertRegex(error, r"\Ausage: ")


class Containers(Case):
    def test_counts_words(self):
        self.assertEqual(self.lines(stdin="to be or not to be\n\nthat  is\nthe question is\n"), [
            "4 lines", "8 different words", "   2 to", "   2 be", "   2 is", "   1 or",
            "   1 not", "   1 that", "   1 the", "   1 question", "the newest: is the question"])

    def test_nothing_has_no_words(self):
        self.assertEqual(self.lines(), ["0 lines", "0 different words", "the newest:"])

    def test_many_words(self):
        text = "".join(f"w{i % 500} w{i % 7}\n" for i in range(1000))
        lines = self.lines(stdin=text)
        self.assertEqual(lines[:3], ["1000 lines", "500 different words", " 145 w0"])
        self.assertEqual(len(lines), 503)


class Threads(Case):
    def test_the_adder_gets_every_value(self):
        for arguments, sum_line in (([], "the sum of 10 values is 55"),
                                    (["1"], "the sum of 1 values is 1"),
                                    (["25"], "the sum of 25 values is 325")):
            out, error = self.run_program(*arguments)
            self.assertIn(sum_line, out.splitlines())
            self.assertRegex(error, re.compile(r"^\d+ ms, at 20 ms for each$", re.M))

    def test_nothing_to_add_ends_too(self):
        self.assertIn("the sum of 0 values is 0", self.run_program("0")[0].splitlines())


class Files(Case):
    REPORT = ["today.log: 3 lines", '  begins with "started"', "old/yesterday.log: 2 lines",
              "the folder holds:", "  old", "  today.log", "1 file here, 46 bytes in all",
              "after renaming: 3 lines, today.log is gone", "the folder is gone"]

    def test_reports_what_it_does_and_leaves_nothing(self):
        self.assertEqual(self.lines("log"), self.REPORT)
        self.assertEqual(self.lines(f"{self.folder}/a/b"), self.REPORT)
        self.assertEqual(os.listdir(self.folder), ["a"], "a parent that was missing stays")

    def test_a_folder_that_exists_is_left_alone(self):
        with open(f"{self.folder}/file", "w", encoding="ascii"):
            pass
        for name in (".", "file"):
            _, error = self.run_program(name, status=2)
            self.assertRegex(error, r"\Ausage: ")
        self.assertEqual(os.listdir(self.folder), ["file"])


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit("usage: examples_test.py NAME COMMAND...")
    PROGRAM = sys.argv[2:]
    unittest.main(argv=[sys.argv[0], sys.argv[1].capitalize()])
