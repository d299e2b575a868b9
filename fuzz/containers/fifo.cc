// Operations on a ring buffer against a model, with each line that a full or an empty one
// logs.
//
// SPDX-License-Identifier: MIT

#include <groundwork/fifo.h>
#include <groundwork/log.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <string>

#include "fuzz/support/check.h"
#include "fuzz/support/input.h"

namespace {

std::string logged;

int note_line(const char* line, void*) {
  // "g_fifo:83: [WARNING] ..." without the number, which is the source line's.
  const std::string text(line);
  const size_t colon = text.find(": [");
  REQUIRE(text.starts_with("g_fifo:") && colon != text.npos);
  logged += text.substr(colon + 2) + '\n';
  return 0;
}

std::string complaint(const GFifo* fifo, const char* format) {
  char text[96];
  std::snprintf(text, sizeof text, format, static_cast<const void*>(fifo));
  return std::string("[WARNING] ") + text + '\n';
}

// A ring buffer with a model of it. Its elements are blocks of the heap, so that the leak
// checker sees whether a flush frees them.
class Ring {
 public:
  explicit Ring(int capacity) : capacity_(capacity), fifo_(g_fifo_new(capacity)) {
    REQUIRE(fifo_ != nullptr);
  }
  ~Ring() {
    g_fifo_flush(fifo_);
    g_fifo_free(fifo_);
  }
  Ring(const Ring&) = delete;
  Ring& operator=(const Ring&) = delete;

  void operate(uint8_t operation) {
    logged.clear();
    std::string expected;
    if (operation < 0x90) {
      expected = put();
    } else if (operation < 0xf0) {
      expected = get();
    } else if (operation < 0xf8) {
      REQUIRE_EQUAL(g_fifo_put(fifo_, nullptr), -1);
      expected = "[CRITICAL] '_data != NULL' FAILED.\n";
    } else {
      REQUIRE_EQUAL(g_fifo_flush(fifo_), 0);
      model_.clear();
    }
    REQUIRE_EQUAL(logged, expected);
    compare();
  }

 private:
  // Returns what is to be logged; so does get().
  std::string put() {
    void* const block = std::malloc(1);
    const bool is_full = model_.size() == static_cast<size_t>(capacity_);
    REQUIRE_EQUAL(g_fifo_put(fifo_, block), is_full ? -1 : 0);
    if (!is_full) {
      model_.push_back(block);
      return "";
    }
    std::free(block);
    return complaint(fifo_, "fifo(%p) is full, failed to put.");
  }

  std::string get() {
    void* const taken = g_fifo_get(fifo_);
    REQUIRE_EQUAL(taken, model_.empty() ? nullptr : model_.front());
    std::free(taken);
    if (model_.empty()) return complaint(fifo_, "fifo(%p) is empty, failed to get.");
    model_.pop_front();
    return "";
  }

  void compare() const {
    const auto count = static_cast<int>(model_.size());
    REQUIRE_EQUAL(g_fifo_count(fifo_), count);
    REQUIRE_EQUAL(g_fifo_avail(fifo_), capacity_ - count);
    REQUIRE_EQUAL(g_fifo_size(fifo_), capacity_);
    REQUIRE_EQUAL(g_fifo_empty(fifo_), count == 0 ? 1 : 0);
    REQUIRE_EQUAL(g_fifo_full(fifo_), count == capacity_ ? 1 : 0);
  }

  const int capacity_;
  GFifo* const fifo_;
  std::deque<void*> model_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  g_debug_set_level2(3);
  g_debug_set_handler(note_line, nullptr);
  logged.clear();
  const auto capacity = static_cast<int>(static_cast<int8_t>(input.byte()));
  if (capacity <= 0) {
    REQUIRE(g_fifo_new(capacity) == nullptr);
    REQUIRE_EQUAL(logged, std::string("[CRITICAL] 'max_buf > 0' FAILED.\n"));
    return 0;
  }
  Ring ring(capacity);
  while (!input.empty()) ring.operate(input.byte());
  return 0;
}
