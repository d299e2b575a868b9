// Makes allocations fail on purpose, and counts blocks that were not given back.
//
// The test program defines malloc, calloc, realloc and free itself, so the library's calls,
// and those that the C library makes for it, come through here. Only calls made by the
// thread that armed the faults count.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_SUPPORT_ALLOCATION_FAULTS_H
#define GROUNDWORK_TESTS_SUPPORT_ALLOCATION_FAULTS_H

#include <gtest/gtest.h>

#include <cstddef>

namespace test {

// While alive, the `first`-th allocation of this thread fails (1 is the next one); with
// `and_all_later` every one from there on. 0 lets all succeed and only counts.
class AllocationFaults {
 public:
  explicit AllocationFaults(int first, bool and_all_later = false);
  ~AllocationFaults();
  AllocationFaults(const AllocationFaults&) = delete;
  AllocationFaults& operator=(const AllocationFaults&) = delete;

  // Ends the counting and the faults; the figures below stay.
  void disarm();
  // Between these the thread's allocations neither count nor fail. Their blocks are
  // outstanding like all others.
  void pause();
  void resume();
  // How many allocations were asked for while armed, and not paused.
  int calls() const;
  // How many of them failed on purpose.
  int failures() const;
  // Blocks allocated while armed and not freed yet; frees are followed for the life of this
  // object, armed or not, on any thread.
  int outstanding() const;
};

// Starts some threads side by side and joins them. The C library keeps the stacks, each
// with a block of the heap: call this before counting the blocks of code that starts
// threads.
void warm_up_threads();

// The size asked for by the `index`-th (1 is the first) allocation while last armed; 0 when
// there was none. The first 64 are kept.
size_t allocation_size(int index);

// Runs `scenario` again and again, first with its first allocation failing, then the second
// and so on, until one pass makes no allocation fail; then the same with that allocation
// and all later ones failing. The scenario arms nothing itself; it gets an AllocationFaults
// and should call disarm() before it asserts, since assertions allocate. Every block that
// was allocated while armed must be free at the scenario's end.
template <typename Scenario>
void for_each_failed_allocation(Scenario scenario) {
  for (const bool and_all_later : {false, true}) {
    for (int nth = 1;; ++nth) {
      ASSERT_LT(nth, 100000) << "the scenario never completes";
      SCOPED_TRACE(::testing::Message() << "allocation " << nth << " fails"
                                        << (and_all_later ? ", and all later ones" : ""));
      AllocationFaults faults(nth, and_all_later);
      scenario(faults);
      faults.disarm();
      EXPECT_EQ(faults.outstanding(), 0) << "blocks leaked";
      if (::testing::Test::HasFailure()) return;
      if (faults.failures() == 0) {
        EXPECT_GT(nth, 1) << "the scenario allocates nothing";
        break;
      }
    }
  }
}

}  // namespace test

#endif
