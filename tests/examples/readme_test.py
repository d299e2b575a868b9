#!/usr/bin/env python3
"""Runs the program of the README twice and looks at what it prints and keeps.

  readme_test.py COMMAND...   the program, behind an emulator if it needs one

SPDX-License-Identifier: MIT
"""

import re
import subprocess
import sys
import tempfile
import unittest

PROGRAM = []


class Readme(unittest.TestCase):
    def test_counts_its_port_up_and_ticks(self):
        with tempfile.TemporaryDirectory() as folder:
            for port in ("8080", "8081"):
                done = subprocess.run(PROGRAM, cwd=folder, stdout=subprocess.PIPE,
                                      timeout=60, check=True, text=True)
                self.assertIn(f"net.port is now {port}\n", done.stdout)
                self.assertRegex(done.stdout, re.compile(r"^tick: memory -?\d+%$", re.M))
                with open(f"{folder}/hello.conf", encoding="ascii") as conf:
                    self.assertEqual(conf.read(), f"[net]\nport={port}\n\n")


if __name__ == "__main__":
    PROGRAM = sys.argv[1:]
    unittest.main(argv=sys.argv[:1])
