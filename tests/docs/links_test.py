#!/usr/bin/env python3
"""Follows the links of the documents: in the repository, and of those that are installed, where they are
installed.

  links_test.py SOURCE_DIR

SPDX-License-Identifier: MIT
"""

import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

SOURCE = pathlib.Path()


def text_of(file):
    """A document without its code."""
    text = re.sub(r"^```.*?^```$", "", file.read_text(encoding="utf-8"), flags=re.M | re.S)
    return re.sub(r"`[^`\n]*`", "code", text)


def links(file):
    """The targets within the tree: file and heading."""
    for target in re.findall(r"\[[^\]]*\]\(([^)\s]+)\)", text_of(file)):
        if not re.match("[a-z]+:", target):
            name, _, heading = target.partition("#")
            yield target, name, heading


def headings(file):
    """The anchors that a viewer of the repository gives to the headings."""
    lines = re.sub(r"^```.*?^```$", "", file.read_text(encoding="utf-8"), flags=re.M | re.S)
    return {re.sub(r"[^\w -]", "", line.lower()).replace(" ", "-")
            for line in re.findall(r"^#+ (.*)$", lines, re.M)}


def run(*command):
    return subprocess.run([str(part) for part in command], stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, check=True).stdout


class Links(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def test_in_the_repository_each_leads_to_a_file_of_it(self):
        tracked = {SOURCE / name for name in run("git", "-C", SOURCE, "ls-files").splitlines()}
        folders = {folder for file in tracked for folder in file.parents}
        seen = 0
        for file in sorted(tracked):
            if file.suffix != ".md" or not file.is_file():
                continue
            for target, name, heading in links(file):
                seen += 1
                with self.subTest(file=str(file.relative_to(SOURCE)), target=target):
                    to = (file.parent / name).resolve() if name else file
                    self.assertTrue(to in tracked or to in folders)
                    if heading:
                        self.assertIn(heading, headings(to))
        self.assertGreater(seen, 40)

    def configured(self, *options):
        """The README to be installed of a build with these options."""
        run("cmake", "-S", SOURCE, "-B", self.folder / "build", "-DBUILD_TESTING=OFF", *options)
        return self.folder / "build/README.md"

    def test_of_the_installed_readme_each_leads_to_something_installed(self):
        run(SOURCE / "scripts/docs", "--no-setup", self.folder)
        installed = {"LICENSE", "CHANGELOG.md", "examples"} | {
            f"html/{file.name}" for file in (self.folder / "html").iterdir()}
        targets = {target for target, _, _ in links(self.configured("-DGROUNDWORK_DOCS=ON"))}
        self.assertEqual(targets - installed, set())
        for target in ("html/hazards.html", "html/monitor.svg", "examples", "LICENSE"):
            self.assertIn(target, targets)

    def test_an_installed_readme_without_the_reference_has_no_link_to_it(self):
        targets = {target for target, _, _ in links(self.configured("-DGROUNDWORK_DOCS=OFF"))}
        self.assertEqual(targets, {"LICENSE", "CHANGELOG.md", "examples"})

    def test_a_package_can_tell_where_its_reference_is(self):
        readme = self.configured("-DGROUNDWORK_REFERENCE_LINK=/doc/html")
        self.assertIn("](/doc/html/hazards.html)", readme.read_text(encoding="utf-8"))


if __name__ == "__main__":
    SOURCE = pathlib.Path(sys.argv[1]).resolve()
    unittest.main(argv=sys.argv[:1] + sys.argv[2:])
