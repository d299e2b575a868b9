#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The C++ wrapper with both compilers, each standard since C++17, with exceptions and without;
and that it costs nothing.

  compilers_test.py SOURCE_DIR BUILD_DIR
"""

import itertools
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts"))
from project import PUBLIC_INCLUDES

SOURCE = BUILD = pathlib.Path()
COMPILERS = ("g++", "clang++")
FLAGS = ["-m32", "-idirafter", "/usr/include/x86_64-linux-gnu", "-O2", "-Wall", "-Wextra",
         "-Wpedantic", "-Wconversion", "-Wshadow", "-Werror"]


def run(*command):
    done = subprocess.run([str(part) for part in command], stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, check=False)
    if done.returncode != 0:
        raise AssertionError(f"{' '.join(map(str, command))}: {done.returncode}\n{done.stdout}")
    return done.stdout


def instructions(assembler, function):
    """What a function does, without the operands."""
    body = re.search(rf"^{function}:[^\n]*\n(.*?)^\s*\.size\s+{function},", assembler,
                     re.MULTILINE | re.DOTALL)[1]
    lines = (line.split("#")[0].split() for line in body.splitlines())
    return [line[0] for line in lines if line and not line[0].startswith(".")]


class Compilers(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.includes = [f"-I{folder}" for folder in PUBLIC_INCLUDES]

    def test_the_tour_runs_however_it_is_compiled(self):
        options = (("-std=c++17",), ("-std=c++20", "-fno-exceptions", "-fno-rtti"))
        for compiler, option in itertools.product(COMPILERS, options):
            with self.subTest(compiler=compiler, option=option):
                program = self.folder / "tour"
                run(compiler, *option, *FLAGS, *self.includes, SOURCE / "tests/cpp/tour.cc",
                    "-o", program, f"-L{BUILD}", "-lgroundwork", f"-Wl,-rpath,{BUILD}", "-pthread")
                run(program, self.folder)
                (self.folder / "tour.conf").unlink()

    def test_a_callback_that_may_throw_does_not_compile(self):
        callback = """#include <groundwork/groundwork.hpp>
            void visit(gw::PointerQueue<int>& queue) { queue.for_each([](int*) %s {}); }"""
        source = self.folder / "callback.cc"
        for compiler in COMPILERS:
            command = [*compiler.split(), "-std=c++17", *FLAGS, *self.includes, "-fsyntax-only", source]
            source.write_text(callback % "noexcept", encoding="ascii")
            run(*command)
            source.write_text(callback % "", encoding="ascii")
            with self.assertRaisesRegex(Exception, "must not throw"):
                run(*command)

    def test_an_older_standard_is_refused_in_the_first_line(self):
        source = self.folder / "old.cc"
        source.write_text("#include <groundwork/groundwork.hpp>\n", encoding="ascii")
        for compiler in COMPILERS:
            done = subprocess.run([compiler, "-std=c++14", "-m32", *self.includes, "-fsyntax-only",
                                   source], capture_output=True, text=True, check=False)
            self.assertNotEqual(done.returncode, 0)
            first = next(line for line in done.stderr.splitlines() if "error" in line)
            self.assertIn("groundwork.hpp needs C++17", first)

    def test_a_result_that_matters_cannot_be_ignored(self):
        statements = ("file.write(\"x\")", "file.read(buffer, 1)", "file.truncate()",
                      "file.lock_read()", "file.lock_write()", "url.read(buffer, 1)",
                      "ring.put(&number)", "conf.save()", "conf.reload()", "jobs.pop()",
                      "mutex.try_lock()", "event.wait_for(std::chrono::seconds(1))",
                      "gw::write_file(\"a\", \"x\")", "gw::replace_file(\"a\", \"x\")")
        self.check_each_is_warned_of(statements)

    def test_an_object_that_would_end_with_its_statement_is_reported(self):
        statements = ("gw::Lock{mutex}", "gw::CancellationHeld{}", "gw::PowerSaving{}",
                      "gw::HttpTimeout{std::chrono::seconds(1)}", "gw::TimerService{}",
                      "gw::LogHandler{[](const char*) noexcept {}}",
                      "gw::Timer{std::chrono::seconds(1), [] {}}",
                      "gw::Timeout{std::chrono::seconds(1), [] {}}")
        self.check_each_is_warned_of(statements)

    def check_each_is_warned_of(self, statements):
        source = self.folder / "ignored.cc"
        head = ["#include <groundwork/groundwork.hpp>",
                "void use(gw::File& file, gw::Url& url, gw::Fifo<int>& ring, gw::Conf& conf,"
                " gw::Queue<int>& jobs, gw::Mutex& mutex, gw::Event& event, char* buffer, int number) {"]
        unused = ["(void)file, (void)url, (void)ring, (void)conf, (void)jobs, (void)mutex;",
                  "(void)event, (void)buffer, (void)number; }"]
        source.write_text("\n".join(head + [f"{one};" for one in statements] + unused) + "\n",
                          encoding="ascii")
        for compiler in COMPILERS:
            flags = [flag for flag in FLAGS if flag != "-Werror"]
            said = run(compiler, "-std=c++17", *flags, *self.includes, "-fsyntax-only", source)
            lines = {int(number) for number in re.findall(r"ignored\.cc:(\d+):\d+: warning", said)}
            ignored = {one for index, one in enumerate(statements) if index + 3 not in lines}
            with self.subTest(compiler=compiler):
                self.assertEqual(ignored, set())

    def test_it_costs_no_instruction(self):
        for compiler in COMPILERS:
            listing = self.folder / "pairs.s"
            run(compiler, "-std=c++17", *FLAGS, *self.includes, "-fno-exceptions",
                "-fno-asynchronous-unwind-tables", "-S", SOURCE / "tests/cpp/pairs.cc", "-o", listing)
            assembler = listing.read_text(encoding="utf-8")
            names = re.findall(r"^cpp_(\w+):", assembler, re.MULTILINE)
            self.assertGreater(len(names), 8)
            for name in names:
                with self.subTest(compiler=compiler, pair=name):
                    # The order of arguments is the compiler's choice.
                    self.assertEqual(sorted(instructions(assembler, f"c_{name}")),
                                     sorted(instructions(assembler, f"cpp_{name}")))


if __name__ == "__main__":
    BUILD = pathlib.Path(sys.argv.pop()).resolve()
    SOURCE = pathlib.Path(sys.argv.pop()).resolve()
    unittest.main()
