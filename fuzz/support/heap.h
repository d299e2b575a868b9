// Queries of the address sanitizer's heap. Without it they check less.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_FUZZ_SUPPORT_HEAP_H
#define GROUNDWORK_FUZZ_SUPPORT_HEAP_H

#include <algorithm>
#include <cstddef>
#include <cstdlib>

#include <malloc.h>

#if defined(__SANITIZE_ADDRESS__)
#define GROUNDWORK_FUZZ_CHECKED_HEAP 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define GROUNDWORK_FUZZ_CHECKED_HEAP 1
#endif
#endif

#if defined(GROUNDWORK_FUZZ_CHECKED_HEAP)
// Of <sanitizer/allocator_interface.h>, which is not there for every 32-bit compiler.
extern "C" {
size_t __sanitizer_get_allocated_size(const volatile void* block);
int __sanitizer_install_malloc_and_free_hooks(
    void (*malloc_hook)(const volatile void* block, size_t size),
    void (*free_hook)(const volatile void* block));
}
#endif

namespace fuzz {

#if defined(GROUNDWORK_FUZZ_CHECKED_HEAP)

inline bool is_block_of(void* block, size_t size) {
  return __sanitizer_get_allocated_size(block) == size;
}

// Notes the blocks of one size that are allocated while it lives and that nobody frees.
class LostBlocks {
 public:
  explicit LostBlocks(size_t size) {
    static const int installed =
        __sanitizer_install_malloc_and_free_hooks(note_allocated, note_freed);
    static_cast<void>(installed);
    blocks_used_ = 0;
    wanted_ = size;
  }
  ~LostBlocks() { wanted_ = 0; }
  LostBlocks(const LostBlocks&) = delete;
  LostBlocks& operator=(const LostBlocks&) = delete;

  // Frees those that are left, but not `result`; says how many that were.
  size_t free_all(const void* result) {
    wanted_ = 0;
    size_t freed = 0;
    for (size_t i = 0; i < blocks_used_; ++i) {
      if (blocks_[i] == nullptr || blocks_[i] == result) continue;
      std::free(const_cast<void*>(blocks_[i]));
      ++freed;
    }
    return freed;
  }

 private:
  static void note_allocated(const volatile void* block, size_t size) {
    if (size == wanted_ && blocks_used_ < kMost) blocks_[blocks_used_++] = block;
  }
  static void note_freed(const volatile void* block) {
    if (wanted_ != 0) std::replace(blocks_, blocks_ + blocks_used_, block, kNone);
  }

  static constexpr size_t kMost = 64;
  static constexpr const volatile void* kNone = nullptr;
  static inline size_t wanted_ = 0;
  static inline size_t blocks_used_ = 0;
  static inline const volatile void* blocks_[kMost];
};

#else

// Other heaps round up, so that only a block that is too small shows.
inline bool is_block_of(void* block, size_t size) {
  return malloc_usable_size(block) >= size;
}

#endif

}  // namespace fuzz

#endif
