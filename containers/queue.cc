// Queue: a doubly linked list guarded by a mutex. Nodes are allocated before the mutex is
// locked and freed after it is unlocked, so that it is held only for a few assignments,
// except during a search or a user function.
//
// Some removed nodes are kept for later elements: if one thread enqueues what another
// dequeues, the heap would have to pass each node from one to the other, which takes longer
// than everything else.
//
// While an add function runs, neither the mutex nor a node is held: the function may end
// its thread or leave by longjmp().
//
// SPDX-License-Identifier: MIT

#include <groundwork/list.h>
#include <groundwork/queue.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <type_traits>

#include <pthread.h>

#include "core/built_for.h"
#include "core/cancellation.h"
#include "core/check.h"
#include "thread/mutex_lock.h"

using namespace groundwork;

struct GQueue {
  GList* head;  // guarded by mutex
  GList* tail;  // guarded by mutex
  GMutex* mutex;
  GQueueHoldFunc add_func;
  GQueueHoldFunc release_func;
  std::atomic<uint32_t> count;  // written under mutex, read anywhere
  // The layout up to here is known to programs.
  std::atomic<GList*> spare;  // linked by next; written under mutex, read anywhere
  uint32_t spare_count;       // guarded by mutex
  // Where a visit or a clear goes on, and by which link. Guarded by mutex.
  GList* upcoming;
  GList* GList::*onward;
};
static_assert(offsetof(GQueue, tail) == sizeof(void*) &&
              offsetof(GQueue, mutex) == 2 * sizeof(void*) &&
              offsetof(GQueue, add_func) == 3 * sizeof(void*) &&
              offsetof(GQueue, release_func) == 4 * sizeof(void*) &&
              offsetof(GQueue, count) == 5 * sizeof(void*) &&
              sizeof(std::atomic<uint32_t>) == sizeof(uint32_t) &&
              std::atomic<uint32_t>::is_always_lock_free);

namespace {

constexpr char kSource[] = "g_queue";
constexpr auto relaxed = std::memory_order_relaxed;  // the mutex orders the rest

// A BriefLock that spins for a while before it blocks. Other threads hold the mutex only
// briefly, unless they run a user function; blocking and waking up take a hundred times as
// long.
class PatientLock : public MutexLock {
 public:
  explicit PatientLock(GMutex* mutex) : MutexLock(mutex, !is_single_threaded(), lock) {}

