// From a file's text to a conf.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONF_LOAD_H
#define GROUNDWORK_CONF_LOAD_H

#include <groundwork/conf.h>

#include <cstddef>

namespace groundwork {

// The conf of an existing file. Null, after a warning that names the path, when the file
// cannot be opened, locked or read, or memory is exhausted.
GConf* load_conf(const char* filename);

// The conf of a text that is `filename`'s content, a NUL after its end. Null when memory is
// exhausted, without a message.
GConf* parse_conf(const char* filename, const char* text, size_t size);

}  // namespace groundwork

#endif
