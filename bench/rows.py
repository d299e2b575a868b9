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


@dataclass(frozen=True, eq=False)
class Row:
    job: str    # as registered by the program
    title: str  # as the table calls it
    # The least that any implementation of the behaviour must do, in words. A way registered
    # as "floor" measures it.
    floor: str
    # Peer -> the ratio ours / peer that is aimed at, in the 32-bit build. An aim that was met
    # easily is tightened. Peers without an aim are shown for comparison.
    aims: dict = field(default_factory=dict)
    aim_sizes: tuple = ()  # the aims hold at these sizes only; empty: at all
    size_is: str = ""      # what the size counts
    clock: str = "cpu"     # or "real", where the work is done by others or is waiting
    note: str = ""         # remarks, and why an aim is missed
    board_note: str = ""   # why it is missed by instructions, if that is something else
    only_at: tuple = ("i386", "x86_64")


@dataclass(frozen=True)
class SizeRow:
    title: str
    figure: str  # as bench/footprint.py calls it
    aim: int | None = None
    note: str = ""


@dataclass(frozen=True)
class Plot:
    file: str  # below docs/
    title: str
    size_is: str
    lines: tuple  # (job, who, legend)


ROWS = {
    "Diagnostics": [
        Row("log.suppressed", "suppressed `g_log`",
            floor="a call with its arguments, a load and a comparison",
            aims={"syslog": 0.3, "log4c": 0.7},
            note="log4c's inline function asks first and passes the arguments of lines that "
                 "will be written only. The floor alone is near the aim.",
            board_note="On ARM a function with any number of arguments stores one of them first; on "
                       "both, the address of the level is computed from that of the code."),
    ],
    "Strings": [
        Row("strdup", "`g_strdup`", size_is="bytes",
            floor="find the end, copy the bytes; the block comes on top",
            aims={"strdup": 0.15}, aim_sizes=(1000,),
            note="The floor alone is near the aim; the heap's block comes on top.",
            board_note="The C library's own is not slower there, as it is for 32-bit x86: both are "
                       "strlen(), malloc() and memcpy()."),
        Row("strsplit", "`g_strsplit`, each piece", size_is="pieces",
            floor="for each piece: find its end, allocate and free a block, copy the bytes",
            aims={"strchr+malloc": 1.0},
            note="The same calls for each piece; ours asks besides whether the limit of pieces "
                 "is reached, and takes a delimiter of any length."),
        Row("printf.assignment", "`g_strdup_printf`, \"%s=%s\\n\"",
            floor="measure both strings, allocate and free a block, copy",
            aims={"asprintf": 0.5},
            board_note="The floor is 0.23 to 0.29 of the peer. The rest of ours is the walk over "
                       "the format for the size of the block, which callers can see, and the "
                       "choice of a way without the formatter."),
        Row("printf.numbers", "`g_strdup_printf`, six mixed numbers",
            floor="allocate and free a block, make the digits",
            aims={"asprintf": 0.7},
            note="The size of the block, which callers can see, is estimated first: each "
                 "conversion is looked at twice."),
    ],
    "Configuration": [
        Row("conf.open.one", "open, each key, one section", size_is="keys in the file",
            floor="read the file once, touch each byte, allocate a record for each key, make it "
                  "findable by name",
            aims={"inih+uthash": 0.6}),
        Row("conf.open.tens", "open, each key, sections of 10", size_is="keys in the file",
            floor="as with one section, and a section's record for ten keys",
            aims={"inih+uthash": 0.6}),
        Row("conf.hit", "read, key present", size_is="keys in the file",
            floor="lock and unlock, hash two names without regard to case, compare both once",
            aims={"inih+uthash": 0.8},
            note="The peer keeps the case and takes no lock. Ours takes none either in a program "
                 "with one thread; with more, a pair of lock and unlock adds 8 ns. Of a hit in a "
                 "small file, finding the section is a quarter and looking at the value's end, "
                 "which may need trimming, a fifth."),
        Row("conf.hit.tens", "read, key present, sections of 10", size_is="keys in the file",
            floor="lock and unlock, hash two names without regard to case, compare both once",
            aims={"inih+uthash": 0.8},
            note="As with one section: the names of both are compared without regard to case, "
                 "the peer's as they are."),
        Row("conf.miss", "read, key absent", size_is="keys in the file",
            floor="lock and unlock, hash two names without regard to case, compare one",
            aims={"inih+uthash": 0.8},
            note="As a hit: the calls and the section are two thirds of it in a small file."),
        Row("conf.write", "write of a changed value", size_is="keys in the file",
            floor="find twice (comparison and change are two steps), free and allocate a value",
            aims={"inih+uthash": 0.8},
            board_note="Both free a value and allocate one. Ours trims key and value, marks the conf "
                       "as changed and asks for callbacks besides."),
        Row("conf.sync", "sync of one changed value, each key", size_is="keys in the file",
            floor="copy every key and value once, one write",
            aims={"fprintf": 0.3}, aim_sizes=(10000,),
            note="On a disk, emptying the file and the kernel's copy are three quarters of ours; "
                 "in memory (tmpfs) the ratio is 0.3."),
        Row("conf.save", "`g_conf_save` of one changed key", size_is="keys in the file",
            floor="the peer write+rename: write the ready text, sync it, rename, sync the "
                  "directory",
            clock="real",
            note="On a disk the syncs are nearly all of it: two for a save that survives a power "
                 "cut, one for a file that is written over and synced."),
        Row("conf.save.nosync", "`g_conf_save`, time outside the syncs", size_is="keys in the file",
            floor="read the file and compare it, copy it with the change; create a file, write, "
                  "rename",
            aims={"write+rename": 1.1}, aim_sizes=(1000,),
            note="Syncs do nothing here. The peer is given the new text. The floor is told what "
                 "to change, but reads the file and compares it with a copy, as a save that never "
                 "overwrites another program's changes must. Ours keeps no copy: it takes the "
                 "fingerprint of what it read, looks up the key of each line, and checks that no "
                 "two keys have one name. These are some 600 instructions a key."),
    ],
    "Containers": [
        Row("list.foreach", "`g_list_foreach`, each element", size_is="elements",
            floor="a load that waits for the one before, and a call through a pointer",
            aims={"utlist, function": 1.0, "utlist, in line": 1.0},
            note="A macro's loop body is compiled in line; a function of a library has to call."),
        Row("list.find", "`g_list_find`, each element passed", size_is="elements",
            floor="a load that waits for the one before, and a comparison",
            aims={"utlist": 1.0},
            note="The loops are the same; a short list shows the call.",
            board_note="A call, and the same loop."),
        Row("list.prepend", "`g_list_prepend` and free, each element", size_is="elements",
            floor="allocate and free a node, four stores",
            aims={"utlist": 1.0},
            note="Allocating and freeing is nearly all of it for both; the peer's macros are in "
                 "line, ours is a call more for each node."),
        Row("list.append", "`g_list_append`", size_is="elements",
            floor="walk to the end, as a list is known by its head only; allocate a node",
            aims={"walk+malloc": 1.0},
            note="utlist keeps the tail in the head's back link, which is null here for callers "
                 "who rely on it.",
            board_note="A call, and the same walk and allocation."),
        Row("queue", "queue, enqueue and dequeue, program with threads",
            floor="two pairs of lock and unlock, a node allocated and freed",
            aims={"TAILQ+mutex": 1.0},
            note="The peer's list operations are in line, ours are two more calls, each with "
                 "its check and its question for the hold functions."),
        Row("queue.alone", "queue, enqueue and dequeue, program with one thread",
            floor="a node allocated and freed", aims={"TAILQ+mutex": 1.0}),
        Row("queue.busy", "queue, one thread enqueues what another dequeues, each element",
            floor="two pairs of lock and unlock under contention", clock="real",
            aims={"TAILQ+mutex": 0.6},
            note="With a processor for each thread. Ours tries for a while before it lets a "
                 "thread sleep, and keeps up to 64 nodes; either alone gains little: 400 ns an "
                 "element with the patience alone, 500 with the nodes alone, 200 with both. On a "
                 "loaded machine the threads take turns of milliseconds, and all are alike."),
        Row("fifo", "ring buffer, put and get, program with threads",
            floor="two pairs of lock and unlock, a store and a load",
            aims={"APR": 0.6},
            note="The two pairs of lock and unlock, which APR's queue has too, are nearly all "
                 "of its cost: the floor alone is above the aim."),
        Row("fifo.alone", "ring buffer, put and get, program with one thread",
            floor="a store and a load", aims={"APR": 0.6}),
        Row("hash.string.insert", "hash insert, string keys", size_is="keys",
            floor="hash the key, look for it, allocate its entry",
            aims={"uthash": 0.7},
            note="The peer looks for the key before it adds it, as an insertion that replaces "
                 "must; \"unchecked\" leaves that out, for callers who know that it is new.",
            board_note="As with int keys: at 100 keys the growth from 16 slots is half of it."),
        Row("hash.string.remove", "hash removal, string keys", size_is="keys",
            floor="hash the key, look for it, unlink its entry",
            aims={"uthash": 0.9},
            note="Hashing and comparing the text are the same for both; 0.9 in instructions, too."),
        Row("hash.string.hit", "hash hit, string keys", size_is="keys",
            floor="hash the key, read one slot and its entry, compare the key once",
            aims={"uthash": 0.9},
            note="Few keys fit the nearest cache either way; then a call competes with an "
                 "in-line macro. Of 1,000,000 keys no cache holds the index's cell, the slot, the "
                 "entry or the text; the peer's bucket, entry and text are three such places, but "
                 "several entries share a bucket. Both take 340 to 460 ns there."),
        Row("hash.string.miss", "hash miss, string keys", size_is="keys",
            floor="hash the key, read the place that shows its absence",
            aims={"uthash": 1.0},
            note="The hash of the text, the same for both, is nearly all of it."),
        Row("hash.int.insert", "hash insert, int keys", size_is="keys",
            floor="look for the key, allocate its entry",
            aims={"uthash": 0.7},
            note="The slots double from 16 as soon as they are full, and each doubling places "
                 "every entry again; the peer begins with 32 buckets and lets ten keys share "
                 "one. At 100 keys that is half of an insertion: in a table that is made with 128 "
                 "slots it takes 12 ns instead of 23, 0.6 of the peer. How a table grows is "
                 "promised to callers.",
            board_note="As with the times: at 100 keys the growth from 16 slots is half of it."),
        Row("hash.int.remove", "hash removal, int keys", size_is="keys",
            floor="look for the key, unlink its entry",
            aims={"uthash": 0.9}),
        Row("hash.int.hit", "hash hit, int keys", size_is="keys",
            floor="read one slot and its entry",
            aims={"uthash": 0.9},
            note="Ours follows the index to the slot, the slot to the entry and the entry to the "
                 "key; the peer's key is in its entry, and its macro is in line."),
        Row("hash.int.miss", "hash miss, int keys", size_is="keys",
            floor="read the place that shows the absence",
            aims={"uthash": 1.0},
            note="A call against an in-line macro; the index is larger than the peer's buckets "
                 "and leaves the nearest cache earlier."),
        Row("hash.own.miss", "hash miss, the caller's own functions, each entry",
            size_is="keys", floor="call the equality once for each entry",
            aims={"the calls alone": 1.05},
            note="The calls alone have the keys in a row; ours reads each from its entry, past "
                 "the empty slots."),
    ],
    "Threads": [
        Row("mutex.pair", "mutex, lock and unlock",
            floor="pthread's lock and unlock",
            aims={"pthread": 1.3}),
        Row("event.hit", "`g_thread_event_wait_for`, signalled before",
            floor="lock, compare, unlock", aims={"condition": 1.2},
            board_note="The lock and the unlock are three quarters of both. Ours asks besides "
                       "whether the thread is to be cancelled, as each wait does, and whether the "
                       "event is being freed."),
        Row("event.timeout", "`g_thread_event_wait_for`, 1 ms each",
            floor="the peer", aims={"condition": 1.2},
            note="Processor time of the whole process."),
        Row("timer.many", "timers of 10 ms, each callback", size_is="timers",
            floor="one wake-up each 10 ms, and the calls in a row",
            aims={"libev": 0.5},
            note="Processor time of the whole process. Around each callback the lock of the "
                 "list is given back and taken again, as callbacks and other threads may "
                 "change the list."),
        Row("timer.idle", "timer service without timers, each 10 ms",
            floor="the sleep", aims={"sleeps": 1.1},
            note="Processor time of the whole process; the peer is a loop of select()."),
        Row("timer.replace", "the oldest timer removed and another added", size_is="timers",
            floor="free and allocate a record, read the clock", aims={"libev": 3.0},
            note="Ours allocates the record and reads the clock, and takes its lock twice; the "
                 "peer's timers are the program's, its loop has one thread and the time of its "
                 "last turn.",
            board_note="Two pairs of lock and unlock (454 instructions on MIPS), the clock (230), "
                       "and a record allocated and freed; the peer does none of them."),
        Row("ticks", "`g_get_ticks`", floor="the peer", aims={"gettimeofday": 1.1},
            note="The call of gettimeofday() is four fifths of it; the rest is the 64-bit "
                 "arithmetic of the ticks."),
    ],
    "Files": [
        Row("file.read_buf", "`g_file_read_buf`", size_is="bytes",
            floor="stat, open, malloc, read, close", aims={"NSPR": 0.9},
            note="A missing file is none and one of 2 GiB or more is not to be touched, without a "
                 "word, so ours asks for the size by name before it opens; the peer asks the "
                 "open descriptor.",
            board_note="As with the times: one system call more, in which the path is looked up."),
        Row("file.copy", "`g_file_copy`", size_is="bytes",
            floor="the peer", aims={"read+write": 1.0},
            note="The same calls of the system; ours stands ready for a thread that is cancelled "
                 "in any of them."),
        Row("replace", "`g_file_replace`, in memory", size_is="bytes",
            floor="the peer: open, write, fsync, close, rename, and fsync of the directory",
            aims={"write+rename": 1.3},
            note="On tmpfs, where a sync takes no time; on a disk the two syncs are nearly all. "
                 "Ours locks the directory, looks whether the file is a link, and keeps its mode "
                 "and owner.",
            board_note="As with the times: the lock of the directory and the look at the file are "
                       "four system calls of the kernel's."),
    ],
    "Streams": [
        Row("lines.records", "lines of one length, each", size_is="bytes in a line",
            floor="one read, as the descriptor is left at the end of each line",
            aims={"pread+lseek": 1.1},
            note="fgets and getline read ahead: they leave the descriptor elsewhere.",
            board_note="The peer is told where the line ends. To look at each byte and copy it out "
                       "of the piece takes 1.1 instructions on ARM and 1.4 on MIPS."),
        Row("lines", "lines of half to one and a half times the length, each",
            size_is="bytes in a line on average",
            floor="one read and one step back",
            aims={"pread+lseek": 1.1},
            note="The peer knows the length of each line. The library cannot know where the "
                 "descriptor was moved in between, so it steps back relatively, which the "
                 "kernel does under a lock; the bytes are read into a buffer aside first, as "
                 "the caller's buffer stays unchanged after the line.",
            board_note="As with records, and what was read beyond the line is stepped back over."),
        Row("http.get", "HTTP get", size_is="bytes", clock="real",
            floor="a connection, one segment out, reading to the end, close",
            aims={"curl, reused": 0.95},
            note="Each stream is a connection of its own; a reused handle keeps its "
                 "connection, which is why it wins where connecting is most of the work. For 100 MB "
                 "1.0 is aimed at."),
        Row("http.fgetc", "HTTP byte by byte, each byte",
            floor="the peer", aims={"getc_unlocked": 2.0},
            note="Each byte is counted, clears errno and url_errno and goes through the "
                 "stream's slot, all of which programs can see; the peer is expanded in line. "
                 "In 32-bit code the address of the data costs a call besides."),
    ],
    "Ciphers and Base64": [
        Row("d3des.same", "`g_crypt_d3des_encrypt`, same key",
            floor="16 rounds of 8 table look-ups; compare the key with the last one",
            aims={"OpenSSL": 1.0},
            note="The peer's rounds are written in assembler in the 32-bit build.",
            board_note="The same rounds; ours compares the key with the last one besides."),
        Row("d3des.changing", "`g_crypt_d3des_encrypt`, a new key each",
            floor="the 16 round keys, then 16 rounds",
            aims={"OpenSSL": 0.9},
            note="The peer's rounds are written in assembler in the 32-bit build."),
        Row("des.same", "`g_crypt_des_encrypt`, same key",
            floor="16 rounds of 8 table look-ups; compare the key with the last one",
            aims={"OpenSSL": 1.0}),
        Row("des.changing", "`g_crypt_des_encrypt`, a new key each",
            floor="the 16 round keys, then 16 rounds",
            aims={"OpenSSL": 1.1}),
        Row("base64.encode", "Base64 encode, 4 KB",
            floor="read 4095 bytes, write 5460",
            aims={"OpenSSL": 0.65, "nettle": 0.7},
            note="Four look-ups for three bytes, as the peers; two characters at a time would "
                 "need a table of 8 KB, which is the limit for both directions.",
            board_note="On MIPS three bytes take at least 19 instructions: three load a word and "
                       "reverse its bytes, and each character takes four: extract six bits, add "
                       "the address of the table, load, store."),
        Row("base64.decode", "Base64 decode, 4 KB",
            floor="read 5460 characters, check each, write 4095 bytes",
            aims={"OpenSSL": 0.6},
            note="Four look-ups and a check for three bytes, on both sides.",
            board_note="On MIPS the C library's strlen() is a quarter of it, as the length is not "
                       "given. Each look-up takes four instructions: load the character, scale it, "
                       "add the address of the table, load."),
    ],
}

