// Look-ups that walk the slots, with the caller's own functions.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONTAINERS_HASH_WALK_H
#define GROUNDWORK_CONTAINERS_HASH_WALK_H

#include <cstdint>

#include "containers/hash_table.h"

namespace groundwork {

// Returns the slot of the first entry for `key` from its home slot on; `size` for a miss.
// Skips holes, because removal leaves them in the middle of probe runs.
[[gnu::visibility("hidden")]] uint32_t walk_to_match(const GHash& hash, const void* key,
                                                     uint32_t hashed);

// Returns where to store `key`: the slot of its entry, or a hole.
// Kept: the run ends at the first hole, where a look-up would go on. A key that is stored
// after the hole is then stored a second time.
[[gnu::visibility("hidden")]] uint32_t walk_to_insertion(const GHash& hash, const void* key,
                                                         uint32_t hashed);

}  // namespace groundwork

#endif
