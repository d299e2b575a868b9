// Search through the index of a table whose key functions are our own: the slots that a
// walk would find, without the walk.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONTAINERS_HASH_INDEX_H
#define GROUNDWORK_CONTAINERS_HASH_INDEX_H

#include <cstdint>

#include "containers/hash_table.h"

namespace groundwork {

// As walk_to_match().
uint32_t indexed_match(const GHash& hash, const void* key, uint32_t hashed);

// As walk_to_insertion().
uint32_t indexed_insertion(const GHash& hash, const void* key, uint32_t hashed);

}  // namespace groundwork

#endif
