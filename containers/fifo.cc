// Bounded ring of pointers for one producer and one consumer. The mutex guards the slots;
// `count` is also read without it, so that the full and empty tests take no lock. That is
// enough for one of each: only the producer can take a free slot that it sees, and only the
// consumer an element.
//
// SPDX-License-Identifier: MIT

#include <groundwork/fifo.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>

#include "core/check.h"
#include "core/owned.h"
#include "thread/mutex_lock.h"

using namespace groundwork;

struct GFifo {
  void** slots;                // guarded by mutex
  int32_t size;                // fixed at creation
  int32_t write_index;         // guarded by mutex
  int32_t read_index;          // guarded by mutex
  std::atomic<int32_t> count;  // written under mutex, read anywhere
  GMutex* mutex;
};
static_assert(offsetof(GFifo, size) == sizeof(void*) &&
              offsetof(GFifo, write_index) == sizeof(void*) + sizeof(int32_t) &&
              offsetof(GFifo, read_index) == sizeof(void*) + 2 * sizeof(int32_t) &&
              offsetof(GFifo, count) == sizeof(void*) + 3 * sizeof(int32_t) &&
              offsetof(GFifo, mutex) == sizeof(void*) + 4 * sizeof(int32_t) &&
              sizeof(std::atomic<int32_t>) == sizeof(int32_t) &&
              std::atomic<int32_t>::is_always_lock_free);

namespace {

constexpr char kSource[] = "g_fifo";
constexpr auto relaxed = std::memory_order_relaxed;  // the mutex publishes the slots

int32_t next_slot(const GFifo& fifo, int32_t index) {
  return index + 1 == fifo.size ? 0 : index + 1;
}

bool is_empty(const GFifo& fifo) {
  return fifo.count.load(relaxed) == 0;
}

bool is_full(const GFifo& fifo) {
  return fifo.count.load(relaxed) == fifo.size;
}

// False when the ring is full.
bool store(GFifo& fifo, void* data) {
  BriefLock lock(fifo.mutex);
  // Checked again: producers that did not take turns fail instead of breaking the ring.
  if (is_full(fifo)) [[unlikely]]
    return false;
  fifo.slots[fifo.write_index] = data;
  fifo.write_index = next_slot(fifo, fifo.write_index);
  fifo.count.store(fifo.count.load(relaxed) + 1, relaxed);
  return true;
}

// Null when the ring is empty.
void* fetch(GFifo& fifo) {
  BriefLock lock(fifo.mutex);
  if (is_empty(fifo)) [[unlikely]]
    return nullptr;
  void* const data = fifo.slots[fifo.read_index];
  fifo.read_index = next_slot(fifo, fifo.read_index);
  fifo.count.store(fifo.count.load(relaxed) - 1, relaxed);
  return data;
}

}  // namespace

extern "C" GFifo* g_fifo_new(int max_buf) {
  CHECK_ARG(max_buf > 0, nullptr);
  Owned<void> block(std::calloc(1, sizeof(GFifo)));
  // calloc() fails for a capacity whose size in bytes overflows.
  Owned<void*> slots(
      static_cast<void**>(std::calloc(static_cast<size_t>(max_buf), sizeof(void*))));
  if (block == nullptr || slots == nullptr) [[unlikely]]
    return nullptr;
  GMutex* const mutex = g_thread_mutex_new();
  if (mutex == nullptr) [[unlikely]]
    return nullptr;
  return new (block.release()) GFifo{slots.release(), max_buf, 0, 0, {0}, mutex};
}

extern "C" void g_fifo_free(GFifo* fifo) {
  CHECK_ARG(fifo != NULL);
  g_thread_mutex_free(fifo->mutex);
  std::free(fifo->slots);
  std::free(fifo);
}

extern "C" int g_fifo_empty(GFifo* fifo) {
  CHECK_ARG(fifo != NULL, 1);
  return is_empty(*fifo) ? 1 : 0;
}

extern "C" int g_fifo_full(GFifo* fifo) {
  CHECK_ARG(fifo != NULL, 1);
  return is_full(*fifo) ? 1 : 0;
}

extern "C" int g_fifo_put(GFifo* fifo, void* _data) {
  CHECK_ARG(fifo != NULL, -1);
  CHECK_ARG(_data != NULL, -1);
  if (is_full(*fifo) || !store(*fifo, _data)) {
    g_log(G_LOG_WARNING, kSource, __LINE__, "fifo(%p) is full, failed to put.",
          static_cast<void*>(fifo));
    return -1;
  }
  return 0;
}

extern "C" void* g_fifo_get(GFifo* fifo) {
  CHECK_ARG(fifo != NULL, nullptr);
  void* const data = is_empty(*fifo) ? nullptr : fetch(*fifo);
  if (data == nullptr) {
    g_log(G_LOG_WARNING, kSource, __LINE__, "fifo(%p) is empty, failed to get.",
          static_cast<void*>(fifo));
  }
  return data;
}

extern "C" int g_fifo_flush(GFifo* fifo) {
  CHECK_ARG(fifo != NULL, -1);
  while (!is_empty(*fifo)) {
    void* const data = g_fifo_get(fifo);
    if (data == nullptr) break;
    std::free(data);
  }
  return 0;
}

extern "C" int g_fifo_count(GFifo* fifo) {
  CHECK_ARG(fifo != NULL, -1);
  return fifo->count.load(relaxed);
}

extern "C" int g_fifo_avail(GFifo* fifo) {
  CHECK_ARG(fifo != NULL, -1);
  return fifo->size - fifo->count.load(relaxed);
}

extern "C" int g_fifo_size(GFifo* fifo) {
  CHECK_ARG(fifo != NULL, -1);
  return fifo->size;
}
