# SPDX-License-Identifier: MIT
"""Measures the jobs on an emulated board whose clock counts instructions: what the library, the
C library and the kernel execute, the same in each run to a few parts in a thousand. Caches, and
the memory that they are for, cost nothing there."""

import pathlib
import re
import shlex
import subprocess
import sys
import tempfile

import measure

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "scripts"))
from emulated_board import (BOARDS, END, boot_command, console,  # noqa: E402
                            fetch, make_start_files)

# Debian's name of the target, and what starts its programs here.
TRIPLES = {"mipsel": "mipsel-linux-gnu", "armhf": "arm-linux-gnueabihf"}
EMULATORS = {"mipsel": "qemu-mipsel", "armhf": "qemu-arm"}

# Nanoseconds of the board's clock. With fewer, several instructions take a single tick of the MIPS
# processor's counter. Linux then finds its timer unusable and leaves it alone, and when that fires
# for the second time, 26 s later, qemu 7.2 calls it without end. Idle time passes, as leaping over
# it (sleep=off) once ended in the same; no processor time is counted then.
INSTRUCTION = 8
COUNTING_CLOCK = ["-icount", f"shift={INSTRUCTION.bit_length() - 1},sleep=on",
                  "-rtc", "base=2026-01-01,clock=vm"]
MARK = "== measure "
TIMEOUT = 3600  # seconds


class NotFinished(Exception):
    """Not every measurement was made."""


def emulator(target):
    return [EMULATORS[target], "-L", f"/usr/{TRIPLES[target]}"]


def library_folders(target, build):
    triple = TRIPLES[target]
    peers = ROOT / "build" / f"bench-peers-{target}"
    return [build, peers / "usr/lib" / triple, peers / "lib" / triple,
            pathlib.Path("/usr", triple, "lib")]


def libraries(programs, folders):
    """The shared libraries that programs need, and those that these need, and the loader."""
    found = {}
    waiting = list(programs)
    while waiting:
        headers = subprocess.run(["readelf", "-dl", waiting.pop()], check=True,
                                 capture_output=True, text=True).stdout
        names = re.findall(r"Shared library: \[(.*)\]", headers)
        names += re.findall(r"interpreter: /lib/(.*)\]", headers)
        for name in names:
            if name in found:
                continue
            path = next(folder / name for folder in folders if (folder / name).exists())
            found[name] = path
            waiting.append(path)
    return list(found.values())


def script_of(jobs, seconds):
    """Each measurement in a process of its own, its mark before it."""
    for job in jobs:
        program = job["program"].name
        for name in job["names"].values():
            options = measure.options_of(name, seconds * INSTRUCTION)
            yield f"echo {shlex.quote(MARK + name)}; {program} {shlex.join(options)} 2>/dev/null"


def run(target, jobs, seconds, build, say):
    """As measure.run(), all in one boot: a second round would give the same."""
    board = BOARDS[target]
    home = fetch(target, board)
    programs = {job["program"].name: job["program"] for job in jobs}
    needed = libraries(programs.values(), library_folders(target, build))
    with tempfile.TemporaryDirectory() as work:
        start_files = pathlib.Path(work) / "start-files"
        make_start_files(start_files, home, board, "\n".join(script_of(jobs, seconds)),
                         programs, needed)
        command = boot_command(home, board, start_files, COUNTING_CLOCK)
        with console(command, TIMEOUT) as machine:
            texts = texts_of(machine.lines(), say)
    return [summary_of(job, texts) for job in jobs]


def texts_of(lines, say):
    """What each measurement wrote, by its name."""
    texts = {}
    name = None
    for line in lines:
        if line.startswith(MARK):
            name = line[len(MARK):]
            texts[name] = ""
            if name.split("/")[1] == "ours":
                say(name)
        elif line.startswith(END):
            return texts
        elif name is not None:
            texts[name] += line + "\n"
    raise NotFinished(f"the board stopped or hangs; it last did {name}")


def summary_of(job, texts):
    times = {}
    digests = {}
    for who, name in job["names"].items():
        try:
            figures = measure.parse_figures(name, texts[name])
        except ValueError as reason:
            raise NotFinished(f"{name}: no figures, but\n{texts[name]}") from reason
        nanoseconds, digests[who] = measure.cost_of(figures, job["clock"])
        times[who] = [nanoseconds / INSTRUCTION]
    measure.compare_results(job, digests)
    return measure.summary(job, times)
