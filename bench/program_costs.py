# SPDX-License-Identifier: MIT
"""What it costs a 32-bit program to link a shared library and not use it: ours and each peer's."""

import pathlib
import re
import subprocess
import tempfile

DOES_NOTHING = "int main(void) { return 0; }\n"

# Prints its page faults so far, and the most memory that it had, in KiB.
TELLS_ITS_MEMORY = r"""
#include <stdio.h>
#include <sys/resource.h>
int main(void) {
  struct rusage usage;
  char line[256];
  long peak = 0;
  getrusage(RUSAGE_SELF, &usage);
  FILE* file = fopen("/proc/self/status", "r");
  while (file != NULL && fgets(line, sizeof line, file) != NULL) {
    if (sscanf(line, "VmHWM: %ld", &peak) == 1) break;
  }
  printf("%ld %ld\n", usage.ru_minflt, peak);
  return 0;
}
"""

# What the programs of the benchmarks link, by the names of the peers there.
PEERS = {
    "APR": ["libapr-1.so.0"],
    "APR with apr-util": ["libapr-1.so.0", "libaprutil-1.so.0"],
    "NSPR": ["libnspr4.so"],
    "libuv": ["libuv.so.1"],
    "libev": ["libev.so.4"],
    "inih": ["libinih.so.1"],
    "iniparser": ["libiniparser.so.1"],
    "log4c": ["liblog4c.so.3"],
    "libcurl": ["libcurl.so.4"],
    "OpenSSL's libcrypto": ["libcrypto.so.3"],
    "nettle": ["libnettle.so.8"],
}


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def program(work, source, libraries, folders):
    (work / "program.c").write_text(source)
    output("cc", "-m32", "-O2", "-idirafter", "/usr/include/x86_64-linux-gnu",
           work / "program.c", "-o", work / "program", "-Wl,--no-as-needed", *libraries,
           "-Wl,--allow-shlib-undefined",
           *(option for folder in folders
             for option in (f"-Wl,-rpath,{folder}", f"-Wl,-rpath-link,{folder}")),
           "-Wl,--disable-new-dtags")  # for the libraries of the libraries, too
    return work / "program"


def cost(work, libraries, folders):
    """Shared objects, start-up instructions, page faults and peak memory in KiB."""
    nothing = program(work, DOES_NOTHING, libraries, folders)
    objects = len(re.findall(r"=> /|/ld-linux", output("ldd", nothing)))
    counted = subprocess.run(["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null",
                              nothing], check=True, capture_output=True, text=True).stderr
    instructions = int(re.search(r"Collected : (\d+)", counted)[1])
    tells = program(work, TELLS_ITS_MEMORY, libraries, folders)
    runs = [tuple(map(int, output(tells).split())) for _ in range(5)]
    return {"objects": objects, "instructions": instructions,
            "faults": min(faults for faults, _ in runs), "peak": min(peak for _, peak in runs)}


def measure(library_folder, peers_folder):
    """A name and its costs for no library, ours, and the peers that are there."""
    peers_libraries = peers_folder.resolve() / "usr" / "lib" / "i386-linux-gnu"
    folders = [peers_libraries, peers_folder.resolve() / "lib" / "i386-linux-gnu"]
    with tempfile.TemporaryDirectory() as name:
        work = pathlib.Path(name)
        ours = work / "libgroundwork.so.1"
        output("strip", "-o", ours, library_folder / "libgroundwork.so")
        costs = [{"who": "no library", **cost(work, [], [])},
                 {"who": "groundwork", **cost(work, [ours], [work])}]
        for who, names in PEERS.items():
            paths = [peers_libraries / library for library in names]
            if all(path.exists() for path in paths):
                costs.append({"who": who, **cost(work, paths, folders)})
        return costs
