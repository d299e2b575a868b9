// From the file to the model and back.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONF_FILE_TEXT_H
#define GROUNDWORK_CONF_FILE_TEXT_H

#include <groundwork/conf.h>

namespace groundwork {

// The conf of an existing file; null, with a report that names the path, when it cannot be
// had.
GConf* load_conf(const char* filename);

// Writes the file of a conf, dirty or not. Takes no lock of the conf.
void write_conf(const GConf* conf);

}  // namespace groundwork

#endif