 private:
  static int lock(pthread_mutex_t* mutex) {
    for (unsigned pauses = 1; pauses <= 64; pauses *= 2) {
      if (pthread_mutex_trylock(mutex) == 0) return 0;
      for (unsigned i = 0; i < pauses; ++i) pause();
    }
    return pthread_mutex_lock(mutex);
  }
  static void pause() {
#if defined(__i386__) || defined(__x86_64__)
    __builtin_ia32_pause();
#else
    __asm__ volatile("" ::: "memory");
#endif
  }
};
using QueueLock = std::conditional_t<kForSpeed, PatientLock, BriefLock>;

void change_count(GQueue& queue, int32_t change) {
  queue.count.store(queue.count.load(relaxed) + static_cast<uint32_t>(change), relaxed);
}

GList* new_node(void* data) {
  auto* const node = static_cast<GList*>(std::malloc(sizeof(GList)));
  if (node != nullptr) [[likely]]
    *node = {nullptr, nullptr, data};
  return node;
}

// The most nodes to keep: 1 KB on a 32-bit system.
constexpr uint32_t kMostSpare = kForSpeed ? 64 : 0;

// Returns whether spare_node() is likely to have one. Needs no lock.
bool has_spare_node(const GQueue& queue) {
  return kMostSpare != 0 && queue.spare.load(relaxed) != nullptr;
}

// Returns a kept node for `data`, or null. The queue is locked.
GList* spare_node(GQueue& queue, void* data) {
  if (!has_spare_node(queue)) return nullptr;
  GList* const node = queue.spare.load(relaxed);
  queue.spare.store(node->next, relaxed);
  --queue.spare_count;
  *node = {nullptr, nullptr, data};
  return node;
}

// Keeps `node`, which is not linked, if there is room; otherwise returns it for the caller
// to free. The queue is locked.
GList* keep(GQueue& queue, GList* node) {
  if (queue.spare_count >= kMostSpare) return node;
  node->next = queue.spare.load(relaxed);
  queue.spare.store(node, relaxed);
  ++queue.spare_count;
  return nullptr;
}

// Links `node` after `sibling`, which is null if the queue is empty. The queue is locked.
void link_after(GQueue& queue, GList* sibling, GList* node) {
  GList* const next = sibling != nullptr ? sibling->next : nullptr;
  node->prev = sibling;
  node->next = next;
  (sibling != nullptr ? sibling->next : queue.head) = node;
  (next != nullptr ? next->prev : queue.tail) = node;
  change_count(queue, 1);
}

// Unlinks `node` without freeing it. The queue is locked. A visit that would go on with the
// node goes on after it.
void unlink(GQueue& queue, GList* node) {
  if (node == queue.upcoming) [[unlikely]]
    queue.upcoming = node->*queue.onward;
  (node->prev != nullptr ? node->prev->next : queue.head) = node->next;
  (node->next != nullptr ? node->next->prev : queue.tail) = node->prev;
  change_count(queue, -1);
}

void hold(const GQueue& queue, void* data) {
  if (queue.add_func != nullptr) queue.add_func(data);
}

// Releases an element for which there is no node.
void give_up(const GQueue& queue, void* data) {
  if (queue.add_func != nullptr && queue.release_func != nullptr) queue.release_func(data);
}

LEFT_BY_CANCELLATION void append(GQueue& queue, void* data) {
  hold(queue, data);
  if (has_spare_node(queue)) {
    QueueLock lock(queue.mutex);
    // Another thread may have taken the spare node.
    if (GList* const node = spare_node(queue, data); node != nullptr) [[likely]] {
      link_after(queue, queue.tail, node);
      return;
    }
  }
  GList* const node = new_node(data);
  if (node == nullptr) [[unlikely]] {
    give_up(queue, data);
    return;
  }
  QueueLock lock(queue.mutex);
  link_after(queue, queue.tail, node);
}

enum class Insertion { kDone, kNoMemory, kNoSibling };

LEFT_BY_CANCELLATION Insertion insert_after(GQueue& queue, const void* sibling,
                                            void* data) {
  hold(queue, data);
  QueueLock lock(queue.mutex);
  GList* const found = g_list_find(queue.head, sibling);
  if (found == nullptr) return Insertion::kNoSibling;
  GList* node = spare_node(queue, data);
  if (node == nullptr) node = new_node(data);
  if (node == nullptr) [[unlikely]]
    return Insertion::kNoMemory;
  link_after(queue, found, node);
  return Insertion::kDone;
}

void unlock(void* locked) {
  GQueue& queue = *static_cast<GQueue*>(locked);
  queue.upcoming = nullptr;
  g_thread_mutex_unlock(queue.mutex);
}

// Frees the released and the kept nodes, and unlocks, at the end of the clear or of its
// thread.
void drop_released(void* being_cleared) {
  GQueue& queue = *static_cast<GQueue*>(being_cleared);
  while (queue.head != queue.upcoming) {
    GList* const node = queue.head;
    unlink(queue, node);
    std::free(node);
  }
  g_list_free(queue.spare.load(relaxed));
  queue.spare.store(nullptr, relaxed);
  queue.spare_count = 0;
  unlock(&queue);
}

// Calls func for each node from `first` on, following the link `onward`.
LEFT_BY_CANCELLATION void visit(GQueue& queue, GList* GQueue::*first, GList* GList::*onward,
                                GQueueFunc func, void* user_data) {
  g_thread_mutex_lock(queue.mutex);
  with_cleanup(unlock, &queue, [&] {
    queue.onward = onward;
    for (GList* node = queue.*first; node != nullptr; node = queue.upcoming) {
      queue.upcoming = node->*onward;  // before the function, which may delete any element
      if (func(node->data, user_data) != 0) break;
    }
  });
  unlock(&queue);
}

}  // namespace

extern "C" GQueue* g_queue_new(GQueueHoldFunc add_func, GQueueHoldFunc release_func) {
  void* const block = std::malloc(sizeof(GQueue));
  if (block == nullptr) [[unlikely]]
    return nullptr;
  GMutex* const mutex = g_thread_mutex_new();
  if (mutex == nullptr) [[unlikely]] {
    std::free(block);
    return nullptr;
  }
  return new (block)
      GQueue{nullptr, nullptr, mutex, add_func, release_func, {0}, {}, 0, nullptr, nullptr};
}

