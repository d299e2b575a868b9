// Runs each scenario again and again, with one fault after the other.
//
// A scenario is a function that uses the library as a program would, and checks after each
// step that the library kept its promise: the right result, or the failure value and the
// state that belongs to it. It makes the library's calls while a Faults object lives, so
// that only these meet the fault.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_FAULTS_SWEEP_H
#define GROUNDWORK_TESTS_FAULTS_SWEEP_H

#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

#include "faults/fault_plan.h"
#include "support/allocation_faults.h"

namespace faults {

// One run of a scenario with one fault, or with none.
class Pass {
 public:
  Pass(const Fault& fault, int nth_allocation, bool later_allocations_too);
  ~Pass();
  Pass(const Pass&) = delete;
  Pass& operator=(const Pass&) = delete;

  // How often a fault changed the outcome of this function, or of all of these together.
  // Without an argument: whether it changed any.
  int struck(Call call) const;
  template <typename... More>
  int struck(Call call, More... more) const {
    return struck(call) + struck(more...);
  }
  bool struck() const;

  // Nothing was struck, or only what these functions do.
  template <typename... Calls>
  bool struck_only(Calls... these) const {
    return struck(Call::kAny) + struck(Call::kAllocation) == (struck(these) + ... + 0);
  }

  // Whether the fault is one of memory.
  bool is_of_memory() const { return is_of_memory_; }

  // What the fault does. The error is -1 where all fail, each with its own.
  Effect::Kind kind() const { return kind_; }
  int error() const { return error_; }
  bool and_all_later() const { return and_all_later_; }

  // Warnings and failed checks that were logged so far, and the last of them without its
  // source and line.
  int reports() const;
  const char* last_report() const;

  // For the driver.
  int outstanding_blocks() const { return allocations_.outstanding(); }
  int calls_of_heap() const { return allocations_.calls(); }

 private:
  friend class Faults;
  test::AllocationFaults allocations_;
  const Effect::Kind kind_;
  const int error_;
  const bool and_all_later_;
  const bool is_of_memory_;
};

// While alive, the calls of this thread are the library's. Nothing else may be called
// meanwhile than the library, by functions that it calls neither.
class Faults {
 public:
  explicit Faults(Pass& pass) : pass_(pass) {
    pass_.allocations_.resume();
    resume_plan();
  }
  ~Faults() {
    pause_plan();
    pass_.allocations_.pause();
  }
  Faults(const Faults&) = delete;
  Faults& operator=(const Faults&) = delete;

 private:
  Pass& pass_;
};

// The result of one call of the library.
template <typename Function>
auto faulty(Pass& pass, Function call_library) {
  const Faults faults(pass);
  return call_library();
}

// Notes which functions are struck from its construction on.
class Since {
 public:
  explicit Since(const Pass& pass) : pass_(pass) {
    for (size_t i = 0; i < kCalls; ++i) before_[i] = pass.struck(static_cast<Call>(i));
  }
  template <typename... Calls>
  bool struck(Calls... these) const {
    return ((pass_.struck(these) > before_[static_cast<size_t>(these)]) || ...);
  }

 private:
  const Pass& pass_;
  int before_[kCalls];
};

struct Scenario {
  const char* name;                 // letters and digits
  std::vector<const char*> covers;  // the exported functions that it is for
  void (*run)(Pass& pass);
  // With threads that sleep and wake, the calls are not the same in each pass: only so many
  // are made to fail of each function. 0: all are.
  int occurrences = 0;
};

// Enters the scenarios of a module; objects of it are static.
class Scenarios {
 public:
  Scenarios(const char* module, std::vector<Scenario> scenarios);
};

}  // namespace faults

#endif
