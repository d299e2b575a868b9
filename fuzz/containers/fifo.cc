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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  g_debug_set_level2(3);
  g_debug_set_handler(note_line, nullptr);
  logged.clear();
  const auto capacity = static_cast<int>(static_cast<int8_t>(input.byte()));
  GFifo* const fifo = g_fifo_new(capacity);
  if (capacity <= 0) {
    REQUIRE(fifo == nullptr);
    REQUIRE_EQUAL(logged, std::string("[CRITICAL] 'max_buf > 0' FAILED.\n"));
    return 0;
  }
  REQUIRE(fifo != nullptr);
  std::deque<void*> model;
  while (!input.empty()) {
    const uint8_t operation = input.byte();
    logged.clear();
    std::string expected;
    if (operation < 0x90) {
      void* const block = std::malloc(1);
      const bool full = model.size() == static_cast<size_t>(capacity);
      REQUIRE_EQUAL(g_fifo_put(fifo, block), full ? -1 : 0);
      if (full) {
        std::free(block);
        expected = complaint(fifo, "fifo(%p) is full, failed to put.");
      } else {
        model.push_back(block);
      }
    } else if (operation < 0xf0) {
      void* const taken = g_fifo_get(fifo);
      REQUIRE_EQUAL(taken, model.empty() ? nullptr : model.front());
      if (model.empty()) {
        expected = complaint(fifo, "fifo(%p) is empty, failed to get.");
      } else {
        model.pop_front();
      }
      std::free(taken);
    } else if (operation < 0xf8) {
      REQUIRE_EQUAL(g_fifo_put(fifo, nullptr), -1);
      expected = "[CRITICAL] '_data != NULL' FAILED.\n";
    } else {
      REQUIRE_EQUAL(g_fifo_flush(fifo), 0);
      model.clear();
    }
    REQUIRE_EQUAL(logged, expected);
    const auto count = static_cast<int>(model.size());
    REQUIRE_EQUAL(g_fifo_count(fifo), count);
    REQUIRE_EQUAL(g_fifo_avail(fifo), capacity - count);
    REQUIRE_EQUAL(g_fifo_size(fifo), capacity);
    REQUIRE_EQUAL(g_fifo_empty(fifo), count == 0 ? 1 : 0);
    REQUIRE_EQUAL(g_fifo_full(fifo), count == capacity ? 1 : 0);
  }
  g_fifo_flush(fifo);
  g_fifo_free(fifo);
  return 0;
}
