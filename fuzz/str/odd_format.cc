// Formatted allocation with any format at all: conversions that do not exist, flags in any
// order, positions, wide characters. Every argument, however it is read, is the address of
// a short text that may also be written over.
//
// SPDX-License-Identifier: MIT

#include <groundwork/log.h>
#include <groundwork/str.h>

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <sys/mman.h>

#include "fuzz/str/lost_copies.h"
#include "fuzz/str/sanitizer_options.h"
#include "fuzz/support/check.h"
#include "fuzz/support/flat_arguments.h"
#include "fuzz/support/input.h"

namespace {

// The arguments, one after the other, point to texts at the lowest addresses that the
// system allows: the addresses also serve as widths and precisions.
constexpr uintptr_t kLowest = 0x10000;
constexpr size_t kTexts = 400;
constexpr size_t kTextSize = 32;
constexpr size_t kSize = kTexts * kTextSize;

char* texts() {
  static char* const mapped = [] {
    void* const wanted = reinterpret_cast<void*>(kLowest);
    void* const found = mmap(wanted, kSize, PROT_READ | PROT_WRITE,
                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
    REQUIRE_EQUAL(found, wanted);
    return static_cast<char*>(found);
  }();
  return mapped;
}

// Each of one wide character, and on little-endian targets of a plain one: what "%n" stored
// is undone.
void reset_texts() {
  std::memset(texts(), 0, kSize);
  const wchar_t wide[] = L"a";
  for (size_t i = 0; i < kTexts; ++i) {
    std::memcpy(texts() + i * kTextSize, wide, sizeof wide);
  }
}

// A width or a precision of many digits asks for all memory, a position for an argument
// that is not there.
bool asks_for_too_much(const std::string& format) {
  const int most = format.find('$') != format.npos ? 2 : 4;
  int digits = 0;
  for (const char c : format) {
    digits = c >= '0' && c <= '9' ? digits + 1 : 0;
    if (digits > most) return true;
  }
  return false;
}

template <typename Function>
auto with_arguments(Function function) {
  static const fuzz::FlatArguments arguments = [] {
    fuzz::FlatArguments list;
    for (size_t i = 0; i < kTexts; ++i) {
      list.add(static_cast<uint32_t>(kLowest + i * kTextSize));
    }
    return list;
  }();
  reset_texts();
  errno = ENOENT;  // for "%m"
  return arguments.with_list(function);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  g_debug_set_level2(99);
  fuzz::Input input(data, size);
  const std::string format = input.bytes(40).c_str();
  if (asks_for_too_much(format)) return 0;

  const int length = with_arguments(
      [&](std::va_list list) { return std::vsnprintf(nullptr, 0, format.c_str(), list); });
  char* const text = with_arguments([&](std::va_list list) {
    return fuzz::without_lost_copies(
        -1, [&] { return g_strdup_vprintf(format.c_str(), list); });
  });
  REQUIRE(text != nullptr);
  // Positions beside conversions without one give what the system's formatter happens to
  // find; survived they must be.
  if (length >= 0 && format.find('$') == format.npos) {
    std::vector<char> expected(static_cast<size_t>(length) + 1);
    with_arguments([&](std::va_list list) {
      return std::vsnprintf(expected.data(), expected.size(), format.c_str(), list);
    });
    REQUIRE_EQUAL(std::string(text, expected.size()),
                  std::string(expected.data(), expected.size()));
  }
  std::free(text);
  return 0;
}
