// Running the callbacks of a key.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONF_CALLBACKS_H
#define GROUNDWORK_CONF_CALLBACKS_H

#include <groundwork/conf.h>

namespace groundwork {

// Runs the callbacks registered for exactly this section and key, then frees `former` (may
// be null), of which `change` may hold a piece. Uses nothing of the conf afterwards. To be
// called without the conf's mutex.
void run_callbacks(GConf* conf, const GConfChange& change, char* former);

}  // namespace groundwork

#endif
