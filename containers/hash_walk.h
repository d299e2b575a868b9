// Search by walking the slots, with the caller's own functions.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONTAINERS_HASH_WALK_H
#define GROUNDWORK_CONTAINERS_HASH_WALK_H

#include <cstdint>

#include "containers/hash_table.h"

namespace groundwork {

// The slot of the first entry for `key` from its home slot on; `size` when there is none.
// Passes over holes, because removal leaves them in the middle of a probe run.
[[gnu::visibility("hidden")]] uint32_t walk_to_match(const GHash& hash, const void* key,
                                                     uint32_t hashed);

// Where `key` is to be stored: the slot of its entry, or a hole.
// Kept: the run ends at the first hole, although a search would go on. A key beyond the
// hole is stored twice.
[[gnu::visibility("hidden")]] uint32_t walk_to_insertion(const GHash& hash, const void* key,
                                                         uint32_t hashed);

}  // namespace groundwork

#endif
