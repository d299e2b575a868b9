# SPDX-License-Identifier: MIT
"""Who may include whom in the library, and who does. scripts/lint holds it, and
scripts/include-picture draws it."""

import re

# Who may include whom, from the bottom up: each layer, the files that belong to it, and the layers
# that it may use, all of them above it in this list. A layer is a folder, except where two
# folders need each other: queues and rings need a mutex, which thread/ has, and callback lists and
# module registries need lists and tables. There the layers are sets of files.
LAYERS = {
    "core": (r"core/", []),
    "lists and tables": (r"containers/(list|hash|slot_index)", ["core"]),
    "str": (r"str/", ["core"]),
    "threads": (r"thread/", ["core"]),
    "queues and rings": (r"containers/", ["core", "lists and tables", "threads"]),
    "callbacks": (r"thread/(callback|module)", ["core", "lists and tables"]),
    "sys": (r"sys/", ["core", "str"]),
    "conf": (r"conf/", ["core", "lists and tables", "str", "threads", "callbacks", "sys"]),
    "crypt": (r"crypt/", ["core"]),
    "url": (r"url/", []),
    "safe": (r"safe/", ["core", "lists and tables", "str", "threads", "callbacks", "sys", "conf",
                        "url"]),
    # Header-only classes, and groundwork.h, which includes every header of the g_ family.
    "cpp": (r"cpp/", None),
    "everything": (r"groundwork/groundwork\.h$", None),
}

# The layer of each public header, where it is not the folder of its name.
PUBLIC = {
    "export": "core", "log": "core", "memory": "core", "package": "core",
    "list": "lists and tables", "hash": "lists and tables",
    "thread": "threads", "timer": "threads", "timeout": "threads",
    "queue": "queues and rings", "fifo": "queues and rings", "callback": "callbacks",
    "file": "sys", "file_map": "sys", "dir": "sys", "sys": "sys", "des_tables": "crypt",
    "groundwork": "everything",
}
INCLUDE = re.compile(r'#\s*include\s*(?:<groundwork/([\w/]+)\.h(?:pp)?>|"([\w/]+\.h)")')


def layer_of_public(stem):
    return "cpp" if stem.startswith("cpp/") else PUBLIC.get(stem, stem)


def layer_of(name):
    """The layer of a file; None if it is not part of the library."""
    public = re.match(r"(?:core|url|safe)/include/groundwork/(\w+)\.h$", name)
    if public:
        return layer_of_public(public[1])
    fitting = [layer for layer, (pattern, _) in LAYERS.items() if re.match(pattern, name)]
    # Among the layers of a folder, the one that names the file.
    return max(fitting, key=lambda layer: len(LAYERS[layer][0]), default=None)


def uses(name, text):
    """(line, layer) of each include of ours."""
    for number, line in enumerate(text.splitlines(), 1):
        include = INCLUDE.match(line)
        if include:
            used = layer_of_public(include[1]) if include[1] else layer_of(include[2])
            yield number, line, used
