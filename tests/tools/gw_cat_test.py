#!/usr/bin/env python3
"""Runs gw-cat as users do, against files, pipes, a terminal and servers of its own.

  gw_cat_test.py COMMAND...   the program, run by an emulator if it needs one

SPDX-License-Identifier: MIT
"""

import fcntl
import os
import pty
import re
import select
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import termios
import threading
import time
import unittest

PROGRAM = []
PATIENCE = 120  # seconds for a run of the program


def run(*arguments, stdin=b"", stdout=subprocess.PIPE):
    """Exit status, standard output, standard error."""
    done = subprocess.run(PROGRAM + list(arguments), input=stdin, stdout=stdout,
                          stderr=subprocess.PIPE, timeout=PATIENCE)
    return done.returncode, done.stdout, done.stderr.decode()


class Server:
    """Sends the reply on each loopback connection, and keeps the requests."""

    def __init__(self, reply, pace=0, reset=False):
        self.reset = reset  # cuts the connection off instead of closing it
        self.reply = reply if isinstance(reply, list) else [reply]
        self.pace = pace
        self.requests = []
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        threading.Thread(target=self.serve, daemon=True).start()

    def url(self, path="/file"):
        return f"http://127.0.0.1:{self.port}{path}"

    def serve(self):
        while True:
            try:
                connection = self.listener.accept()[0]
            except OSError:
                return
            with connection:
                request = b""
                while b"\r\n\r\n" not in request:
                    more = connection.recv(65536)
                    if not more:
                        break
                    request += more
                self.requests.append(request)
                try:
                    for piece in self.reply:
                        connection.sendall(piece)
                        time.sleep(self.pace)
                except OSError:
                    pass
                if self.reset:
                    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER,
                                          struct.pack("ii", 1, 0))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()


def ok(body, length=True):
    head = b"HTTP/1.0 200 OK\r\n"
    if length:
        head += b"Content-Length: %d\r\n" % len(body)
    return head + b"\r\n" + body


class Case(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)

    def path(self, name):
        return os.path.join(self.folder.name, name)

    def file(self, name, content):
        with open(self.path(name), "wb") as out:
            out.write(content)
        return self.path(name)

    def content(self, path):
        with open(path, "rb") as file:
            return file.read()

    def assert_fails(self, result, message):
        status, _, stderr = result
        self.assertEqual(status, 1)
        self.assertEqual(stderr, message + "\n")


class Files(Case):
    DATA = bytes(range(256)) * 1000

    def test_a_path_is_written_to_standard_output_byte_for_byte(self):
        path = self.file("a", self.DATA)
        self.assertEqual(run(path), (0, self.DATA, ""))
        self.assertEqual(run("file:" + path), (0, self.DATA, ""))
        self.assertEqual(run(self.file("empty", b"")), (0, b"", ""))

    def test_output_option_writes_the_file_and_nothing_else(self):
        path, out = self.file("a", self.DATA), self.path("out")
        for option in (["-o", out], ["--output", out], [f"--output={out}"]):
            self.file("out", b"previous, longer content" * 20000)
            self.assertEqual(run(*option, path), (0, b"", ""))
            self.assertEqual(self.content(out), self.DATA)

    def test_offset_begins_there(self):
        path = self.file("a", self.DATA)
        for offset in (0, 1, 255, 255999, 256000, 300000, 5 << 30):
            self.assertEqual(run("--offset", str(offset), path), (0, self.DATA[offset:], ""))

    def test_lines_change_no_byte(self):
        text = b"\n\none\r\ntwo\n\0nul\n" + b"x" * 100000 + b"\nlast without end"
        path = self.file("a", text)
        self.assertEqual(run("--lines", path), (0, text, ""))
        self.assertEqual(run("--lines", "--offset", "3", path), (0, text[3:], ""))
        self.assertEqual(run("--lines", "-", stdin=text), (0, text, ""))

    def test_a_file_beyond_the_read_limit_of_a_stream_is_read(self):
        path = self.path("huge")
        with open(path, "wb") as file:
            file.truncate((5 << 30) - 3)
            file.seek(0, 2)
            file.write(b"end")
        self.assertEqual(run("--offset", str((5 << 30) - 5), path), (0, b"\0\0end", ""))

    def test_files_without_a_size_are_read_to_their_end(self):
        with open("/proc/version", "rb") as file:
            self.assertEqual(run("/proc/version")[:2], (0, file.read()))

    def test_a_missing_file_fails_and_leaves_the_output_alone(self):
        out = self.file("out", b"kept")
        missing = self.path("missing")
        self.assert_fails(run("-o", out, missing),
                          f"gw-cat: {missing}: No such file or directory")
        self.assertEqual(self.content(out), b"kept")

    def test_a_folder_fails(self):
        for option in ([], ["--lines"]):
            self.assert_fails(run(*option, self.folder.name),
                              f"gw-cat: {self.folder.name}: Is a directory")

    def test_the_input_is_not_taken_as_output(self):
        path = self.file("a", b"data")
        self.assert_fails(run("-o", path, path), f"gw-cat: {path}: input file is output file")
        with open(path, "ab") as out:
            self.assert_fails(run(path, stdout=out), f"gw-cat: {path}: input file is output file")
        self.assertEqual(self.content(path), b"data")

    def test_an_unknown_scheme_fails(self):
        self.assert_fails(run("ftp://host/x"), "gw-cat: ftp://host/x: Unknown URL")


