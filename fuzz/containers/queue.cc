// Operations on a queue against a model: its elements in order, and each call of the add
// and release functions.
//
// SPDX-License-Identifier: MIT

#include <groundwork/log.h>
#include <groundwork/queue.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "fuzz/support/check.h"
#include "fuzz/support/input.h"

namespace {

char elements[8];

void* element(unsigned number) {
  return number % 9 == 8 ? nullptr : &elements[number % 9];
}

// One letter for each call and element: what the library did, and what it should have done.
std::string calls;
std::string expected_calls;

char letter(const void* data, char first) {
  const auto number = data == nullptr ? 8 : static_cast<const char*>(data) - elements;
  return static_cast<char>(first + number);
}
void note_added(void* data) {
  calls += letter(data, 'A');
}
void note_released(void* data) {
  calls += letter(data, 'a');
}

struct Visits {
  std::vector<void*> seen;
  size_t stop_after;
};

int note_visited(void* data, void* user_data) {
  auto& visits = *static_cast<Visits*>(user_data);
  visits.seen.push_back(data);
  return visits.seen.size() == visits.stop_after ? -7 : 0;
}

class Model {
 public:
  Model(bool adds, bool releases) : adds_(adds), releases_(releases) {}

  void enqueue(void* data) {
    added(data);
    items_.push_back(data);
  }
  void* dequeue(const void* expected) {
    if (items_.empty() || (expected != nullptr && expected != items_.front()))
      return nullptr;
    void* const data = items_.front();
    items_.pop_front();
    released(data);
    return data;
  }
  void insert(const void* sibling, void* data) {
    if (data == nullptr) return;  // refused by the check
    if (items_.empty() || sibling == nullptr || sibling == items_.back()) {
      return enqueue(data);
    }
    added(data);
    const auto found = std::find(items_.begin(), items_.end(), sibling);
    if (found == items_.end()) return enqueue(data);  // counted twice
    items_.insert(found + 1, data);
  }
  void remove(void* data) {
    const auto found = std::find(items_.begin(), items_.end(), data);
    if (found == items_.end()) return;
    items_.erase(found);
    released(data);
  }
  void clear() {
    for (void* const data : items_) released(data);
    items_.clear();
  }
  const std::deque<void*>& items() const { return items_; }

 private:
  void added(void* data) const {
    if (adds_) expected_calls += letter(data, 'A');
  }
  void released(void* data) const {
    if (releases_) expected_calls += letter(data, 'a');
  }

  bool adds_;
  bool releases_;
  std::deque<void*> items_;
};

void compare(GQueue* queue, const Model& model, size_t stop_after) {
  const std::deque<void*>& items = model.items();
  REQUIRE_EQUAL(g_queue_count(queue), items.size());
  REQUIRE_EQUAL(g_queue_empty(queue), items.empty() ? 1 : 0);
  REQUIRE_EQUAL(g_queue_first(queue), items.empty() ? nullptr : items.front());
  REQUIRE_EQUAL(g_queue_last(queue), items.empty() ? nullptr : items.back());
  const size_t visited =
      stop_after != 0 ? std::min(stop_after, items.size()) : items.size();
  Visits forward{{}, stop_after};
  g_queue_foreach(queue, note_visited, &forward);
  REQUIRE_EQUAL(forward.seen.size(), visited);
  REQUIRE(std::equal(forward.seen.begin(), forward.seen.end(), items.begin()));
  Visits backward{{}, stop_after};
  g_queue_foreach_reverse(queue, note_visited, &backward);
  REQUIRE_EQUAL(backward.seen.size(), visited);
  REQUIRE(std::equal(backward.seen.begin(), backward.seen.end(), items.rbegin()));
  REQUIRE_EQUAL(calls, expected_calls);
}

// The high bits of the operation choose a variant.
void run_operation(uint8_t operation, GQueue* queue, Model& model, void* item,
                   void* other) {
  switch (operation % 8) {
    case 0:
    case 1:
      g_queue_enqueue(queue, item);
      return model.enqueue(item);
    case 2:
      REQUIRE_EQUAL(g_queue_dequeue(queue, nullptr), model.dequeue(nullptr));
      return;
    case 3:
      REQUIRE_EQUAL(g_queue_dequeue(queue, item), model.dequeue(item));
      return;
    case 4:
    case 5:
      g_queue_insert(queue, other, item);
      return model.insert(other, item);
    case 6:
      // Without the lock the same, as long as there is one thread.
      (operation & 0x80) != 0 ? g_queue_delete(queue, item) : g_queue_remove(queue, item);
      return model.remove(item);
    default:
      if (operation < 0xc0) return;
      g_queue_clear(queue);
      return model.clear();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  const uint8_t options = input.byte();
  const bool adds = (options & 1) == 0;
  const bool releases = (options & 2) == 0;
  g_debug_set_level2(99);
  calls.clear();
  expected_calls.clear();
  GQueue* const queue =
      g_queue_new(adds ? note_added : nullptr, releases ? note_released : nullptr);
  REQUIRE(queue != nullptr);
  Model model(adds, releases);
  while (!input.empty()) {
    const uint8_t operation = input.byte();
    const uint8_t arguments = input.byte();
    run_operation(operation, queue, model, element(arguments & 15),
                  element(arguments >> 4));
    compare(queue, model, operation >> 5);
  }
  model.clear();
  g_queue_free(queue);
  REQUIRE_EQUAL(calls, expected_calls);
  return 0;
}
