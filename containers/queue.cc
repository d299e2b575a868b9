// Queue: a doubly linked list behind a mutex. Nodes are made before and freed after the
// mutex is held, so that it is held for some assignments only, except where it is held for
// a search or a user's function anyway.
//
// Nothing is held while an add function runs, neither the mutex nor a node: the function
// may end its thread or leave by longjmp().
//
// SPDX-License-Identifier: MIT

#include <groundwork/list.h>
#include <groundwork/queue.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>

#include <pthread.h>

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

void change_count(GQueue& queue, int32_t change) {
  queue.count.store(queue.count.load(relaxed) + static_cast<uint32_t>(change), relaxed);
}

GList* new_node(void* data) {
  auto* const node = static_cast<GList*>(std::malloc(sizeof(GList)));
  if (node != nullptr) [[likely]]
    *node = {nullptr, nullptr, data};
  return node;
}

// Links `node` after `sibling`, a node of the queue or null when that is empty. Locked.
void link_after(GQueue& queue, GList* sibling, GList* node) {
  GList* const next = sibling != nullptr ? sibling->next : nullptr;
  node->prev = sibling;
  node->next = next;
  (sibling != nullptr ? sibling->next : queue.head) = node;
  (next != nullptr ? next->prev : queue.tail) = node;
  change_count(queue, 1);
}

// Takes `node` out without freeing it. Locked.
void unlink(GQueue& queue, GList* node) {
  (node->prev != nullptr ? node->prev->next : queue.head) = node->next;
  (node->next != nullptr ? node->next->prev : queue.tail) = node->prev;
  change_count(queue, -1);
}

void hold(const GQueue& queue, void* data) {
  if (queue.add_func != nullptr) queue.add_func(data);
}

// For an element that was held and for which there is no node.
void give_up(const GQueue& queue, void* data) {
  if (queue.add_func != nullptr && queue.release_func != nullptr) queue.release_func(data);
}

LEFT_BY_CANCELLATION void append(GQueue& queue, void* data) {
  hold(queue, data);
  GList* const node = new_node(data);
  if (node == nullptr) [[unlikely]] {
    give_up(queue, data);
    return;
  }
  BriefLock lock(queue.mutex);
  link_after(queue, queue.tail, node);
}

enum class Insertion { kDone, kNoMemory, kNoSibling };

LEFT_BY_CANCELLATION Insertion insert_after(GQueue& queue, const void* sibling,
                                            void* data) {
  hold(queue, data);
  BriefLock lock(queue.mutex);
  GList* const found = g_list_find(queue.head, sibling);
  if (found == nullptr) return Insertion::kNoSibling;
  GList* const node = new_node(data);
  if (node == nullptr) [[unlikely]]
    return Insertion::kNoMemory;
  link_after(queue, found, node);
  return Insertion::kDone;
}

void unlock(void* queue) {
  g_thread_mutex_unlock(static_cast<GQueue*>(queue)->mutex);
}

// A clearing under way.
struct Clearing {
  GQueue* queue;
  GList* rest;  // the nodes from here on are not released yet
};

// Drops the released nodes and unlocks, at the end of the clearing or of its thread.
void drop_released(void* under_way) {
  const auto* const clearing = static_cast<const Clearing*>(under_way);
  GQueue& queue = *clearing->queue;
  while (queue.head != clearing->rest) {
    GList* const node = queue.head;
    unlink(queue, node);
    std::free(node);
  }
  g_thread_mutex_unlock(queue.mutex);
}

// Calls func for each node from `node` on, in the direction of the link `onward`.
LEFT_BY_CANCELLATION void visit(GQueue& queue, GList* GQueue::*first, GList* GList::*onward,
                                GQueueFunc func, void* user_data) {
  g_thread_mutex_lock(queue.mutex);
  pthread_cleanup_push(unlock, &queue);
  for (GList* node = queue.*first; node != nullptr;) {
    GList* const next = node->*onward;  // the function may delete the element
    if (func(node->data, user_data) != 0) break;
    node = next;
  }
  pthread_cleanup_pop(1);
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
  return new (block) GQueue{nullptr, nullptr, mutex, add_func, release_func, {0}};
}

