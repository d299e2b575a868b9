// Takes a fuzzer's bytes apart.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_FUZZ_SUPPORT_INPUT_H
#define GROUNDWORK_FUZZ_SUPPORT_INPUT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace fuzz {

// Reads from the front. At the end numbers are 0 and texts empty, so that a body needs no
// case for short input.
class Input {
 public:
  Input(const uint8_t* data, size_t size)
      : rest_(reinterpret_cast<const char*>(data), size) {}

  bool empty() const { return rest_.empty(); }

  uint8_t byte() {
    if (rest_.empty()) return 0;
    const char first = rest_.front();
    rest_.remove_prefix(1);
    return static_cast<uint8_t>(first);
  }
  // Of `bytes` bytes, the lowest first on every target.
  uint64_t number(int bytes) {
    uint64_t value = 0;
    for (int i = 0; i < bytes; ++i) value |= uint64_t{byte()} << (8 * i);
    return value;
  }
  uint16_t word() { return static_cast<uint16_t>(number(2)); }
  int32_t int32() { return static_cast<int32_t>(number(4)); }
  int64_t int64() { return static_cast<int64_t>(number(8)); }

  std::string bytes(size_t count) {
    const std::string_view taken = rest_.substr(0, std::min(count, rest_.size()));
    rest_.remove_prefix(taken.size());
    return std::string(taken);
  }
  // The bytes before the next `end`, which is skipped.
  std::string field(char end) {
    std::string taken = bytes(std::min(rest_.find(end), rest_.size()));
    if (!rest_.empty()) rest_.remove_prefix(1);
    return taken;
  }
  std::string rest() { return bytes(rest_.size()); }

 private:
  std::string_view rest_;
};

}  // namespace fuzz

#endif