class StandardInput(Case):
    def test_a_dash_reads_it(self):
        self.assertEqual(run("-", stdin=b"a\0b" * 30000), (0, b"a\0b" * 30000, ""))

    def test_offset_drops_what_comes_before(self):
        self.assertEqual(run("--offset", "5", "-", stdin=b"0123456789"), (0, b"56789", ""))
        for offset in (50, 2**62):
            self.assertEqual(run("--offset", str(offset), "-", stdin=b"0123456789"),
                             (0, b"", ""))

    def test_it_stays_where_it_was_read_to(self):
        with open(self.file("a", b"0123456789"), "rb") as file:
            file.seek(4)
            done = subprocess.run(PROGRAM + ["-"], stdin=file.fileno(), capture_output=True,
                                  timeout=PATIENCE)
            self.assertEqual(done.stdout, b"456789")
            self.assertEqual(os.lseek(file.fileno(), 0, os.SEEK_CUR), 10)

    def test_a_named_pipe_has_its_offset_read_away(self):
        fifo = self.path("fifo")
        os.mkfifo(fifo)

        def feed():
            with open(fifo, "wb") as out:
                out.write(b"0123456789")

        threading.Thread(target=feed, daemon=True).start()
        self.assertEqual(run("--offset", "7", fifo), (0, b"789", ""))


