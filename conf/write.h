// Writing a conf to its file.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONF_WRITE_H
#define GROUNDWORK_CONF_WRITE_H

#include <groundwork/conf.h>

#include "core/byte_array.h"

namespace groundwork {

// Appends the text of a whole conf. False when memory is exhausted.
bool format_conf(const GConf* conf, ByteArray& buffer);

// Writes the file of a conf, dirty or not. Takes no lock of the conf.
void write_conf(GConf* conf);

}  // namespace groundwork

#endif