FOOTPRINT = [
    SizeRow("machine code, `-Os`, bytes", "code", 64 * 1024,
            note="with the safe layer, which has limits of its own in [size.md](size.md)"),
    SizeRow("with constants, unwind tables and names, bytes", "text",
            note="taken apart in [size.md](size.md)"),
    SizeRow("relocations", "relocations", 150,
            note="with the safe layer; see [size.md](size.md)"),
    SizeRow("private memory of a program that only links it, KiB", "private", 100,
            note="in the second process of the program, of `smaps`"),
    SizeRow("of the same program without it, KiB", "private_without",
            note="the C library's and the loader's share"),
    SizeRow("stripped file, bytes", "file"),
    SizeRow("memory of a hash table's entry just after the table grew, bytes", "hash_entry", 40),
    SizeRow("tables of both ciphers, `-O2`, bytes", "cipher_tables", 12 * 1024),
    SizeRow("tables of Base64, `-O2`, bytes", "base64_tables", 8 * 1024,
            note="two of 4 KiB, and the alphabet"),
]

PLOTS = [
    Plot("performance-configuration.svg", "Configuration, one section, i386",
         "keys in the file", (
             ("conf.open.one", "ours", "open, each key"),
             ("conf.open.one", "inih+uthash", "open, inih+uthash"),
             ("conf.hit", "ours", "read"),
             ("conf.hit", "inih+uthash", "read, inih+uthash"),
             ("conf.miss", "ours", "read, absent"),
             ("conf.miss", "inih+uthash", "read, absent, inih+uthash"))),
    Plot("performance-hash.svg", "Hash table, string keys, i386", "keys in the table", (
        ("hash.string.insert", "ours", "insert"),
        ("hash.string.insert", "uthash", "insert, uthash"),
        ("hash.string.hit", "ours", "hit"),
        ("hash.string.hit", "uthash", "hit, uthash"),
        ("hash.string.miss", "ours", "miss"),
        ("hash.string.miss", "uthash", "miss, uthash"))),
    Plot("performance-lines.svg", "Lines of a file, i386", "bytes in a line", (
        ("lines.records", "ours", "of one length"),
        ("lines.records", "pread+lseek", "of one length, pread+lseek"),
        ("lines", "ours", "of mixed lengths"),
        ("lines", "pread+lseek", "of mixed lengths, pread+lseek"))),
]
