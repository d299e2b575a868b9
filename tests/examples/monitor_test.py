#!/usr/bin/env python3
"""Runs the device monitor as its users do: settings changed while it runs, stopped by the
clock and by signals, started again.

  monitor_test.py CONF COMMAND...   its sample configuration, and the program, run by an
                                    emulator if it needs one

SPDX-License-Identifier: MIT
"""

import configparser
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

SAMPLE_CONF = ""
PROGRAM = []
PATIENCE = 120
HEADER = "time_ms,cpu_percent,memory_percent,total_kb,avail_kb,interval_ms,threshold_percent"


class Monitor(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        shutil.copy(SAMPLE_CONF, f"{self.folder}/monitor.conf")

    def start(self, *arguments):
        process = subprocess.Popen(PROGRAM + list(arguments), cwd=self.folder,
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, text=True)
        self.addCleanup(lambda: process.poll() is None and process.kill())
        return process

    def finish(self, process):
        output, errors = process.communicate(timeout=PATIENCE)
        self.assertEqual(process.returncode, 0, errors)
        return output, errors

    def conf(self):
        conf = configparser.ConfigParser()
        conf.read(f"{self.folder}/monitor.conf")
        return conf

    def rows(self, name="monitor.csv"):
        with open(f"{self.folder}/{name}", encoding="ascii") as csv:
            text = csv.read()
        self.assertTrue(text.endswith("\n"), "the last line is complete")
        lines = text.splitlines()
        self.assertEqual(lines[0], HEADER)
        for line in lines[1:]:
            self.assertRegex(line, r"^\d{13},(-1|\d|\d\d|100),(\d|\d\d|100),\d+,\d+,\d+,\d+$")
        return lines[1:]

    def wait_for_rows(self, count):
        end = time.monotonic() + PATIENCE
        while time.monotonic() < end:
            if os.path.exists(f"{self.folder}/monitor.csv") and len(self.rows()) >= count:
                return
            time.sleep(0.05)
        self.fail(f"no {count} samples in {PATIENCE} seconds")

    def test_ends_by_the_clock_with_a_complete_csv_and_counted_samples(self):
        self.finish(self.start("--for", "2"))
        rows = self.rows()
        self.assertGreaterEqual(len(rows), 1)
        self.assertEqual(self.conf()["counters"]["runs"], "1")
        self.assertEqual(self.conf()["counters"]["samples"], str(len(rows)))

    def test_figures_are_those_of_now(self):
        self.edit("interval = 500\n", "interval = 100\n")
        end = time.monotonic() + 1.5
        process = self.start("--for", "2")
        while time.monotonic() < end:  # one processor is busy
            pass
        self.finish(process)
        rows = [[int(field) for field in row.split(",")] for row in self.rows()]
        self.assertGreater(max(row[1] for row in rows), 10, "processor")
        with open("/proc/meminfo", encoding="ascii") as file:
            figures = dict(re.findall(r"^(\w+): +(\d+) kB$", file.read(), re.MULTILINE))
        used = 100 - 100 * int(figures["MemAvailable"]) // int(figures["MemTotal"])
        self.assertLess(abs(rows[-1][2] - used), 10, "memory")
        times = [row[0] for row in rows]
        self.assertEqual(len(set(times)), len(times), "milliseconds")
        self.assertLess(abs(times[-1] - time.time() * 1000), 60000)

    def test_a_second_run_appends_and_goes_on_counting(self):
        self.finish(self.start("--for", "1"))
        first = self.rows()
        self.finish(self.start("--for", "1"))
        self.assertEqual(self.rows()[:len(first)], first)
        self.assertEqual(self.conf()["counters"]["runs"], "2")
        self.assertEqual(self.conf()["counters"]["samples"], str(len(self.rows())))

    def test_signals_stop_it_cleanly(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            before = len(self.rows()) if os.path.exists(f"{self.folder}/monitor.csv") else 0
            process = self.start()
            self.wait_for_rows(before + 1)
            process.send_signal(number)
            self.finish(process)
        self.assertEqual(self.conf()["counters"]["runs"], "2")
        self.assertEqual(self.conf()["counters"]["samples"], str(len(self.rows())))

    def test_settings_change_while_it_runs_and_are_kept(self):
        process = self.start()
        process.stdin.write("interval 50\npath /nowhere\n threshold   1 \n")
        process.stdin.flush()
        self.wait_for_rows(5)
        process.send_signal(signal.SIGTERM)
        self.finish(process)
        settings = self.conf()["monitor"]
        self.assertEqual(settings["interval"], "50")
        self.assertEqual(settings["path"], "/nowhere")
        self.assertEqual(settings["threshold"], "1")
        self.assertRegex(self.rows()[-1], r",0,0,\d+,\d+$", "no such filesystem")

    def conf_text(self):
        with open(f"{self.folder}/monitor.conf", encoding="ascii") as conf:
            return conf.read()

    def edit(self, before, after):
        """As an editor does it: beside the file, then in its place."""
        text = self.conf_text()
        self.assertIn(before, text)
        with open(f"{self.folder}/edited", "w", encoding="ascii") as conf:
            conf.write(text.replace(before, after))
        os.replace(f"{self.folder}/edited", f"{self.folder}/monitor.conf")

    def test_comments_and_order_of_the_file_stay(self):
        text = self.conf_text()
        self.finish(self.start("--for", "1"))
        samples = len(self.rows())
        self.assertEqual(self.conf_text(), text.replace("runs = 0", "runs = 1")
                         .replace("samples = 0", f"samples = {samples}"))

    def test_an_edited_file_is_taken_in_after_sighup(self):
        process = self.start()
        self.wait_for_rows(1)
        self.edit("interval = 500\n", "interval = 20\n")
        self.edit("path = /\n", "path = /nowhere\n")
        process.send_signal(signal.SIGHUP)
        end = time.monotonic() + PATIENCE
        while not re.search(r",0,0,\d+,\d+$", self.rows()[-1]) and time.monotonic() < end:
            time.sleep(0.05)
        self.assertRegex(self.rows()[-1], r",0,0,\d+,\d+$", "no such filesystem")
        process.send_signal(signal.SIGTERM)
        self.finish(process)
        self.assertEqual(self.conf()["monitor"]["interval"], "20")
        self.assertEqual(self.conf()["counters"]["runs"], "1")

    def test_every_sighup_takes_in_an_edit(self):
        process = self.start()
        self.wait_for_rows(1)
        before = 500
        for interval in (20, 30, 40):
            self.edit(f"interval = {before}\n", f"interval = {interval}\n")
            before = interval
            process.send_signal(signal.SIGHUP)
            end = time.monotonic() + PATIENCE
            while f",{interval},90" not in self.rows()[-1] and time.monotonic() < end:
                self.assertIsNone(process.poll())
                time.sleep(0.05)
            self.assertIn(f",{interval},90", self.rows()[-1])
        process.send_signal(signal.SIGTERM)
        self.finish(process)

    def test_an_edit_that_it_was_not_told_of_is_kept(self):
        process = self.start()
        self.wait_for_rows(1)
        self.edit("interval = 500\n", "interval = 700\n# mine\nowner = me\n")
        process.send_signal(signal.SIGTERM)
        self.finish(process)
        self.assertIn("interval = 700\n# mine\nowner = me\n", self.conf_text())
        self.assertEqual(self.conf()["counters"]["runs"], "1")

    def test_other_lines_are_refused(self):
        process = self.start("--for", "1")
        process.stdin.write("colour red\n")
        process.stdin.flush()
        _, errors = self.finish(process)
        self.assertIn('not "colour red"', errors)
        self.assertNotIn("colour", self.conf()["monitor"])

    def test_a_csv_file_that_cannot_be_made_fails_the_run(self):
        with open(f"{self.folder}/monitor.conf", "w", encoding="ascii") as conf:
            conf.write("[monitor]\ncsv=/nowhere/a.csv\n")
        process = self.start("--for", "1")
        process.communicate(timeout=PATIENCE)
        self.assertEqual(process.returncode, 1)

    def test_wrong_arguments_are_a_usage_error(self):
        process = self.start("--forever")
        _, errors = process.communicate(timeout=PATIENCE)
        self.assertEqual(process.returncode, 2)
        self.assertRegex(errors, re.compile(r"^usage: ", re.M))


class Service(unittest.TestCase):
    """What the units run around the monitor, in folders of the test."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.settings = f"{folder.name}/settings.conf"
        self.state = f"{folder.name}/state"
        shutil.copy(SAMPLE_CONF, self.settings)

    def text(self, name):
        with open(f"{os.path.dirname(SAMPLE_CONF)}/{name}", encoding="ascii") as unit:
            return unit.read().replace("/etc/monitor.conf", self.settings)

    def copies_an_edit_but_keeps_the_counters(self, start, reload):
        def edit(name, old, new):
            with open(name, encoding="ascii") as conf:
                text = conf.read()
            self.assertIn(old, text)
            with open(name, "w", encoding="ascii") as conf:
                conf.write(text.replace(old, new))

        copy = f"{self.state}/monitor.conf"
        start()
        edit(copy, "runs = 0", "runs = 7")
        start()
        edit(copy, "runs = 7", "runs = 8")
        edit(self.settings, "interval = 500", "interval = 40")
        edit(copy, "runs = 8", "runs = 9")  # saved after the edit, by the stop of a restart
        for step, value in ((start, "40"), (reload, "60")):
            step()
            with open(copy, encoding="ascii") as conf:
                self.assertIn(f"interval = {value}\n", conf.read())
            edit(self.settings, f"interval = {value}", "interval = 60")

    def test_the_systemd_unit_follows_edits_of_the_settings(self):
        os.mkdir(self.state)
        commands = re.findall(r"^Exec(StartPre|Reload)=/bin/sh -c '(.*)'$",
                              self.text("monitor.service"), re.MULTILINE)
        self.assertEqual([name for name, _ in commands], ["StartPre", "Reload"])
        start, reload = (lambda command=command: subprocess.run(
            ["sh", "-c", command], cwd=self.state, check=True) for _, command in commands)
        self.copies_an_edit_but_keeps_the_counters(start, reload)

    def test_the_openwrt_script_follows_edits_of_the_settings(self):
        script = (self.text("monitor.init").replace("/var/run/monitor", self.state) +
                  "\nprocd_open_instance() { :; }; procd_set_param() { :; }"
                  "\nprocd_close_instance() { :; }; procd_send_signal() { :; }\n")

        def call(function):
            subprocess.run(["sh", "-c", script + function], check=True)

        self.copies_an_edit_but_keeps_the_counters(lambda: call("start_service"),
                                                   lambda: call("reload_service"))


if __name__ == "__main__":
    SAMPLE_CONF, PROGRAM = sys.argv[1], sys.argv[2:]
    unittest.main(argv=sys.argv[:1])