class Http(Case):
    BODY = bytes(i * 7 % 251 for i in range(200000))

    def test_a_resource_is_written_byte_for_byte(self):
        for length in (True, False):
            with Server(ok(self.BODY, length)) as server:
                self.assertEqual(run(server.url()), (0, self.BODY, ""))
                self.assertEqual(run("--lines", server.url()), (0, self.BODY, ""))
                self.assertEqual(server.requests[0],
                                 b"GET /file HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n")

    def test_bytes_behind_the_announced_length_are_left(self):
        with Server(ok(b"body") + b"surplus") as server:
            self.assertEqual(run(server.url()), (0, b"body", ""))

    def test_the_agent_is_named(self):
        with Server(ok(b"")) as server:
            run("--agent", "my agent/2", server.url())
            self.assertIn(b"\r\nUser-Agent: my agent/2\r\n", server.requests[0])

    def test_a_proxy_gets_the_whole_url(self):
        with Server(ok(b"via")) as server:
            self.assertEqual(run("--proxy", f"127.0.0.1:{server.port}", "http://far.test/x"),
                             (0, b"via", ""))
            self.assertEqual(server.requests[0],
                             b"GET http://far.test/x HTTP/1.0\r\nHost: far.test\r\n\r\n")

    def test_an_offset_asks_for_the_range_and_stops_at_its_end(self):
        reply = (b"HTTP/1.1 206 Partial Content\r\nContent-Length: 5\r\n\r\n56789"
                 b"not of the range")
        with Server(reply) as server:
            self.assertEqual(run("--offset", "5", server.url()), (0, b"56789", ""))
            self.assertIn(b"\r\nRange: bytes=5-\r\n", server.requests[0])

    def test_the_status_of_a_server_is_told(self):
        for status in ("404 Not Found", "500 Internal Server Error", "403 Forbidden"):
            with Server(f"HTTP/1.0 {status}\r\n\r\n".encode()) as server:
                self.assert_fails(run(server.url()),
                                  f"gw-cat: {server.url()}: the server returned {status}")

    def test_a_redirection_is_told_with_its_target(self):
        reply = (b"HTTP/1.1 301 Moved Permanently\r\nServer: x\r\n"
                 b"location: https://example.test/new\x1b[1m\r\n\r\n")
        with Server(reply) as server:
            self.assert_fails(
                run(server.url()), f"gw-cat: {server.url()}: redirected to "
                "https://example.test/new?[1m (301 Moved Permanently), which is not followed")
            self.assertEqual(server.requests[0], server.requests[1])

    def test_a_redirection_without_a_target_is_a_status(self):
        with Server(b"HTTP/1.0 301 Moved\r\n\r\n") as server:
            self.assert_fails(run(server.url()),
                              f"gw-cat: {server.url()}: the server returned 301 Moved")

    def test_a_refused_range_is_told(self):
        with Server(b"HTTP/1.1 416 Range Not Satisfiable\r\n\r\n") as server:
            self.assert_fails(run("--offset", "9", server.url()), f"gw-cat: {server.url()}: "
                              "the server returned 416 Range Not Satisfiable")
            self.assertIn(b"\r\nRange: bytes=9-\r\n", server.requests[1])

    def test_a_server_that_talks_nonsense_is_told(self):
        with Server(b"nonsense\r\n") as server:
            self.assert_fails(run(server.url()), f"gw-cat: {server.url()}: "
                              "the server's status was neither 200 nor 206")

    def test_silence_is_told(self):
        with Server(b"") as server:
            self.assert_fails(run(server.url()), f"gw-cat: {server.url()}: "
                              "the server closed the connection without a response")

    def test_a_refused_connection_is_told_in_one_line(self):
        with Server(b"") as server:
            url, port = server.url(), server.port
        self.assert_fails(run(url), f"gw-cat: {url}: no connection to 127.0.0.1:{port} "
                          "(Connection refused)")
        self.assert_fails(run("--proxy", f"127.0.0.1:{port}", "http://far.test/"),
                          f"gw-cat: http://far.test/: no connection to 127.0.0.1:{port} "
                          "(Connection refused)")

    def test_a_name_that_cannot_be_resolved_is_told(self):
        # Refused by the resolver itself, which asks nobody.
        status, out, error = run("http://no..such/x")
        self.assertEqual((status, out), (1, b""))
        self.assertRegex(error, r"\Agw-cat: http://no\.\.such/x: cannot resolve 'no\.\.such' "
                         r"\([^\n]+\)\n\Z")

    def test_a_server_that_does_not_answer_is_told_after_five_seconds(self):
        with socket.socket() as listener:
            listener.bind(("127.0.0.1", 0))
            listener.listen(0)
            port = listener.getsockname()[1]
            waiting = []
            for _ in range(8):  # until the queue is full
                client = socket.socket()
                client.setblocking(False)
                client.connect_ex(("127.0.0.1", port))
                waiting.append(client)
            time.sleep(0.5)
            url = f"http://127.0.0.1:{port}/"
            self.assert_fails(run(url), f"gw-cat: {url}: no connection to 127.0.0.1:{port} "
                              "within 5 seconds")
            for client in waiting:
                client.close()

    def test_https_is_told(self):
        for url in ("https://127.0.0.1/x", "HTTPS://127.0.0.1/x"):
            self.assert_fails(run(url), f"gw-cat: {url}: https is not supported, only http")

    def test_a_url_that_is_too_long_is_told(self):
        url = "http://127.0.0.1/" + "x" * 9000
        self.assert_fails(run(url), f"gw-cat: {url}: URL too long")

    def test_a_short_body_is_a_failure_after_its_bytes_were_written(self):
        reply = b"HTTP/1.0 200 OK\r\nContent-Length: 100\r\n\r\nshort"
        for option in ([], ["--lines"]):
            with Server(reply) as server:
                result = run(*option, server.url())
                self.assertEqual(result[1], b"short")
                self.assert_fails(result,
                                  f"gw-cat: {server.url()}: ended after 5 of 100 bytes")

    def test_a_connection_that_breaks_is_a_failure_even_without_an_announced_length(self):
        for option in ([], ["--lines"]):
            with Server(ok(b"some", length=False), pace=0.3, reset=True) as server:
                result = run(*option, server.url())
                self.assertEqual(result[1], b"some")
                self.assert_fails(result, f"gw-cat: {server.url()}: Connection reset by peer")

    def test_lines_come_while_the_server_goes_on(self):
        pieces = [ok(b"", length=False) + b"first\n"] + [b"later\n"] * 4
        with Server(pieces, pace=0.5) as server:
            start = time.monotonic()
            with subprocess.Popen(PROGRAM + ["--lines", server.url()],
                                  stdout=subprocess.PIPE) as program:
                self.assertEqual(os.read(program.stdout.fileno(), 100), b"first\n")
                first = time.monotonic() - start
                self.assertEqual(program.stdout.read(), b"later\n" * 4)
                self.assertLess(first, time.monotonic() - start - 0.5)


