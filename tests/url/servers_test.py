#!/usr/bin/env python3
"""Starts real servers on loopback, runs the program given against them, and stops them.

  servers_test.py BIG_MIB COMMAND...   BIG_MIB: size of the largest file served

nginx, lighttpd, Python's http.server and tinyproxy run as the current user, with
configurations, files and logs in a temporary folder and on free ports. A server that is
not installed is a failure, with the name of its package.

SPDX-License-Identifier: MIT
"""

import os
import random
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

PATIENCE = 30  # seconds until a server must respond

PACKAGES = {"nginx": "nginx-light", "lighttpd": "lighttpd", "tinyproxy": "tinyproxy"}

NGINX = """
daemon off;
master_process off;
pid {folder}/nginx.pid;
error_log {folder}/nginx.log;
events {{ worker_connections 64; }}
http {{
  access_log off;
  client_body_temp_path {folder}/nginx.body;
  proxy_temp_path {folder}/nginx.proxy;
  fastcgi_temp_path {folder}/nginx.fastcgi;
  uwsgi_temp_path {folder}/nginx.uwsgi;
  scgi_temp_path {folder}/nginx.scgi;
  default_type application/octet-stream;
  large_client_header_buffers 4 16k;
  server {{
    listen 127.0.0.1:{port};
    root {folder}/served;
    # Pages made on the fly have no Content-Length.
    location = /dynamic {{ ssi on; ssi_types *; try_files /dynamic.shtml =404; }}
  }}
}}
"""

LIGHTTPD = """
server.modules = ( "mod_cgi", "mod_rewrite" )
server.document-root = "{folder}/served"
server.bind = "127.0.0.1"
server.port = {port}
server.errorlog = "{folder}/lighttpd.log"
server.upload-dirs = ( "{folder}" )
# A page is sent while it is made, so its length is not known.
server.stream-response-body = 2
url.rewrite-once = ( "^/dynamic$" => "/dynamic.sh" )
cgi.assign = ( ".sh" => "/bin/sh" )
"""

TINYPROXY = """
Listen 127.0.0.1
Port {port}
Allow 127.0.0.1
MaxClients 20
Timeout 60
LogFile "{folder}/tinyproxy.log"
LogLevel Warning
"""


def require_programs():
    os.environ["PATH"] += ":/usr/sbin:/sbin"
    missing = [name for name in PACKAGES if shutil.which(name) is None]
    if missing:
        sys.exit("".join(f"{name} is missing: install the Debian package {PACKAGES[name]}\n"
                         for name in missing))


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def write(path, content):
    with open(path, "wb") as out:
        out.write(content)


def write_served_files(folder, big_mib):
    served = os.path.join(folder, "served")
    os.makedirs(os.path.join(served, "folder"))
    numbers = random.Random(20010)
    write(f"{served}/empty", b"")
    write(f"{served}/byte", b"x")
    write(f"{served}/page.txt", b"".join(b"line %d %s\n" % (i, b"=" * (i % 200))
                                         for i in range(1000)))
    write(f"{served}/medium", numbers.randbytes(300000))
    with open(f"{served}/big", "wb") as out:
        for _ in range(big_mib):
            out.write(numbers.randbytes(1 << 20))
        out.write(b"the end")
    page = b"made on the fly\n" * 5000
    write(f"{served}/dynamic.expected", page)
    write(f"{served}/dynamic.shtml", page)
    write(f"{served}/dynamic.sh", b"printf 'Content-Type: text/plain\\r\\n\\r\\n'\nsleep 0.3\n"
          b'cat "${SCRIPT_FILENAME%.sh}.expected"\n')
    return served


class Servers:
    """Starts servers and, at the end, stops exactly those."""

    def __init__(self, folder):
        self.folder = folder
        self.running = []

    def start(self, name, template, command):
        """The port on which the server responds, after up to three tries: another program
        may take a port between the look for a free one and the server's start."""
        for _ in range(3):
            port = free_port()
            config = os.path.join(self.folder, name + ".conf")
            write(config, template.format(folder=self.folder, port=port).encode())
            arguments = [part.format(config=config, port=port, folder=self.folder)
                         for part in command]
            with open(os.path.join(self.folder, name + ".out"), "wb") as output:
                process = subprocess.Popen(arguments, stdin=subprocess.DEVNULL, stdout=output,
                                           stderr=output)
            self.running.append(process)
            if self.responds(process, port):
                return port
        self.fail(name)

    def responds(self, process, port):
        end = time.monotonic() + PATIENCE
        while time.monotonic() < end and process.poll() is None:
            try:
                socket.create_connection(("127.0.0.1", port), 1).close()
                return True
            except OSError:
                time.sleep(0.02)
        return False

    def fail(self, name):
        for suffix in (".out", ".log"):
            path = os.path.join(self.folder, name + suffix)
            if os.path.exists(path):
                with open(path, errors="replace") as log:
                    sys.stderr.write(log.read())
        sys.exit(f"{name} does not start")

    def stop(self):
        for process in self.running:
            if process.poll() is None:
                process.send_signal(signal.SIGTERM)
        for process in self.running:
            try:
                process.wait(10)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()


def main():
    if len(sys.argv) < 3:
        sys.exit("usage: servers_test.py BIG_MIB COMMAND...")
    require_programs()
    # Ended by the test driver's time limit: the servers are stopped in that case, too.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    with tempfile.TemporaryDirectory(prefix="groundwork-servers-") as folder:
        served = write_served_files(folder, int(sys.argv[1]))
        servers = Servers(folder)
        try:
            environment = dict(os.environ, GW_SERVED=served)
            for variable, port in (
                    ("GW_NGINX", servers.start("nginx", NGINX, [
                        "nginx", "-c", "{config}", "-e", "{folder}/nginx.log"])),
                    ("GW_LIGHTTPD", servers.start("lighttpd", LIGHTTPD, [
                        "lighttpd", "-D", "-f", "{config}"])),
                    ("GW_PYTHON", servers.start("python", "", [
                        sys.executable, "-m", "http.server", "--bind", "127.0.0.1",
                        "--directory", served, "{port}"]))):
                environment[variable] = f"http://127.0.0.1:{port}"
            environment["GW_PROXY_PORT"] = str(servers.start("tinyproxy", TINYPROXY, [
                "tinyproxy", "-d", "-c", "{config}"]))
            return subprocess.run(sys.argv[2:], env=environment, check=False).returncode
        finally:
            servers.stop()


if __name__ == "__main__":
    sys.exit(main())
