#!/usr/bin/env python3
"""Builds the library as its users build it: without presets, with another compiler, for
another machine; installs it, and builds programs against the installed copy.

  build_test.py SOURCE_DIR

SPDX-License-Identifier: MIT
"""

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

SOURCE = pathlib.Path()
M32 = ["-DCMAKE_C_FLAGS=-m32", "-DCMAKE_CXX_FLAGS=-m32"]

PROGRAM = """
#include <groundwork/groundwork.h>
#include <groundwork/url.h>
#include <stdlib.h>
#include <string.h>
int main(void) {
  char *text = g_strdup_printf("%s=%d", "port", 80);
  int right = text != NULL && strcmp(text, "port=80") == 0 &&
              strcmp(url_strerror(URLERR_TOO_LONG), "URL too long") == 0;
  free(text);
  return right ? 0 : 1;
}
"""

CONSUMER = """
cmake_minimum_required(VERSION 3.25)
project(consumer LANGUAGES C CXX)
set(CMAKE_C_STANDARD 99)
set(CMAKE_CXX_STANDARD 11)
find_package(groundwork CONFIG REQUIRED)
foreach(kind IN ITEMS groundwork static)
  foreach(language IN ITEMS c cc)
    add_executable(${kind}_${language} program.${language})
    target_link_libraries(${kind}_${language} PRIVATE groundwork::${kind})
  endforeach()
endforeach()
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

    def test_plain_32_bit_build_installs_for_every_kind_of_consumer(self):
        binary = self.build(*M32, targets=("all",))
        stage = self.folder / "stage"
        run("cmake", "--install", binary, env={**os.environ, "DESTDIR": str(stage)})
        # Moved after the installation: every path is relative.
        prefix = self.folder / "moved"
        (stage / "usr/local").rename(prefix)
        for language in ("c", "cc"):
            (self.folder / f"program.{language}").write_text(PROGRAM, encoding="ascii")

        flags = {"c": ["gcc", "-std=c99"], "cc": ["g++", "-std=c++11"]}
        library = {"LD_LIBRARY_PATH": str(prefix / "lib")}
        pkg_config = {**os.environ, "PKG_CONFIG_PATH": str(prefix / "lib/pkgconfig")}
        for language, compiler in flags.items():
            source = self.folder / f"program.{language}"
            program = self.folder / "program"
            compile_line = [*compiler, "-m32", "-Wall", "-Wextra", "-Wpedantic", "-Werror",
                            source, "-o", program]
            lines = {
                "shared": [f"-I{prefix}/include", f"-L{prefix}/lib", "-lgroundwork"],
                "static": [f"-I{prefix}/include", f"{prefix}/lib/libgroundwork.a"],
            }
            for package in ("groundwork", "groundwork-static"):
                lines[package] = run("pkg-config", "--cflags", "--libs", package,
                                     env=pkg_config).split()
            for kind, line in lines.items():
                with self.subTest(language=language, kind=kind):
                    run(*compile_line, *line)
                    run(program, env={**os.environ, **library})

        (self.folder / "CMakeLists.txt").write_text(CONSUMER, encoding="ascii")
        consumer = self.folder / "consumer"
        run("cmake", "-S", self.folder, "-B", consumer, *M32,
            f"-Dgroundwork_DIR={prefix}/lib/cmake/groundwork")
        run("cmake", "--build", consumer)
        for kind in ("groundwork", "static"):
            for language in flags:
                run(consumer / f"{kind}_{language}", env={**os.environ, **library})

        run("cmake", "--build", binary, "--target", "uninstall",
            env={**os.environ, "DESTDIR": str(self.folder / "nowhere")})

    def test_clang_builds_without_a_warning(self):
        self.build(*M32, "-DCMAKE_C_COMPILER=clang", "-DCMAKE_CXX_COMPILER=clang++")

    def test_a_cross_compiler_is_enough(self):
        binary = self.build("-DCMAKE_CXX_COMPILER=mipsel-linux-gnu-g++")
        header = run("readelf", "-h", binary / "libgroundwork.so")
        self.assertIn("MIPS", header)
        self.assertIn("ELF32", header)

    def test_subsystems_can_be_left_out(self):
        binary = self.build(*M32, "-DGROUNDWORK_URL=OFF", "-DGROUNDWORK_CRYPT=OFF",
                            "-DGROUNDWORK_CONF=OFF", targets=("all",))
        symbols = run("nm", "-D", "--defined-only", binary / "libgroundwork.so")
        self.assertIn(" g_hash_find@@", symbols)
        for name in ("url_open", "g_crypt_des_encrypt", "g_conf_open"):
            self.assertNotIn(f" {name}@@", symbols)


if __name__ == "__main__":
    SOURCE = pathlib.Path(sys.argv.pop(1)).resolve()
    unittest.main()
