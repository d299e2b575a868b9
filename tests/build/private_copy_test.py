#!/usr/bin/env python3
"""A program that also uses another library with names of this one: what happens, and the two recipes
of docs/building.md, a private copy with hidden names and one with other names.

  private_copy_test.py SOURCE_DIR BUILD_DIR C_COMPILER FLAGS NM OBJCOPY [EMULATOR...]

SPDX-License-Identifier: MIT
"""

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

# Another library: two names as here, another meaning, and a function that relies on its own.
OTHER = """
int g_file_exist(const char* name);
int g_file_remove(const char* name);
int other_exist(void);
int g_file_exist(const char* name) { (void)name; return 42; }
int g_file_remove(const char* name) { (void)name; return 43; }
int other_exist(void) { return g_file_exist("no such file") == 42; }
"""

# The part of the program that uses this library.
UNIT = """
#include <groundwork/groundwork.h>
#include <stdlib.h>
#include <string.h>
int ours_works(void);
int ours_works(void) {
  char* text = g_strdup_printf("%d", 80);
  GHash* hash = g_hash_new(0, g_hash_str, g_hash_str_equal, NULL);
  int works = text != NULL && strcmp(text, "80") == 0 && hash != NULL &&
              g_file_exist("/proc/self/exe") == 1 && g_file_exist("no such file") == 0;
  g_hash_free(hash);
  free(text);
  return works;
}
"""

MAIN = """
int other_exist(void);
int ours_works(void);
int main(void) { return (ours_works() ? 0 : 1) + (other_exist() ? 0 : 2); }
"""

# As the former, and calls the other library by a name that both have.
CALLS_BOTH = """
int other_exist(void);
int ours_works(void);
int g_file_remove(const char* name);
int main(void) {
  return (ours_works() ? 0 : 1) + (other_exist() ? 0 : 2) + (g_file_remove("x") == 43 ? 0 : 4);
}
"""

SOURCE = pathlib.Path()
BUILD = pathlib.Path()
COMPILER = []
NM = ""
OBJCOPY = ""
EMULATOR = []


def run(*command, **options):
    done = subprocess.run([str(part) for part in command], stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, check=False, **options)
    if done.returncode != 0:
        raise AssertionError(f"{' '.join(map(str, command))}\n{done.stdout}")
    return done.stdout


class PrivateCopy(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        # pylint: disable=consider-using-with
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = pathlib.Path(folder.name)
        for name, text in (("other", OTHER), ("unit", UNIT), ("main", MAIN),
                           ("both", CALLS_BOTH)):
            source = cls.folder / f"{name}.c"
            source.write_text(text, encoding="ascii")
            folders = [f"-I{SOURCE}/{part}/include" for part in ("core", "url")]
            run(*COMPILER, "-fPIC", "-Wall", "-Wextra", "-Werror", *folders, "-c", source, "-o",
                cls.folder / f"{name}.o")
        run(*COMPILER, "-shared", cls.folder / "other.o", "-o", cls.folder / "libother.so")

    def link(self, *arguments, output="program"):
        program = self.folder / output
        run(*COMPILER, "-o", program, f"-L{self.folder}", f"-L{BUILD}", *arguments, "-pthread")
        return program

    def status(self, program):
        environment = {**os.environ, "LD_LIBRARY_PATH": f"{self.folder}:{BUILD}"}
        return subprocess.run([*EMULATOR, str(program)], env=environment, check=False,
                              stderr=subprocess.DEVNULL).returncode

    def exported(self, file):
        lines = run(NM, "-D", "--defined-only", file).splitlines()
        names = {line.split()[-1].split("@")[0] for line in lines}
        return {name for name in names if name.startswith(("g_", "url_", "_ZN10groundwork"))}

    def objects(self, *names):
        return [self.folder / f"{name}.o" for name in names]

    def test_without_it_the_other_library_calls_this_one(self):
        program = self.link(*self.objects("main", "unit"), "-lgroundwork", "-lother")
        self.assertEqual(self.status(program), 2)

    def test_plain_static_copy_is_called_by_the_other_library(self):
        program = self.link(*self.objects("main", "unit"), "-l:libgroundwork.a", "-lother")
        self.assertIn("g_file_exist", self.exported(program))
        self.assertEqual(self.status(program), 2)

    def test_hidden_names_keep_both_apart_in_a_program(self):
        program = self.link(*self.objects("main", "unit"), "-l:libgroundwork.a",
                            "-Wl,--exclude-libs,libgroundwork.a", "-lother")
        self.assertEqual(self.exported(program), set())
        self.assertEqual(self.status(program), 0)

    def test_hidden_names_keep_both_apart_in_a_shared_object(self):
        self.link("-shared", *self.objects("unit"), "-l:libgroundwork.a",
                  "-Wl,--exclude-libs,libgroundwork.a", output="libpart.so")
        self.assertEqual(self.exported(self.folder / "libpart.so"), set())
        for order in (["-lpart", "-lother"], ["-lother", "-lpart"]):
            program = self.link(*self.objects("main"), *order)
            self.assertEqual(self.status(program), 0)

    def test_other_names_let_a_program_call_both(self):
        listing = run(NM, "-g", "--defined-only", BUILD / "libgroundwork.a")
        names = sorted({line.split()[2] for line in listing.splitlines()
                        if len(line.split()) == 3})
        self.assertIn("g_file_exist", names)
        renaming = self.folder / "names"
        renaming.write_text("".join(f"{name} my_{name}\n" for name in names), encoding="ascii")
        run(OBJCOPY, f"--redefine-syms={renaming}", BUILD / "libgroundwork.a",
            self.folder / "libmine.a")
        run(OBJCOPY, f"--redefine-syms={renaming}", self.folder / "unit.o",
            self.folder / "my_unit.o")
        program = self.link(*self.objects("both", "my_unit"), "-l:libmine.a", "-lother")
        self.assertEqual({name for name in self.exported(program)}, set())
        self.assertEqual(self.status(program), 0)


if __name__ == "__main__":
    SOURCE, BUILD = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
    COMPILER = [sys.argv[3], *sys.argv[4].split()]
    NM, OBJCOPY = sys.argv[5:7]
    EMULATOR = sys.argv[7:]
    unittest.main(argv=sys.argv[:1])
