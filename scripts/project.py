#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""What scripts and tests need to know about the project; each fact is recorded once, elsewhere.

  scripts/project.py version     the version (CMakeLists.txt)
  scripts/project.py subsystems  the folders that make the library (cmake/subsystems.txt)
  scripts/project.py includes    the folders of public headers (likewise)
"""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
VERSION = re.search(r"^project\(groundwork VERSION ([\d.]+)",
                    (ROOT / "CMakeLists.txt").read_text(encoding="utf-8"), re.MULTILINE)[1]
_LINES = [line.split() for line in
          (ROOT / "cmake" / "subsystems.txt").read_text(encoding="ascii").splitlines()
          if re.match(r"[a-z]", line)]
SUBSYSTEMS = [name for name, kind, *_ in _LINES if kind != "headers"]
OPTIONAL = [name for name, kind, *_ in _LINES if kind == "optional"]
PUBLIC_FOLDERS = [name for name, _, *more in _LINES if "include" in more]
PUBLIC_INCLUDES = [ROOT / name / "include" for name in PUBLIC_FOLDERS]

if __name__ == "__main__":
    facts = {"version": [VERSION], "subsystems": SUBSYSTEMS,
             "includes": [f"{name}/include" for name in PUBLIC_FOLDERS]}
    if len(sys.argv) != 2 or sys.argv[1] not in facts:
        sys.exit(__doc__)
    print("\n".join(facts[sys.argv[1]]))
