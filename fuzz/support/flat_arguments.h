// An argument list made at run time: on the 32-bit targets it is a pointer to the
// arguments, one after the other.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_FUZZ_SUPPORT_FLAT_ARGUMENTS_H
#define GROUNDWORK_FUZZ_SUPPORT_FLAT_ARGUMENTS_H

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace fuzz {

class FlatArguments {
 public:
  void add(uint32_t word) { words_.push_back(word); }
  void add(void* pointer) { add(static_cast<uint32_t>(address(pointer))); }
  void add(uint64_t number) { add_wide(&number); }
  void add(double number) { add_wide(&number); }

  // Calls function(list). The list lives for that call; other lists of the same arguments
  // can be asked for.
  template <typename Function>
  auto with_list(Function function) const {
    // Aligned as on a stack.
    std::vector<uint64_t> block(words_.size() / 2 + 1);
    if (!words_.empty()) std::memcpy(block.data(), words_.data(), words_.size() * 4);
    const void* const first = block.data();
    std::va_list list;
    static_assert(sizeof list == sizeof first);
    std::memcpy(&list, &first, sizeof list);
    return function(list);
  }

 private:
  static uintptr_t address(void* pointer) { return reinterpret_cast<uintptr_t>(pointer); }

  template <typename Wide>
  void add_wide(const Wide* value) {
    static_assert(sizeof *value == 8);
#if !defined(__i386__)
    // There such arguments begin at even words.
    if (words_.size() % 2 != 0) words_.push_back(0);
#endif
    uint32_t halves[2];
    std::memcpy(halves, value, sizeof halves);
    words_.push_back(halves[0]);
    words_.push_back(halves[1]);
  }

  std::vector<uint32_t> words_;
};

}  // namespace fuzz

#endif
