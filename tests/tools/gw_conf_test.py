#!/usr/bin/env python3
"""Runs gw-conf as scripts do.

  gw_conf_test.py COMMAND...   the program, run by an emulator if it needs one

SPDX-License-Identifier: MIT
"""

import fcntl
import os
import subprocess
import sys
import tempfile
import time
import unittest

PROGRAM = []
PATIENCE = 120  # seconds for a run of the program


def run(*arguments, stdout=subprocess.PIPE):
    """Exit status, standard output, standard error."""
    done = subprocess.run(PROGRAM + list(arguments), stdin=subprocess.DEVNULL, stdout=stdout,
                          stderr=subprocess.PIPE, timeout=PATIENCE, text=True)
    return done.returncode, done.stdout, done.stderr


class Case(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.conf = f"{self.folder}/app.conf"

    def write(self, text):
        with open(self.conf, "w", encoding="ascii", newline="") as conf:
            conf.write(text)

    def text(self):
        with open(self.conf, encoding="ascii", newline="") as conf:
            return conf.read()

    def run_on(self, *arguments):
        return run(self.conf, *arguments)

    def assert_fails(self, result, message):
        self.assertEqual(result, (1, "", f"gw-conf: {message}\n"))


class Get(Case):
    def test_prints_the_value_whatever_the_case_of_the_names(self):
        self.write("[Net]\n Address = 10.0.0.1 \r\n[other]\n[NET]\naddress==x y\n")
        self.assertEqual(self.run_on("get", "net", "ADDRESS"), (0, "=x y\n", ""))

    def test_an_absent_or_empty_value_is_the_default_or_status_1(self):
        self.write("[net]\nempty=\n")
        for section, key in (("net", "port"), ("other", "port"), ("net", "empty"),
                             ("net ", "empty")):
            self.assertEqual(self.run_on("get", section, key), (1, "", ""))
            self.assertEqual(self.run_on("get", section, key, "80"), (0, "80\n", ""))
            self.assertEqual(self.run_on("get", section, key, ""), (0, "\n", ""))

    def test_an_empty_file_has_no_values(self):
        self.write("")
        self.assertEqual(self.run_on("get", "net", "port"), (1, "", ""))
        self.assertEqual(self.run_on("get", "net", "port", "80"), (0, "80\n", ""))

    def test_changes_nothing(self):
        text = "# comment\n\n[net]\n port = 1\n"
        self.write(text)
        self.run_on("get", "net", "port")
        self.assertEqual(self.text(), text)


class Set(Case):
    def test_creates_file_section_and_key(self):
        self.assertEqual(self.run_on("set", "net", "port", "80"), (0, "", ""))
        self.assertEqual(self.text(), "[net]\nport=80\n")
        self.assertEqual(self.run_on("set", "net", "name", " a  b "), (0, "", ""))
        self.assertEqual(self.run_on("set", " x ", "key", "-5"), (0, "", ""))
        self.assertEqual(self.text(), "[net]\nport=80\nname=a  b\n\n[ x ]\nkey=-5\n")

    def test_changes_a_value_in_place_and_keeps_all_the_rest(self):
        self.write("# comment\n[Net]\r\nPort = 1\r\n\n [x] = y \nlast=2")
        self.assertEqual(self.run_on("set", "NET", "PORT", "3"), (0, "", ""))
        self.assertEqual(self.text(), "# comment\n[Net]\r\nPort = 3\r\n\n [x] = y \nlast=2")

    def test_keeps_links_and_modes(self):
        self.write("[net]\nport=1\n")
        os.chmod(self.conf, 0o640)
        link = f"{self.folder}/link.conf"
        os.symlink("app.conf", link)
        self.assertEqual(run(link, "set", "net", "port", "2"), (0, "", ""))
        self.assertTrue(os.path.islink(link))
        self.assertEqual(os.stat(self.conf).st_mode & 0o7777, 0o640)
        self.assertEqual(self.text(), "[net]\nport=2\n")

    def test_the_same_value_leaves_the_file_alone(self):
        text = "# comment\n[net]\n port = 80\n"
        self.write(text)
        for value in ("80", " 80 "):
            self.assertEqual(self.run_on("set", "net", "port", value), (0, "", ""))
        self.assertEqual(self.run_on("set", "net", "absent", ""), (0, "", ""))
        self.assertEqual(self.text(), text)

    def test_what_would_be_read_as_something_else_is_refused(self):
        for section, key, value in (("a]", "k", "v"), ("a\nb", "k", "v"), ("a", "#k", "v"),
                                    ("a", " [k", "v"), ("a", "k=", "v"), ("a", "k\nl", "v"),
                                    ("a", "k", "v\nw")):
            status, out, error = self.run_on("set", section, key, value)
            self.assertEqual((status, out), (2, ""))
            self.assertRegex(error, r"\Agw-conf: [^\n]+; see gw-conf --help\n\Z")
            self.assertFalse(os.path.exists(self.conf))

    def test_what_looks_odd_but_is_read_back_is_stored(self):
        for section, key, value in (("a[", "k", "#[v]="), ("#", "k]#", ""), ("", "", "v"),
                                    ("a", "k l", "'\"\\ \t%s")):
            self.assertEqual(self.run_on("set", section, key, value), (0, "", ""))
            self.assertEqual(self.run_on("get", section, key, ""), (0, value + "\n", ""))

    def test_a_file_that_cannot_be_written_is_told(self):
        self.conf = f"{self.folder}/no/such.conf"
        self.assert_fails(self.run_on("set", "net", "port", "80"),
                          f"{self.conf}: No such file or directory")

    def test_a_nul_byte_in_the_file_needs_force(self):
        self.write("# comment\n[a]\nk=1\n\0[b]\n")
        before = self.text()
        self.assert_fails(self.run_on("set", "a", "l", "2"),
                          f"{self.conf}: contains a NUL byte; --force rewrites it without comments "
                          "and without what follows that byte")
        self.assertEqual(self.text(), before)
        self.assertEqual(run("--force", self.conf, "set", "a", "l", "2"), (0, "", ""))
        self.assertEqual(self.text(), "[a]\nk=1\nl=2\n")


class Meanwhile(Case):
    """What happens between the moment when gw-conf reads the file and that when it saves."""

    def start(self, *arguments):
        """gw-conf, which has read the file and waits for the lock that a save needs."""
        folder = os.open(self.folder, os.O_RDONLY)
        self.addCleanup(os.close, folder)
        fcntl.flock(folder, fcntl.LOCK_EX)
        os.utime(self.conf, (0, os.stat(self.conf).st_mtime))
        program = subprocess.Popen(PROGRAM + list(arguments), stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, text=True)
        self.addCleanup(program.communicate)
        # Some file systems do not record when a file is read.
        end = time.monotonic() + 3
        while os.stat(self.conf).st_atime == 0 and time.monotonic() < end:
            time.sleep(0.01)
        time.sleep(0.1)
        return folder, program

    def result(self, program):
        out, error = program.communicate(timeout=PATIENCE)
        return program.returncode, out, error

    def test_a_file_that_another_program_changes_is_left_alone(self):
        self.write("[a]\nk=1\n")
        folder, program = self.start(self.conf, "set", "a", "k", "2")
        self.write("[a]\nk=3\nl=4\n")
        fcntl.flock(folder, fcntl.LOCK_UN)
        self.assert_fails(self.result(program),
                          f"{self.conf}: changed by another program meanwhile; --force changes it "
                          "anyway")
        self.assertEqual(self.text(), "[a]\nk=3\nl=4\n")

    def test_with_force_it_is_changed_all_the_same(self):
        self.write("# one\n[a]\nk=1\n")
        folder, program = self.start("--force", self.conf, "set", "a", "k", "2")
        self.write("# two\n[a]\nk = 3\nl=4\n")
        fcntl.flock(folder, fcntl.LOCK_UN)
        self.assertEqual(self.result(program), (0, "", ""))
        self.assertEqual(self.text(), "# two\n[a]\nk = 2\n")

    def test_a_file_whose_owner_cannot_be_kept_is_left_alone(self):
        if os.getuid() != 0:
            self.skipTest("only root can create another user's file")
        self.write("[a]\nk=1\n")
        os.chown(self.conf, 65534, 65534)
        done = subprocess.run(["setpriv", "--bounding-set=-chown", *PROGRAM, self.conf, "set", "a",
                               "k", "2"], capture_output=True, timeout=PATIENCE, text=True)
        self.assert_fails((done.returncode, done.stdout, done.stderr),
                          f"{self.conf}: its owner, group and mode cannot be kept; its owner or "
                          "root can change it")
        self.assertEqual(self.text(), "[a]\nk=1\n")

    def test_a_lock_is_not_waited_for_without_end(self):
        self.write("[a]\nk=1\n")
        _, program = self.start(self.conf, "unset", "a", "k")
        self.assert_fails(self.result(program), f"{self.conf}: locked by another program")
        self.assertEqual(self.text(), "[a]\nk=1\n")


class Unset(Case):
    def test_removes_a_key_or_a_section(self):
        self.write("# a\n[a]\nk=1\nl = 2\n[b]\n# b\nk=3\n[c]\nk=4\n")
        self.assertEqual(self.run_on("unset", "A", "K"), (0, "", ""))
        self.assertEqual(self.text(), "# a\n[a]\nl = 2\n[b]\n# b\nk=3\n[c]\nk=4\n")
        self.assertEqual(self.run_on("unset", "b"), (0, "", ""))
        self.assertEqual(self.text(), "# a\n[a]\nl = 2\n# b\n[c]\nk=4\n")
        self.assertEqual(self.run_on("unset", "c", "k"), (0, "", ""))
        self.assertEqual(self.text(), "# a\n[a]\nl = 2\n# b\n[c]\n")

    def test_what_does_not_exist_is_status_1_and_the_file_left_alone(self):
        text = "# comment\n[a]\nk=1\n"
        self.write(text)
        for arguments in (["b"], ["b", "k"], ["a", "l"]):
            self.assertEqual(self.run_on("unset", *arguments), (1, "", ""))
        self.assertEqual(self.text(), text)


class List(Case):
    def test_shows_the_sections_without_comments(self):
        self.write("x=0\n# net\n[Net]\n ip = 10.0.0.1 \nmask\n[empty]\n[net]\nport=80\n[z]\nk=\n")
        self.assertEqual(self.run_on("list"),
                         (0, "[Net]\nip=10.0.0.1\nport=80\n\n[z]\nk=\n\n", ""))

    def test_shows_the_keys_of_a_section(self):
        self.write("[a]\nk=1\n[b]\nk=2\nl=3\n[empty]\n")
        self.assertEqual(self.run_on("list", "B"), (0, "k=2\nl=3\n", ""))
        self.assertEqual(self.run_on("list", "empty"), (0, "", ""))
        self.assertEqual(self.run_on("list", "c"), (1, "", ""))


class Lint(Case):
    def findings(self, text):
        """(line, what) of each."""
        self.write(text)
        status, out, error = self.run_on("lint")
        self.assertEqual(error, "")
        self.assertEqual(status, 1 if out else 0)
        self.assertEqual(self.text(), text)
        found = []
        for line in out.splitlines():
            self.assertTrue(line.startswith(f"{self.conf}:"), line)
            number, what = line[len(self.conf) + 1:].split(": ", 1)
            found.append((int(number), what))
        return found

    def test_a_clean_file_has_no_findings(self):
        self.assertEqual(self.findings("# c\n\n  \n[a]\n#x=1\n k = v = w # no comment\r\n[b]  \r\n"
                                       "k=1\nl=\n[ a ]\nk="), [])
        self.assertEqual(self.findings(""), [])

    def test_each_kind_of_finding(self):
        before = "line before the first section is ignored"
        for text, found in (
                ("a=1\nb\n[s]\nk=1\n", [(1, before), (2, before)]),
                ("[s]\nk=1\n[t\n", [(3, 'section header without "]" is ignored')]),
                ("[s]\nk=1\n[t = 1\n", [(3, 'section header without "]" is ignored')]),
                ("[s] # why\nk=1\n", [(1, 'text after "]" is ignored')]),
                ("[s]]\n", [(1, 'text after "]" is ignored')]),
                ("[s]\nk\n", [(2, 'line without "=" is ignored')]),
                ("[s]\nk=1\n\nK =2\nk=3\n", [(4, 'key "K" replaces the value on line 2'),
                                            (5, 'key "k" replaces the value on line 4')]),
                ("[s]\n[t]\n[S]\n[s]\n", [(3, 'section "S" continues the one on line 1'),
                                          (4, 'section "s" continues the one on line 1')]),
                ("[s]\nk=1\n[t]\nk=2\n[s]\nk=3\n",
                 [(5, 'section "s" continues the one on line 1'),
                  (6, 'key "k" replaces the value on line 2')]),
                ("[s]\n [t]\nk=1\n", [(2, "indented section header is ignored")]),
                (" [s]\n", [(1, "indented section header is ignored")]),
                (" [s] a=1\n", [(1, "indented section header is ignored")]),
                ("[s]\n\t[t] = 1\n",
                 [(2, 'indented section header is read as the key "[t]"')]),
                (" # c=1\n[s]\n # c\n # d=1\n # d=2\n",
                 [(1, "indented comment is ignored"), (3, "indented comment is ignored"),
                  (4, 'indented comment is read as the key "# d"'),
                  (5, 'indented comment is read as the key "# d"'),
                  (5, 'key "# d" replaces the value on line 4')]),
                ("[s]\nk=1\0l\nm\n", [(2, "NUL byte: the rest of the file is ignored")])):
            self.assertEqual(self.findings(text), found, text)

    def test_a_key_is_not_mixed_up_with_one_of_another_section(self):
        self.assertEqual(self.findings("[a]\nbc=1\n[ab]\nc=1\n[abc]\n[]\nabc=1\na=1\n"), [])

    def test_many_sections_and_keys(self):
        text = "".join(f"[s{i}]\n" + "".join(f"k{j}=\n" for j in range(50)) for i in range(50))
        self.assertEqual(self.findings(text), [])
        self.assertEqual(self.findings(text + "[S7]\nK9=\n"), [
            (51 * 50 + 1, f'section "S7" continues the one on line {51 * 7 + 1}'),
            (51 * 50 + 2, f'key "K9" replaces the value on line {51 * 7 + 11}')])


class Failures(Case):
    READERS = (["get", "a", "k", "default"], ["unset", "a"], ["list"], ["lint"])

    def test_a_missing_file_is_told(self):
        for arguments in self.READERS:
            self.assert_fails(self.run_on(*arguments), f"{self.conf}: No such file or directory")

    def test_a_directory_is_told(self):
        self.conf = self.folder
        for arguments in self.READERS + (["set", "a", "k", "v"],):
            self.assert_fails(self.run_on(*arguments), f"{self.conf}: not a regular file")

    def test_a_file_that_another_program_writes_is_told(self):
        self.write("[a]\nk=1\n")
        with open(self.conf, "r+", encoding="ascii") as other:
            fcntl.lockf(other, fcntl.LOCK_EX)
            for arguments in self.READERS + (["set", "a", "k", "v"],):
                self.assert_fails(self.run_on(*arguments), f"{self.conf}: locked by another program")

    def test_a_file_that_may_not_be_read_is_told(self):
        self.write("[a]\nk=1\n")
        os.chmod(self.conf, 0)
        if os.access(self.conf, os.R_OK):
            self.skipTest("this user may read everything")
        for arguments in self.READERS:
            self.assert_fails(self.run_on(*arguments), f"{self.conf}: Permission denied")

    def test_a_file_that_is_too_large_is_told(self):
        self.write("")
        os.truncate(self.conf, 2 ** 31)
        for arguments in self.READERS:
            self.assert_fails(self.run_on(*arguments), f"{self.conf}: File too large")

    def test_a_closed_pipe_ends_it_silently(self):
        self.write("[a]\n" + "".join(f"key{i}=value\n" for i in range(20000)))
        for ignored in (False, True):
            reading, writing = os.pipe()
            os.close(reading)
            with os.fdopen(writing, "w") as pipe:
                done = subprocess.run(PROGRAM + [self.conf, "list"], stdout=pipe, text=True,
                                      stderr=subprocess.PIPE, timeout=PATIENCE,
                                      restore_signals=not ignored)
            self.assertEqual(done.stderr, "")
            self.assertNotEqual(done.returncode, 0)

    def test_a_full_disk_is_told(self):
        self.write("[a]\nk=1\n[a\n")
        with open("/dev/full", "w", encoding="ascii") as full:
            for arguments in (["--help"], ["--version"], [self.conf, "get", "a", "k"],
                              [self.conf, "list"], [self.conf, "lint"]):
                self.assertEqual(run(*arguments, stdout=full), (
                    1, None, "gw-conf: standard output: No space left on device\n"))


class CommandLine(Case):
    def test_help_and_version(self):
        status, out, error = run("--help")
        self.assertEqual((status, error), (0, ""))
        for word in ("get SECTION KEY [DEFAULT]", "set", "unset", "list", "lint", "--version"):
            self.assertIn(word, out)
        status, out, error = run("--version")
        self.assertEqual((status, error), (0, ""))
        self.assertRegex(out, r"\Agw-conf \(groundwork\) \d+\.\d+\.\d+\n\Z")

    def test_a_wrong_one_gives_status_2_and_one_line(self):
        for arguments in ([], ["f"], ["f", "read"], ["f", "get", "s"], ["f", "get", *"skdx"],
                          ["f", "set", "s", "k"], ["f", "set", *"skvx"], ["f", "unset"],
                          ["f", "unset", *"skx"], ["f", "list", *"sx"], ["f", "lint", "x"]):
            status, out, error = run(*arguments)
            self.assertEqual((status, out), (2, ""), arguments)
            self.assertRegex(error, r"\Agw-conf: [^\n]+; see gw-conf --help\n\Z")
        self.assertEqual(run("--nonsense")[0], 2)

    def test_the_wrong_order_is_told(self):
        for arguments in (["get", "f", "s", "k"], ["list", "f"], ["--force", "set", *"fskv"]):
            command = next(word for word in arguments if word in ("get", "list", "set"))
            self.assertEqual(run(*arguments), (
                2, "", f"gw-conf: the file comes first, then '{command}'; see gw-conf --help\n"))

    def test_an_option_in_the_place_of_the_command_is_told(self):
        self.assertEqual(self.run_on("--force", "set", "a", "k", "1"), (
            2, "", "gw-conf: options come before the file, '--force' too; see gw-conf --help\n"))

    def test_after_the_file_nothing_is_an_option(self):
        self.assertEqual(self.run_on("set", "a", "--help", "--version"), (0, "", ""))
        self.assertEqual(self.text(), "[a]\n--help=--version\n")


if __name__ == "__main__":
    PROGRAM = sys.argv[1:]
    if not PROGRAM:
        sys.exit("usage: gw_conf_test.py COMMAND...")
    os.environ["LC_ALL"] = "C"
    unittest.main(argv=sys.argv[:1])
