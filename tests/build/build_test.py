#!/usr/bin/env python3
"""Builds the library as its users build it: without presets, with another compiler, for
another machine; installs it, and builds programs against the installed copy.

  build_test.py SOURCE_DIR BUILD_DIR [TEST...]

BUILD_DIR is a finished build, for what needs none of its own. TEST is for example
Build.test_clang_builds_without_a_warning; without one, all are run.

SPDX-License-Identifier: MIT
"""

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

SOURCE = pathlib.Path()
BUILD = pathlib.Path()
M32 = ["-DCMAKE_C_FLAGS=-m32", "-DCMAKE_CXX_FLAGS=-m32", "-DGROUNDWORK_DOCS=OFF"]

PARENT = """
cmake_minimum_required(VERSION 3.21)
project(parent LANGUAGES C CXX)
add_subdirectory("${GROUNDWORK}" groundwork EXCLUDE_FROM_ALL)
foreach(kind IN ITEMS groundwork static)
  add_executable(with_${kind} program.c)
  target_link_libraries(with_${kind} PRIVATE groundwork::${kind})
endforeach()
get_property(tests DIRECTORY PROPERTY TESTS)
if(tests OR CMAKE_BUILD_TYPE OR TARGET uninstall OR TARGET monitor OR TARGET gw-cat)
  message(FATAL_ERROR "the library brings more than itself")
endif()
"""

PROGRAM = """
#include <groundwork/groundwork.h>
int main(void) { return g_str_has_prefix("groundwork", "ground") ? 0 : 1; }
"""


def run(*command, **options):
    done = subprocess.run([str(part) for part in command], stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, check=False, **options)
    if done.returncode != 0:
        raise AssertionError(f"{' '.join(map(str, command))}\n{done.stdout}")
    return done.stdout


class Build(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def build(self, *options, targets=("groundwork", "groundwork_static")):
        binary = self.folder / "build"
        run("cmake", "-S", SOURCE, "-B", binary, "-DBUILD_TESTING=OFF", *options)
        output = run("cmake", "--build", binary, "--target", *targets)
        self.assertNotIn("warning:", output)
        return binary

    def test_uninstall_leaves_nothing_and_takes_only_its_own(self):
        stage = self.folder / "stage"
        environment = {**os.environ, "DESTDIR": str(stage)}
        # Nothing is there on the machine itself, should DESTDIR be forgotten.
        install = ("cmake", "--install", BUILD, "--prefix", "/opt/of-a-test")
        # What others keep beside ours, and within our folders.
        prefix = stage / "opt/of-a-test"
        others = [prefix / "include/other.h", prefix / "include/groundwork/other.h",
                  prefix / "lib/libother.so.1", prefix / "share/man/man1/other.1"]
        for other in others:
            other.parent.mkdir(parents=True, exist_ok=True)
            other.touch()
        run(*install, env=environment)
        self.assertTrue((prefix / "lib/libgroundwork.so.1").exists())
        run("cmake", "--build", BUILD, "--target", "uninstall", env=environment)
        left = sorted(path for path in stage.rglob("*") if not path.is_dir())
        self.assertEqual(left, sorted(others))

        others[1].unlink()
        # Part by part, as packages are made, it comes and goes just as well; with a parent
        # folder of ours that was empty before.
        for part in ("runtime", "development"):
            run(*install, "--component", part, env=environment)
        run("cmake", "--build", BUILD, "--target", "uninstall", env=environment)
        left = [path for path in stage.rglob("*") if "groundwork" in path.name]
        self.assertEqual(left, [])
        self.assertTrue(others[0].exists())

        # A second time there is nothing left to do, and nothing is done.
        run("cmake", "--build", BUILD, "--target", "uninstall", env=environment)

    def test_a_project_takes_the_library_in_as_a_subdirectory(self):
        (self.folder / "program.c").write_text(PROGRAM, encoding="ascii")
        (self.folder / "CMakeLists.txt").write_text(PARENT, encoding="ascii")
        binary = self.folder / "build"
        run("cmake", "-S", self.folder, "-B", binary, *M32, f"-DGROUNDWORK={SOURCE}")
        self.assertNotIn("warning:", run("cmake", "--build", binary))
        for kind in ("groundwork", "static"):
            run(binary / f"with_{kind}")

    def test_without_the_sources_of_googletest_there_are_no_tests(self):
        binary = self.folder / "build"
        told = run("cmake", "-S", SOURCE, "-B", binary, *M32,
                   "-DGROUNDWORK_GOOGLETEST_DIR=/nowhere")
        self.assertIn("-- Tests: off, no sources of GoogleTest in /nowhere", told)
        self.assertNotIn("_test", run("cmake", "--build", binary, "--target", "help"))

    def test_the_reference_comes_once_doxygen_has_been_installed(self):
        binary = self.folder / "build"

        def configure(option):
            told = run("cmake", "-S", SOURCE, "-B", binary, "-DBUILD_TESTING=OFF", option)
            targets = run("cmake", "--build", binary, "--target", "help")
            return "-- Reference: off, no doxygen or python3" in told, " docs" in targets

        self.assertEqual(configure("-DDOXYGEN=OFF"), (True, False))
        self.assertEqual(configure("-UDOXYGEN"), (False, True))

    def test_clang_builds_without_a_warning(self):
        self.build(*M32, "-DCMAKE_C_COMPILER=clang", "-DCMAKE_CXX_COMPILER=clang++")

    def test_subsystems_can_be_left_out(self):
        binary = self.build(*M32, "-DGROUNDWORK_URL=OFF", "-DGROUNDWORK_CRYPT=OFF",
                            "-DGROUNDWORK_CONF=OFF", targets=("all",))
        symbols = run("nm", "-D", "--defined-only", binary / "libgroundwork.so")
        self.assertIn(" g_hash_find@@", symbols)
        for name in ("url_open", "g_crypt_des_encrypt", "g_conf_open"):
            self.assertNotIn(f" {name}@@", symbols)

    def test_a_cross_compiler_is_enough_and_the_safe_layer_can_be_left_out(self):
        # Two matters that have nothing to do with each other, for the time of one build.
        binary = self.build("-DCMAKE_CXX_COMPILER=mipsel-linux-gnu-g++", "-DGROUNDWORK_SAFE=OFF")
        header = run("readelf", "-h", binary / "libgroundwork.so")
        self.assertIn("MIPS", header)
        self.assertIn("ELF32", header)
        symbols = run("nm", "-D", "--defined-only", binary / "libgroundwork.so")
        self.assertIn(" g_timer_init@@GROUNDWORK_1.0", symbols)
        self.assertNotIn("GROUNDWORK_1.1", symbols)

    def test_the_reference_is_installed_when_it_was_built(self):
        binary = self.build(*M32[:2], targets=("docs",))  # on by itself
        run("cmake", "--install", binary, "--component", "documentation",
            "--prefix", self.folder / "copy")
        share = self.folder / "copy/share"
        self.assertTrue((share / "doc/groundwork/html/index.html").is_file())
        page = run("man", "-M", share / "man", "-P", "cat", "g_conf_open")
        self.assertIn("g_conf_open - open a configuration", page)


if __name__ == "__main__":
    SOURCE = pathlib.Path(sys.argv.pop(1)).resolve()
    BUILD = pathlib.Path(sys.argv.pop(1)).resolve()
    unittest.main()
