# SPDX-License-Identifier: MIT
"""What is measured: one row for each job, in the order of docs/performance.md.

To add a row
  1. write the ways to do the job into bench/<folder>/<module>_bench.cc and register them with
     job("name", "ours" or the peer or "floor", function), each with the same sizes;
  2. name the program in bench/CMakeLists.txt, new packages in bench/peers.txt;
  3. describe the job here;
  4. look at it: bench/run --quick --only name
"""

from dataclasses import dataclass, field


@dataclass(frozen=True)
class Row:
    job: str    # as registered by the program
    title: str  # as the table calls it
    # The least that any implementation of the behaviour must do, in words. A way registered
    # as "floor" measures it.
    floor: str
    # Peer -> the ratio ours / peer that is aimed at, in the 32-bit build. Peers without an aim
    # are shown for comparison.
    aims: dict = field(default_factory=dict)
    aim_sizes: tuple = ()  # the aims hold at these sizes only; empty: at all
    size_is: str = ""      # what the size counts
    clock: str = "cpu"     # or "real", where the work is done by others or is waiting
    note: str = ""         # remarks, and why an aim is missed
    only_at: tuple = ("i386", "x86_64")


@dataclass(frozen=True)
class Plot:
    file: str  # below docs/
    title: str
    size_is: str
    lines: tuple  # (job, who, legend)


ROWS = {
    "Strings": [
        Row("strdup", "`g_strdup`", size_is="bytes",
            floor="find the end, copy the bytes; the block comes on top",
            aims={"strdup": 0.2}, aim_sizes=(1000,)),
        Row("strsplit", "`g_strsplit`, each piece", size_is="pieces",
            floor="for each piece: find its end, allocate and free a block, copy the bytes",
            aims={"strchr+malloc": 1.0}),
        Row("printf.assignment", "`g_strdup_printf`, \"%s=%s\\n\"",
            floor="measure both strings, allocate and free a block, copy",
            aims={"asprintf": 0.5}),
        Row("printf.numbers", "`g_strdup_printf`, six mixed numbers",
            floor="allocate and free a block, make the digits",
            aims={"asprintf": 0.7}),
    ],
    "Containers": [
        Row("hash.string.insert", "hash insert, string keys", size_is="keys",
            floor="hash the key, look for it, allocate its entry",
            aims={"uthash": 0.7},
            note="The peer looks for the key before it adds it, as an insertion that replaces "
                 "must; \"unchecked\" leaves that out, for callers who know that it is new."),
        Row("hash.string.hit", "hash hit, string keys", size_is="keys",
            floor="hash the key, read one slot and its entry, compare the key once",
            aims={"uthash": 1.0}),
        Row("hash.string.miss", "hash miss, string keys", size_is="keys",
            floor="hash the key, read the place that shows its absence",
            aims={"uthash": 1.0}),
        Row("hash.int.insert", "hash insert, int keys", size_is="keys",
            floor="look for the key, allocate its entry",
            aims={"uthash": 0.7}),
        Row("hash.int.hit", "hash hit, int keys", size_is="keys",
            floor="read one slot and its entry",
            aims={"uthash": 1.0}),
        Row("hash.int.miss", "hash miss, int keys", size_is="keys",
            floor="read the place that shows the absence",
            aims={"uthash": 1.0}),
    ],
    "Ciphers and Base64": [
        Row("d3des.same", "`g_crypt_d3des_encrypt`, same key",
            floor="16 rounds of 8 table look-ups; compare the key with the last one",
            aims={"OpenSSL": 1.0}),
        Row("d3des.changing", "`g_crypt_d3des_encrypt`, a new key each",
            floor="the 16 round keys, then 16 rounds",
            aims={"OpenSSL": 0.9}),
        Row("des.same", "`g_crypt_des_encrypt`, same key",
            floor="16 rounds of 8 table look-ups; compare the key with the last one",
            aims={"OpenSSL": 1.0}),
        Row("des.changing", "`g_crypt_des_encrypt`, a new key each",
            floor="the 16 round keys, then 16 rounds",
            aims={"OpenSSL": 1.5}),
        Row("base64.encode", "Base64 encode, 4 KB",
            floor="read 4095 bytes, write 5460",
            aims={"OpenSSL": 0.65}),
        Row("base64.decode", "Base64 decode, 4 KB",
            floor="read 5460 characters, check each, write 4095 bytes",
            aims={"OpenSSL": 0.6}),
    ],
}

PLOTS = [
    Plot("performance-hash.svg", "Hash table, string keys, i386", "keys in the table", (
        ("hash.string.insert", "ours", "insert"),
        ("hash.string.insert", "uthash", "insert, uthash"),
        ("hash.string.hit", "ours", "hit"),
        ("hash.string.hit", "uthash", "hit, uthash"),
        ("hash.string.miss", "ours", "miss"),
        ("hash.string.miss", "uthash", "miss, uthash"))),
]
