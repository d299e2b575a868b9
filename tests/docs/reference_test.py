#!/usr/bin/env python3
"""Builds the reference and looks at what came of it: nothing public without its description, a
manual page for each exported function that can be read alone and whose examples compile as they are
printed, links that lead somewhere.

  reference_test.py SOURCE_DIR BUILD_DIR C_COMPILER FLAGS

SPDX-License-Identifier: MIT
"""

import html.parser
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import textwrap
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts"))
from project import PUBLIC_FOLDERS, PUBLIC_INCLUDES

SOURCE = pathlib.Path()
BUILD = pathlib.Path()
COMPILER = []

# The order of man-pages(7).
SECTIONS = ["NAME", "LIBRARY", "SYNOPSIS", "DESCRIPTION", "PARAMETERS", "RETURN VALUE", "ERRORS", "FILES",
            "ENVIRONMENT", "ATTRIBUTES", "STANDARDS", "HISTORY", "NOTES", "EXAMPLES", "SEE ALSO"]
OF_A_FUNCTION = {"NAME", "LIBRARY", "SYNOPSIS", "DESCRIPTION", "RETURN VALUE", "ATTRIBUTES", "HISTORY",
                 "EXAMPLES", "SEE ALSO"}


def run(*command):
    return subprocess.run([str(part) for part in command], stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, check=False)


class Page(html.parser.HTMLParser):
    def __init__(self, file):
        super().__init__()
        self.names, self.links, self.tags = set(), [], set()
        self.feed(file.read_text(encoding="utf-8"))

    def handle_starttag(self, tag, attrs):
        self.tags.add(tag)
        for key, value in attrs:
            if key in ("id", "name"):
                self.names.add(value)
            elif key in ("href", "src"):
                self.links.append(value)


class Text(html.parser.HTMLParser):
    """The words of a page, with one blank between them."""

    def __init__(self, file):
        super().__init__()
        self.words = ""
        self.feed(file.read_text(encoding="utf-8"))
        self.words = " ".join(self.words.split())

    def handle_data(self, data):
        self.words += data

    def handle_endtag(self, tag):
        if tag in ("p", "dt", "dd", "h1", "h2"):
            self.words += " "


