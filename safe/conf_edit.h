// Changing the text of a configuration file so that it reads as a conf, and nothing else of
// it. No file is touched here.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_SAFE_CONF_EDIT_H
#define GROUNDWORK_SAFE_CONF_EDIT_H

#include <groundwork/conf.h>

#include <string_view>

#include "core/byte_array.h"

namespace groundwork {

// Appends to `out`, which is empty, the text that `old_text` (without a NUL) becomes so
// that loading it gives the keys and values of the conf, in whatever order. To be called
// with the conf's mutex held. 0, or ENOMEM, EFBIG for 2 GiB and more, or EINVAL for a conf
// that no text reads as.
int edit_conf_text(std::string_view old_text, const GConf* conf, ByteArray& out);

}  // namespace groundwork

#endif
