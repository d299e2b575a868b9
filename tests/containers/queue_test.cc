// SPDX-License-Identifier: MIT

#include <groundwork/list.h>
#include <groundwork/queue.h>
#include <groundwork/thread.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csetjmp>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <pthread.h>
#include <unistd.h>

#include "support/allocation_faults.h"
#include "support/log_capture.h"

using test::AllocationFaults;
using test::check_line;
using test::LogCapture;
using Lines = std::vector<std::string>;

static_assert(
    std::is_same_v<decltype(g_queue_new), GQueue*(GQueueHoldFunc, GQueueHoldFunc)>);
static_assert(std::is_same_v<decltype(g_queue_free), void(GQueue*)>);
static_assert(std::is_same_v<decltype(g_queue_empty), int(GQueue*)>);
static_assert(std::is_same_v<decltype(g_queue_enqueue), void(GQueue*, void*)>);
static_assert(std::is_same_v<decltype(g_queue_dequeue), void*(GQueue*, const void*)>);
static_assert(std::is_same_v<decltype(g_queue_first), void*(GQueue*)>);
static_assert(std::is_same_v<decltype(g_queue_last), void*(GQueue*)>);
static_assert(std::is_same_v<decltype(g_queue_clear), void(GQueue*)>);
static_assert(std::is_same_v<decltype(g_queue_insert), void(GQueue*, const void*, void*)>);
static_assert(std::is_same_v<decltype(g_queue_delete), void(GQueue*, const void*)>);
static_assert(std::is_same_v<decltype(g_queue_remove), void(GQueue*, const void*)>);
static_assert(std::is_same_v<decltype(g_queue_foreach), void(GQueue*, GQueueFunc, void*)>);
static_assert(
    std::is_same_v<decltype(g_queue_foreach_reverse), void(GQueue*, GQueueFunc, void*)>);
static_assert(std::is_same_v<decltype(g_queue_count), uint32_t(GQueue*)>);

