// Running the callbacks of a key.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONF_CALLBACKS_H
#define GROUNDWORK_CONF_CALLBACKS_H

#include <groundwork/conf.h>

namespace groundwork {

// Runs the callbacks registered for exactly this section and key, then frees `old_value`,
// which may be null; `change` may point into it. Does not use the conf afterwards. Must be
// called without the conf's mutex.
void run_callbacks(GConf* conf, const GConfChange& change, char* old_value);

}  // namespace groundwork

#endif
