#!/usr/bin/env python3
"""Installs what this build made, moves it, and builds and runs programs against the copy, as
C99 and as C++11, shared and static, by each way that users have: a bare compiler line,
pkg-config, CMake.

  install_test.py BUILD_DIR LIBDIR DOCDIR C_COMPILER C++_COMPILER FLAGS TOOLCHAIN_FILE [EMULATOR...]

LIBDIR and DOCDIR are relative to the prefix.

SPDX-License-Identifier: MIT
"""

import hashlib
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

PROGRAM = """
#include <groundwork/groundwork.h>
#include <groundwork/url.h>
#include <stdlib.h>
#include <string.h>
static void* run(void* data) { *(int*)data = 1; return NULL; }
int main(void) {
  char* text = g_strdup_printf("%s=%d", "port", 80);
  int right = text != NULL && strcmp(text, "port=80") == 0 &&
              strcmp(url_strerror(URLERR_TOO_LONG), "URL too long") == 0;
  int ran = 0;
  g_thread_wait(g_thread_create(run, &ran, "run"));
  free(text);
  return right && ran ? 0 : 1;
}
"""

OWNERS = """
#include <groundwork/groundwork.hpp>
int main() { return gw::format("%s=%d", "port", 80).view() == "port=80" ? 0 : 1; }
"""

CONSUMER = """
cmake_minimum_required(VERSION 3.21)
project(consumer LANGUAGES C CXX)
set(CMAKE_C_STANDARD 99)
set(CMAKE_CXX_STANDARD 11)
find_package(groundwork 1.0 CONFIG REQUIRED)
foreach(kind IN ITEMS groundwork static)
  foreach(language IN ITEMS c cc)
    add_executable(${kind}_${language} program.${language})
    target_link_libraries(${kind}_${language} PRIVATE groundwork::${kind})
  endforeach()
endforeach()
find_package(groundwork 2.0 CONFIG QUIET)
if(groundwork_FOUND)
  message(FATAL_ERROR "version 1 was taken for version 2")
endif()
"""

BUILD = pathlib.Path()
LIBDIR = ""
DOCDIR = ""
COMPILERS = {}  # by language
FLAGS = []
TOOLCHAIN = ""
EMULATOR = []


def run(*command, **options):
    done = subprocess.run([str(part) for part in command], stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, check=False, **options)
    if done.returncode != 0:
        raise AssertionError(f"{' '.join(map(str, command))}\n{done.stdout}")
    return done.stdout


