#!/usr/bin/env python3
"""Compiles and runs the examples in documents and in the headers' comments, and walks the command
lines of the documents.

  examples_test.py SOURCE_DIR BUILD_DIR C_COMPILER C++_COMPILER FLAGS [EMULATOR...] -- FILE... [-k TEST]

Every block marked c or cpp (in a header, @code or @code{.cpp}) is an example:

- One with a main() is a program. Any other is a fragment of one (scripts/examples.py).
- "// prints: TEXT" announces a line of standard output; with one such line in it, an example
  must print all that it announces, in this order, and nothing else (the timer service's own lines
  aside). It must end with status 0.
- It runs in a folder of its own that holds notes.txt ("one", an empty line, "two"), as the user
  whose home is /home/ada. "localhost:8080" is a web server on the loopback that has notes.txt.

Every line of a block marked sh is a command. Those that compile and run a program do so against
an installed copy, with program.c, or program.cc, the last program above in the document. Those of
cmake run in a copy of the sources, where builds need only be possible. Of others the command must exist.

SPDX-License-Identifier: MIT
"""

import concurrent.futures
import functools
import http.server
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import threading
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts"))
from examples import is_program, outside
from project import PUBLIC_INCLUDES

SOURCE = pathlib.Path()
BUILD = pathlib.Path()
COMPILERS = {}  # by language
FLAGS = []
EMULATOR = []
FILES = []

NOTES = "one\n\ntwo\n"
HEADERS = {"c": ["groundwork/groundwork.h", "groundwork/url.h", "stdio.h", "stdlib.h", "string.h"],
           "cpp": ["groundwork/groundwork.hpp", "cstdio", "cstdlib", "memory", "string"]}
WARNINGS = ["-Wall", "-Wextra", "-Wpedantic", "-Werror"]
LANGUAGES = {"c": "c", "cpp": "cc"}
PATIENCE = 120


class Block:
    def __init__(self, file, number, language, lines):
        self.file, self.number, self.language, self.lines = file, number, language, lines

    def __str__(self):
        return f"{self.file.relative_to(SOURCE)}:{self.number}"

    def is_program(self):
        return is_program(self.lines)

    def program(self):
        def lines(begin, end):
            place = f'#line {self.number + 1 + begin} "{self.file}"'
            return [place, *self.lines[begin:end]]

        if self.is_program():
            return "\n".join(lines(0, None)) + "\n"
        cut = outside(self.lines)
        return "\n".join([*(f"#include <{header}>" for header in HEADERS[self.language]),
                          *lines(0, cut),
                          "int main(void) {", *lines(cut, None), "return 0;", "}"]) + "\n"

    def announced(self):
        return [match[1] for line in self.lines if (match := re.search(r"// prints: (.*)$", line))]


def blocks(file):
    """The blocks of a document or a header that are marked with a language."""
    comment = " * " if file.suffix in (".h", ".hpp") else ""
    begin = r" \* @code(?:\{\.(\w+)\})?$" if comment else r"```(\w+)$"
    end = " * @endcode" if comment else "```"
    language, number, found = None, 0, []
    for index, line in enumerate(file.read_text(encoding="utf-8").splitlines(), 1):
        if language is None:
            if match := re.match(begin, line):
                language, number, found = match[1] or "c", index, []
        elif line == end:
            yield Block(file, number, language, found)
            language = None
        else:
            found.append(line[len(comment):])
    assert language is None, f"{file}:{number}: has no end"


def run(*command, **options):
    done = subprocess.run([str(part) for part in command], stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, text=True, check=False, timeout=PATIENCE,
                          **options)
    if done.returncode != 0:
        raise AssertionError(f"{' '.join(map(str, command))}: status {done.returncode}\n"
                             f"{(done.stdout + done.stderr)[-3000:]}")
    return done.stdout


class Silent(http.server.SimpleHTTPRequestHandler):
    def log_message(self, *_):
        pass


class Server(http.server.ThreadingHTTPServer):
    def handle_error(self, *_):
        """An example may close its stream before all has come."""


class Case(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)


class Examples(Case):
    def setUp(self):
        super().setUp()
        web = self.folder / "web"
        web.mkdir()
        (web / "notes.txt").write_text(NOTES, encoding="ascii")
        server = Server(("127.0.0.1", 0), functools.partial(Silent, directory=web))
        threading.Thread(target=server.serve_forever, daemon=True).start()
        self.addCleanup(server.server_close)
        self.addCleanup(server.shutdown)
        self.port = server.server_port

    def compiled(self, block):
        """Its program, in a folder of its own, empty but for the notes."""
        folder = pathlib.Path(tempfile.mkdtemp(dir=self.folder))
        (folder / "notes.txt").write_text(NOTES, encoding="ascii")
        language = LANGUAGES[block.language]
        text = block.program().replace("localhost:8080", f"127.0.0.1:{self.port}")
        text = text.replace('"localhost", 8080', f'"127.0.0.1", {self.port}')
        source = folder / f"example.{language}"
        source.write_text(text, encoding="utf-8")
        program = folder / "example"
        run(*COMPILERS[language], *FLAGS, *WARNINGS, *(f"-I{folder}" for folder in PUBLIC_INCLUDES),
            source, "-o", program, f"-L{BUILD}", "-lgroundwork",
            f"-Wl,-rpath,{BUILD}")
        return program

    def output(self, program):
        return run(*EMULATOR, program, cwd=program.parent,
                   env={**os.environ, "HOME": "/home/ada"})

    def test_each_compiles_runs_and_prints_what_it_announces(self):
        examples = [block for file in FILES for block in blocks(file)
                    if block.language in LANGUAGES]
        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            outputs = [pool.submit(lambda block: self.output(self.compiled(block)), block)
                       for block in examples]
        for block, output in zip(examples, outputs):
            with self.subTest(str(block)):
                own = [line for line in output.result().splitlines()
                       if not line.startswith("g_timer:")]
                if block.announced():
                    self.assertEqual(own, block.announced())

    def test_the_program_of_the_readme_counts_its_port_up_and_ticks(self):
        program = self.compiled(next(block for block in blocks(SOURCE / "README.md")
                                     if block.is_program()))
        for port in ("8080", "8081"):
            output = self.output(program)
            self.assertIn(f"net.port is now {port}\n", output)
            self.assertRegex(output, re.compile(r"^tick at \d+ ms$", re.M))
            conf = (program.parent / "hello.conf").read_text(encoding="ascii")
            self.assertEqual(conf, f"[net]\nport={port}\n\n")


