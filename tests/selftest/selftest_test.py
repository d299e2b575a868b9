#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The test suite as one static program, run as on a device.

  selftest_test.py FILTERS PROGRAM [EMULATOR...]

FILTERS is a file with the filters by which the other tests of this build run the program; where it
has none, nobody else does, and every test is run here.
"""

import fnmatch
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

FILTERS = []
PROGRAM = pathlib.Path()
EMULATOR = []


def run(*arguments):
    return subprocess.run([*EMULATOR, str(PROGRAM), *map(str, arguments)], capture_output=True,
                          text=True, check=False)


class Selftest(unittest.TestCase):
    def test_it_is_static(self):
        headers = subprocess.run(["readelf", "-lW", PROGRAM], capture_output=True, text=True,
                                 check=True).stdout
        self.assertNotIn("INTERP", headers)

    def test_the_list_has_tests_of_every_subsystem(self):
        names = run("--list").stdout.splitlines()
        self.assertGreater(len(names), 800)
        self.assertEqual(len(names), len(set(names)))

    def test_every_test_is_run_by_its_name(self):
        if not FILTERS:
            self.skipTest("all are run here")
        names = run("--list").stdout.splitlines()
        self.assertEqual([], [name for name in names
                              if not any(fnmatch.fnmatchcase(name, one) for one in FILTERS)])

    def test_every_test_passes_with_its_files_where_they_are_told_to_be(self):
        filters = ["--filter", run("--list").stdout.split(".")[0] + ".*"] if FILTERS else []
        with tempfile.TemporaryDirectory() as folder:
            pathlib.Path(folder).chmod(0o755)  # some tests go there as another user
            done = run("--tmpdir", folder, *filters)
            failed = re.findall(r"^not ok .*(?:\n#.*)*", done.stdout, re.MULTILINE)
            self.assertEqual([], failed)
            self.assertEqual((0, ""), (done.returncode, done.stderr))
            self.assertEqual([], list(pathlib.Path(folder).iterdir()))
        count = int(re.search(r"^TAP version 13\n1\.\.(\d+)$", done.stdout, re.MULTILINE)[1])
        results = re.findall(r"^ok (\d+) - \S+", done.stdout, re.MULTILINE)
        self.assertEqual(list(map(str, range(1, count + 1))), results)
        self.assertEqual(count, len(run("--list", *filters).stdout.splitlines()))

    def test_the_filter_chooses(self):
        every = run("--list").stdout.splitlines()
        chosen = run("--list", "--filter", f"{every[0]}:{every[-1]}").stdout.splitlines()
        self.assertEqual([every[0], every[-1]], chosen)
        self.assertIn("1..1\n", run("--filter", every[0]).stdout)

    def test_the_facts_are_told(self):
        facts = run("--facts").stdout
        for begin in ("board:", "C library:", "clock:", "sleep of 10 ms:", "timer of 20 ms:", "mutex:",
                      "file sync:"):
            self.assertRegex(facts, rf"(?m)^{begin} .*\d")

    def test_a_wrong_call_is_told_apart(self):
        self.assertEqual(2, run("--nothing").returncode)
        self.assertEqual(2, run("--filter").returncode)
        self.assertIn("usage:", run("--help").stdout)


if __name__ == "__main__":
    FILTERS = pathlib.Path(sys.argv[1]).read_text(encoding="ascii").strip().split(":")
    FILTERS = [one for one in FILTERS if one]
    PROGRAM = pathlib.Path(sys.argv[2]).resolve()
    EMULATOR = sys.argv[3:]
    unittest.main(argv=sys.argv[:1])