class Output(Case):
    def test_a_full_disk_is_told(self):
        path = self.file("a", b"x" * 100000)
        with open("/dev/full", "wb") as full:
            self.assert_fails(run(path, stdout=full),
                              "gw-cat: standard output: No space left on device")
            for option in ("--help", "--version"):
                self.assert_fails(run(option, stdout=full),
                                  "gw-cat: standard output: No space left on device")
        self.assert_fails(run("-o", "/dev/full", path),
                          "gw-cat: /dev/full: No space left on device")

    def test_a_closed_pipe_ends_it_silently(self):
        path = self.file("a", b"x" * 1000000)
        for ignored in (False, True):
            read_end, write_end = os.pipe()
            os.close(read_end)
            with os.fdopen(write_end, "wb") as out:
                disposition = signal.SIG_IGN if ignored else signal.SIG_DFL
                done = subprocess.run(PROGRAM + [path], stdout=out, stderr=subprocess.PIPE,
                                      timeout=PATIENCE, restore_signals=False,
                                      preexec_fn=lambda: signal.signal(signal.SIGPIPE,
                                                                       disposition))
            self.assertEqual(done.stderr, b"")
            self.assertIn(done.returncode, (1,) if ignored else (-signal.SIGPIPE,
                                                                 128 + signal.SIGPIPE))

    def test_an_output_that_cannot_be_created_is_told(self):
        path = self.file("a", b"x")
        out = self.path("no/such/folder")
        self.assert_fails(run("-o", out, path), f"gw-cat: {out}: No such file or directory")


class CommandLine(Case):
    def test_help_and_version(self):
        status, out, error = run("--help")
        self.assertEqual((status, error), (0, ""))
        for word in ("-o, --output", "--offset", "--lines", "--proxy", "--agent", "--version"):
            self.assertIn(word, out.decode())
        status, out, error = run("--version")
        self.assertEqual((status, error), (0, ""))
        self.assertRegex(out.decode(), r"\Agw-cat \(groundwork\) \d+\.\d+\.\d+\n\Z")

    def test_a_wrong_one_gives_status_2_and_one_line(self):
        for arguments in ([], ["a", "b"], ["--offset", "", "a"], ["--offset", "-1", "a"],
                          ["--offset", "1x", "a"], ["--offset", " 1", "a"],
                          ["--offset", "9223372036854775808", "a"], ["--proxy", "host", "a"],
                          ["--proxy", "host:", "a"], ["--proxy", ":80", "a"],
                          ["--proxy", "host:0", "a"], ["--proxy", "host:65536", "a"]):
            status, out, error = run(*arguments)
            self.assertEqual((status, out), (2, b""), arguments)
            self.assertRegex(error, r"\Agw-cat: [^\n]+; see gw-cat --help\n\Z")
        for arguments in (["--nonsense", "a"], ["-o"], ["--offset"]):
            self.assertEqual(run(*arguments)[0], 2, arguments)

    def test_two_dashes_end_the_options(self):
        self.assert_fails(run("--", "--help"), "gw-cat: --help: No such file or directory")