class Reference(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        # pylint: disable=consider-using-with
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = pathlib.Path(folder.name) / "reference"
        cls.built = run(SOURCE / "scripts/docs", "--no-setup", cls.folder)
        lines = (BUILD / "exports.txt").read_text(encoding="ascii").splitlines()
        cls.functions = [line.split()[0] for line in lines if line.split()[1] == "function"]
        cls.data = [line.split()[0] for line in lines if line.split()[1] == "data"]
        cls.pages = sorted((cls.folder / "man/man3").glob("*.3"))

    def page(self, name):
        return self.folder / "man/man3" / f"{name}.3"

    def test_is_built_without_a_complaint(self):
        self.assertEqual((self.built.returncode, self.built.stdout), (0, ""))

    def test_each_exported_function_has_a_manual_page(self):
        self.assertGreater(len(self.functions), 200)
        for name in self.functions:
            with self.subTest(name):
                text = self.page(name).read_text(encoding="ascii")
                self.assertIn(".SH SYNOPSIS\n", text)
                if not self.page(name).is_symlink():
                    self.assertIn(f"\n.SH NAME\n{name} \\- ", text)
                    self.assertRegex(text, f" \\*{{0,2}}{name}\\(")

    def test_exported_data_have_one_too_unless_the_name_is_everybodys(self):
        for name in self.data:
            with self.subTest(name):
                short = name in ("e", "fp", "ip", "p32", "pc1", "pc2", "rotate", "s_box")
                self.assertEqual(self.page(name).exists(), not short)

    def test_manual_pages_say_what_programs_must_know(self):
        text = run("man", "-M", self.folder / "man", "-P", "cat", "g_conf_register_callback").stdout
        for part in ("#include <groundwork/conf.h>", "-lgroundwork", "int (*GConfCallback)(",
                     "PARAMETERS", "RETURN VALUE", "Thread safety", "groundwork_conf(3)"):
            self.assertIn(part, text)

    def source(self, page):
        return page.read_text(encoding="ascii")

    def pages_of_functions(self):
        return [page for name in self.functions if not (page := self.page(name)).is_symlink()]

    def test_pages_of_functions_have_the_sections_of_the_systems_pages_in_their_order(self):
        for page in self.pages_of_functions():
            with self.subTest(page.stem):
                found = re.findall(r"^\.SH (.*)$", self.source(page), re.M)
                self.assertLessEqual(OF_A_FUNCTION, set(found))
                self.assertEqual(found, sorted(found, key=SECTIONS.index))

    def test_each_page_can_be_read_alone(self):
        elsewhere = re.compile(
            r"^\.TP\n\\fI.*\nAs (there|for|with|by|g_|url_|\\f).*\n(?=\.)|\b[Aa]s there\b|"
            r"\b(as|see|described|listed|given|said) (the [a-z]+ )?(above|below)\b|"
            r"\bthe (levels|warning|results|table|example) above\b", re.M)
        for page in self.pages_of_functions():
            with self.subTest(page.stem):
                self.assertEqual([match[0] for match in elsewhere.finditer(self.source(page))], [])

    def test_examples_compile_as_they_are_printed(self):
        printed = {}  # the pages of each program
        for page in [*self.pages_of_functions(), self.page("groundwork"),
                     *(self.folder / "man/man3").glob("groundwork_*.3")]:
            text = run("mandoc", "-T", "ascii", "-O", "width=160", page).stdout
            part = re.search(r"^EXAMPLES\n(.*?)^SEE ALSO", re.sub(".\b", "", text), re.M | re.S)
            programs = part and re.findall(r"^#include <groundwork/.*?^int main\(.*?^}$",
                                           textwrap.dedent(part[1]), re.M | re.S)
            with self.subTest(page.stem):
                self.assertTrue(programs)
            for program in programs or []:
                printed.setdefault(program, []).append(page.stem)
        self.assertGreater(len(printed), 20)
        for program, names in printed.items():
            with self.subTest(pages=names):
                source = self.folder / "example.c"
                source.write_text(program + "\n", encoding="ascii")
                # Linked and run they are by examples_test.py.
                built = run(*COMPILER, "-fsyntax-only", "-Wall", "-Wextra", "-Wpedantic", "-Werror",
                            *(f"-I{folder}" for folder in PUBLIC_INCLUDES), source)
                self.assertEqual((built.returncode, built.stdout), (0, ""), program)

    def references(self, page):
        part = re.search(r"^\.SH SEE ALSO\n(.*)", self.source(page), re.M | re.S)
        text = part[1].replace("\\%", "").replace("\\-", "-") if part else ""
        return set(re.findall(r"^\.BR (\S+) \((\d)\)", text, re.M))

    def test_references_lead_both_ways_those_of_the_tools_too(self):
        own = {page.stem: page for page in self.pages if not page.is_symlink()}
        tools = {tool.stem: tool for tool in (SOURCE / "tools").glob("*.1")}
        for name in self.functions:
            if name in own:
                for other, section in self.references(own[name]):
                    if other in tools:
                        with self.subTest(name=name, other=other):
                            self.assertEqual(section, "1")
                            self.assertIn((name, "3"), self.references(tools[other]))
                    elif other in own and other in self.functions:
                        with self.subTest(name=name, other=other):
                            self.assertIn((name, "3"), self.references(own[other]))
        for name, tool in tools.items():
            for other, section in self.references(tool):
                with self.subTest(name=name, other=other):
                    if section == "3":
                        self.assertIn((name, "1"), self.references(own[other]))
                    elif other in tools:
                        self.assertIn((name, "1"), self.references(tools[other]))

    def test_tools_documents_and_example_programs_have_pages(self):
        pages = {file.stem for file in (self.folder / "html").glob("*.html")}
        documents = {file.stem for file in (SOURCE / "docs").glob("*.md")} - {"start"}
        tools = {tool.stem.replace("-", "_") for tool in (SOURCE / "tools").glob("*.1")}
        programs = {f"example_{file.stem}_{file.suffix[1:]}" for file in (SOURCE / "examples").glob("*/*.c*")
                    if file.suffix in (".c", ".cc")}
        self.assertGreater(len(tools), 2)
        self.assertEqual((documents | tools | programs) - pages, set())

    def test_pages_of_tools_say_what_their_manual_pages_say(self):
        text = Text(self.folder / "html/gw_cat.html").words
        for part in ("gw-cat [OPTION]... URL", "-o, --output FILE", "http://host[:port]path",
                     'file:path, path a local file; "~/" and "~user/" at the start',
                     "%20 in a name means", "cat(1), gw-conf(1)", "url_open(3)"):
            self.assertIn(part, text)

    def test_manual_pages_please_the_formatters(self):
        lint = run("mandoc", "-T", "lint", *self.pages)
        self.assertEqual((lint.returncode, lint.stdout), (0, ""))
        groff = run("groff", "-z", "-t", "-man", "-ww", "-Tutf8", "-rLL=80n",
                    *(page for page in self.pages if not page.is_symlink()))
        self.assertEqual((groff.returncode, groff.stdout), (0, ""))
        names = run("lexgrog", *self.pages)
        self.assertEqual(names.returncode, 0, names.stdout)
        self.assertIn('g_timer_init.3: "g_timer_init - ', names.stdout)

    def test_links_lead_somewhere_and_nothing_needs_a_script(self):
        folder = self.folder / "html"
        pages = {file.name: Page(file) for file in folder.glob("*.html")}
        self.assertEqual(list(folder.glob("*.js")), [])
        for name, page in pages.items():
            # The search in the index of functions is one; the index is there without it.
            if name != "function_index.html":
                self.assertNotIn("script", page.tags, name)
            for link in page.links:
                with self.subTest(page=name, link=link):
                    if link.startswith(("https:", "mailto:")):
                        continue
                    target, _, anchor = link.partition("#")
                    self.assertTrue((folder / (target or name)).is_file())
                    if anchor:
                        self.assertIn(anchor, pages[target or name].names)

    def test_no_page_names_the_place_of_the_sources_or_of_the_build(self):
        for file in [*self.pages, *(self.folder / "html").iterdir()]:
            data = file.read_bytes()
            for place in (SOURCE, self.folder):
                self.assertNotIn(bytes(place), data, file)

    def test_the_start_page_shows_its_programs_whole(self):
        text = (self.folder / "html/index.html").read_text(encoding="utf-8")
        self.assertIn("[](<span", text)
        self.assertIn("hello %s\\n", text)

    def test_every_function_and_every_group_is_in_the_indexes(self):
        folder = self.folder / "html"
        index = (folder / "function_index.html").read_text(encoding="utf-8")
        for name in self.functions:
            if name != "g_scandir_time64":
                self.assertRegex(index,
                                 rf'href="group__\w+\.html#\w+"[^>]*>{name}\(\)</a> \w[^<]*</li>')
        subsystems = Page(folder / "subsystems.html").links
        for group in folder.glob("group__*.html"):
            self.assertIn(group.name, subsystems)

    def test_a_missing_description_fails_the_build(self):
        copy = self.folder / "copy"
        for part in ("cmake", "docs", "examples", "scripts", "tools", *PUBLIC_FOLDERS):
            shutil.copytree(SOURCE / part, copy / part)
        shutil.copy(SOURCE / "CMakeLists.txt", copy)
        header = copy / "core/include/groundwork/fifo.h"
        whole = header.read_text(encoding="ascii")
        for missing in (" * @param max_buf  capacity in elements; at least 1.\n",
                        "/** A ring; made by g_fifo_new(). */\n",
                        " * Returns the capacity of a ring buffer.\n",
                        " * @return 0; -1 when `fifo` is null.\n"):
            with self.subTest(missing):
                self.assertIn(missing, whole)
                header.write_text(whole.replace(missing, ""), encoding="ascii")
                built = run(copy / "scripts/docs", "--no-setup", copy / "build")
                self.assertNotEqual(built.returncode, 0)
                self.assertIn("fifo.h:", built.stdout)


if __name__ == "__main__":
    SOURCE, BUILD = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
    COMPILER = [sys.argv[3], *sys.argv[4].split()]
    unittest.main(argv=sys.argv[:1] + sys.argv[5:])
