#!/usr/bin/env python3
"""Makes the release archive and installs the reference from it on a machine without Doxygen.

  dist_test.py SOURCE_DIR

SPDX-License-Identifier: MIT
"""

import os
import pathlib
import subprocess
import sys
import tarfile
import tempfile
import unittest

SOURCE = pathlib.Path()


def run(*command, **environment):
    done = subprocess.run([str(part) for part in command], stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, check=False,
                          env={**os.environ, **environment})
    if done.returncode != 0:
        raise AssertionError(f"{command}: {done.stdout}")
    return done.stdout


class Archive(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        # pylint: disable=consider-using-with
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = pathlib.Path(folder.name)
        cls.archive = pathlib.Path(run(SOURCE / "scripts/dist", "--no-setup", cls.folder / "1").strip())
        with tarfile.open(cls.archive) as archive:
            archive.extractall(cls.folder)
        cls.tree = cls.folder / cls.archive.name.removesuffix(".tar.xz")

    def test_the_same_commit_gives_the_same_bytes(self):
        again = run(SOURCE / "scripts/dist", "--no-setup", self.folder / "2",
                    SOURCE_DATE_EPOCH="86400", TZ="Asia/Tokyo").strip()  # as if on another day
        self.assertEqual(self.archive.read_bytes(), pathlib.Path(again).read_bytes())

    def test_its_tree_is_the_commit_and_the_reference(self):
        made = {str(file.relative_to(self.tree)) for file in self.tree.rglob("*")
                if not file.is_dir() or file.is_symlink()}
        tracked = set(run("git", "-C", SOURCE, "ls-tree", "-r", "--name-only", "HEAD").splitlines())
        self.assertEqual(tracked - made, set())
        self.assertEqual({name for name in made - tracked if not name.startswith("docs/ready/")}, set())

    def test_installs_manual_pages_and_html_without_doxygen(self):
        build, copy = self.folder / "build", self.folder / "copy"
        run("cmake", "-S", self.tree, "-B", build, "-DBUILD_TESTING=OFF", "-DDOXYGEN=DOXYGEN-NOTFOUND")
        run("cmake", "--install", build, "--prefix", copy, "--component", "documentation")
        self.assertIn("g_fifo_put - ", run("man", "-M", copy / "share/man", "-P", "cat", "g_fifo_put",
                                           MANWIDTH="80"))
        self.assertTrue((copy / "share/doc/groundwork/html/index.html").is_file())


if __name__ == "__main__":
    SOURCE = pathlib.Path(sys.argv[1]).resolve()
    unittest.main(argv=sys.argv[:1] + sys.argv[2:])
