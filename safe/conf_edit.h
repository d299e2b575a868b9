// Edits the text of a configuration file so that it reads as a conf, and changes nothing
// else. Accesses no file.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_SAFE_CONF_EDIT_H
#define GROUNDWORK_SAFE_CONF_EDIT_H

#include <groundwork/conf.h>

#include <string_view>

#include "core/byte_array.h"

namespace groundwork {

// Writes an edited copy of `old_text` (which has no NUL) to `out`, which is empty, such
// that loading it gives the keys and values of the conf, in whatever order. Must be called
// with the conf's mutex held. Returns 0, ENOMEM, EFBIG for 2 GiB and more, or EINVAL if no
// text reads as the conf.
int edit_conf_text(std::string_view old_text, const GConf* conf, ByteArray& out);

}  // namespace groundwork

#endif
