#!/usr/bin/env python3
"""What debian/ says agrees with the project and with itself. scripts/package builds and checks
the packages themselves.

SPDX-License-Identifier: MIT
"""

import pathlib
import re
import subprocess
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts"))
from project import ROOT, VERSION

DEBIAN = ROOT / "debian"


def paragraphs(path):
    """The fields of each paragraph of a control file."""
    text = re.sub(r"^#.*\n", "", path.read_text(encoding="utf-8"), flags=re.MULTILINE)
    for paragraph in text.strip().split("\n\n"):
        fields = re.findall(r"^(\S+):((?:.*\n?)(?:[ \t].*\n?)*)", paragraph, flags=re.MULTILINE)
        yield {name: value.strip() for name, value in fields}


class Debian(unittest.TestCase):
    def setUp(self):
        self.source, *self.packages = paragraphs(DEBIAN / "control")

    def test_the_newest_changelog_entry_is_for_the_project_version(self):
        first = (DEBIAN / "changelog").read_text(encoding="utf-8").splitlines()[0]
        self.assertRegex(first, rf"^groundwork \({re.escape(VERSION)}-\d+\) bookworm; ")

    def test_the_symbols_file_lists_what_is_exported(self):
        run = subprocess.run([ROOT / "scripts/debian-symbols", "--check"], text=True,
                             capture_output=True, check=False)
        self.assertEqual(run.returncode, 0, run.stdout + run.stderr)

    def test_the_library_package_is_named_after_the_soname(self):
        major = VERSION.split(".", maxsplit=1)[0]
        self.assertEqual([package["Package"] for package in self.packages],
                         [f"libgroundwork{major}", "libgroundwork-dev", "groundwork-tools",
                          "groundwork-doc"])

    def test_files_of_a_package_are_of_a_package_that_exists(self):
        names = {package["Package"] for package in self.packages}
        for suffix in ("install", "symbols", "lintian-overrides", "doc-base", "manpages", "docs"):
            for file in DEBIAN.glob(f"*.{suffix}"):
                self.assertIn(file.name.removesuffix(f".{suffix}"), names)
        for package in names:
            self.assertTrue((DEBIAN / f"{package}.install").is_file(), package)

    def test_what_lies_in_multiarch_folders_can_be_installed_for_several_architectures(self):
        for package in self.packages:
            files = (DEBIAN / f"{package['Package']}.install").read_text(encoding="ascii")
            self.assertEqual(package["Multi-Arch"],
                             "same" if "usr/lib/*/" in files else "foreign", package["Package"])

    def test_the_project_can_be_found(self):
        home = self.source["Homepage"]
        self.assertRegex(home, r"^https://")
        for name in ("watch", "upstream/metadata"):
            self.assertIn(home, (DEBIAN / name).read_text(encoding="ascii"), name)

    def test_the_licence_is_the_project_licence(self):
        licence = list(paragraphs(DEBIAN / "copyright"))[-1]["License"]
        short, _, text = licence.partition("\n")
        self.assertEqual(short, "MIT")
        words = text.replace("\n .\n", "\n").split()
        self.assertEqual(words, (ROOT / "LICENSE").read_text(encoding="ascii").split()[8:])

    def test_tests_of_the_installed_packages_exist_and_can_be_run(self):
        for paragraph in paragraphs(DEBIAN / "tests/control"):
            for name in paragraph["Tests"].split():
                self.assertTrue((DEBIAN / "tests" / name).stat().st_mode & 0o100, name)


if __name__ == "__main__":
    unittest.main()
