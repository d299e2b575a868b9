# SPDX-License-Identifier: MIT
"""What the examples in documents and in the headers' comments mean. An example with a main()
is a program. Any other is a fragment: its static functions, structs and #include lines come first
and stay outside, the rest is the body of main(). Imported by scripts/man-pages and by tests/docs.
"""

import re

# Where the names that examples use are declared, the standard headers in the order they are printed.
DECLARED = {
    "errno.h": "E[A-Z]{3,} errno",
    "fcntl.h": "O_[A-Z]+ open",
    "inttypes.h": "PRI[a-zA-Z0-9]+",
    "limits.h": "[A-Z]+_(MAX|MIN)",
    "locale.h": "setlocale LC_[A-Z]+",
    "pthread.h": "pthread_[a-z_]+",
    "signal.h": "signal raise kill SIG[A-Z]+ sigaction",
    "stdarg.h": "va_[a-z]+",
    "stdint.h": "u?int[0-9]+_t u?intptr_t",
    "stdio.h": "EOF FILE SEEK_[A-Z]+ BUFSIZ f?printf s?n?printf vf?printf vsnprintf f?puts f?putc putchar "
               "fgets getchar fopen fdopen fclose fflush fread fwrite perror remove rename stdin stdout "
               "stderr sscanf",
    "stdlib.h": "malloc calloc realloc free exit abort atoi strtol strtoul strtod qsort getenv setenv "
                "EXIT_[A-Z]+",
    "string.h": "str(len|n?cmp|n?cpy|n?cat|r?chr|str|dup|error|spn|cspn|tok) mem(cpy|cmp|set|move|chr)",
    "strings.h": "strn?casecmp",
    "sys/mman.h": "PROT_[A-Z]+ MAP_[A-Z]+ MS_[A-Z]+ MCL_[A-Z]+",
    "sys/socket.h": "AF_[A-Z0-9]+ SOCK_[A-Z]+ SHUT_[A-Z]+ socketpair socket shutdown",
    "sys/stat.h": "stat mkdir chmod S_I[A-Z]+",
    "sys/wait.h": "wait waitpid W[A-Z]+",
    "time.h": "time nanosleep clock_gettime localtime CLOCK_[A-Z]+",
    "unistd.h": "fork getpid sleep read write close unlink _exit access rmdir chdir STD[A-Z]+_FILENO",
}

# Headers that <groundwork/groundwork.h> does not include.
OF_THEIR_OWN = ("groundwork/safe.h", "groundwork/url.h", "groundwork/des_tables.h")


def is_program(lines):
    return any(re.match(r"int main\(", line) for line in lines)


def outside(lines):
    """How many lines of a fragment are outside main()."""
    count, defines = 0, False
    for index, line in enumerate(lines, 1):
        if re.match(r"\w.*\{$", line):
            defines = line.startswith(("static ", "struct "))
        if line.startswith("#include") or defines and line in ("}", "};"):
            count = index
    return count


def _headers(lines):
    """The standard headers that the names in it need, but for those that it includes."""
    text = re.sub(r"//.*|/\*.*?\*/|\"(\\.|[^\"\\])*\"|#include.*|'(\\.|[^'])'", " ", "\n".join(lines))
    own = re.findall(r"^static .*?\b(\w+)\(", text, re.M)  # may have a name that the system has, too
    text = re.sub(rf"\b({'|'.join(own)})\b", "", text) if own else text
    found = [header for header, names in DECLARED.items()
             if f"#include <{header}>" not in lines and
             re.search(rf"(?<![\w>.])({'|'.join(names.split())})\b", text)]
    if re.search(r"\bNULL\b", text) and not {"stdio.h", "stdlib.h", "string.h", "unistd.h"} & {
            *found, *(line[10:-1] for line in lines if line.startswith("#include <"))}:
        found.append("stddef.h")
    return found


def _trimmed(lines):
    return "\n".join(lines).strip("\n").split("\n")


def program(lines, headers):
    """The lines of a whole C program, as a manual page prints it. `headers` has the header of each
    function of the library."""
    if is_program(lines):
        return lines
    cut = outside(lines)
    head, body = _trimmed(lines[:cut]), _trimmed(lines[cut:])
    includes = [line for line in head if line.startswith("#include <groundwork/")]
    for name in re.findall(r"\b(\w+)\(", "\n".join(lines)):
        header = headers.get(name, "")
        if header and f"#include <{header}>" not in includes:
            known = header if header in OF_THEIR_OWN else "groundwork/groundwork.h"
            if f"#include <{known}>" not in includes:
                includes.append(f"#include <{known}>")
    includes.sort()
    standard = [line for line in head if line.startswith("#include") and line not in includes]
    standard = sorted(standard + [f"#include <{header}>" for header in _headers(lines)])
    rest = _trimmed([line for line in head if not line.startswith("#include")])
    whole = [*includes, *([""] if standard else []), *standard, ""]
    if any(rest):
        whole += [*rest, ""]
    whole += ["int main(void) {", *("  " + line if line and line[0] != "#" else line for line in body)]
    if not body[-1].startswith("return "):
        whole.append("  return 0;")
    return [*whole, "}"]