namespace {

// The front of a queue.
struct Front {
  GList* head;
  GList* tail;
  GMutex* mutex;
  GQueueHoldFunc add_func;
  GQueueHoldFunc release_func;
  uint32_t count;
};

const Front& front_of(const GQueue* queue) {
  return *reinterpret_cast<const Front*>(queue);
}

int elements[64];
void* const a = &elements[0];
void* const b = &elements[1];
void* const c = &elements[2];
void* const d = &elements[3];

using Data = std::vector<void*>;

// Calls of the callbacks.
Data added;
Data released;
void record_added(void* data) {
  added.push_back(data);
}
void record_released(void* data) {
  released.push_back(data);
}

int collect(void* data, void* user_data) {
  static_cast<Data*>(user_data)->push_back(data);
  return 0;
}

int look_only(void*, void*) {
  return 0;
}

// The elements from head to tail; checks both directions, the ends and the count.
Data content(GQueue* queue) {
  Data forward;
  Data backward;
  g_queue_foreach(queue, collect, &forward);
  g_queue_foreach_reverse(queue, collect, &backward);
  EXPECT_EQ(forward, Data(backward.rbegin(), backward.rend()));
  EXPECT_EQ(g_queue_count(queue), forward.size());
  const Front& front = front_of(queue);
  if (forward.empty()) {
    EXPECT_EQ(front.head, nullptr);
    EXPECT_EQ(front.tail, nullptr);
  } else {
    EXPECT_EQ(front.head->data, forward.front());
    EXPECT_EQ(front.head->prev, nullptr);
    EXPECT_EQ(front.tail->data, forward.back());
    EXPECT_EQ(front.tail->next, nullptr);
  }
  return forward;
}

class QueueTest : public ::testing::Test {
 protected:
  void SetUp() override { make({}); }
  void TearDown() override { g_queue_free(queue); }
  // Replaces the queue by one with recording callbacks that holds `data`.
  void make(const Data& data) {
    if (queue != nullptr) g_queue_free(queue);
    queue = g_queue_new(record_added, record_released);
    ASSERT_NE(queue, nullptr);
    for (void* const element : data) g_queue_enqueue(queue, element);
    added.clear();
    released.clear();
  }
  GQueue* queue = nullptr;
};

// --- making and freeing ---

TEST_F(QueueTest, ANewQueueIsEmptyAndHoldsItsCallbacks) {
  const Front& front = front_of(queue);
  EXPECT_EQ(front.head, nullptr);
  EXPECT_EQ(front.tail, nullptr);
  EXPECT_NE(front.mutex, nullptr);
  EXPECT_EQ(front.add_func, &record_added);
  EXPECT_EQ(front.release_func, &record_released);
  EXPECT_EQ(front.count, 0u);
  EXPECT_EQ(g_queue_empty(queue), 1);
  EXPECT_EQ(g_queue_count(queue), 0u);
}

TEST(QueueNew, EachFailedAllocationGivesNullSilentlyAndLeaksNothing) {
  LogCapture log;
  test::for_each_failed_allocation([](AllocationFaults& faults) {
    GQueue* const queue = g_queue_new(nullptr, nullptr);
    faults.disarm();
    EXPECT_EQ(queue == nullptr, faults.failures() != 0);
    if (queue != nullptr) g_queue_free(queue);
  });
  EXPECT_EQ(log.take(), Lines{});
}

TEST(QueueFree, ReleasesTheElementsFromHeadToTailAndEveryBlock) {
  AllocationFaults blocks(0);
  GQueue* const queue = g_queue_new(nullptr, record_released);
  for (void* const element : {a, b, c}) g_queue_enqueue(queue, element);
  blocks.disarm();
  released.clear();
  g_queue_free(queue);
  EXPECT_EQ(released, (Data{a, b, c}));
  EXPECT_EQ(blocks.outstanding(), 0);
}

TEST(Queue, BadArgumentsReportTheFirstCheckThatFails) {
  LogCapture log;
  const Lines no_queue{check_line("g_queue", "queue != NULL")};
  g_queue_free(nullptr);
  EXPECT_EQ(log.take(), no_queue);
  EXPECT_EQ(g_queue_empty(nullptr), -1);
  EXPECT_EQ(log.take(), no_queue);
  g_queue_enqueue(nullptr, a);
  EXPECT_EQ(log.take(), no_queue);
  EXPECT_EQ(g_queue_dequeue(nullptr, a), nullptr);
  EXPECT_EQ(log.take(), no_queue);
  EXPECT_EQ(g_queue_first(nullptr), nullptr);
  EXPECT_EQ(log.take(), no_queue);
  EXPECT_EQ(g_queue_last(nullptr), nullptr);
  EXPECT_EQ(log.take(), no_queue);
  g_queue_clear(nullptr);
  EXPECT_EQ(log.take(), no_queue);
  g_queue_insert(nullptr, a, nullptr);
  EXPECT_EQ(log.take(), no_queue);
  g_queue_delete(nullptr, a);
  EXPECT_EQ(log.take(), no_queue);
  g_queue_remove(nullptr, a);
  EXPECT_EQ(log.take(), no_queue);
  g_queue_foreach(nullptr, nullptr, nullptr);
  EXPECT_EQ(log.take(), no_queue);
  g_queue_foreach_reverse(nullptr, nullptr, nullptr);
  EXPECT_EQ(log.take(), no_queue);
}

TEST_F(QueueTest, InsertingNullReportsTheCheck) {
  make({a});
  LogCapture log;
  g_queue_insert(queue, a, nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_queue", "data != NULL")});
  EXPECT_EQ(content(queue), Data{a});
  EXPECT_EQ(added, Data{});
}

TEST_F(QueueTest, VisitingWithoutAFunctionReportsTheCheck) {
  LogCapture log;
  g_queue_foreach(queue, nullptr, nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_queue", "func != NULL")});
  g_queue_foreach_reverse(queue, nullptr, nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_queue", "func != NULL")});
}

// --- enqueue, dequeue ---

TEST_F(QueueTest, ElementsLeaveInTheOrderTheyEntered) {
  g_queue_enqueue(queue, a);
  EXPECT_EQ(g_queue_empty(queue), 0);
  g_queue_enqueue(queue, b);
  g_queue_enqueue(queue, c);
  EXPECT_EQ(added, (Data{a, b, c}));
  EXPECT_EQ(content(queue), (Data{a, b, c}));
  EXPECT_EQ(g_queue_dequeue(queue, nullptr), a);
  EXPECT_EQ(g_queue_dequeue(queue, nullptr), b);
  EXPECT_EQ(released, (Data{a, b}));
  EXPECT_EQ(content(queue), Data{c});
}

TEST_F(QueueTest, DequeueFromAnEmptyQueueIsNullAndReleasesNothing) {
  EXPECT_EQ(g_queue_dequeue(queue, nullptr), nullptr);
  EXPECT_EQ(g_queue_dequeue(queue, a), nullptr);
  EXPECT_EQ(released, Data{});
}

TEST_F(QueueTest, DequeueOfAnExpectedElementTakesItFromTheHeadOnly) {
  make({a, b, c});
  EXPECT_EQ(g_queue_dequeue(queue, b), nullptr);
  EXPECT_EQ(g_queue_dequeue(queue, d), nullptr);
  EXPECT_EQ(content(queue), (Data{a, b, c}));
  EXPECT_EQ(released, Data{});
  EXPECT_EQ(g_queue_dequeue(queue, a), a);
  EXPECT_EQ(content(queue), (Data{b, c}));
  EXPECT_EQ(released, Data{a});
}

TEST_F(QueueTest, TakingTheLastElementEmptiesBothEnds) {
  make({a});
  g_queue_dequeue(queue, nullptr);
  EXPECT_EQ(content(queue), Data{});
  EXPECT_EQ(g_queue_empty(queue), 1);
  g_queue_enqueue(queue, b);
  EXPECT_EQ(content(queue), Data{b});
}

TEST_F(QueueTest, WithoutCallbacksElementsJustPass) {
  GQueue* const plain = g_queue_new(nullptr, nullptr);
  g_queue_enqueue(plain, a);
  g_queue_insert(plain, b, c);
  g_queue_insert(plain, a, b);
  EXPECT_EQ(content(plain), (Data{a, b, c}));
  EXPECT_EQ(g_queue_dequeue(plain, nullptr), a);
  g_queue_remove(plain, b);
  g_queue_clear(plain);
  EXPECT_EQ(content(plain), Data{});
  g_queue_free(plain);
}

TEST_F(QueueTest, ANullElementMayPass) {
  g_queue_enqueue(queue, nullptr);
  EXPECT_EQ(g_queue_count(queue), 1u);
  EXPECT_EQ(g_queue_dequeue(queue, nullptr), nullptr);
  EXPECT_EQ(g_queue_count(queue), 0u);
  EXPECT_EQ(released, Data{nullptr});
}

TEST_F(QueueTest, ANullElementMayBeRemovedAndDeleted) {
  make({a, nullptr, b, nullptr});
  g_queue_remove(queue, nullptr);
  EXPECT_EQ(content(queue), (Data{a, b, nullptr}));
  g_queue_delete(queue, nullptr);
  EXPECT_EQ(content(queue), (Data{a, b}));
  EXPECT_EQ(released, (Data{nullptr, nullptr}));
}

TEST_F(QueueTest, FirstAndLastLeaveTheElements) {
  EXPECT_EQ(g_queue_first(queue), nullptr);
  EXPECT_EQ(g_queue_last(queue), nullptr);
  make({a, b, c});
  EXPECT_EQ(g_queue_first(queue), a);
  EXPECT_EQ(g_queue_last(queue), c);
  EXPECT_EQ(content(queue), (Data{a, b, c}));
  EXPECT_EQ(released, Data{});
}

// Uses the queue from inside its callback, which only works while it is not locked.
GQueue* used = nullptr;
Data seen_inside;

TEST_F(QueueTest, AnAddCallbackMayUseTheQueueWhichHoldsTheElementOnlyLater) {
  GQueue* const other = g_queue_new([](void*) { seen_inside = content(used); }, nullptr);
  used = other;
  g_queue_enqueue(other, a);
  EXPECT_EQ(seen_inside, Data{});
  g_queue_enqueue(other, b);
  EXPECT_EQ(seen_inside, Data{a});
  g_queue_insert(other, a, c);
  EXPECT_EQ(seen_inside, (Data{a, b}));
  EXPECT_EQ(content(other), (Data{a, c, b}));
  g_queue_free(other);
}

TEST_F(QueueTest, DequeueReleasesAfterUnlocking) {
  GQueue* const other = g_queue_new(nullptr, [](void*) { seen_inside = content(used); });
  used = other;
  g_queue_enqueue(other, a);
  g_queue_enqueue(other, b);
  EXPECT_EQ(g_queue_dequeue(other, nullptr), a);
  EXPECT_EQ(seen_inside, Data{b});
  g_queue_dequeue(other, nullptr);
  g_queue_free(other);
}

// Whether the queue's mutex is held: a thread that locks it does not come back.
std::atomic<bool> lock_asked_for;
std::atomic<bool> lock_taken;
void* take_lock(void* mutex) {
  lock_asked_for = true;
  g_thread_mutex_lock(static_cast<GMutex*>(mutex));
  lock_taken = true;
  g_thread_mutex_unlock(static_cast<GMutex*>(mutex));
  return nullptr;
}
std::vector<bool> locked_inside;
GThread* waiting_thread = nullptr;
void look_at_lock(void*) {
  lock_asked_for = false;
  lock_taken = false;
  waiting_thread = g_thread_create(take_lock, front_of(used).mutex, nullptr);
  while (!lock_asked_for) std::this_thread::yield();
  usleep(20000);
  locked_inside.push_back(!lock_taken);
}

TEST_F(QueueTest, ClearAndRemoveReleaseWithTheQueueLocked) {
  GQueue* const other = g_queue_new(nullptr, look_at_lock);
  used = other;
  locked_inside.clear();
  g_queue_enqueue(other, a);
  g_queue_clear(other);
  g_thread_wait(waiting_thread);
  EXPECT_EQ(locked_inside, std::vector<bool>{true});
  g_queue_enqueue(other, a);
  g_queue_remove(other, a);
  g_thread_wait(waiting_thread);
  EXPECT_EQ(locked_inside, (std::vector<bool>{true, true}));
  g_queue_free(other);
}

TEST_F(QueueTest, EveryOtherCallWaitsForTheMutex) {
  struct Call {
    const char* name;
    void (*make)(GQueue* queue);
  };
  const Call calls[] = {
      {"empty", [](GQueue* q) { g_queue_empty(q); }},
      {"enqueue", [](GQueue* q) { g_queue_enqueue(q, d); }},
      {"dequeue", [](GQueue* q) { g_queue_dequeue(q, nullptr); }},
      {"first", [](GQueue* q) { g_queue_first(q); }},
      {"last", [](GQueue* q) { g_queue_last(q); }},
      {"clear", [](GQueue* q) { g_queue_clear(q); }},
      {"insert", [](GQueue* q) { g_queue_insert(q, a, d); }},
      {"remove", [](GQueue* q) { g_queue_remove(q, a); }},
      {"foreach", [](GQueue* q) { g_queue_foreach(q, look_only, nullptr); }},
      {"foreach_reverse",
       [](GQueue* q) { g_queue_foreach_reverse(q, look_only, nullptr); }},
  };
  for (const Call& call : calls) {
    SCOPED_TRACE(call.name);
    make({a, b});
    GMutex* const mutex = front_of(queue).mutex;
    std::atomic<bool> begun{false};
    std::atomic<bool> done{false};
    g_thread_mutex_lock(mutex);
    std::thread caller([&] {
      begun = true;
      call.make(queue);
      done = true;
    });
    while (!begun) std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(done);
    g_thread_mutex_unlock(mutex);
    caller.join();
  }
}

TEST_F(QueueTest, CountTakesNoLock) {
  make({a, b});
  g_thread_mutex_lock(front_of(queue).mutex);
  EXPECT_EQ(g_queue_count(queue), 2u);
  g_thread_mutex_unlock(front_of(queue).mutex);
}

// --- clear, remove, delete ---

TEST_F(QueueTest, ClearReleasesFromHeadToTail) {
  make({a, b, a});
  g_queue_clear(queue);
  EXPECT_EQ(released, (Data{a, b, a}));
  EXPECT_EQ(content(queue), Data{});
  g_queue_clear(queue);
  EXPECT_EQ(released.size(), 3u);
}

TEST_F(QueueTest, RemovingTheTailElementMovesTheTailBack) {
  make({a, b, c});
  g_queue_remove(queue, c);
  EXPECT_EQ(g_queue_last(queue), b);
  EXPECT_EQ(content(queue), (Data{a, b}));
  EXPECT_EQ(released, Data{c});
  g_queue_enqueue(queue, d);
  EXPECT_EQ(content(queue), (Data{a, b, d}));
}

TEST_F(QueueTest, RemoveTakesTheFirstOccurrenceWhereverItIs) {
  make({a, b, a, c});
  g_queue_remove(queue, a);
  EXPECT_EQ(content(queue), (Data{b, a, c}));
  g_queue_remove(queue, a);
  EXPECT_EQ(content(queue), (Data{b, c}));
  g_queue_remove(queue, b);
  g_queue_remove(queue, c);
  EXPECT_EQ(content(queue), Data{});
  EXPECT_EQ(released, (Data{a, a, b, c}));
}

TEST_F(QueueTest, RemovingAnAbsentElementDoesNothing) {
  make({a});
  g_queue_remove(queue, b);
  g_queue_delete(queue, b);
  EXPECT_EQ(content(queue), Data{a});
  EXPECT_EQ(released, Data{});
}

TEST_F(QueueTest, DeleteTakesNoLock) {
  make({a, b});
  g_thread_mutex_lock(front_of(queue).mutex);
  g_queue_delete(queue, b);
  g_thread_mutex_unlock(front_of(queue).mutex);
  EXPECT_EQ(content(queue), Data{a});
  EXPECT_EQ(released, Data{b});
}

// Deletes elements when the first one is visited.
struct Deletion {
  GQueue* queue;
  Data deleted;
  Data visited;
};
int delete_at_first(void* data, void* user) {
  auto& deletion = *static_cast<Deletion*>(user);
  if (deletion.visited.empty()) {
    for (void* const element : deletion.deleted) g_queue_delete(deletion.queue, element);
  }
  deletion.visited.push_back(data);
  return 0;
}

TEST_F(QueueTest, AVisitMayDeleteElementsThatItHasNotReached) {
  struct Case {
    Data deleted;
    Data visited;
  };
  const Case cases[] = {{{b}, {a, c, d}},
                        {{b, c}, {a, d}},
                        {{d}, {a, b, c}},
                        {{b, c, d}, {a}},
                        {{a, b}, {a, c, d}}};
  for (const Case& each : cases) {
    make({a, b, c, d});
    Deletion deletion{queue, each.deleted, {}};
    g_queue_foreach(queue, delete_at_first, &deletion);
    EXPECT_EQ(deletion.visited, each.visited);
    make({d, c, b, a});
    deletion = {queue, each.deleted, {}};
    g_queue_foreach_reverse(queue, delete_at_first, &deletion);
    EXPECT_EQ(deletion.visited, each.visited);
  }
}

// The element that it was given, but the node before.
TEST_F(QueueTest, AVisitFromTheTailMayDeleteAnElementThatIsThereTwice) {
  make({a, a});
  Deletion deletion{queue, {a}, {}};
  g_queue_foreach_reverse(queue, delete_at_first, &deletion);
  EXPECT_EQ(deletion.visited, Data{a});
  EXPECT_EQ(content(queue), Data{a});
}

// Else it would be freed under a visit, instead of being kept.
TEST_F(QueueTest, ADeletedNodeForWhichThereIsNoRoomIsNotVisited) {
  make({});
  for (int i = 0; i < 1000; ++i) g_queue_enqueue(queue, a);
  for (int i = 0; i < 1000; ++i) g_queue_dequeue(queue, nullptr);
  for (void* const element : {a, b, c}) g_queue_enqueue(queue, element);
  for (int i = 0; i < 1000; ++i) g_queue_enqueue(queue, d);
  for (int i = 0; i < 1000; ++i) g_queue_remove(queue, d);
  Deletion deletion{queue, {b}, {}};
  g_queue_foreach(queue, delete_at_first, &deletion);
  EXPECT_EQ(deletion.visited, (Data{a, c}));
}

// Where a clear of `cleared` is: the elements that it released.
GQueue* cleared = nullptr;
Data released_by_clear;
void release_and_delete_b_at_first(void* data) {
  released_by_clear.push_back(data);
  if (released_by_clear.size() == 1) g_queue_delete(cleared, b);
}

TEST_F(QueueTest, AReleaseFunctionMayDeleteWhatAClearHasNotReached) {
  cleared = g_queue_new(nullptr, release_and_delete_b_at_first);
  released_by_clear.clear();
  for (void* const element : {a, b, c}) g_queue_enqueue(cleared, element);
  g_queue_clear(cleared);
  EXPECT_EQ(released_by_clear, (Data{a, b, c}));
  EXPECT_EQ(g_queue_count(cleared), 0u);
  g_queue_free(cleared);
}

TEST_F(QueueTest, AVisitMayDeleteTheElementItWasGiven) {
  for (const auto visit : {g_queue_foreach, g_queue_foreach_reverse}) {
    make({a, b, c, d});
    visit(
        queue,
        [](void* data, void* user) {
          if (data != c) g_queue_delete(static_cast<GQueue*>(user), data);
          return 0;
        },
        queue);
    EXPECT_EQ(content(queue), Data{c});
  }
}

// --- insert ---

TEST_F(QueueTest, InsertPutsTheElementAfterTheFirstSibling) {
  make({a, b, a, c});
  g_queue_insert(queue, a, d);
  EXPECT_EQ(content(queue), (Data{a, d, b, a, c}));
  EXPECT_EQ(added, Data{d});
}

TEST_F(QueueTest, InsertAfterTheTailElementAppendsWithOneAddCall) {
  make({a, b});
  g_queue_insert(queue, b, d);
  EXPECT_EQ(content(queue), (Data{a, b, d}));
  EXPECT_EQ(added, Data{d});
}

TEST_F(QueueTest, InsertAfterAnElementThatIsAlsoTheTailAppends) {
  make({a, b, a});
  g_queue_insert(queue, a, d);
  EXPECT_EQ(content(queue), (Data{a, b, a, d}));
}

TEST_F(QueueTest, InsertAfterAnAbsentSiblingAppendsAndCallsTheAddCallbackTwice) {
  make({a, b});
  g_queue_insert(queue, c, d);
  EXPECT_EQ(content(queue), (Data{a, b, d}));
  EXPECT_EQ(added, (Data{d, d}));
}

TEST_F(QueueTest, InsertIntoAnEmptyQueueOrWithoutASiblingAppendsWithOneAddCall) {
  g_queue_insert(queue, c, a);
  EXPECT_EQ(content(queue), Data{a});
  g_queue_insert(queue, nullptr, b);
  EXPECT_EQ(content(queue), (Data{a, b}));
  EXPECT_EQ(added, (Data{a, b}));
}

// --- foreach ---

TEST_F(QueueTest, AVisitStopsAtTheFirstNonZeroResult) {
  make({a, b, c});
  struct Visit {
    Data seen;
    void* stop;
  };
  const auto visitor = [](void* data, void* user) {
    auto* const visit = static_cast<Visit*>(user);
    visit->seen.push_back(data);
    return data == visit->stop ? -3 : 0;
  };
  Visit forward{{}, b};
  g_queue_foreach(queue, visitor, &forward);
  EXPECT_EQ(forward.seen, (Data{a, b}));
  Visit backward{{}, b};
  g_queue_foreach_reverse(queue, visitor, &backward);
  EXPECT_EQ(backward.seen, (Data{c, b}));
  EXPECT_EQ(content(queue), (Data{a, b, c}));  // and the queue is not left locked
}

TEST_F(QueueTest, AVisitOfAnEmptyQueueCallsNothing) {
  const auto never = [](void*, void*) {
    ADD_FAILURE();
    return 0;
  };
  g_queue_foreach(queue, never, nullptr);
  g_queue_foreach_reverse(queue, never, nullptr);
}

// --- exhausted memory ---

TEST_F(QueueTest, WithoutMemoryNothingEntersAndTheAddedElementIsReleasedAgain) {
  make({a, b});
  LogCapture log;
  const auto expect_unchanged = [&](auto add, const Data& holds) {
    added.reserve(8);
    released.reserve(8);
    {
      AllocationFaults faults(1, true);
      add();
    }
    EXPECT_EQ(content(queue), (Data{a, b}));
    EXPECT_EQ(added, holds);
    EXPECT_EQ(released, Data{d});
    added.clear();
    released.clear();
  };
  expect_unchanged([&] { g_queue_enqueue(queue, d); }, {d});
  expect_unchanged([&] { g_queue_insert(queue, a, d); }, {d});
  expect_unchanged([&] { g_queue_insert(queue, b, d); }, {d});
  expect_unchanged([&] { g_queue_insert(queue, c, d); }, {d, d});
  EXPECT_EQ(log.take(), Lines{});
}

TEST_F(QueueTest, WithoutMemoryAndAnAddCallbackNothingIsReleased) {
  GQueue* const plain = g_queue_new(nullptr, record_released);
  g_queue_enqueue(plain, a);
  g_queue_enqueue(plain, b);
  released.reserve(8);
  {
    AllocationFaults faults(1, true);
    g_queue_enqueue(plain, d);
    g_queue_insert(plain, a, d);
    g_queue_insert(plain, c, d);
  }
  EXPECT_EQ(content(plain), (Data{a, b}));
  EXPECT_EQ(released, Data{});
  g_queue_free(plain);
}

TEST_F(QueueTest, OneAllocationSufficesForEachElement) {
  make({a, b});
  added.reserve(8);
  AllocationFaults faults(2, true);
  g_queue_insert(queue, c, d);
  faults.disarm();
  EXPECT_EQ(content(queue), (Data{a, b, d}));
}

// --- model ---

// Some nodes of elements that left serve those to come, except in a library that is built
// for size, as these tests are then, too.
#ifdef __OPTIMIZE_SIZE__
constexpr int kMostSpareNodes = 0;
#else
constexpr int kMostSpareNodes = 64;
#endif

TEST(Queue, TheNodeOfAnElementThatLeftServesTheNext) {
  GQueue* const queue = g_queue_new(nullptr, nullptr);
  for (const int way : {0, 1, 2}) {
    g_queue_enqueue(queue, a);
    g_queue_enqueue(queue, b);
    if (way == 0) g_queue_dequeue(queue, nullptr);
    if (way == 1) g_queue_remove(queue, a);
    if (way == 2) g_queue_delete(queue, a);
    AllocationFaults blocks(0);
    g_queue_enqueue(queue, c);
    g_queue_dequeue(queue, nullptr);
    g_queue_insert(queue, c, d);
    g_queue_dequeue(queue, nullptr);
    g_queue_enqueue(queue, a);
    g_queue_insert(queue, d, b);
    blocks.disarm();
    EXPECT_EQ(blocks.calls(), kMostSpareNodes != 0 ? 1 : 4) << "way " << way;
    EXPECT_EQ(content(queue), (Data{d, b, a})) << "way " << way;
    g_queue_clear(queue);
  }
  g_queue_free(queue);
}

TEST(Queue, OnlySomeNodesAreKept) {
  GQueue* const queue = g_queue_new(nullptr, nullptr);
  AllocationFaults blocks(0);
  for (int round = 0; round < 3; ++round) {
    for (int i = 0; i < 1000; ++i) g_queue_enqueue(queue, a);
    for (int i = 0; i < 1000; ++i) g_queue_dequeue(queue, nullptr);
    EXPECT_EQ(blocks.outstanding(), kMostSpareNodes) << "round " << round;
  }
  g_queue_clear(queue);
  EXPECT_EQ(blocks.outstanding(), 0) << "clearing frees them";
  g_queue_free(queue);
}

// What a queue should hold, and what each operation should pass to the callbacks.
struct QueueModel {
  std::deque<void*> elements;
  Data added;
  Data released;

  void enqueue(void* element) {
    elements.push_back(element);
    added = {element};
  }

  // After an absent sibling the element is appended, by a second call of the add callback.
  void insert(void* sibling, void* element) {
    added = {element};
    const auto at = find(sibling);
    if (elements.empty() || elements.back() == sibling) {
      elements.push_back(element);
    } else if (at != elements.end()) {
      elements.insert(at + 1, element);
    } else {
      elements.push_back(element);
      added.push_back(element);
    }
  }

  void* dequeue() {
    if (elements.empty()) return nullptr;
    released = {elements.front()};
    elements.pop_front();
    return released.front();
  }

  void* dequeue(void* expected) { return first() == expected ? dequeue() : nullptr; }

  void clear() {
    released.assign(elements.begin(), elements.end());
    elements.clear();
  }

  void remove(void* element) {
    const auto at = find(element);
    if (at == elements.end()) return;
    elements.erase(at);
    released = {element};
  }

  void* first() const { return elements.empty() ? nullptr : elements.front(); }
  void* last() const { return elements.empty() ? nullptr : elements.back(); }

 private:
  std::deque<void*>::iterator find(void* element) {
    return std::find(elements.begin(), elements.end(), element);
  }
};

// Runs an operation on both, and compares the results.
void run_random_operation(std::mt19937& random, GQueue* queue, QueueModel& model) {
  void* const element = &elements[random() % 24];
  void* const sibling = &elements[random() % 24];
  switch (random() % (model.elements.size() > 30 ? 12 : 9)) {
    case 0:
    case 1:
    case 2:
      g_queue_enqueue(queue, element);
      model.enqueue(element);
      break;
    case 3:
    case 4:
      g_queue_insert(queue, sibling, element);
      model.insert(sibling, element);
      break;
    case 5:
      ASSERT_EQ(g_queue_dequeue(queue, nullptr), model.dequeue());
      break;
    case 6:
      ASSERT_EQ(g_queue_dequeue(queue, element), model.dequeue(element));
      break;
    case 7:
      ASSERT_EQ(g_queue_first(queue), model.first());
      ASSERT_EQ(g_queue_last(queue), model.last());
      break;
    case 8:
      if (random() % 50 != 0) break;
      g_queue_clear(queue);
      model.clear();
      break;
    default:
      g_queue_remove(queue, element);
      model.remove(element);
      break;
  }
}

TEST_F(QueueTest, AgreesWithADequeOverRandomOperations) {
  std::mt19937 random(3);
  QueueModel model;
  for (int step = 0; step < 30000; ++step) {
    for (Data* const calls : {&added, &released, &model.added, &model.released}) {
      calls->clear();
    }
    run_random_operation(random, queue, model);
    ASSERT_FALSE(HasFailure());
    ASSERT_EQ(added, model.added);
    ASSERT_EQ(released, model.released);
    ASSERT_EQ(content(queue), Data(model.elements.begin(), model.elements.end()));
    ASSERT_EQ(g_queue_empty(queue), model.elements.empty() ? 1 : 0);
  }
}

// --- threads ---

#if defined(__SANITIZE_THREAD__) || !(defined(__i386__) || defined(__x86_64__))
constexpr uintptr_t kPerThread = 20000;  // slow surroundings
#else
constexpr uintptr_t kPerThread = 200000;
#endif

TEST(QueueThreads, EveryElementComesOutOnceAndInTheOrderOfItsProducer) {
  GQueue* const queue = g_queue_new(nullptr, nullptr);
  constexpr uintptr_t kProducers = 3;
  std::vector<std::thread> threads;
  for (uintptr_t producer = 0; producer < kProducers; ++producer) {
    threads.emplace_back([=] {
      for (uintptr_t i = 0; i < kPerThread; ++i) {
        g_queue_enqueue(queue, reinterpret_cast<void*>(1 + producer + i * kProducers));
      }
    });
  }
  std::vector<uintptr_t> next(kProducers, 0);
  for (uintptr_t taken = 0; taken < kProducers * kPerThread;) {
    void* const element = g_queue_dequeue(queue, nullptr);
    if (element == nullptr) {
      std::this_thread::yield();
      continue;
    }
    const auto value = reinterpret_cast<uintptr_t>(element) - 1;
    ASSERT_EQ(value / kProducers, next[value % kProducers]);
    ++next[value % kProducers];
    ++taken;
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(g_queue_count(queue), 0u);
  EXPECT_EQ(g_queue_empty(queue), 1);
  g_queue_free(queue);
}

std::atomic<uint32_t> held{0};

void call_at_random(GQueue* queue, unsigned seed) {
  std::mt19937 random(seed);
  for (uintptr_t step = 0; step < kPerThread / 10; ++step) {
    void* const element = &elements[random() % 8];
    switch (random() % 8) {
      case 0:
      case 1:
        g_queue_enqueue(queue, element);
        break;
      case 2:
        g_queue_insert(queue, &elements[random() % 8], element);
        break;
      case 3:
        g_queue_remove(queue, element);
        break;
      case 4:
        g_queue_foreach(
            queue, [](void* data, void*) { return data == a ? 1 : 0; }, nullptr);
        break;
      case 5:
        if (random() % 64 == 0) g_queue_clear(queue);
        g_queue_first(queue);
        g_queue_last(queue);
        break;
      default:
        g_queue_dequeue(queue, nullptr);
        EXPECT_LT(g_queue_count(queue), 100000u);
        break;
    }
  }
}

TEST(QueueThreads, AnyCallsMayMeet) {
  GQueue* const queue = g_queue_new([](void*) { ++held; }, [](void*) { --held; });
  held = 0;
  std::vector<std::thread> threads;
  for (unsigned seed = 0; seed < 3; ++seed) {
    threads.emplace_back(call_at_random, queue, seed);
  }
  for (std::thread& thread : threads) thread.join();
  Data left;
  g_queue_foreach(queue, collect, &left);
  EXPECT_EQ(g_queue_count(queue), left.size());
  // An insertion that found no sibling added its element's hold twice.
  EXPECT_GE(held, left.size());
  g_queue_free(queue);
}

// A thread that ends inside a function that runs under the lock, in one of two ways.
std::atomic<bool> inside;
bool exits_by_itself;
void end_of_thread() {
  inside = true;
  if (exits_by_itself) pthread_exit(nullptr);
  for (;;) {
    pthread_testcancel();
    std::this_thread::yield();
  }
}

template <typename Body>
void end_inside(Body body) {
  inside = false;
  GThread* const thread = g_thread_create(
      [](void* given) -> void* {
        (*static_cast<Body*>(given))();
        return nullptr;
      },
      &body, nullptr);
  while (!inside) std::this_thread::yield();
  g_thread_cancel(thread);
  g_thread_wait(thread);
}

class QueueCancellation : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    exits_by_itself = GetParam();
    released.clear();
    added.clear();
  }
};
INSTANTIATE_TEST_SUITE_P(CancelledOrExiting, QueueCancellation, ::testing::Bool());

TEST_P(QueueCancellation, InAVisitLeavesTheQueueUnlockedAndWhole) {
  for (const auto visit : {g_queue_foreach, g_queue_foreach_reverse}) {
    GQueue* const queue = g_queue_new(nullptr, nullptr);
    for (void* const element : {a, b, c}) g_queue_enqueue(queue, element);
    end_inside([&] {
      visit(
          queue,
          [](void* data, void*) {
            if (data == b) end_of_thread();
            return 0;
          },
          nullptr);
    });
    EXPECT_EQ(content(queue), (Data{a, b, c}));
    g_queue_free(queue);
  }
}

void end_at_b(void* data) {
  released.push_back(data);
  if (data == b && !inside) end_of_thread();
}

TEST_P(QueueCancellation, InAReleaseOfClearLeavesWhatWasNotReleased) {
  AllocationFaults blocks(0);
  GQueue* const queue = g_queue_new(nullptr, end_at_b);
  for (void* const element : {a, b, c, d}) g_queue_enqueue(queue, element);
  blocks.disarm();
  end_inside([&] { g_queue_clear(queue); });
  EXPECT_EQ(released, (Data{a, b}));
  EXPECT_EQ(content(queue), (Data{c, d}));
  g_queue_free(queue);
  EXPECT_EQ(released, (Data{a, b, c, d}));
  EXPECT_EQ(blocks.outstanding(), 0);
}

TEST_P(QueueCancellation, InAReleaseOfRemoveLeavesTheElementOut) {
  GQueue* const queue = g_queue_new(nullptr, end_at_b);
  for (void* const element : {a, b, c}) g_queue_enqueue(queue, element);
  end_inside([&] { g_queue_remove(queue, b); });
  EXPECT_EQ(released, Data{b});
  EXPECT_EQ(content(queue), (Data{a, c}));
  g_queue_free(queue);
}

TEST_P(QueueCancellation, InAReleaseOfDequeueLeavesTheElementOut) {
  GQueue* const queue = g_queue_new(nullptr, end_at_b);
  for (void* const element : {b, c}) g_queue_enqueue(queue, element);
  end_inside([&] { g_queue_dequeue(queue, nullptr); });
  EXPECT_EQ(content(queue), Data{c});
  g_queue_free(queue);
}

AllocationFaults* watched_blocks;

TEST_P(QueueCancellation, InAnAddCallbackAddsNothingAndLeaksNothing) {
  const auto end = [](void* data) {
    if (data != b) return;
    watched_blocks->disarm();
    end_of_thread();
  };
  GQueue* const queue = g_queue_new(end, nullptr);
  g_queue_enqueue(queue, a);
  std::optional<AllocationFaults> blocks;
  end_inside([&] {
    watched_blocks = &blocks.emplace(0);
    g_queue_enqueue(queue, b);
  });
  EXPECT_EQ(blocks->outstanding(), 0);
  EXPECT_EQ(content(queue), Data{a});
  g_queue_free(queue);
}

// Leaves by longjmp(), which passes over what the library has on the stack, and then ends
// its thread, which runs whatever cleanup handlers are still on record.
std::jmp_buf way_out;
GQueue* jumped_over;
void jump_at_b(void* data) {
  if (data == b) std::longjmp(way_out, 1);
}

[[gnu::noinline]] void enqueue_and_jump(bool inserts) {
  if (setjmp(way_out) != 0) return;
  if (inserts) {
    g_queue_insert(jumped_over, a, b);
  } else {
    g_queue_enqueue(jumped_over, b);
  }
  ADD_FAILURE() << "did not jump";
}

[[gnu::noinline]] void overwrite_the_stack() {
  volatile unsigned char scratch[4096];
  for (volatile unsigned char& byte : scratch) byte = 0x5a;
}

TEST(QueueLongjmp, OutOfAnAddCallbackAddsNothingAndLeaksNothing) {
  for (const bool inserts : {false, true}) {
    jumped_over = g_queue_new(jump_at_b, nullptr);
    g_queue_enqueue(jumped_over, a);
    g_queue_enqueue(jumped_over, c);
    AllocationFaults* blocks = nullptr;
    struct Given {
      bool inserts;
      AllocationFaults** blocks;
    } given{inserts, &blocks};
    GThread* const thread = g_thread_create(
        [](void* argument) -> void* {
          const auto& [thread_inserts, thread_blocks] = *static_cast<Given*>(argument);
          *thread_blocks = new AllocationFaults(0);
          enqueue_and_jump(thread_inserts);
          (*thread_blocks)->disarm();
          overwrite_the_stack();
          pthread_exit(nullptr);
        },
        &given, nullptr);
    g_thread_wait(thread);
    EXPECT_EQ(blocks->outstanding(), 0);
    delete blocks;
    EXPECT_EQ(content(jumped_over), (Data{a, c}));
    g_queue_free(jumped_over);
  }
}

}  // namespace
