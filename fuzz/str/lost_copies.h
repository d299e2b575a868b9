// The copy of a text that every "%m" loses, kept since programs count allocations.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_FUZZ_STR_LOST_COPIES_H
#define GROUNDWORK_FUZZ_STR_LOST_COPIES_H

#include <cstddef>

#include "fuzz/support/check.h"
#include "fuzz/support/heap.h"

namespace fuzz {

// Calls function(), a formatted allocation that must lose `copies` of them (all that there
// are when negative), and frees them, so that any other loss is a finding.
template <typename Function>
char* without_lost_copies([[maybe_unused]] int copies, Function function) {
#if defined(GROUNDWORK_FUZZ_CHECKED_HEAP)
  LostBlocks lost(sizeof "ERROR_MSG: G_STR");
  char* const text = function();
  const size_t freed = lost.free_all(text);
  if (copies >= 0) REQUIRE_EQUAL(freed, static_cast<size_t>(copies));
  return text;
#else
  return function();
#endif
}

}  // namespace fuzz

#endif
