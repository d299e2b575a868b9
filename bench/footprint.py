# SPDX-License-Identifier: MIT
"""Size of the stripped 32-bit library, what it costs a program that only links it, and the
tables that the ciphers and Base64 read."""

import pathlib
import re
import subprocess
import tempfile

# Prints the process's private memory in KiB, and nothing else is in it.
PROGRAM = r"""
#include <stdio.h>
#include <string.h>
int main(void) {
  char line[256];
  long sum = 0, value;
  FILE *file = fopen("/proc/self/smaps_rollup", "r");
  while (file != NULL && fgets(line, sizeof line, file) != NULL) {
    if (sscanf(line, "Private_Clean: %ld", &value) == 1 ||
        sscanf(line, "Private_Dirty: %ld", &value) == 1) sum += value;
  }
  printf("%ld\n", sum);
  return 0;
}
"""


def output(*command):
    return subprocess.run([str(part) for part in command], check=True, capture_output=True,
                          text=True).stdout


def measure(folder, fast_folder):
    """Figures of the library that was built for size in a folder, and of the tables of the one
    that was built for speed in another: bytes, memory in KiB."""
    with tempfile.TemporaryDirectory() as name:
        work = pathlib.Path(name)
        library = work / "libgroundwork.so.1"
        output("strip", "-o", library, folder / "libgroundwork.so")
        text, data, bss = map(int, output("size", library).splitlines()[1].split()[:3])
        relocations = sum(map(int, re.findall(r"contains (\d+) entr", output(
            "readelf", "-rW", library))))
        return {"file": library.stat().st_size, "text": text, "data": data, "bss": bss,
                "relocations": relocations, "private": private_memory(work, library),
                "private_without": private_memory(work),
                # Not those exported by name, which are for applications.
                "cipher_tables": tables(fast_folder, "crypt/des_common.cc", "crypt/des.cc",
                                        "crypt/d3des.cc"),
                "base64_tables": tables(fast_folder, "crypt/base64.cc")}


def tables(folder, *sources):
    """Bytes of constant tables in the objects of some sources, texts of messages aside."""
    objects = folder / "CMakeFiles" / "groundwork_objects.dir"
    sections = "".join(output("size", "-A", objects / f"{source}.o") for source in sources)
    return sum(int(size) for name, size in re.findall(r"^(\.rodata\S*)\s+(\d+)", sections, re.M)
               if ".str" not in name and ".cst" not in name)


def private_memory(work, *libraries):
    """Of a program that links the libraries and calls nothing of them: the least of several
    runs, as the system may keep pages in advance."""
    source = work / "program.c"
    source.write_text(PROGRAM)
    program = work / "program"
    output("cc", "-m32", "-O2", "-idirafter", "/usr/include/x86_64-linux-gnu", source, "-o",
           program, "-Wl,--no-as-needed", *libraries, f"-Wl,-rpath,{work}")
    return min(int(output(program)) for _ in range(5))
