// Finds descriptors that were left open.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_SUPPORT_DESCRIPTORS_H
#define GROUNDWORK_TESTS_SUPPORT_DESCRIPTORS_H

#include <fcntl.h>
#include <unistd.h>

namespace test {

// The number that the next descriptor will have: the same before and after what leaves none
// open.
inline int lowest_free_descriptor() {
  const int descriptor = dup(2);
  close(descriptor);
  return descriptor;
}

// How many of the first 256 are open.
inline int count_open_descriptors() {
  int count = 0;
  for (int fd = 0; fd < 256; ++fd) count += fcntl(fd, F_GETFD) != -1 ? 1 : 0;
  return count;
}

}  // namespace test

#endif
