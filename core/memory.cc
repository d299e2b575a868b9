// Checked allocation: the system heap, with a report for a size of zero and for exhausted
// memory.
//
// SPDX-License-Identifier: MIT

#include <groundwork/memory.h>

#include <cstdlib>
#include <cstring>

#include <malloc.h>

#include "core/check.h"

namespace {

constexpr char kSource[] = "g_mem";

void* reported(void* block, unsigned size, int line) {
  if (block == nullptr) [[unlikely]] {
    g_log(G_LOG_WARNING, kSource, line, "failed to allocate %u bytes.", size);
  }
  return block;
}

#if defined(__GLIBC__)
// mallinfo2() counts in size_t; on a 64-bit build the ints of mallinfo() would wrap. The
// library prints ints in either case.
#if __GLIBC_PREREQ(2, 33)
auto heap_statistics() {
  return mallinfo2();
}
#else
auto heap_statistics() {
  return mallinfo();
}
#endif
#else
// musl has no heap statistics: reports zeros.
struct HeapStatistics {
  int arena, ordblks, hblks, hblkhd, uordblks, fordblks, keepcost;
};
HeapStatistics heap_statistics() {
  return {};
}
#endif

}  // namespace

extern "C" void* g_malloc(unsigned size) {
  CHECK_ARG(size > 0, nullptr);
  return reported(std::malloc(size), size, __LINE__);
}

extern "C" void* g_malloc0(unsigned size) {
  CHECK_ARG(size > 0, nullptr);
  return reported(std::calloc(1, size), size, __LINE__);
}

extern "C" void* g_realloc(void* mem, unsigned size) {
  CHECK_ARG(size > 0, nullptr);
  void* const block = std::realloc(mem, size);
  if (block == nullptr) [[unlikely]] {
    g_log(G_LOG_WARNING, kSource, __LINE__, "failed to reallocate %u bytes.", size);
  }
  return block;
}

extern "C" void g_freep(void** ptr) {
  std::free(*ptr);
  *ptr = nullptr;
}

extern "C" void* g_memdup(const void* mem, unsigned n_bytes) {
  CHECK_ARG(mem != NULL, nullptr);
  void* const copy = g_malloc(n_bytes);
  if (copy != nullptr) std::memcpy(copy, mem, n_bytes);
  return copy;
}

extern "C" int g_mem_profile(void) {
  const auto heap = heap_statistics();
  g_log(G_LOG_DEBUG, kSource, __LINE__, "CURRENT malloc INFORMATION");
  const auto report = [](int line, const char* format, auto value) {
    return g_log(G_LOG_DEBUG, kSource, line, format, static_cast<int>(value));
  };
  report(__LINE__, "  total space allocated from system: %d", heap.arena);
  report(__LINE__, "  number of non-inuse chunks: %d", heap.ordblks);
  report(__LINE__, "  number of mmapped regions: %d", heap.hblks);
  report(__LINE__, "  total space in mmapped regions: %d", heap.hblkhd);
  report(__LINE__, "  total allocated space: %d", heap.uordblks);
  report(__LINE__, "  total non-inuse space: %d", heap.fordblks);
  // Kept: no space after this colon.
  return report(__LINE__, "  top-most, releasable space:%d", heap.keepcost);
}
