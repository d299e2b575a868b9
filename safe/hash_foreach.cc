// A walk over a hash table. It only follows the slots: removal moves no entries, so the
// walk simply does not meet those that the function removes.
//
// SPDX-License-Identifier: MIT

#include <groundwork/safe.h>

#include <cerrno>
#include <cstdint>

#include "containers/hash_table.h"
#include "core/check.h"
#include "safe/failure.h"

using namespace groundwork;

namespace {

constexpr char kSource[] = "g_hash";

}  // namespace

extern "C" int g_hash_foreach(GHash* hash, int (*func)(void* key, void* value, void* data),
                              void* data) {
  CHECK_ARG(hash != NULL, fail(EINVAL));
  CHECK_ARG(func != NULL, fail(EINVAL));
  // A function that inserts, which it must not, may make the table grow, but not the walk
  // longer.
  const uint32_t size = hash->size;
  for (uint32_t slot = 0; slot < size; ++slot) {
    const HashEntry* const entry = hash->slots[slot];
    if (entry == nullptr) continue;
    const int result = func(entry->key, entry->value, data);
    if (result != 0) return result;
  }
  return 0;
}
