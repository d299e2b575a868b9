# SPDX-License-Identifier: MIT
"""Emulated boards with a Debian kernel: what scripts/board and scripts/power-cuts share."""

import contextlib
import os
import pathlib
import re
import selectors
import shutil
import stat
import subprocess
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
CACHE = (pathlib.Path(os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache")
         / "groundwork" / "boards")

# What the board prints around the program's own lines: the firmware and the kernel write on
# the same line before, escape codes too.
BEGIN = "== begin"
END = "== end "


class Board:
    """A machine of qemu's and the Debian kernel for it."""

    def __init__(self, architecture, kernel, machine, console, ends_with="poweroff -f"):
        self.architecture = architecture
        self.kernel = kernel
        self.machine = machine
        self.console = console
        self.ends_with = ends_with


BOARDS = {
    "i386": Board(
        "i386", "linux-image-6*-686",
        ["qemu-system-i386", "-M", "pc,accel=tcg", "-cpu", "pentium3", "-m", "512"], "ttyS0"),
    # Its machine has no way to be switched off.
    "mipsel": Board(
        "mipsel", "linux-image-6*-4kc-malta",
        ["qemu-system-mipsel", "-M", "malta", "-cpu", "24Kf", "-m", "512", "-vga", "none"],
        "ttyS0", "reboot -f"),
    "armhf": Board(
        "armhf", "linux-image-6*-armmp",
        ["qemu-system-arm", "-M", "virt", "-cpu", "cortex-a15", "-m", "512"], "ttyAMA0"),
}

INIT = """#!/bin/busybox sh
/bin/busybox --install -s /bin
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev
ln -s /proc/self/fd /dev/fd
mkdir -p /dev/shm
mount -t tmpfs tmpfs /dev/shm
# Tests make 100,000 files, more than a small tmpfs has room for by default.
mount -t tmpfs -o mode=1777,nr_inodes=0 tmpfs /tmp
ifconfig lo 127.0.0.1 up
export HOME=/root PATH=/bin TMPDIR=/tmp
cd /tmp
echo '{begin}'
{command}
echo '{end}'$?
{ends_with}
"""

FILES = {
    "etc/hosts": "127.0.0.1 localhost\n::1 localhost\n",
    "etc/nsswitch.conf": "hosts: files\npasswd: files\ngroup: files\n",
    "etc/passwd": "root:x:0:0:root:/root:/bin/sh\nnobody:x:65534:65534:nobody:/:/bin/sh\n",
    "etc/group": "root:x:0:\nnogroup:x:65534:\n",
}
FOLDERS = ["bin", "dev", "etc", "lib", "proc", "root", "sys", "tmp", "mnt"]


def fetch(target, board):
    """The folder with what Debian's packages have for the board: `kernel`, `busybox` and
    `modules`."""
    home = CACHE / target
    recipe = f"{board.kernel}, modules"
    if (home / "stamp").exists() and (home / "stamp").read_text() == recipe:
        return home
    print(f"{target}: unpacking Debian's kernel and busybox into {home}", flush=True)
    shutil.rmtree(home, ignore_errors=True)
    home.mkdir(parents=True)
    with tempfile.TemporaryDirectory() as work:
        unpacked = pathlib.Path(work)
        subprocess.run([ROOT / "scripts/foreign-packages", board.architecture, unpacked,
                        board.kernel, "busybox-static"], check=True,
                       stdout=subprocess.DEVNULL)
        kernel = next(path for path in (unpacked / "boot").iterdir()
                      if path.name.startswith(("vmlinuz", "vmlinux")))
        shutil.copy(kernel, home / "kernel")
        shutil.copy(unpacked / "bin/busybox", home / "busybox")
        modules = home / "modules"
        modules.mkdir()
        wanted = re.compile(r"/kernel/(drivers/(virtio|block/virtio_blk)|fs/(ext4|jbd2|mbcache)"
                            r"|lib/crc16|crypto/crc32c_generic|arch/.*crc32c)")
        for path in (unpacked / "lib/modules").rglob("*.ko"):
            if wanted.search(str(path)):
                shutil.copy(path, modules / path.name)
    (home / "stamp").write_text(recipe)
    return home


class Archive:
    """A start file system in the format that the kernel unpacks (cpio, "newc")."""

    def __init__(self):
        self.parts = []
        self.inode = 0

    def add(self, name, mode, content=b"", device=(0, 0)):
        self.inode += 1
        encoded = name.encode() + b"\0"
        fields = [self.inode, mode, 0, 0, 1, 0, len(content), 0, 0, *device, len(encoded), 0]
        entry = b"070701" + b"".join(b"%08X" % field for field in fields) + encoded
        entry += b"\0" * (-len(entry) % 4)
        self.parts.append(entry + content + b"\0" * (-len(content) % 4))

    def folder(self, name, mode=0o755):
        self.add(name, stat.S_IFDIR | mode)

    def file(self, name, content, mode=0o644):
        self.add(name, stat.S_IFREG | mode, content)

    def write(self, path):
        self.add("TRAILER!!!", 0)
        path.write_bytes(b"".join(self.parts))


def make_start_files(path, home, board, command, programs, libraries=()):
    """`programs`: files by their names in /bin. `libraries`: files for /lib, or the kernel's
    modules. `command`: what the board runs."""
    archive = Archive()
    for folder in FOLDERS:
        archive.folder(folder)
    archive.add("dev/console", stat.S_IFCHR | 0o600, device=(5, 1))
    archive.add("dev/null", stat.S_IFCHR | 0o666, device=(1, 3))
    for name, content in FILES.items():
        archive.file(name, content.encode())
    archive.file("bin/busybox", (home / "busybox").read_bytes(), 0o755)
    for name, program in programs.items():
        archive.file("bin/" + name, pathlib.Path(program).read_bytes(), 0o755)
    for library in libraries:
        archive.file("lib/" + library.name, library.read_bytes(), 0o755)
    init = INIT.format(begin=BEGIN, end=END, command=command, ends_with=board.ends_with)
    archive.file("init", init.encode(), 0o755)
    archive.write(path)


def boot_command(home, board, start_files, more=()):
    return [*board.machine, "-net", "none", "-nographic", "-no-reboot", *more,
            "-kernel", str(home / "kernel"), "-initrd", str(start_files),
            # On a busy machine the emulated timer may look broken to the kernel, which then stops.
            "-append", f"console={board.console} quiet panic=-1 random.trust_cpu=on "
                       "no_timer_check"]


class Console:
    """The lines that a board writes, until it ends or the time is over."""

    def __init__(self, command, timeout):
        self.process = subprocess.Popen(command, stdin=subprocess.DEVNULL,
                                        stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.deadline = time.monotonic() + timeout
        self.is_late = False

    def lines(self):
        waiting = selectors.DefaultSelector()
        waiting.register(self.process.stdout, selectors.EVENT_READ)
        rest = b""
        while True:
            left = self.deadline - time.monotonic()
            if left <= 0 or not waiting.select(left):
                self.is_late = True
                break
            data = os.read(self.process.stdout.fileno(), 65536)
            if not data:
                break
            *complete, rest = (rest + data).split(b"\n")
            for line in complete:
                yield line.decode(errors="replace").rstrip("\r")
        if rest:
            yield rest.decode(errors="replace").rstrip("\r")

    def stop(self):
        self.process.kill()
        self.process.wait()


@contextlib.contextmanager
def console(command, timeout):
    board = Console(command, timeout)
    try:
        yield board
    finally:
        board.stop()