class Terminal(Case):
    """The progress line, as a terminal of 80 columns gets it."""

    def on_terminal(self, *arguments, columns=80):
        """Exit status and what was drawn."""
        master, slave = pty.openpty()
        fcntl.ioctl(slave, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
        with subprocess.Popen(PROGRAM + list(arguments), stdin=subprocess.DEVNULL,
                              stdout=slave, stderr=slave) as program:
            os.close(slave)
            drawn = b""
            while select.select([master], [], [], PATIENCE)[0]:
                try:
                    more = os.read(master, 65536)
                except OSError:  # the last writer has closed
                    break
                drawn += more
            status = program.wait(PATIENCE)
        os.close(master)
        return status, drawn.decode().replace("\r\n", "\n")

    def test_a_known_length_draws_a_bar_with_size_rate_and_time_left(self):
        body = b"x" * 32768
        pieces = [b"HTTP/1.0 200 OK\r\nContent-Length: 131072\r\n\r\n"] + [body] * 4
        with Server(pieces, pace=0.3) as server:
            status, drawn = self.on_terminal("-o", self.path("out"), server.url())
        self.assertEqual(status, 0)
        lines = drawn.rstrip("\n").split("\r")
        self.assertEqual(lines[0], "")
        size = r"[\d.]+ [KM]?i?B"
        self.assertRegex(lines[1], rf"\A\[=+> +\]  25%  32\.0 KiB of 128\.0 KiB  {size}/s  "
                         r"0:\d\d left *\Z")
        self.assertRegex(lines[-1], rf"\A\[=+\] 100%  128\.0 KiB of 128\.0 KiB  {size}/s  "
                         r"0:\d\d *\Z")
        self.assertTrue(drawn.endswith("\n"))
        for line in lines[1:]:
            self.assertEqual(len(line), 79, "overwrites the previous line and never wraps")
        self.assertEqual(self.content(self.path("out")), body * 4)

    def test_an_unknown_length_draws_a_counter(self):
        with Server(ok(b"x" * 50000, length=False)) as server:
            status, drawn = self.on_terminal("-o", self.path("out"), server.url())
        self.assertEqual(status, 0)
        self.assertRegex(drawn.split("\r")[-1], r"\A48\.8 KiB  [\d.]+ [KM]iB/s  0:\d\d *\n\Z")

    def test_a_narrow_terminal_gets_the_figures_without_the_bar(self):
        path = self.file("a", b"x" * 5000)
        for columns in (1, 2, 10, 40, 500, 2000):
            status, drawn = self.on_terminal("-o", self.path("out"), path, columns=columns)
            self.assertEqual(status, 0)
            longest = max(map(len, re.split(r"[\r\n]", drawn)))
            self.assertEqual(longest, min(columns - 1, 500))

    def test_without_the_option_nothing_is_drawn(self):
        self.assertEqual(self.on_terminal(self.file("a", b"text")), (0, "text"))

    def test_a_failure_begins_on_a_line_of_its_own(self):
        reply = b"HTTP/1.0 200 OK\r\nContent-Length: 100\r\n\r\nshort"
        with Server(reply) as server:
            status, drawn = self.on_terminal("-o", self.path("out"), server.url())
        self.assertEqual(status, 1)
        self.assertTrue(drawn.endswith(
            f"\ngw-cat: {server.url()}: ended after 5 of 100 bytes\n"), drawn)
        with Server([ok(b"", length=False) + b"x" * 32768, b"x"], pace=0.3,
                    reset=True) as server:
            status, drawn = self.on_terminal("-o", self.path("out"), server.url())
        self.assertEqual(status, 1)
        self.assertTrue(drawn.endswith(
            f"\ngw-cat: {server.url()}: Connection reset by peer\n"), drawn)


if __name__ == "__main__":
    PROGRAM = sys.argv[1:]
    if not PROGRAM:
        sys.exit("usage: gw_cat_test.py COMMAND...")
    os.environ["LC_ALL"] = "C"
    unittest.main(argv=sys.argv[:1])
