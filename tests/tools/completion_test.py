#!/usr/bin/env python3
"""Asks bash how it completes the beginning of a command line.

  completion_test.py FOLDER [COMMAND...]   the completion files, and gw-conf, run by an
                                           emulator if it needs one, when it was built

SPDX-License-Identifier: MIT
"""

import os
import shlex
import subprocess
import sys
import tempfile
import unittest

FOLDER = ""
GW_CONF = []
ASK = """
source "$1"
shift
COMP_WORDS=("$@")
COMP_CWORD=$(($# - 1))
"_${1//-/_}" "$1" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
printf '%s\\n' "${COMPREPLY[@]}"
"""


class Completion(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        os.mkdir(f"{self.folder}/bin")
        os.mkdir(f"{self.folder}/data")
        for name in ("one.conf", "one two", "other"):
            with open(f"{self.folder}/data/{name}", "w", encoding="ascii"):
                pass

    def offered(self, *words):
        path = f"{self.folder}/bin:{os.environ['PATH']}"
        done = subprocess.run(["bash", "-c", ASK, "bash", f"{FOLDER}/{words[0]}", *words],
                              cwd=f"{self.folder}/data", env={**os.environ, "PATH": path},
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=120,
                              check=True, text=True)
        self.assertEqual(done.stderr, "")
        return sorted(filter(None, done.stdout.splitlines()))

    def test_gw_log_offers_levels_and_options(self):
        self.assertEqual(self.offered("gw-log", ""), ["debug", "error", "information", "message",
                                                      "silent", "warning"])
        self.assertEqual(self.offered("gw-log", "w"), ["warning"])
        self.assertEqual(self.offered("gw-log", "--h"), ["--help"])
        self.assertEqual(self.offered("gw-log", "debug", ""), [])

    def test_gw_cat_offers_files_and_options(self):
        self.assertEqual(self.offered("gw-cat", "one"), ["one two", "one.conf"])
        self.assertEqual(self.offered("gw-cat", "-o", "ot"), ["other"])
        self.assertEqual(self.offered("gw-cat", "--o"), ["--offset", "--output"])
        self.assertEqual(self.offered("gw-cat", "--proxy", ""), [])

    def test_gw_conf_offers_files_and_commands(self):
        self.assertEqual(self.offered("gw-conf", "ot"), ["other"])
        self.assertEqual(self.offered("gw-conf", "--v"), ["--version"])
        self.assertEqual(self.offered("gw-conf", "--f"), ["--force"])
        self.assertEqual(self.offered("gw-conf", "--force", "ot"), ["other"])
        self.assertEqual(self.offered("gw-conf", "f", ""),
                         ["get", "lint", "list", "set", "unset"])

    def test_gw_conf_offers_sections_and_keys_of_the_file(self):
        if not GW_CONF:
            self.skipTest("gw-conf was not built")
        with open(f"{self.folder}/bin/gw-conf", "w", encoding="ascii") as script:
            script.write(f'#!/bin/sh\nexec {shlex.join(GW_CONF)} "$@"\n')
        os.chmod(f"{self.folder}/bin/gw-conf", 0o755)
        with open(f"{self.folder}/data/one two", "w", encoding="ascii") as conf:
            conf.write("[Net]\nport=1=2\nPath=3\nname=\n[next one]\nkey=4\n[disk]\nx=5\n")
        self.assertEqual(self.offered("gw-conf", "one\\ two", "get", "ne"),
                         ["Net", "next\\ one"])
        self.assertEqual(self.offered("gw-conf", "one\\ two", "list", "d"), ["disk"])
        self.assertEqual(self.offered("gw-conf", "--force", "one\\ two", "set", "NET", "P"),
                         self.offered("gw-conf", "one\\ two", "set", "NET", "P"))
        self.assertEqual(self.offered("gw-conf", "one\\ two", "lint", ""), [])
        self.assertEqual(self.offered("gw-conf", "one\\ two", "set", "NET", "P"),
                         ["Path", "port"])
        self.assertEqual(self.offered("gw-conf", "one\\ two", "unset", "next\\ one", ""),
                         ["key"])
        self.assertEqual(self.offered("gw-conf", "one\\ two", "list", "net", ""), [])
        self.assertEqual(self.offered("gw-conf", "missing", "get", ""), [])


if __name__ == "__main__":
    FOLDER, GW_CONF = os.path.abspath(sys.argv[1]), sys.argv[2:]
    os.environ["LC_ALL"] = "C"
    unittest.main(argv=sys.argv[:1])