extern "C" void g_queue_free(GQueue* queue) {
  CHECK_ARG(queue != NULL);
  g_queue_clear(queue);
  g_thread_mutex_free(queue->mutex);
  std::free(queue);
}

extern "C" int g_queue_empty(GQueue* queue) {
  CHECK_ARG(queue != NULL, -1);
  BriefLock lock(queue->mutex);
  return queue->head == nullptr ? 1 : 0;
}

extern "C" void g_queue_enqueue(GQueue* queue, void* data) {
  CHECK_ARG(queue != NULL);
  append(*queue, data);
}

extern "C" void* g_queue_dequeue(GQueue* queue, const void* expected) {
  CHECK_ARG(queue != NULL, nullptr);
  GList* head = nullptr;
  {
    BriefLock lock(queue->mutex);
    head = queue->head;
    if (head == nullptr || (expected != nullptr && head->data != expected)) return nullptr;
    unlink(*queue, head);
  }
  void* const data = head->data;
  std::free(head);
  // Kept: after unlocking, and before the element is returned.
  if (queue->release_func != nullptr) queue->release_func(data);
  return data;
}

extern "C" void* g_queue_first(GQueue* queue) {
  CHECK_ARG(queue != NULL, nullptr);
  BriefLock lock(queue->mutex);
  return queue->head != nullptr ? queue->head->data : nullptr;
}

extern "C" void* g_queue_last(GQueue* queue) {
  CHECK_ARG(queue != NULL, nullptr);
  BriefLock lock(queue->mutex);
  return queue->tail != nullptr ? queue->tail->data : nullptr;
}

extern "C" LEFT_BY_CANCELLATION void g_queue_clear(GQueue* queue) {
  CHECK_ARG(queue != NULL);
  g_thread_mutex_lock(queue->mutex);
  Clearing clearing{queue, queue->head};
  pthread_cleanup_push(drop_released, &clearing);
  while (clearing.rest != nullptr) {
    void* const data = clearing.rest->data;
    clearing.rest = clearing.rest->next;
    // Kept: under the lock, unlike that of a dequeued element.
    if (queue->release_func != nullptr) queue->release_func(data);
  }
  pthread_cleanup_pop(1);
}

extern "C" void g_queue_insert(GQueue* queue, const void* sibling, void* data) {
  CHECK_ARG(queue != NULL);
  CHECK_ARG(data != NULL);
  bool at_tail = sibling == nullptr;
  if (!at_tail) {
    // Not held from here to the insertion: other threads may change the tail meanwhile.
    BriefLock lock(queue->mutex);
    at_tail = queue->tail == nullptr || queue->tail->data == sibling;
  }
  const Insertion insertion =
      at_tail ? Insertion::kNoSibling : insert_after(*queue, sibling, data);
  if (insertion == Insertion::kNoMemory) [[unlikely]]
    give_up(*queue, data);
  // Kept: calls add_func a second time when the sibling was not found; callbacks that count
  // references rely on it.
  if (insertion == Insertion::kNoSibling) append(*queue, data);
}

extern "C" void g_queue_delete(GQueue* queue, const void* data) {
  CHECK_ARG(queue != NULL);
  GList* const node = g_list_find(queue->head, data);
  if (node == nullptr) return;
  void* const element = node->data;
  unlink(*queue, node);
  std::free(node);
  if (queue->release_func != nullptr) queue->release_func(element);
}

extern "C" LEFT_BY_CANCELLATION void g_queue_remove(GQueue* queue, const void* data) {
  CHECK_ARG(queue != NULL);
  g_thread_mutex_lock(queue->mutex);
  pthread_cleanup_push(unlock, queue);
  g_queue_delete(queue, data);
  pthread_cleanup_pop(1);
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
