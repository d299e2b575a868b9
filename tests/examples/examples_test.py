#!/usr/bin/env python3
"""Runs the example of a subsystem and looks at all that it prints.

  examples_test.py NAME COMMAND...   the example, and its program, run by an emulator if it
                                     needs one

SPDX-License-Identifier: MIT
"""

import base64
import http.server
import os
import re
import subprocess
import sys
import tempfile
import threading
import unittest
import xml.etree.ElementTree

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


class Chart(Case):
    ROWS = ("time_ms,cpu_percent,memory_percent,total_kb,avail_kb,interval_ms,threshold_percent\n"
            "1000,-1,25,1000,750,500,90\n2000,50,25,1000,500,500,90\n"
            "3000,100,25,0,0,200,75\n40")

    def draw(self, text):
        with open(f"{self.folder}/monitor.csv", "w", encoding="ascii") as file:
            file.write(text)
        return xml.etree.ElementTree.fromstring("\n".join(self.lines("monitor.csv")))

    def test_a_line_for_each_figure_without_the_unknown_ones(self):
        lines = self.draw(self.ROWS).findall("{*}polyline")
        points = [line.get("points").split() for line in lines]
        # 0 % is at 208, 100 % at 36; the first second at 44, the last at 704.
        self.assertEqual(points, [["374.0,122.0", "704.0,36.0"],
                                  ["44.0,165.0", "374.0,165.0", "704.0,165.0"],
                                  ["44.0,165.0", "374.0,122.0"]])

    def test_a_mark_where_a_setting_changed(self):
        texts = [(text.text, text.get("x")) for text in self.draw(self.ROWS).findall("{*}text")]
        self.assertIn(("interval 200", "700.0"), texts)
        self.assertIn(("threshold 75", "700.0"), texts)
        self.assertIn(("2.0 s", "704"), texts)

    def test_no_samples_no_picture(self):
        with open(f"{self.folder}/monitor.csv", "w", encoding="ascii") as file:
            file.write(self.ROWS.splitlines()[0] + "\n")
        out, error = self.run_program("monitor.csv", status=1)
        self.assertEqual((out, error), ("", "chart: no samples in monitor.csv\n"))


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


class Callbacks(Case):
    def test_checks_refuse_and_the_registered_are_told(self):
        self.assertEqual(self.lines("40", "-3", "500", "x", "40", "40", "1"), [
            "the tank holds 120 litres", "pumped 40 litres, 80 are left",
            "refused: not a number of litres", "refused: the tank holds less",
            "refused: not a number of litres",
            "pumped 40 litres, 40 are left", "watchman: bring water",
            "pumped 40 litres, 0 are left", "watchman: bring water",
            "refused: the tank holds less", "120 litres in all"])

    def test_wrong_arguments_are_a_usage_error(self):
        _, error = self.run_program(status=2)
        self.assertRegex(error, r"\Ausage: ")


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


class Ciphers(Case):
    def test_what_was_sealed_comes_back(self):
        for text in ("", "x", "attack at dawn", "y" * 23, "y" * 24, "\u00e4\u00f6\u00fc" * 50):
            line = self.lines("secret", text)[0]
            size = (len(text.encode()) // 24 + 1) * 24
            self.assertEqual(len(base64.b64decode(line, validate=True)), size)
            self.assertEqual(self.lines("-d", "secret", line), [text])

    def test_the_cipher_is_the_standard_one(self):
        key, text = bytes.fromhex("133457799bbcdff1"), bytes.fromhex("0123456789abcdef")
        line = self.lines(key, text)[0]
        self.assertEqual(base64.b64decode(line)[:8].hex(), "85e813540f0ab405")

    def test_equal_blocks_do_not_look_equal(self):
        sealed = base64.b64decode(self.lines("secret", "12345678" * 3)[0])
        self.assertEqual(len({sealed[i:i + 8] for i in range(0, len(sealed), 8)}),
                         len(sealed) // 8)

    def test_another_key_or_a_damaged_line_is_told(self):
        line = self.lines("secret", "attack at dawn")[0]
        for key, damaged in (("Secret", line), ("secret", line[:-4]), ("secret", ""),
                             ("secret", "*" * 32), ("secret", "A" + line[1:-1] + "A")):
            out, error = self.run_program("-d", key, damaged, status=1)
            self.assertEqual((out, error),
                             ("", "ciphers: not an encrypted line, or the wrong key\n"))

    def test_wrong_arguments_are_a_usage_error(self):
        for arguments in ([], ["key"], ["-x", "key", "text"]):
            _, error = self.run_program(*arguments, status=2)
            self.assertRegex(error, r"\Ausage: ")


class Handler(http.server.BaseHTTPRequestHandler):
    """Replies with the user agent of the request."""

    def do_GET(self):
        if self.path != "/page":
            self.send_error(404)
            return
        body = f"<html>\r\n{self.headers['User-Agent']}\r\n</html>".encode()
        self.send_response(200)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def log_message(self, *_):
        pass


class Urls(Case):
    def server(self):
        server = http.server.HTTPServer(("127.0.0.1", 0), Handler)
        threading.Thread(target=server.serve_forever, daemon=True).start()
        self.addCleanup(server.server_close)
        self.addCleanup(server.shutdown)
        return f"http://127.0.0.1:{server.server_port}"

    def test_reads_files_standard_input_and_http(self):
        with open(f"{self.folder}/a", "w", encoding="ascii") as file:
            file.write("one\nthree words here\n\nfour")
        url = f"{self.server()}/page"
        report = ['  the longest line has 16: "three words here"', '  begins with "one"']
        self.assertEqual(self.lines("a", "file:a", url, "-", stdin="x\ny"), [
            "a: file, 4 lines, 26 bytes", *report, "file:a: file, 4 lines, 26 bytes", *report,
            f"{url}: HTTP, 3 lines, 25 bytes", '  the longest line has 8: "urls/1.0"',
            "-: standard input, 2 lines, 3 bytes", '  the longest line has 1: "x"'])

    def test_an_empty_file_has_no_lines(self):
        self.assertEqual(self.lines("/dev/null"), ["/dev/null: file, 0 lines, 0 bytes"])

    def test_a_long_line_is_shown_by_its_beginning(self):
        with open(f"{self.folder}/a", "w", encoding="ascii") as file:
            file.write("x" * 1000)
        self.assertIn(f'  the longest line has 1000: "{"x" * 60}"', self.lines("a"))

    def test_failures_are_told_and_the_rest_is_read(self):
        url = f"{self.server()}/missing"
        out, error = self.run_program("missing", url, "ftp://host/x", "/dev/null",
                                      status=1)
        self.assertEqual(out, "/dev/null: file, 0 lines, 0 bytes\n")
        self.assertEqual(error.splitlines(), ["urls: missing: No such file or directory (2)",
                                              f"urls: {url}: Internal error (10008)",
                                              "urls: ftp://host/x: Unknown URL (10001)"])

    def test_wrong_arguments_are_a_usage_error(self):
        _, error = self.run_program(status=2)
        self.assertRegex(error, r"\Ausage: ")


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit("usage: examples_test.py NAME COMMAND...")
    PROGRAM = sys.argv[2:]
    os.environ["LC_ALL"] = "C"
    unittest.main(argv=[sys.argv[0], sys.argv[1].capitalize()])
