// Finds descriptors that were left open.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_SUPPORT_DESCRIPTORS_H
#define GROUNDWORK_TESTS_SUPPORT_DESCRIPTORS_H

#include <unistd.h>

namespace test {

// The number that the next descriptor will have: the same before and after what leaves none
// open.
inline int lowest_free_descriptor() {
  const int descriptor = dup(2);
  close(descriptor);
  return descriptor;
}

}  // namespace test

#endif
