// Allocations that the tests' heap (allocation_faults.h) leaves alone.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_SUPPORT_UNCOUNTED_ALLOCATIONS_H
#define GROUNDWORK_TESTS_SUPPORT_UNCOUNTED_ALLOCATIONS_H

namespace test {

// While alive, allocations of the thread neither count, fail nor are followed: for a call
// whose block the C library keeps and replaces at the next such call.
class UncountedAllocations {
 public:
  UncountedAllocations();
  ~UncountedAllocations();
  UncountedAllocations(const UncountedAllocations&) = delete;
  UncountedAllocations& operator=(const UncountedAllocations&) = delete;

 private:
  bool was_armed_;
  bool was_paused_;
};

}  // namespace test

#endif
