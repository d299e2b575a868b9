// SPDX-License-Identifier: MIT

#include "support/allocation_faults.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <thread>

#include <dlfcn.h>

#include "support/uncounted_allocations.h"

#if defined(GROUNDWORK_SANITIZED_HEAP)
// The sanitizers' own allocators under these names.
extern "C" void* __interceptor_malloc(size_t);
extern "C" void* __interceptor_calloc(size_t, size_t);
extern "C" void* __interceptor_realloc(void*, size_t);
extern "C" void __interceptor_free(void*);
#define REAL(function) __interceptor_##function

// The leak checker knows the dynamic linker's blocks by their caller, which is this file
// now. The linker keeps some for the whole run, as when the first cancellation loads the
// unwinder.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
  return "leak:ld-linux\n";
}
#elif defined(__GLIBC__)
extern "C" void* __libc_malloc(size_t);
extern "C" void* __libc_calloc(size_t, size_t);
extern "C" void* __libc_realloc(void*, size_t);
extern "C" void __libc_free(void*);
#define REAL(function) __libc_##function
#else
// musl: in its archive these names are open to all, in its shared object to none, where the
// loader finds the functions instead. Its calloc() would come back here for the memory.
extern "C" [[gnu::weak]] void* __libc_malloc_impl(size_t);
extern "C" [[gnu::weak]] void* __libc_realloc(void*, size_t);
extern "C" [[gnu::weak]] void __libc_free(void*);

