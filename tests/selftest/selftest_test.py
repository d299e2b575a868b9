#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The test suite as one static program, run as on a device.

  selftest_test.py PROGRAM --filter FILTER [EMULATOR...]    runs the suites that FILTER chooses
  selftest_test.py PROGRAM --filters FILE [EMULATOR...]     tests the program itself; FILE has the
                                                            filters of all the other runs
"""

import fnmatch
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

PROGRAM = pathlib.Path()
FILTERS = []
EMULATOR = []


def run(*arguments):
    return subprocess.run([*EMULATOR, str(PROGRAM), *map(str, arguments)], capture_output=True,
                          text=True, check=False)


class Suites(unittest.TestCase):
    def test_every_test_passes_with_its_files_where_they_are_told_to_be(self):
        chosen = ["--filter", ":".join(FILTERS)]
        with tempfile.TemporaryDirectory() as folder:
            pathlib.Path(folder).chmod(0o755)  # some tests go there as another user
            done = run("--no-facts", "--tmpdir", folder, *chosen)
            failed = re.findall(r"^not ok .*(?:\n#.*)*", done.stdout, re.MULTILINE)
            self.assertEqual([], failed)
            told = [line for line in done.stderr.splitlines() if not line.startswith("qemu: ")]
            self.assertEqual((0, []), (done.returncode, told))
            self.assertEqual([], list(pathlib.Path(folder).iterdir()))
        count = int(re.search(r"^TAP version 13\n1\.\.(\d+)$", done.stdout, re.MULTILINE)[1])
        self.assertGreater(count, 0)
        results = re.findall(r"^ok (\d+) - \S+", done.stdout, re.MULTILINE)
        self.assertEqual(list(map(str, range(1, count + 1))), results)


class Program(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.names = run("--list").stdout.splitlines()

    def test_it_is_static(self):
        headers = subprocess.run(["readelf", "-lW", PROGRAM], capture_output=True, text=True,
                                 check=True).stdout
        self.assertNotIn("INTERP", headers)

    def test_the_list_has_tests_of_every_subsystem(self):
        self.assertGreater(len(self.names), 800)
        self.assertEqual(len(self.names), len(set(self.names)))

    def test_every_test_is_run_by_its_name(self):
        self.assertEqual([], [name for name in self.names
                              if not any(fnmatch.fnmatchcase(name, one) for one in FILTERS)])

    def test_the_filter_chooses(self):
        first, last = self.names[0], self.names[-1]
        chosen = run("--list", "--filter", f"{first}:{last}").stdout.splitlines()
        self.assertEqual([first, last], chosen)
        self.assertIn("1..1\n", run("--filter", first).stdout)

    def test_a_run_has_a_result_for_each_name_of_the_list(self):
        suite = self.names[0].split(".")[0] + "."
        results = re.findall(r"^ok \d+ - (\S+)", run("--filter", suite + "*").stdout, re.MULTILINE)
        self.assertEqual([name for name in self.names if name.startswith(suite)], results)

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
    PROGRAM = pathlib.Path(sys.argv[1]).resolve()
    how, what, *EMULATOR = sys.argv[2:]
    FILTERS = (what if how == "--filter" else pathlib.Path(what).read_text(encoding="ascii")
               ).strip().split(":")
    unittest.main(argv=sys.argv[:1], defaultTest="Suites" if how == "--filter" else "Program")
