// Owner of a heap block.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CORE_OWNED_H
#define GROUNDWORK_CORE_OWNED_H

#include <cstdlib>
#include <memory>

namespace groundwork {

struct FreeBlock {
  void operator()(void* block) const { std::free(block); }
};

// Frees its block with free() at the end of the scope; release() hands over ownership. T is
// the type pointed to, as in std::unique_ptr: Owned<char>, Owned<GFile>.
template <typename T>
using Owned = std::unique_ptr<T, FreeBlock>;

}  // namespace groundwork

#endif