extern "C" void g_queue_free(GQueue* queue) {
  CHECK_ARG(queue != NULL);
  g_queue_clear(queue);
  g_thread_mutex_free(queue->mutex);
  std::free(queue);
}

extern "C" int g_queue_empty(GQueue* queue) {
  CHECK_ARG(queue != NULL, -1);
  QueueLock lock(queue->mutex);
  return queue->head == nullptr ? 1 : 0;
}

extern "C" void g_queue_enqueue(GQueue* queue, void* data) {
  CHECK_ARG(queue != NULL);
  append(*queue, data);
}

extern "C" void* g_queue_dequeue(GQueue* queue, const void* expected) {
  CHECK_ARG(queue != NULL, nullptr);
  GList* head = nullptr;
  void* data = nullptr;
  {
    QueueLock lock(queue->mutex);
    head = queue->head;
    if (head == nullptr || (expected != nullptr && head->data != expected)) return nullptr;
    unlink(*queue, head);
    data = head->data;
    head = keep(*queue, head);
  }
  if (head != nullptr) std::free(head);
  // Kept: called after unlocking, before the element is returned.
  if (queue->release_func != nullptr) queue->release_func(data);
  return data;
}

extern "C" void* g_queue_first(GQueue* queue) {
  CHECK_ARG(queue != NULL, nullptr);
  QueueLock lock(queue->mutex);
  return queue->head != nullptr ? queue->head->data : nullptr;
}

extern "C" void* g_queue_last(GQueue* queue) {
  CHECK_ARG(queue != NULL, nullptr);
  QueueLock lock(queue->mutex);
  return queue->tail != nullptr ? queue->tail->data : nullptr;
}

extern "C" LEFT_BY_CANCELLATION void g_queue_clear(GQueue* queue) {
  CHECK_ARG(queue != NULL);
  g_thread_mutex_lock(queue->mutex);
  queue->onward = &GList::next;
  queue->upcoming = queue->head;
  with_cleanup(drop_released, queue, [queue] {
    while (queue->upcoming != nullptr) {
      void* const data = queue->upcoming->data;
      queue->upcoming = queue->upcoming->next;
      // Kept: called under the lock, unlike for a dequeued element.
      if (queue->release_func != nullptr) queue->release_func(data);
    }
  });
  drop_released(queue);
}

extern "C" void g_queue_insert(GQueue* queue, const void* sibling, void* data) {
  CHECK_ARG(queue != NULL);
  CHECK_ARG(data != NULL);
  bool at_tail = sibling == nullptr;
  if (!at_tail) {
    // Unlocked from here to the insertion: other threads may change the tail meanwhile.
    QueueLock lock(queue->mutex);
    at_tail = queue->tail == nullptr || queue->tail->data == sibling;
  }
  const Insertion insertion =
      at_tail ? Insertion::kNoSibling : insert_after(*queue, sibling, data);
  if (insertion == Insertion::kNoMemory) [[unlikely]]
    give_up(*queue, data);
  // Kept: calls add_func a second time if the sibling was not found; callbacks that count
  // references rely on it.
  if (insertion == Insertion::kNoSibling) append(*queue, data);
}

extern "C" void g_queue_delete(GQueue* queue, const void* data) {
  CHECK_ARG(queue != NULL);
  GList* const node = g_list_find(queue->head, data);
  if (node == nullptr) return;
  void* const element = node->data;
  unlink(*queue, node);
  std::free(keep(*queue, node));
  if (queue->release_func != nullptr) queue->release_func(element);
}

extern "C" LEFT_BY_CANCELLATION void g_queue_remove(GQueue* queue, const void* data) {
  CHECK_ARG(queue != NULL);
  g_thread_mutex_lock(queue->mutex);
  with_cleanup(unlock, queue, [=] { g_queue_delete(queue, data); });
  unlock(queue);
}

extern "C" void g_queue_foreach(GQueue* queue, GQueueFunc func, void* user_data) {
  CHECK_ARG(queue != NULL);
  CHECK_ARG(func != NULL);
  visit(*queue, &GQueue::head, &GList::next, func, user_data);
}

extern "C" void g_queue_foreach_reverse(GQueue* queue, GQueueFunc func, void* user_data) {
  CHECK_ARG(queue != NULL);
  CHECK_ARG(func != NULL);
  visit(*queue, &GQueue::tail, &GList::prev, func, user_data);
}

extern "C" uint32_t g_queue_count(GQueue* queue) {
  return queue->count.load(relaxed);
}
