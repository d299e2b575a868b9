#!/usr/bin/env python3
"""Runs an example in C++ and compares what it prints with the lines that its source announces.

  cpp_examples_test.py SOURCE COMMAND...   the example, and its program, after an emulator if it
                                           needs one

SPDX-License-Identifier: MIT
"""

import pathlib
import re
import subprocess
import sys
import tempfile

PATIENCE = 120  # seconds for a run


def main():
    source, *command = sys.argv[1:]
    announced = re.findall(r"^// prints: (.*)$", pathlib.Path(source).read_text(encoding="utf-8"), re.M)
    with tempfile.TemporaryDirectory() as folder:
        done = subprocess.run(command, cwd=folder, capture_output=True, text=True, timeout=PATIENCE,
                              check=False)
    # The timer service reports its own end.
    printed = [line for line in done.stdout.splitlines() if not line.startswith("g_timer:")]
    if done.returncode != 0 or done.stderr or printed != announced:
        sys.exit(f"status {done.returncode}\n{done.stderr}printed:   {printed}\nannounced: {announced}")
    print(f"{len(announced)} lines as announced")


main()