class Commands(Case):
    def setUp(self):
        super().setUp()
        names = run("git", "-C", SOURCE, "ls-files").splitlines()
        self.sources = self.folder / "source"
        for name in names:
            if (SOURCE / name).is_file():
                (self.sources / name).parent.mkdir(parents=True, exist_ok=True)
                shutil.copy2(SOURCE / name, self.sources / name)
        # The installed copy, as if in a standard place, and the compilers of its programs.
        self.prefix = self.folder / "copy"
        run("cmake", "--install", BUILD, "--prefix", self.prefix)
        self.programs = self.folder / "programs"
        tools = self.folder / "bin"
        for folder in (self.programs, tools):
            folder.mkdir()
        for name, language in (("cc", "c"), ("c++", "cc")):
            wrapper = tools / name
            command = " ".join([COMPILERS[language][0], *FLAGS])
            wrapper.write_text(f'#!/bin/sh\nexec {command} "$@"\n', encoding="ascii")
            wrapper.chmod(0o755)
        self.environment = {
            **os.environ, "PATH": f"{tools}:{os.environ['PATH']}",
            "CPATH": str(self.prefix / "include"), "LIBRARY_PATH": str(self.prefix / "lib"),
            "LD_LIBRARY_PATH": str(self.prefix / "lib"),
            "PKG_CONFIG_PATH": str(self.prefix / "lib/pkgconfig")}

    def walk(self, command):
        word = command.split()[0]
        if word in ("cc", "c++", "pkg-config") or word.startswith("./") and \
                not (SOURCE / word).exists():
            run("sh", "-ec", command, cwd=self.programs, env=self.environment)
        elif preset := re.search(r"--preset (\S+)", command):
            self.assertIn(f'"name": "{preset[1]}"', (SOURCE / "CMakePresets.json").read_text())
        elif command.startswith("cmake --install"):
            self.assertRegex(command, r"^cmake --install build/\w+")  # setUp() has done it
        elif command.startswith("cmake --build"):
            match = re.match(r"cmake --build (\S+)(?: -t (\w+))?$", command)
            targets = run("cmake", "--build", match[1], "-t", "help", cwd=self.sources)
            self.assertIn(f"... {match[2] or 'all'}", targets)
        elif word == "cmake":
            run("sh", "-ec", command, cwd=self.sources)
        else:
            run("sh", "-nc", command)
            path = f"{os.environ['PATH']}:/usr/sbin:/sbin:{self.prefix}/bin"
            self.assertTrue((SOURCE / word).exists() or shutil.which(word, path=path), word)

    def test_each_command_of_ctest_finds_tests_and_a_build(self):
        known = run("ctest", "-N", cwd=BUILD)
        command = re.compile(r"(?:\./test (\S+) && )?ctest --preset ([\w-]+)(?: -R ([^\s`]+))?")
        for file in FILES:
            text = file.read_text(encoding="utf-8")
            for built, preset, pattern in command.findall(text):
                with self.subTest(file=file.name, preset=preset, pattern=pattern):
                    # A clean clone has no build.
                    self.assertTrue(built == preset or f"cmake --build --preset {preset}" in text)
                    self.assertRegex(known, rf"Test +#\d+: .*{pattern}")

    def test_each_command_line_works(self):
        for file in FILES:
            for block in blocks(file):
                if block.language in LANGUAGES and block.is_program():
                    source = self.programs / f"program.{LANGUAGES[block.language]}"
                    source.write_text("\n".join(block.lines) + "\n", encoding="utf-8")
                if block.language != "sh":
                    continue
                for line in "\n".join(block.lines).replace("\\\n", "").splitlines():
                    for command in re.sub(r"(^|\s+)# .*", "", line).split(" && "):
                        with self.subTest(str(block), command=command):
                            if command:
                                self.walk(command)


if __name__ == "__main__":
    cut = sys.argv.index("--")
    SOURCE, BUILD = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
    COMPILERS = {"c": [sys.argv[3], "-std=c99"], "cc": [sys.argv[4], "-std=c++17"]}
    FLAGS, EMULATOR = sys.argv[5].split(), sys.argv[6:cut]
    names = sys.argv[cut + 1:]
    options = names[names.index("-k"):] if "-k" in names else []
    FILES = [SOURCE / name for name in names[:len(names) - len(options)]]
    unittest.main(argv=sys.argv[:1] + options)
