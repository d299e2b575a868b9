# SPDX-License-Identifier: MIT
"""Size of the stripped 32-bit library, what it costs a program that only links it, the tables
that the ciphers and Base64 read, and the memory of a hash table's entry."""

import pathlib
import re
import subprocess
import tempfile

INCLUDE = pathlib.Path(__file__).resolve().parent.parent / "core" / "include"

# Prints its private memory in KiB, and waits until it has no more input.
LINKS_ONLY = r"""
#include <stdio.h>
#include <string.h>
int main(void) {
  char line[256];
  long sum = 0, value;
  FILE* file = fopen("/proc/self/smaps_rollup", "r");
  while (file != NULL && fgets(line, sizeof line, file) != NULL) {
    if (sscanf(line, "Private_Clean: %ld", &value) == 1 ||
        sscanf(line, "Private_Dirty: %ld", &value) == 1) sum += value;
  }
  printf("%ld\n", sum);
  fflush(stdout);
  getchar();
  return 0;
}
"""

# Fills a hash table and prints the bytes of an entry, slots and index included, just after
# the table has doubled, when there are most of them.
FILLS_HASH = r"""
#include <groundwork/hash.h>
#include <malloc.h>
#include <stdint.h>
#include <stdio.h>
static size_t in_use(void) {
  struct mallinfo2 heap = mallinfo2();
  return heap.uordblks + heap.hblkhd;
}
int main(void) {
  static int32_t keys[65536];
  size_t before = in_use();
  GHash* hash = g_hash_new(16, g_hash_int, g_hash_int_equal, NULL);
  for (int i = 0; i < 65536; ++i) {
    keys[i] = i;
    g_hash_insert(hash, &keys[i], &keys[i]);
  }
  printf("%.0f\n", (double)(in_use() - before) / 65536);
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
        sections = dict(re.findall(r"^(\S+)\s+(\d+)", output("size", "-A", library), re.M))
        code = sum(int(sections.get(name, 0)) for name in (".init", ".plt", ".plt.got", ".text",
                                                           ".fini"))
        relocations = sum(map(int, re.findall(r"contains (\d+) entr", output(
            "readelf", "-rW", library))))
        return {"file": library.stat().st_size, "code": code,
                "text": int(output("size", library).splitlines()[1].split()[0]),
                "relocations": relocations, "private": private_memory(work, library),
                "private_without": private_memory(work),
                "hash_entry": int(output(build_program(work, FILLS_HASH, library))),
                # Not those exported by name, which are for applications.
                "cipher_tables": tables(fast_folder, "crypt/des_common.cc", "crypt/des.cc",
                                        "crypt/d3des.cc"),
                "base64_tables": tables(fast_folder, "crypt/base64.cc")}


def tables(folder, *sources):
    """Bytes of constant tables in the objects of some sources, texts and names aside."""
    objects = folder / "CMakeFiles" / "groundwork_objects.dir"
    sections = "".join(output("size", "-A", objects / f"{source}.o") for source in sources)
    return sum(int(size) for name, size in re.findall(r"^(\.rodata\S*)\s+(\d+)", sections, re.M)
               if not re.search(r"\.str|\.cst|kSource", name))


def build_program(work, source, *libraries):
    """A 32-bit program that is linked with libraries, used or not."""
    (work / "program.c").write_text(source)
    program = work / "program"
    output("cc", "-m32", "-O2", "-idirafter", "/usr/include/x86_64-linux-gnu", "-I", INCLUDE,
           work / "program.c", "-o", program, "-Wl,--no-as-needed", *libraries,
           f"-Wl,-rpath,{work}")
    return program


def private_memory(work, *libraries):
    """Of the second process of a program: what a first one does not share with it."""
    program = build_program(work, LINKS_ONLY, *libraries)
    # Pages of a file that is not on the disk yet would count as the process's own.
    output("sync", program, *libraries)
    with subprocess.Popen([program], stdin=subprocess.PIPE, stdout=subprocess.PIPE) as first:
        first.stdout.readline()
        return min(int(subprocess.run([program], stdin=subprocess.DEVNULL, check=True,
                                      capture_output=True).stdout) for _ in range(3))