class InstalledCopy(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        # pylint: disable=consider-using-with
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = pathlib.Path(folder.name)
        stage = cls.folder / "stage"
        run("cmake", "--install", BUILD, "--prefix", "/opt/groundwork",
            env={**os.environ, "DESTDIR": str(stage)})
        # Moved after the installation: every path is relative.
        cls.prefix = cls.folder / "moved"
        (stage / "opt/groundwork").rename(cls.prefix)
        cls.libraries = cls.prefix / LIBDIR
        cls.documents = cls.prefix / DOCDIR
        for language in COMPILERS:
            (cls.folder / f"program.{language}").write_text(PROGRAM, encoding="ascii")

    def run_on_target(self, *command):
        environment = {**os.environ, "LD_LIBRARY_PATH": str(self.libraries)}
        return run(*EMULATOR, *command, env=environment)

    def pkg_config(self, *arguments):
        environment = {**os.environ, "PKG_CONFIG_LIBDIR": str(self.libraries / "pkgconfig")}
        return run("pkg-config", *arguments, env=environment).split()

    def compile(self, source, *line):
        program = self.folder / "program"
        compiler = COMPILERS.get(source.suffix[1:], [COMPILERS["cc"][0], "-std=c++17"])
        run(*compiler, *FLAGS, "-Wall", "-Wextra", "-Wpedantic", "-Werror",
            source, "-o", program, *line)
        return program

    def test_everything_is_there(self):
        for name in ("include/groundwork/groundwork.h", "include/groundwork/url.h",
                     f"{LIBDIR}/libgroundwork.so", f"{LIBDIR}/libgroundwork.a",
                     f"{LIBDIR}/pkgconfig/groundwork.pc",
                     f"{LIBDIR}/pkgconfig/groundwork-static.pc",
                     f"{LIBDIR}/cmake/groundwork/groundwork-config.cmake",
                     f"{LIBDIR}/cmake/groundwork/groundwork-config-version.cmake",
                     "bin/gw-conf", "bin/gw-log", "bin/gw-cat",
                     "share/man/man1/gw-conf.1",
                     "share/bash-completion/completions/gw-conf",
                     "share/groundwork/groundwork.tsan-supp",
                     f"{DOCDIR}/examples/monitor/monitor.c", f"{DOCDIR}/examples/monitor/monitor.service",
                     f"{DOCDIR}/examples/monitor/monitor.conf", f"{DOCDIR}/LICENSE"):
            with self.subTest(name):
                self.assertTrue((self.prefix / name).is_file())

    def test_the_shared_library_has_its_version_links(self):
        self.assertEqual(os.readlink(self.libraries / "libgroundwork.so"), "libgroundwork.so.1")
        real = os.readlink(self.libraries / "libgroundwork.so.1")
        self.assertRegex(real, r"^libgroundwork\.so\.1\.\d+\.\d+$")
        self.assertFalse((self.libraries / real).is_symlink())

    def test_no_installed_text_names_the_place_of_the_build_or_of_the_installation(self):
        for file in self.prefix.rglob("*"):
            if file.is_file() and not file.is_symlink() and b"\0" not in (data := file.read_bytes()):
                with self.subTest(file):
                    self.assertNotIn(b"/opt/groundwork", data)
                    self.assertNotIn(bytes(BUILD), data)

    def test_the_bill_of_materials_lists_every_file_with_its_checksums(self):
        document = self.documents / "groundwork.spdx.json"
        bill = json.loads(document.read_text(encoding="utf-8"))
        self.assertEqual(bill["spdxVersion"], "SPDX-2.3")
        self.assertEqual(bill["SPDXID"], "SPDXRef-DOCUMENT")
        self.assertEqual(bill["dataLicense"], "CC0-1.0")
        self.assertRegex(bill["creationInfo"]["created"], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ$")
        self.assertRegex(bill["documentNamespace"], r"^https://[^#]+-[0-9a-f]{8}(-[0-9a-f]{4}){3}-")

        def sums(data):
            return {"SHA1": hashlib.sha1(data).hexdigest(),
                    "SHA256": hashlib.sha256(data).hexdigest()}
        listed = {}
        for file in bill["files"]:
            listed[file["fileName"]] = {sum["algorithm"]: sum["checksumValue"]
                                        for sum in file["checksums"]}
            self.assertLessEqual({"licenseConcluded", "licenseInfoInFiles", "copyrightText"},
                                 set(file))
        self.assertEqual(len(listed), len(bill["files"]))
        there = {f"./{file.relative_to(self.prefix)}": sums(file.read_bytes())
                 for file in self.prefix.rglob("*")
                 if file.is_file() and not file.is_symlink() and file != document}
        self.assertEqual(listed, there)

        package = bill["packages"][0]
        version, = self.pkg_config("--modversion", "groundwork")
        self.assertEqual((package["name"], package["versionInfo"], package["licenseDeclared"]),
                         ("groundwork", version, "MIT"))
        code = "".join(sorted(file["SHA1"] for file in listed.values()))
        self.assertEqual(package["packageVerificationCode"]["packageVerificationCodeValue"],
                         hashlib.sha1(code.encode()).hexdigest())

        # Each thing has a name of its own, and what is related exists.
        names = [thing["SPDXID"] for thing in [bill, *bill["packages"], *bill["files"]]]
        self.assertEqual(len(set(names)), len(names))
        related = {(relation["spdxElementId"], relation["relationshipType"],
                    relation["relatedSpdxElement"]) for relation in bill["relationships"]}
        for one, _, other in related:
            self.assertLessEqual({one, other}, set(names))
        self.assertIn(("SPDXRef-DOCUMENT", "DESCRIBES", package["SPDXID"]), related)
        self.assertLessEqual({(package["SPDXID"], "CONTAINS", file["SPDXID"])
                              for file in bill["files"]}, related)

    def test_a_bare_compiler_line(self):
        lines = {
            "shared": [f"-L{self.libraries}", "-lgroundwork"],
            "static": [f"{self.libraries}/libgroundwork.a"],
            "a static program": ["-static", f"-L{self.libraries}", "-lgroundwork"],
        }
        for language in COMPILERS:
            for kind, line in lines.items():
                with self.subTest(language=language, kind=kind):
                    self.run_on_target(self.compile(self.folder / f"program.{language}",
                                                    f"-I{self.prefix}/include", *line))

    def test_pkg_config(self):
        ask = ("--cflags", "--libs")
        lines = {
            "shared": self.pkg_config(*ask, "groundwork"),
            "static": self.pkg_config(*ask, "groundwork-static"),
            "a static program": ["-static", *self.pkg_config("--static", *ask, "groundwork")],
        }
        for language in COMPILERS:
            for kind, line in lines.items():
                with self.subTest(language=language, kind=kind):
                    program = self.compile(self.folder / f"program.{language}", *line)
                    self.run_on_target(program)
                    needed = run("readelf", "-d", program)
                    self.assertEqual("libgroundwork.so.1" in needed, kind == "shared")

    def test_the_owners_of_cpp17(self):
        source = self.folder / "owners.cpp"
        source.write_text(OWNERS, encoding="ascii")
        for package in ("groundwork", "groundwork-static"):
            with self.subTest(package):
                line = self.pkg_config("--cflags", "--libs", package)
                self.run_on_target(self.compile(source, *line))

    def test_cmake(self):
        (self.folder / "CMakeLists.txt").write_text(CONSUMER, encoding="ascii")
        consumer = self.folder / "consumer"
        how = [f"-DCMAKE_TOOLCHAIN_FILE={TOOLCHAIN}"] if TOOLCHAIN else \
            [f"-DCMAKE_C_COMPILER={COMPILERS['c'][0]}",
             f"-DCMAKE_CXX_COMPILER={COMPILERS['cc'][0]}"]
        flags = " ".join(FLAGS)
        run("cmake", "-G", "Ninja", "-S", self.folder, "-B", consumer, *how,
            f"-DCMAKE_C_FLAGS={flags}", f"-DCMAKE_CXX_FLAGS={flags}",
            f"-DCMAKE_PREFIX_PATH={self.prefix}")
        run("cmake", "--build", consumer)
        for kind in ("groundwork", "static"):
            for language in COMPILERS:
                self.run_on_target(consumer / f"{kind}_{language}")

    def test_cmake_where_only_one_of_the_libraries_is_installed(self):
        for left_out, kind in ((".a", "groundwork"), (".so", "static")):
            with self.subTest(kind):
                copy = self.folder / f"only_{kind}"
                shutil.copytree(self.prefix, copy, symlinks=True)
                (copy / LIBDIR / f"libgroundwork{left_out}").unlink()
                source = self.folder / f"source_{kind}"
                source.mkdir()
                (source / "CMakeLists.txt").write_text(
                    f"cmake_minimum_required(VERSION 3.21)\nproject(one LANGUAGES C)\n"
                    f"find_package(groundwork CONFIG REQUIRED)\n"
                    f"if(NOT TARGET groundwork::{kind})\n  message(FATAL_ERROR none)\nendif()\n",
                    encoding="ascii")
                how = [f"-DCMAKE_TOOLCHAIN_FILE={TOOLCHAIN}"] if TOOLCHAIN else \
                    [f"-DCMAKE_C_COMPILER={COMPILERS['c'][0]}", f"-DCMAKE_C_FLAGS={' '.join(FLAGS)}"]
                run("cmake", "-G", "Ninja", "-S", source, "-B", source / "build", *how,
                    f"-DCMAKE_PREFIX_PATH={copy}")

    def test_installed_examples_are_built_and_run(self):
        examples = self.documents / "examples"
        line = self.pkg_config("--cflags", "--libs", "groundwork")
        sources = sorted(examples.glob("*/*.c"))
        self.assertGreaterEqual(len(sources), 8)
        for source in sources:
            with self.subTest(source.name):
                self.compile(source, *line)
        self.run_on_target(self.compile(examples / "ciphers/ciphers.c", *line), "key", "text")

    def test_installed_tools_run(self):
        for tool in ("gw-cat", "gw-conf", "gw-log"):
            with self.subTest(tool):
                printed = self.run_on_target(self.prefix / "bin" / tool, "--version")
                version, = self.pkg_config("--modversion", "groundwork")
                self.assertEqual(printed, f"{tool} (groundwork) {version}\n")


if __name__ == "__main__":
    BUILD = pathlib.Path(sys.argv[1]).resolve()
    LIBDIR, DOCDIR = sys.argv[2:4]
    COMPILERS = {"c": [sys.argv[4], "-std=c99"], "cc": [sys.argv[5], "-std=c++11"]}
    FLAGS = sys.argv[6].split()
    TOOLCHAIN = sys.argv[7]
    EMULATOR = sys.argv[8:]
    unittest.main(argv=sys.argv[:1])
