#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Tests of what bench/run makes of figures: which are taken together, what stops a run, and
what the tables and the documents say. A script plays the part of the benchmark programs.

  report_test.py BENCH_DIR
"""

import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

BENCH = pathlib.Path(sys.argv.pop(1))
sys.dont_write_bytecode = True
sys.path.insert(0, str(BENCH))
import board    # noqa: E402
import measure  # noqa: E402
import report   # noqa: E402
import rows     # noqa: E402

# Prints what a benchmark program does: names, or the figures of the one that the filter
# matches; keeps a diary of its runs. A fourth figure is how often it gives up early.
PROGRAM = """#!/usr/bin/env python3
import json, re, sys
FIGURES = {figures!r}
options = dict(option.lstrip("-").partition("=")[::2] for option in sys.argv[1:])
if "benchmark_list_tests" in options:
    print("\\n".join(FIGURES))
    sys.exit()
(name,) = [name for name in FIGURES if re.search(options["benchmark_filter"], name)]
open({diary!r}, "a").write(name + "\\n")
nanoseconds, operations, digest, *hasty = FIGURES[name]
early = open({diary!r}).read().count(name) <= sum(hasty)
print(json.dumps({{"benchmarks": [{{"name": name, "time_unit": "us", "digest": digest,
    "iterations": 1 if early else 10 ** 9,
    "cpu_time": (900 if early else 1) * nanoseconds / 1000, "real_time": 2 * nanoseconds / 1000,
    "operations": operations}}]}}))
