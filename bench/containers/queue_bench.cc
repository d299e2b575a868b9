// One element in and one out of the queue and of the ring buffer, with some elements
// waiting, in a program with a second thread. Peers are what programs put together for
// themselves, and APR's queue.
//
// SPDX-License-Identifier: MIT

#include <apr_general.h>
#include <apr_pools.h>
#include <apr_queue.h>
#include <groundwork/fifo.h>
#include <groundwork/queue.h>
#include <pthread.h>
#include <sys/queue.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "support/job.h"
#include "support/second_thread.h"

using namespace groundwork::bench;

namespace {

constexpr int kRoom = 64;
constexpr int kWaiting = 16;

// --- queues: each has put(element) and get() ---

class OurQueue {
 public:
  ~OurQueue() { g_queue_free(queue_); }
  void put(void* element) { g_queue_enqueue(queue_, element); }
  void* get() { return g_queue_dequeue(queue_, nullptr); }

 private:
  GQueue* queue_ = g_queue_new(nullptr, nullptr);
};

class LockedTailq {
 public:
  LockedTailq() { TAILQ_INIT(&head_); }
  ~LockedTailq() {
    while (get() != nullptr) continue;
  }
  void put(void* element) {
    Node* const node = static_cast<Node*>(std::malloc(sizeof(Node)));
    node->element = element;
    pthread_mutex_lock(&mutex_);
    TAILQ_INSERT_TAIL(&head_, node, links);
    ++count_;
    pthread_mutex_unlock(&mutex_);
  }
  void* get() {
    pthread_mutex_lock(&mutex_);
    Node* const node = TAILQ_FIRST(&head_);
    if (node != nullptr) {
      TAILQ_REMOVE(&head_, node, links);
      --count_;
    }
    pthread_mutex_unlock(&mutex_);
    void* const element = node != nullptr ? node->element : nullptr;
    std::free(node);
    return element;
  }

 private:
  struct Node {
    void* element;
    TAILQ_ENTRY(Node) links;
  };
  TAILQ_HEAD(Head, Node) head_;
  unsigned count_ = 0;
  pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
};

class LockedDeque {
 public:
  void put(void* element) {
    const std::lock_guard lock(mutex_);
    elements_.push_back(element);
  }
  void* get() {
    const std::lock_guard lock(mutex_);
    if (elements_.empty()) return nullptr;
    void* const element = elements_.front();
    elements_.pop_front();
    return element;
  }

 private:
  std::deque<void*> elements_;
  std::mutex mutex_;
};

class OurFifo {
 public:
  ~OurFifo() { g_fifo_free(fifo_); }
  void put(void* element) { g_fifo_put(fifo_, element); }
  void* get() { return g_fifo_get(fifo_); }

 private:
  GFifo* fifo_ = g_fifo_new(kRoom);
};

class AprQueue {
 public:
  AprQueue() {
    apr_initialize();
    apr_pool_create(&pool_, nullptr);
    apr_queue_create(&queue_, kRoom, pool_);
  }
  ~AprQueue() {
    apr_pool_destroy(pool_);
    apr_terminate();
  }
  // Neither of these waits, like ours.
  void put(void* element) { apr_queue_trypush(queue_, element); }
  void* get() {
    void* element = nullptr;
    return apr_queue_trypop(queue_, &element) == APR_SUCCESS ? element : nullptr;
  }

 private:
  apr_pool_t* pool_ = nullptr;
  apr_queue_t* queue_ = nullptr;
};

// A ring written here, under a lock, without any checks.
class BareRing {
 public:
  void put(void* element) {
    pthread_mutex_lock(&mutex_);
    slots_[write_++ % kRoom] = element;
    pthread_mutex_unlock(&mutex_);
  }
  void* get() {
    pthread_mutex_lock(&mutex_);
    void* const element = slots_[read_++ % kRoom];
    pthread_mutex_unlock(&mutex_);
    return element;
  }

 private:
  std::array<void*, kRoom> slots_;
  unsigned write_ = 0;
  unsigned read_ = 0;
  pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
};

template <typename Queue>
void put_and_get(State& state, bool is_alone) {
  std::optional<SecondThread> second;
  if (!is_alone) second.emplace();
  std::array<uint32_t, kRoom> elements;
  Queue queue;
  uint32_t next = 0;
  const auto put = [&] {
    elements[next % kRoom] = next;
    queue.put(&elements[next % kRoom]);
    ++next;
  };
  for (int i = 0; i < kWaiting; ++i) put();
  for (auto _ : state) {
    put();
    DoNotOptimize(queue.get());
  }
  // How many elements waited, from the age of the next.
  const uint32_t waiting = next - *static_cast<uint32_t*>(queue.get());
  report(state, 1, waiting);
}

// One thread puts what another gets, both as fast as they can.
template <typename Queue>
void put_here_get_there(State& state) {
  constexpr uintptr_t kElements = 20000;
  uint32_t sum = 0;
  for (auto _ : state) {
    Queue queue;
    std::thread producer([&] {
      for (uintptr_t i = 1; i <= kElements; ++i) queue.put(reinterpret_cast<void*>(i));
    });
    sum = 0;
    for (uintptr_t count = 0; count < kElements;) {
      const auto element = reinterpret_cast<uintptr_t>(queue.get());
      if (element == 0) continue;
      sum = sum * 3 + static_cast<uint32_t>(element);
      ++count;
    }
    producer.join();
  }
  report(state, kElements, sum);
}

template <typename Queue>
void register_queue(const std::string& name, const char* who) {
  job(name, who, [](State& state) { put_and_get<Queue>(state, false); });
  job(name + ".alone", who, [](State& state) { put_and_get<Queue>(state, true); });
}

}  // namespace

void groundwork::bench::register_jobs() {
  const auto busy = [](const char* who, auto run) { job("queue.busy", who, run); };
  busy("ours", put_here_get_there<OurQueue>);
  busy("TAILQ+mutex", put_here_get_there<LockedTailq>);
  busy("std::deque+mutex", put_here_get_there<LockedDeque>);
  register_queue<OurQueue>("queue", "ours");
  register_queue<LockedTailq>("queue", "TAILQ+mutex");
  register_queue<LockedDeque>("queue", "std::deque+mutex");
  register_queue<OurFifo>("fifo", "ours");
  register_queue<AprQueue>("fifo", "APR");
  job("fifo", "floor", [](State& state) { put_and_get<BareRing>(state, false); });
}
