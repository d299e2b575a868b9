// Loading a conf from a file's text.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONF_LOAD_H
#define GROUNDWORK_CONF_LOAD_H

#include <groundwork/conf.h>

#include <cstddef>

namespace groundwork {

// Loads an existing file. Null, after a warning that names the path, if the file cannot be
// opened, locked or read, or memory is exhausted.
GConf* load_conf(const char* filename);

// Makes a conf of the NUL-terminated content of `filename`. Null, without a message, when
// memory is exhausted.
GConf* parse_conf(const char* filename, const char* text, size_t size);

}  // namespace groundwork

#endif