"""


def table(*its_rows):
    return {"Section": list(its_rows)}


def row(job, **fields):
    return rows.Row(job, f"title of {job}", "its floor", **fields)


def result(job="copy", size=None, arch="i386", ours=50.0, **peers):
    """A summary as measure.run() gives it, every round alike."""
    return {"arch": arch, "job": job, "size": size, "rounds": 5, "ours": ours, "peers": {
        peer: {"ns": ns, "ratio": ours / ns, "low": ours / ns, "high": ours / ns}
        for peer, ns in peers.items()}}


MACHINE = {"date": "2026-01-02", "commit": "abc", "processor": "one", "system": "Linux",
           "compiler": "gcc", "load": 0.5, "minutes": 9.6}


class Programs(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name) / "programs"
        self.folder.mkdir()
        self.diary = pathlib.Path(folder.name) / "diary"

    def program(self, figures):
        path = self.folder / "bench"
        path.write_text(PROGRAM.format(figures=figures, diary=str(self.diary)))
        path.chmod(0o755)

    def jobs(self, its_rows, wanted="", **options):
        return measure.jobs_of(self.folder, "i386", its_rows, re.compile(wanted), **options)


class Finding(Programs):
    def test_a_name_is_a_job_who_does_it_and_a_size(self):
        self.assertEqual(measure.parse_name("copy/ours"), ("copy", "ours", None))
        self.assertEqual(measure.parse_name("copy/std::list/100"), ("copy", "std::list", 100))
        self.assertEqual(measure.parse_name("copy/ours/5/real_time"), ("copy", "ours", 5))
        self.assertEqual(measure.parse_name("copy/ours/real_time"), ("copy", "ours", None))

    def test_ways_to_do_a_job_at_one_size_belong_together(self):
        self.program({f"copy/{who}/{size}": (1, 1, 0)
                      for who in ("ours", "libc") for size in (10, 100)})
        self.assertEqual([(job["size"], sorted(job["names"]))
                          for job in self.jobs(table(row("copy")))],
                         [(10, ["libc", "ours"]), (100, ["libc", "ours"])])

    def test_jobs_come_in_the_order_of_the_table(self):
        self.program({"a/ours": (1, 1, 0), "b/ours": (1, 1, 0)})
        self.assertEqual([job["job"] for job in self.jobs(table(row("b"), row("a")))],
                         ["b", "a"])

    def test_a_job_that_the_table_lacks_stops_the_run(self):
        self.program({"copy/ours": (1, 1, 0), "other/ours": (1, 1, 0)})
        with self.assertRaises(measure.TableDiffers):
            self.jobs(table(row("other")))

    def test_a_row_that_no_program_offers_stops_the_run(self):
        self.program({"copy/ours": (1, 1, 0)})
        with self.assertRaises(measure.TableDiffers):
            self.jobs(table(row("copy"), row("other")))

    def test_an_aim_against_a_peer_that_no_program_has_stops_the_run(self):
        self.program({"copy/ours": (1, 1, 0), "copy/libc": (1, 1, 0)})
        with self.assertRaises(measure.TableDiffers):
            self.jobs(table(row("copy", aims={"lib": 1.0})))

    def test_a_row_may_be_for_one_build_only(self):
        self.program({"copy/ours": (1, 1, 0)})
        self.assertEqual(self.jobs(table(row("copy", only_at=("x86_64",)),
                                         row("other", only_at=("x86_64",)))), [])

    def test_only_the_jobs_that_are_wanted_are_found(self):
        self.program({"copy/ours": (1, 1, 0), "other/ours": (1, 1, 0)})
        self.assertEqual([job["job"] for job in self.jobs(table(row("copy"), row("other")),
                                                          "^oth")], ["other"])

    def test_the_quick_run_leaves_large_sizes_out(self):
        self.program({"copy/ours/10": (1, 1, 0), "copy/ours/1000": (1, 1, 0)})
        self.assertEqual([job["size"] for job in self.jobs(table(row("copy")), largest=10)],
                         [10])


class Measuring(Programs):
    def test_the_cost_is_that_of_one_operation(self):
        self.program({"copy/ours": (600, 10, 7), "copy/libc": (1200, 10, 7)})
        (figures,) = measure.run(self.jobs(table(row("copy"))), 3, 0.01)
        self.assertAlmostEqual(figures["ours"], 60)
        self.assertAlmostEqual(figures["peers"]["libc"]["ns"], 120)
        self.assertAlmostEqual(figures["peers"]["libc"]["ratio"], 0.5)

    def test_the_wall_clock_counts_where_the_row_says_so(self):
        self.program({"copy/ours": (600, 10, 7)})
        (figures,) = measure.run(self.jobs(table(row("copy", clock="real"))), 1, 0.01)
        self.assertAlmostEqual(figures["ours"], 120)

    def test_different_results_stop_the_run(self):
        self.program({"copy/ours": (1, 1, 7), "copy/libc": (1, 1, 8)})
        with self.assertRaises(measure.DifferentResults):
            measure.run(self.jobs(table(row("copy"))), 1, 0.01)

    def test_the_floor_may_compute_something_else(self):
        self.program({"copy/ours": (10, 1, 7), "copy/libc": (20, 1, 7), "copy/floor": (5, 1, 0)})
        (figures,) = measure.run(self.jobs(table(row("copy"))), 1, 0.01)
        self.assertAlmostEqual(figures["floor"], 5)
        self.assertEqual(list(figures["peers"]), ["libc"])

    def test_who_begins_changes_from_round_to_round(self):
        self.program({"copy/ours": (1, 1, 7), "copy/libc": (1, 1, 7)})
        measure.run(self.jobs(table(row("copy"))), 2, 0.01)
        self.assertEqual(self.diary.read_text().split(),
                         ["copy/ours", "copy/libc", "copy/libc", "copy/ours"])

    def test_no_round_begins_after_the_deadline_but_three_are_done(self):
        self.program({"copy/ours": (1, 1, 7)})
        (figures,) = measure.run(self.jobs(table(row("copy"))), 9, 0.01, deadline=0)
        self.assertEqual(figures["rounds"], 3)

    def test_who_gave_up_early_is_measured_again(self):
        self.program({"copy/ours": (600, 1, 7, 2)})
        self.assertEqual(measure.run_once(self.folder / "bench", "copy/ours", "cpu", 0.01),
                         (600, 7))
        self.assertEqual(len(self.diary.read_text().split()), 3)

    def test_who_does_a_given_number_of_iterations_is_measured_once(self):
        self.program({"copy/ours/iterations:1": (600, 1, 7, 2)})
        measure.run_once(self.folder / "bench", "copy/ours/iterations:1", "cpu", 0.01)
        self.assertEqual(len(self.diary.read_text().split()), 1)

    def test_names_are_taken_literally(self):
        self.program({"a.b/std::x (y)+": (1, 1, 7), "aab/std::x (y)+": (1, 1, 7)})
        measure.run_once(self.folder / "bench", "a.b/std::x (y)+", "cpu", 1)
        self.assertEqual(self.diary.read_text().splitlines(), ["a.b/std::x (y)+"])

    def test_the_ratio_is_the_median_of_the_rounds_ratios(self):
        job = {"arch": "i386", "job": "copy", "size": None}
        figures = measure.summary(job, {"ours": [10, 20, 90], "libc": [20, 20, 30]})
        self.assertEqual(figures["ours"], 20)
        self.assertEqual(figures["peers"]["libc"],
                         {"ns": 20, "ratio": 1.0, "low": 0.75, "high": 2.0})


class OnABoard(Programs):
    """What a board writes, a line after its mark for each measurement."""

    def results(self, figures, *left_out):
        self.program(figures)
        (job,) = self.jobs(table(row("copy")))
        lines = ["[    0.1] the kernel"]
        for name in figures:
            options = measure.options_of(name, 1)
            lines.append(board.MARK + name)
            if name not in left_out:
                lines += subprocess.run([job["program"], *options], check=True, text=True,
                                        capture_output=True).stdout.splitlines()
        return board.summary_of(job, board.texts_of([*lines, board.END + "0"], lambda _: None))

    def test_the_cost_is_that_of_one_operation_in_instructions(self):
        time = 600 * board.INSTRUCTION
        figures = self.results({"copy/ours": (time, 10, 7), "copy/libc": (2 * time, 10, 7)})
        self.assertAlmostEqual(figures["ours"], 60)
        self.assertAlmostEqual(figures["peers"]["libc"]["ratio"], 0.5)

    def test_different_results_stop_the_run(self):
        with self.assertRaises(measure.DifferentResults):
            self.results({"copy/ours": (1, 1, 7), "copy/libc": (1, 1, 8)})

    def test_a_measurement_without_figures_is_named(self):
        with self.assertRaisesRegex(board.NotFinished, "copy/libc"):
            self.results({"copy/ours": (1, 1, 7), "copy/libc": (1, 1, 7)}, "copy/libc")

    def test_a_board_that_stops_is_told(self):
        with self.assertRaisesRegex(board.NotFinished, "copy/ours"):
            board.texts_of([board.MARK + "copy/ours"], lambda _: None)

    def test_the_programs_are_asked_by_the_emulator(self):
        self.program({"copy/ours": (1, 1, 7)})
        with self.assertRaises(FileNotFoundError):
            self.jobs(table(row("copy")), emulator=["no-such-emulator"])


class Tables(unittest.TestCase):
    def setUp(self):
        self.kept = rows.ROWS, rows.PLOTS
        self.addCleanup(lambda: (setattr(rows, "ROWS", self.kept[0]),
                                 setattr(rows, "PLOTS", self.kept[1])))
        rows.PLOTS = []

    def document(self, its_rows, *results, **more):
        rows.ROWS = its_rows
        with tempfile.TemporaryDirectory() as folder:
            report.write_document(pathlib.Path(folder),
                                  {"machine": MACHINE, "jobs": list(results), **more})
            return (pathlib.Path(folder) / "performance.md").read_text()

    def test_a_ratio_meets_an_aim_with_the_two_decimals_shown(self):
        self.assertEqual(report.verdict(0.504, 0.5), "met")
        self.assertEqual(report.verdict(0.506, 0.5), "missed")
        self.assertEqual(report.verdict(0.1, None), "")

    def test_three_digits_are_shown(self):
        self.assertEqual([report.number(value) for value in (0.5234, 5.234, 52.34, 5234.0)],
                         ["0.52", "5.23", "52.3", "5234"])

    def test_the_32_bit_build_is_judged(self):
        text = self.document(table(row("copy", aims={"libc": 0.7})),
                             result(ours=50, libc=100), result(arch="x86_64", ours=90, libc=100))
        self.assertIn("1 of 1 comparisons with an aim meet it.", text)
        self.assertIn("| title of copy |  | libc | 50.0 | 100 | 0.50 | 0.7 | met | 90.0 | 100 "
                      "| 0.90 |", text)

    def test_the_64_bit_build_is_judged_where_there_is_no_other(self):
        text = self.document(table(row("copy", aims={"libc": 0.7})),
                             result(arch="x86_64", ours=90, libc=100))
        self.assertIn("0 of 1 comparisons", text)

    def test_a_missed_aim_has_its_floor_and_reason(self):
        text = self.document(table(row("copy", aims={"libc": 0.3}, note="It rains.")),
                             result(size=1000, ours=50, libc=100))
        self.assertIn("| title of copy | libc | 0.3 | 0.50 (1,000) | its floor | It rains. |",
                      text)

    def test_the_missed_sizes_of_a_job_are_named_together(self):
        text = self.document(table(row("copy", aims={"libc": 0.5})), result(size=1, libc=99),
                             result(size=10, libc=200), result(size=100, libc=50))
        self.assertIn("| 0.51 (1), 1.00 (100) |", text)

    def test_an_aim_may_hold_at_some_sizes_only(self):
        text = self.document(table(row("copy", aims={"libc": 0.3}, aim_sizes=(10,))),
                             result(size=10, ours=20, libc=100),
                             result(size=100, ours=50, libc=100))
        self.assertIn("1 of 1 comparisons", text)

    def test_a_peer_without_an_aim_is_shown(self):
        text = self.document(table(row("copy")), result(ours=50, libc=100))
        self.assertIn("| title of copy |  | libc | 50.0 | 100 | 0.50 |  |  |", text)
        self.assertIn("0 of 0 comparisons", text)

    def test_unsteady_ratios_are_marked(self):
        unsteady = result(ours=50, libc=100)
        unsteady["peers"]["libc"]["high"] = 0.56
        self.assertIn("| 0.50 ~ |", self.document(table(row("copy")), unsteady))

    def test_a_measured_floor_stands_beside_ours(self):
        with_floor = result(ours=50, libc=100)
        with_floor["floor"] = 25.0
        self.assertIn("| 50.0 (floor 25.0) |", self.document(table(row("copy")), with_floor))

    def test_sizes_are_set_against_their_aims(self):
        figures = dict.fromkeys((its_row.figure for its_row in rows.FOOTPRINT), 70000)
        text = self.document(table(row("copy")), result(libc=100), footprint=figures)
        self.assertIn("bytes | 70,000 | 65,536 | missed |", text)
        self.assertIn("| stripped file, bytes | 70,000 |  |  |  |", text)

    def test_programs_are_set_beside_each_other_and_operations_counted(self):
        costs = [{"who": "no library", "objects": 2, "instructions": 149734, "faults": 39,
                  "peak": 1120}]
        text = self.document(table(row("copy")), result(libc=100), programs=costs)
        self.assertIn("| no library | 2 | 149,734 | 39 | 1,120 |", text)
        self.assertRegex(text, r"\| `fifo\.pair` \| 0\.00 \| [\d.]+ \|")

    def test_the_document_says_when_and_where(self):
        text = self.document(table(row("copy")), result(libc=100))
        for its_line in ("| date | 2026-01-02 |", "| commit | abc |", "5 rounds, 10 minutes"):
            self.assertIn(its_line, text)

    def test_every_row_names_its_floor(self):
        for section in self.kept[0].values():
            for its_row in section:
                self.assertTrue(its_row.floor, its_row.job)

    def test_the_terminal_shows_each_build_in_a_line(self):
        rows.ROWS = table(row("copy", aims={"libc": 0.7}))
        lines = report.text_table({"jobs": [
            result(size=10, libc=100.0), result(size=10, arch="x86_64", libc=50.0)]})
        self.assertEqual([line.split() for line in lines.splitlines()[1:]], [
            ["copy", "10", "i386", "50.0", "libc", "100", "0.50", "0.7", "met"],
            ["copy", "10", "x86_64", "50.0", "libc", "50.0", "1.00", "0.7", "missed"]])

    def test_the_boards_come_first_with_the_same_aims_and_reasons_of_their_own(self):
        boards = {"compilers": "gcc", "jobs": [result(arch="mipsel", ours=50, libc=100),
                                               result(arch="armhf", ours=20, libc=100)]}
        text = self.document(table(row("copy", aims={"libc": 0.3}, board_note="It snows.")),
                             result(ours=20, libc=100), boards=boards)
        self.assertIn("0 of 1 on mipsel, 1 of 1 on armhf are met.", text)
        self.assertIn("| title of copy | libc | 0.3 | 0.50 |  | It snows. |", text)
        self.assertIn("| title of copy |  | libc | 50.0 | 100 | 0.50 | 20.0 | 100 | 0.20 | 0.3 |",
                      text)
        self.assertLess(text.index("## On MIPS and ARM"), text.index("## Aims"))


if __name__ == "__main__":
    unittest.main()