namespace {

using Malloc = void* (*)(size_t);
using Realloc = void* (*)(void*, size_t);
using Free = void (*)(void*);

template <typename Function>
Function next_function(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

void* real_malloc(size_t size) {
  if (&__libc_malloc_impl != nullptr) return __libc_malloc_impl(size);
  static constinit Malloc next = nullptr;
  if (next == nullptr) next = next_function<Malloc>("malloc");
  return next(size);
}

void* real_calloc(size_t count, size_t size) {
  size_t bytes;
  if (__builtin_mul_overflow(count, size, &bytes)) bytes = SIZE_MAX;
  void* const block = real_malloc(bytes);
  if (block != nullptr) std::memset(block, 0, bytes);
  return block;
}

void* real_realloc(void* old, size_t size) {
  if (&__libc_realloc != nullptr) return __libc_realloc(old, size);
  static constinit Realloc next = nullptr;
  if (next == nullptr) next = next_function<Realloc>("realloc");
  return next(old, size);
}

void real_free(void* block) {
  if (&__libc_free != nullptr) return __libc_free(block);
  static constinit Free next = nullptr;
  if (next == nullptr) next = next_function<Free>("free");
  next(block);
}

}  // namespace
#define REAL(function) real_##function
#endif

namespace {

constexpr size_t kSizesKept = 64;
constexpr size_t kMaxBlocks = 1 << 17;  // power of two; open addressing below

thread_local bool armed = false;
thread_local bool paused = false;   // allocations succeed and are followed
std::atomic<bool> watching{false};  // frees are followed
int first_failure = 0;
bool later_too = false;
int call_count = 0;
int failure_count = 0;
std::array<size_t, kSizesKept> sizes;

// The set of blocks allocated while armed: an open-addressing table of addresses. 0 is
// never used, 1 was used. Guarded by a spin lock, since frees come from any thread.
std::atomic_flag table_lock = ATOMIC_FLAG_INIT;
uintptr_t blocks[kMaxBlocks];
int block_count = 0;
// Which slots may be in use, so that emptying the table is cheap after a small scenario.
constexpr size_t kSlotsNoted = 1024;
size_t used_slots[kSlotsNoted];
size_t used_slot_count = 0;  // beyond kSlotsNoted: all

struct TableLock {
  TableLock() {
    while (table_lock.test_and_set(std::memory_order_acquire)) {
    }
  }
  ~TableLock() { table_lock.clear(std::memory_order_release); }
};

size_t slot_of(uintptr_t address) {
  return (address >> 3) * 2654435761u % kMaxBlocks;
}

void remember(void* block) {
  if (block == nullptr) return;
  TableLock lock;
  const auto address = reinterpret_cast<uintptr_t>(block);
  size_t slot = slot_of(address);
  for (size_t tries = 0; tries < kMaxBlocks; ++tries) {
    if (blocks[slot] <= 1) {
      if (blocks[slot] == 0 && used_slot_count <= kSlotsNoted) {
        if (used_slot_count < kSlotsNoted) used_slots[used_slot_count] = slot;
        ++used_slot_count;
      }
      blocks[slot] = address;
      ++block_count;
      return;
    }
    slot = (slot + 1) % kMaxBlocks;
  }
}

void forget(void* block) {
  if (block == nullptr || !watching.load(std::memory_order_relaxed)) return;
  TableLock lock;
  const auto address = reinterpret_cast<uintptr_t>(block);
  size_t slot = slot_of(address);
  for (size_t tries = 0; tries < kMaxBlocks && blocks[slot] != 0; ++tries) {
    if (blocks[slot] == address) {
      blocks[slot] = 1;
      --block_count;
      return;
    }
    slot = (slot + 1) % kMaxBlocks;
  }
}

void empty_table() {
  TableLock lock;
  if (used_slot_count <= kSlotsNoted) {
    for (size_t i = 0; i < used_slot_count; ++i) blocks[used_slots[i]] = 0;
  } else {
    for (uintptr_t& block : blocks) block = 0;
  }
  used_slot_count = 0;
  block_count = 0;
}

// Counts a call; true when it is to fail.
bool fails(size_t size) {
  ++call_count;
  if (static_cast<size_t>(call_count) <= kSizesKept) {
    sizes[static_cast<size_t>(call_count) - 1] = size;
  }
  if (first_failure == 0 || call_count < first_failure) return false;
  if (call_count > first_failure && !later_too) return false;
  ++failure_count;
  errno = ENOMEM;
  return true;
}

}  // namespace

extern "C" void* malloc(size_t size) {
  if (!armed && !paused) return REAL(malloc)(size);
  if (armed && fails(size)) return nullptr;
  void* const block = REAL(malloc)(size);
  remember(block);
  return block;
}

extern "C" void* calloc(size_t count, size_t size) {
  if (!armed && !paused) return REAL(calloc)(count, size);
  if (armed && fails(count * size)) return nullptr;
  void* const block = REAL(calloc)(count, size);
  remember(block);
  return block;
}

extern "C" void* realloc(void* old, size_t size) {
  if (!armed && !paused) {
    if (!watching.load(std::memory_order_relaxed)) return REAL(realloc)(old, size);
    // Forgotten before the allocator may hand the address to another thread.
    forget(old);
    return REAL(realloc)(old, size);
  }
  if (armed && fails(size)) return nullptr;
  forget(old);
  void* const block = REAL(realloc)(old, size);
  remember(block != nullptr ? block : old);
  return block;
}

extern "C" void free(void* block) {
  forget(block);
  REAL(free)(block);
}

namespace test {

AllocationFaults::AllocationFaults(int first, bool and_all_later) {
  empty_table();
  first_failure = first;
  later_too = and_all_later;
  call_count = 0;
  failure_count = 0;
  sizes.fill(0);
  watching = true;
  armed = true;
}

AllocationFaults::~AllocationFaults() {
  disarm();
  watching = false;
  empty_table();
}

void AllocationFaults::disarm() {
  armed = false;
  paused = false;
}

void AllocationFaults::pause() {
  armed = false;
  paused = true;
}

void AllocationFaults::resume() {
  armed = true;
  paused = false;
}

int AllocationFaults::calls() const {
  return call_count;
}

int AllocationFaults::failures() const {
  return failure_count;
}

int AllocationFaults::outstanding() const {
  TableLock lock;
  return block_count;
}

UncountedAllocations::UncountedAllocations() : was_armed_(armed), was_paused_(paused) {
  armed = false;
  paused = false;
}

UncountedAllocations::~UncountedAllocations() {
  armed = was_armed_;
  paused = was_paused_;
}

void warm_up_threads() {
  std::array<std::thread, 3> threads;
  std::atomic<size_t> running{0};
  for (std::thread& thread : threads) {
    thread = std::thread([&] {
      ++running;
      while (running < threads.size()) std::this_thread::yield();
    });
  }
  for (std::thread& thread : threads) thread.join();
}

size_t allocation_size(int index) {
  return index >= 1 && static_cast<size_t>(index) <= kSizesKept
             ? sizes[static_cast<size_t>(index) - 1]
             : 0;
}

}  // namespace test
